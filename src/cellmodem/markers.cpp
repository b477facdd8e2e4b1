#include "cellmodem/markers.h"

#include "platform/log.h"
#include "platform/paths.h"
#include "platform/process.h"

#include <cstdio>

#include <unistd.h>

bool cellmodem_is_external()
{
    return file_exists(marker_is_external);
}

bool cellmodem_is_gsm()
{
    return file_exists(marker_is_gsm);
}

bool cellmodem_is_cdma()
{
    return file_exists(marker_is_cdma);
}

bool cellmodem_is_lte()
{
    return file_exists(marker_is_lte);
}

int holding_create()
{
    // Written beside its place first: without the owner in it, a file that is left when the daemon
    // is killed would block every later start.
    const std::string place = rooted(holding_path);
    const std::string draft = place + ".new";
    FILE *file = fopen(draft.c_str(), "we");
    bool written = file && fprintf(file, "%ld\n", static_cast<long>(getpid())) > 0;
    written = file && fclose(file) == 0 && written;
    if (written && rename(draft.c_str(), place.c_str()) == 0)
        return 0;
    unlink(draft.c_str());
    log_message(log_error, "Failed to create holding file: %s", holding_path);
    return -1;
}

void holding_remove()
{
    unlink(rooted(holding_path).c_str());
}

void holding_remove_stale()
{
    const long owner = process_read_pid(holding_path);
    // In a container a restarted daemon often gets the very process id of its predecessor.
    if (owner > 0 && (owner == getpid() || !process_alive(owner))) {
        log_message(log_warning, "Removing %s, its owner %ld is dead", holding_path, owner);
        holding_remove();
    }
}

bool holding_present()
{
    return file_exists(holding_path);
}

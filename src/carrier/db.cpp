#include "carrier/db.h"

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/unique_fd.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>

constexpr size_t piece_bytes = 8192;

static struct {
    bool loaded = false; // the file was read to its end
    std::optional<carrier_table> table;
} db;

// Anything but a regular file could keep the daemon waiting, or never end.
static unique_fd open_file(const char *path)
{
    unique_fd fd(open(rooted(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    if (!fd || fstat(fd.get(), &status) != 0)
        return unique_fd();
    if (S_ISREG(status.st_mode))
        return fd;
    fd.reset();
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return fd;
}

// Reads until the end of the file. The file is read, not mapped: whoever cuts it meanwhile costs us
// the rest of the table and not the daemon.
static int load_from(const unique_fd &fd, const char *path)
{
    carrier_loader loader;
    std::array<char, piece_bytes> piece;
    ssize_t got = 0;
    while ((got = read(fd.get(), piece.data(), piece.size())) != 0) {
        if (got < 0 && errno != EINTR) {
            log_message(log_error, "Failed to read: %s: %s", path, strerror(errno));
            return -1;
        }
        if (clock_stopped())
            return -1;
        if (got > 0)
            carrier_load(loader, {piece.data(), static_cast<size_t>(got)});
    }
    db.table = carrier_load_end(loader);
    db.loaded = true;
    return 0;
}

static int load()
{
    const char *path = file_exists(carrier_db_own_path) ? carrier_db_own_path
                       : file_exists(carrier_db_path)   ? carrier_db_path
                                                        : nullptr;
    if (!path) {
        log_message(log_error, "No carrier database file found");
        return -1;
    }
    const unique_fd fd = open_file(path);
    if (!fd) {
        log_message(log_error, "Failed to open: %s: %s", path, strerror(errno));
        return -1;
    }
    return load_from(fd, path);
}

int carrier_db_create()
{
    return 0;
}

int carrier_db_lookup(carrier_network &result, uint16_t mcc, uint16_t mnc)
{
    try {
        if (!db.loaded && load() != 0)
            return -1;
    } catch (const std::exception &) {
        log_message(log_error, "Failed to allocate carrier entry");
        return -1;
    }
    return db.table ? carrier_find(*db.table, mcc, mnc, result) : -1;
}

void carrier_db_free()
{
    db.table.reset();
}

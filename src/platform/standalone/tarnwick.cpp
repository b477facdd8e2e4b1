// The platform library outside the appliance.

#include "platform/tarnwick.h"

#include "platform/log.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/unique_fd.h"
#include "platform/xmldb.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

// A file that names its owner and is held by flock while the owner lives. The kernel lets go of it
// when the process dies, however it dies, so that nothing is left that blocks the next start; the
// number in the file is for people and scripts.
struct held_file {
    unique_fd fd;
};

static std::string lock_path(const char *name)
{
    return std::string("/var/lock/") + name + ".lock";
}

static std::string pid_path(const char *name)
{
    return std::string("/var/run/") + name + ".pid";
}

static bool same_file(int fd, const std::string &place)
{
    struct stat held, named;
    return fstat(fd, &held) == 0 && stat(place.c_str(), &named) == 0 &&
           held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

// Opens and locks the file, or -1 with errno. Its last owner may remove it between our open and
// our flock: then the lock is on a file without a name, and we try again.
static unique_fd lock_file(const std::string &place, int flags)
{
    for (;;) {
        unique_fd fd(open(place.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | flags, 0644));
        if (!fd || flock(fd.get(), LOCK_EX | LOCK_NB) != 0)
            return unique_fd();
        if (same_file(fd.get(), place))
            return fd;
    }
}

static int hold(held_file &file, const std::string &path)
{
    if (file.fd)
        return 0;
    const std::string place = rooted(path);
    unique_fd fd = lock_file(place, O_CREAT);
    if (!fd)
        return -1;
    char text[32];
    const int length = snprintf(text, sizeof(text), "%ld\n", static_cast<long>(getpid()));
    if (ftruncate(fd.get(), 0) != 0 || write(fd.get(), text, static_cast<size_t>(length)) != length)
        return -1;
    file.fd = std::move(fd);
    return 0;
}

// A file that nobody holds was left by a dead process, and goes as well as our own. Looking whether
// somebody holds it takes it for a moment; not while a living process is named in it, because that
// moment could be the one in which that process takes it.
static int let_go(held_file &file, const std::string &path)
{
    const std::string place = rooted(path);
    if (!file.fd) {
        if (process_alive(process_read_pid(path.c_str()))) {
            errno = EBUSY;
            return -1;
        }
        file.fd = lock_file(place, 0);
    }
    if (!file.fd)
        return errno == ENOENT ? 0 : -1;
    const int result = same_file(file.fd.get(), place) ? unlink(place.c_str()) : 0;
    file.fd.reset();
    return result;
}

static held_file the_lock, the_pid;

int tarnwick_lockfile_create(const char *name)
{
    return hold(the_lock, lock_path(name));
}

int tarnwick_lockfile_clear(const char *name)
{
    return let_go(the_lock, lock_path(name));
}

int tarnwick_pidfile_create(const char *name)
{
    return hold(the_pid, pid_path(name));
}

int tarnwick_pidfile_clear(const char *name)
{
    // The owner of the lock may be about to take the pid file too.
    const bool owned_elsewhere =
        !the_lock.fd && process_alive(process_read_pid(lock_path(name).c_str()));
    if (!the_pid.fd && owned_elsewhere) {
        errno = EBUSY;
        return -1;
    }
    return let_go(the_pid, pid_path(name));
}

int tarnwick_proc_exec(const char *path, const char *const argv[], int *exit_status, int)
{
    return process_run(path, argv, exit_status);
}

int tarnwick_system(const char *line)
{
    return process_shell(line);
}

int tarnwick_serial_count(xmldb *db)
{
    return xmldb_getsize(db, "config.ports", "total");
}

static void fill_record(tarnwick_interface &record, const char *name, uint32_t ipv4)
{
    memset(&record, 0, sizeof(record));
    snprintf(record.name, sizeof(record.name), "%s", name);
    record.ipv4 = ipv4;
}

// Below a root the host's interfaces are none of our business: the root names its own, a name and
// an IPv4 address a line, all of them point-to-point.
static int list_root_interfaces(tarnwick_interface *records, int count)
{
    constexpr const char *list_path = "/var/run/ppp-interfaces";
    const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(rooted(list_path).c_str(), "re"),
                                                      fclose);
    if (!file)
        return 0;
    int found = 0;
    char name[28], address[16];
    while (found < count && fscanf(file.get(), "%27s %15s", name, address) == 2) {
        in_addr ipv4 = {};
        inet_pton(AF_INET, address, &ipv4);
        fill_record(records[found++], name, ipv4.s_addr);
    }
    return found;
}

static int list_host_interfaces(tarnwick_interface *records, int count)
{
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0)
        return -1;
    int found = 0;
    for (const ifaddrs *entry = all; entry && found < count; entry = entry->ifa_next) {
        if (!(entry->ifa_flags & IFF_POINTOPOINT) || !entry->ifa_addr ||
            entry->ifa_addr->sa_family != AF_INET)
            continue;
        sockaddr_in address;
        memcpy(&address, entry->ifa_addr, sizeof(address));
        fill_record(records[found++], entry->ifa_name, address.sin_addr.s_addr);
    }
    freeifaddrs(all);
    return found;
}

int tarnwick_network_getinterfaces(tarnwick_interface *records, int count, int kind)
{
    if (kind != tarnwick_interfaces_ppp) {
        errno = EINVAL;
        return -1;
    }
    return paths_root() ? list_root_interfaces(records, count)
                        : list_host_interfaces(records, count);
}

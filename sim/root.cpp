#include "sim/root.h"

#include "platform/unique_fd.h"
#include "sim/family.h"
#include "sim/report.h"
#include "sim/shipped_files.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>

// The longest name of a socket that any family or program keeps below a root, with room to spare.
static constexpr size_t socket_name_bytes = 48;
static constexpr size_t file_bytes_max = 1 << 20;

static constexpr const char *directories[] = {
    "/bin",        "/dev",           "/etc",
    "/etc/config", "/etc/scripts",   "/sbin",
    "/tmp",        "/var",           "/var/lock",
    "/var/log",    "/var/run",       "/var/run/.modem",
    "/var/spool",  "/var/spool/sms", "/var/spool/sms/incoming",
};

// A script finds its root by its own place, since it may be run without any environment.
#define SCRIPT_HEAD                                                                                \
    "#!/bin/sh\n"                                                                                  \
    "# Notes each call in var/log/scripts.log. Change it freely: it is made only if missing.\n"    \
    "root=$(cd \"$(dirname \"$0\")/../..\" && pwd) || exit 1\n"

static constexpr const char script_cell_carrier[] =
    SCRIPT_HEAD "echo cell-carrier \"$@\" >> \"$root/var/log/scripts.log\"\n"
                "exit 0\n";

static constexpr const char script_wwan_up[] =
    SCRIPT_HEAD "echo wwan-up \"$@\" \"interface=$interface\" >> \"$root/var/log/scripts.log\"\n"
                "exit 0\n";

static constexpr const char script_wwan_down[] =
    SCRIPT_HEAD "echo wwan-down \"$@\" >> \"$root/var/log/scripts.log\"\n"
                "exit 0\n";

static constexpr const char script_usb_enum[] =
    SCRIPT_HEAD "echo usb-enum \"$@\" >> \"$root/var/log/scripts.log\"\n"
                "echo '1-1 cellmodem'\n"
                "exit 0\n";

struct root_file {
    const char *path;
    unsigned mode;
    const char *content;
};

static constexpr std::array root_files = {
    root_file{"/etc/mcc-mnc-table.csv", 0644, shipped_carrier_table},
    root_file{"/etc/scripts/cell-carrier", 0755, script_cell_carrier},
    root_file{"/etc/scripts/usb-enum", 0755, script_usb_enum},
    root_file{"/etc/scripts/wwan-down", 0755, script_wwan_down},
    root_file{"/etc/scripts/wwan-up", 0755, script_wwan_up},
};

static int refuse(std::string &reason, const std::string &what)
{
    reason = what + ": " + strerror(errno);
    return -1;
}

static bool exists(const std::string &path)
{
    struct stat found = {};
    return lstat(path.c_str(), &found) == 0;
}

static int make_directory(const std::string &path)
{
    struct stat found = {};
    if (mkdir(path.c_str(), 0755) == 0)
        return 0;
    if (errno == EEXIST && stat(path.c_str(), &found) == 0 && !S_ISDIR(found.st_mode))
        errno = ENOTDIR;
    return errno == EEXIST ? 0 : -1;
}

int root_create(const std::string &given, std::string &path, std::string &reason)
{
    for (size_t at = given.find('/', 1); at != std::string::npos; at = given.find('/', at + 1))
        if (make_directory(given.substr(0, at)) != 0)
            return refuse(reason, "Could not make " + given.substr(0, at));
    if (make_directory(given) != 0)
        return refuse(reason, "Could not make " + given);
    char *absolute = realpath(given.c_str(), nullptr);
    if (!absolute)
        return refuse(reason, "Could not resolve " + given);
    path = absolute;
    free(absolute);
    if (path == "/") {
        reason = "The root must not be the host's own";
        return -1;
    }
    if (path.size() + socket_name_bytes > sizeof(sockaddr_un::sun_path)) {
        reason = path + " is too long for the names of sockets below it";
        return -1;
    }
    return 0;
}

static int link_shell(const std::string &root, const std::string &program, std::string &reason)
{
    const std::string shell = root + "/bin/sh";
    struct stat found = {};
    if (lstat(shell.c_str(), &found) == 0) {
        if (!S_ISLNK(found.st_mode))
            return 0;
        unlink(shell.c_str());
    }
    return symlink(program.c_str(), shell.c_str()) == 0 ? 0
                                                        : refuse(reason, "Could not link " + shell);
}

int root_fill(const std::string &root, const sim_family &family, const std::string &program,
              std::string &reason)
{
    for (const char *directory : directories)
        if (make_directory(root + directory) != 0)
            return refuse(reason, "Could not make " + root + directory);
    for (const char *const *marker = family.markers; *marker; marker++) {
        const std::string path = root + "/var/run/.modem/" + *marker;
        if (!exists(path) && file_replace(path, "") != 0)
            return refuse(reason, "Could not write " + path);
    }
    for (const root_file &file : root_files) {
        const std::string path = root + file.path;
        if (!exists(path) && file_replace(path, file.content, file.mode) != 0)
            return refuse(reason, "Could not write " + path);
    }
    if (!exists(root + "/etc/config/config.xml") && root_write_config(root, {}) != 0)
        return refuse(reason, "Could not write " + root + "/etc/config/config.xml");
    return link_shell(root, program, reason);
}

int root_write_config(const std::string &root, const root_config &config)
{
    const auto ports = static_cast<long long>(config.ports);
    const std::string text = sim_format("<config>\n"
                                        "  <ports>\n"
                                        "    <total>%lld</total>\n"
                                        "    <port%lld>\n"
                                        "      <nmea>\n"
                                        "        <enabled>%s</enabled>\n"
                                        "        <fixfreq>%lld</fixfreq>\n"
                                        "      </nmea>\n"
                                        "    </port%lld>\n"
                                        "  </ports>\n"
                                        "</config>\n",
                                        ports, ports, config.nmea.c_str(),
                                        static_cast<long long>(config.fixfreq), ports);
    return file_replace(root + "/etc/config/config.xml", text);
}

int file_replace(const std::string &path, std::string_view content, unsigned mode)
{
    const std::string part = path + ".part";
    unique_fd file(open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!file)
        return -1;
    errno = ENOSPC; // what a short write means
    if (write(file.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
        fchmod(file.get(), mode) == 0 && rename(part.c_str(), path.c_str()) == 0)
        return 0;
    const int error = errno;
    unlink(part.c_str());
    errno = error;
    return -1;
}

int file_read(const std::string &path, std::string &content)
{
    content.clear();
    unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return -1;
    std::array<char, 4096> buffer;
    ssize_t got = 0;
    while ((got = read(file.get(), buffer.data(), buffer.size())) > 0) {
        content.append(buffer.data(), static_cast<size_t>(got));
        if (content.size() > file_bytes_max) {
            errno = EFBIG;
            return -1;
        }
    }
    return got == 0 ? 0 : -1;
}

long file_read_pid(const std::string &path)
{
    std::string text;
    if (file_read(path, text) != 0)
        return -1;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    long pid = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
    if (error != std::errc() || end != text.data() + text.size() || pid <= 1 || pid > INT_MAX)
        return -1;
    return pid;
}

#include "platform/paths.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

const char *paths_root()
{
    const char *root = std::getenv("TESSERA_ROOT");
    return root && *root ? root : nullptr;
}

int paths_check()
{
    const char *root = paths_root();
    return !root || *root == '/' ? 0 : -1;
}

std::string rooted(std::string_view path)
{
    const char *root = paths_root();
    if (!root || path == "/dev/null" || path == "/dev/log")
        return std::string(path);
    std::string place(root);
    while (!place.empty() && place.back() == '/')
        place.pop_back();
    return place.append(path);
}

bool file_exists(std::string_view path)
{
    struct stat status;
    return stat(rooted(path).c_str(), &status) == 0;
}

bool dir_exists(std::string_view path)
{
    struct stat status;
    return stat(rooted(path).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int make_directories(std::string_view path, unsigned mode)
{
    std::string place = rooted(path);
    for (size_t slash = place.find('/', 1);; slash = place.find('/', slash + 1)) {
        const std::string part = place.substr(0, slash);
        const bool created = mkdir(part.c_str(), mode) == 0;
        if (created ? chmod(part.c_str(), mode) != 0 : errno != EEXIST)
            return -1;
        if (slash == std::string::npos)
            return dir_exists(path) ? 0 : -1;
    }
}

int socket_address(std::string_view path, sockaddr_un &address, size_t length_max)
{
    const std::string place = rooted(path);
    memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    if (place.size() > length_max || place.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, place.data(), place.size());
    return 0;
}

// Where the program's fixed paths lie. With TESSERA_ROOT set to an absolute directory, every fixed
// path (files, sockets, device nodes, programs) is looked for below it, so that a whole appliance
// fits into a directory: tests, the demo and development on a desk need nothing else. Log lines and
// replies always show the path as the appliance knows it, without the root.
#pragma once

#include <string>
#include <string_view>

struct sockaddr_un;

// The root directory, or null when the program runs on the real root. Valid as long as the
// environment is.
[[nodiscard]] const char *paths_root();

// 0 when TESSERA_ROOT is unset, empty or an absolute path; otherwise -1: the caller gives up.
[[nodiscard]] int paths_check();

// The place of a fixed, absolute path. /dev/null and /dev/log are the host's own in any case.
[[nodiscard]] std::string rooted(std::string_view path);

// The two tests of a path that callers pass without root; both follow symbolic links.
[[nodiscard]] bool file_exists(std::string_view path);
[[nodiscard]] bool dir_exists(std::string_view path);

// Creates a directory with its missing parents below the root; each that it creates has the mode as
// it stands, whatever the umask. 0, or -1 with errno.
int make_directories(std::string_view path, unsigned mode);

// Fills a Unix socket address with the rooted path. A path that does not fit into `length_max`
// bytes (at most the structure's own limit) is refused: -1 with errno ENAMETOOLONG.
[[nodiscard]] int socket_address(std::string_view path, sockaddr_un &address, size_t length_max);

#include "sim/swisdk.h"

#include "platform/unique_fd.h"
#include "sim/report.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

int swisdk_main()
{
    const char *root = getenv("TESSERA_ROOT");
    const std::string path = std::string(root ? root : "") + swisdk_socket_path;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (!root || path.size() >= sizeof(address.sun_path)) {
        sim_report("swisdk: TESSERA_ROOT must name the simulator's root");
        return EXIT_FAILURE;
    }
    memcpy(address.sun_path, path.data(), path.size());
    const unique_fd line(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!line ||
        connect(line.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        sim_report("swisdk: %s: %s", path.c_str(), strerror(errno));
        return EXIT_FAILURE;
    }
    // The simulator says one word if it wants this server, and never another; its end is ours.
    bool wanted = false;
    char word[16];
    ssize_t length;
    while ((length = recv(line.get(), word, sizeof(word), 0)) > 0 || (length < 0 && errno == EINTR))
        wanted = true;
    return wanted ? EXIT_SUCCESS : EXIT_FAILURE;
}

// tessera, the client: carries its command line to the daemon, prints what comes back and exits with
// the daemon's return code. When that is impossible it says why and exits with 1.

#include "command/cmdsock.h"
#include "command/usage.h"
#include "platform/paths.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

// A client's socket lives in a directory of its own that only its user can enter. Plain buffers,
// because a signal handler removes both.
static char socket_directory[sizeof(sockaddr_un::sun_path)];
static char socket_place[sizeof(sockaddr_un::sun_path)];

static void remove_socket()
{
    if (socket_directory[0]) {
        unlink(socket_place);
        rmdir(socket_directory);
    }
}

static void on_signal(int signo)
{
    remove_socket();
    signal(signo, SIG_DFL);
    raise(signo);
}

// Makes the directory and names the socket in it, as a fixed path without the root. 0 or -1.
static int make_socket_path(std::string &path)
{
    const std::string fixed = "/tmp/tessera.XXXXXX";
    std::string directory = rooted(fixed);
    if (directory.size() + strlen("/s") > cmdsock_client_path_max) {
        errno = ENAMETOOLONG;
        return -1;
    }
    if (!mkdtemp(directory.data()))
        return -1;
    const std::string place = directory + "/s";
    memcpy(socket_directory, directory.c_str(), directory.size() + 1);
    memcpy(socket_place, place.c_str(), place.size() + 1);
    path = place.substr(directory.size() - fixed.size());
    return 0;
}

static int run(int argc, char **argv, int &ret_code, std::string &results, char *error, size_t size)
{
    std::string path;
    if (make_socket_path(path) != 0) {
        snprintf(error, size, "socket /tmp: %s", strerror(errno));
        return -1;
    }
    const unique_fd fd = cmdsock_client_open(path.c_str(), cmdsock_path, error, size);
    if (!fd || cmdsock_send_request(fd.get(), argc, argv, error, size) != 0 ||
        cmdsock_recv_reply(fd.get(), ret_code, results, error, size) != 0)
        return -1;
    return 0;
}

// Whether the command line asks for the usage. The reader permutes its vector: it gets a copy.
static bool help_wanted(std::vector<char *> arguments)
{
    const int argc = static_cast<int>(arguments.size()) - 1;
    option_reader reader(argc, arguments.data());
    option_id id;
    const char *argument;
    while (reader.next(id, argument))
        if (id == option_help)
            return true;
    return false;
}

int main(int argc, char **argv)
{
    if (paths_check() != 0) {
        fputs("tessera: TESSERA_ROOT must be an absolute path\n", stderr);
        return EXIT_FAILURE;
    }
    for (const int signo : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE})
        if (signal(signo, on_signal) == SIG_IGN)
            signal(signo, SIG_IGN); // nohup's, or a shell's for its background
    std::atexit(remove_socket);

    int ret_code = EXIT_FAILURE;
    std::string results;
    char error[256] = "";
    if (run(argc, argv, ret_code, results, error, sizeof(error)) != 0) {
        const bool help = help_wanted(std::vector<char *>(argv, argv + argc + 1));
        if (help)
            usage_print(stdout, argv[0]);
        if (!help || argc > 2)
            fprintf(stderr, "tessera: %s\n", error);
        return EXIT_FAILURE;
    }
    if (fwrite(results.data(), 1, results.size(), stdout) != results.size() ||
        fflush(stdout) != 0) {
        fprintf(stderr, "tessera: standard output: %s\n", strerror(errno));
        return EXIT_FAILURE;
    }
    return ret_code;
}

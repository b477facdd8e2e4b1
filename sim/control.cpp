#include "sim/control.h"

#include "sim/json.h"
#include "sim/report.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

static constexpr size_t datagram_bytes_max = 65536;
static constexpr int answer_wait_ms = 5000;

static int make_address(const std::string &path, struct sockaddr_un &address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return 0;
}

static unique_fd bound_socket(const std::string &path)
{
    struct sockaddr_un address;
    if (make_address(path, address) != 0)
        return {};
    unique_fd made(socket(AF_UNIX, SOCK_DGRAM, 0));
    unlink(path.c_str());
    if (!made || fcntl(made.get(), F_SETFD, FD_CLOEXEC) != 0 ||
        fcntl(made.get(), F_SETFL, O_NONBLOCK) != 0 ||
        bind(made.get(), reinterpret_cast<struct sockaddr *>(&address), sizeof address) != 0)
        return {};
    return made;
}

int control_socket::open(const std::string &root)
{
    path_ = root + "/var/run/tessera-sim.ctl";
    socket_ = bound_socket(path_);
    if (!socket_)
        return -1;
    loop_.watch(socket_.get(), POLLIN, [this](short) { ready(); });
    return 0;
}

void control_socket::close()
{
    if (!socket_)
        return;
    loop_.unwatch(socket_.get());
    unlink(path_.c_str());
    socket_.reset();
}

void control_socket::ready()
{
    std::vector<char> buffer(datagram_bytes_max + 1);
    struct sockaddr_un sender = {};
    socklen_t sender_bytes = sizeof sender;
    const ssize_t got = recvfrom(socket_.get(), buffer.data(), buffer.size(), 0,
                                 reinterpret_cast<struct sockaddr *>(&sender), &sender_bytes);
    if (got < 0)
        return;
    const std::string answer =
        static_cast<size_t>(got) > datagram_bytes_max
            ? std::string("{\"ok\":false,\"error\":\"datagram too long\"}")
            : answer_(std::string_view(buffer.data(), static_cast<size_t>(got)));
    // A sender without an address, or one that has gone, wants no answer.
    if (sender_bytes > sizeof sender.sun_family)
        sendto(socket_.get(), answer.data(), answer.size(), 0,
               reinterpret_cast<struct sockaddr *>(&sender), sender_bytes);
}

static int exchange(int fd, const std::string &root, const std::string &datagram,
                    std::string &answer)
{
    struct sockaddr_un address;
    if (make_address(root + "/var/run/tessera-sim.ctl", address) != 0 ||
        sendto(fd, datagram.data(), datagram.size(), 0,
               reinterpret_cast<struct sockaddr *>(&address), sizeof address) < 0)
        return -1;
    struct pollfd waited = {fd, POLLIN, 0};
    const int ready = poll(&waited, 1, answer_wait_ms);
    if (ready == 0)
        errno = ETIMEDOUT;
    if (ready <= 0)
        return -1;
    std::vector<char> buffer(datagram_bytes_max);
    const ssize_t got = recv(fd, buffer.data(), buffer.size(), 0);
    if (got < 0)
        return -1;
    answer.assign(buffer.data(), static_cast<size_t>(got));
    return 0;
}

int control_tell(const std::string &root, const std::string &datagram)
{
    const std::string path = root + "/var/run/tessera-sim.tell." + std::to_string(getpid());
    const unique_fd own = bound_socket(path);
    std::string answer;
    if (!own || exchange(own.get(), root, datagram, answer) != 0) {
        sim_report("No answer from the simulator of %s: %s", root.c_str(), strerror(errno));
        if (own)
            unlink(path.c_str());
        return 1;
    }
    unlink(path.c_str());
    printf("%s\n", answer.c_str());
    const json_ref object(json_loadb(answer.data(), answer.size(), 0, nullptr));
    return !object || json_is_false(json_object_get(object.get(), "ok")) ? 1 : 0;
}

#include "swi/channel.h"

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "swi/packet.h"
#include "swi/result.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

constexpr int server_start_ms = 10000;
// A program takes the time it takes to start, whatever the time scale says.
constexpr int server_start_min_ms = 3000;
constexpr int greeting_ms = 1000;
constexpr int look_again_ms = 20;

static long started_server = -1; // the process id of the program that was started last

static std::string server_path_of(const char *channel)
{
    char path[64];
    snprintf(path, sizeof(path), SWI_SERVER_SOCKET_PATTERN, channel, swi_socket_number);
    return path;
}

static std::string client_path_of(const char *channel)
{
    char path[64];
    snprintf(path, sizeof(path), SWI_CLIENT_SOCKET_PATTERN, channel, swi_socket_number);
    return path;
}

long swi_channel_receive(int fd, void *buffer, size_t size)
{
    const ssize_t length = recv(fd, buffer, size, MSG_DONTWAIT | MSG_TRUNC);
    if (length != 0)
        return length;
    pollfd end = {fd, POLLIN, 0};
    if (poll(&end, 1, 0) > 0 && (end.revents & (POLLHUP | POLLERR)))
        return 0;
    errno = EBADMSG;
    return -1;
}

// The server's sockets are where anybody may write: only its own user's or root's counts.
static bool trusted(int fd)
{
    ucred peer = {};
    socklen_t length = sizeof(peer);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           (peer.uid == 0 || peer.uid == geteuid());
}

// The server's word on a new connection: swi_ok, swi_busy or swi_failed.
static int read_greeting(int fd)
{
    uint8_t bytes[64];
    if (clock_wait_readable(fd, clock_answer_timeout_ms(greeting_ms)) <= 0)
        return swi_busy;
    const long length = swi_channel_receive(fd, bytes, sizeof(bytes));
    if (length == 0)
        return swi_busy;
    swi_header header;
    swi_greeting greeting;
    std::span<const uint8_t> payload;
    if (length < 0 || static_cast<size_t>(length) > sizeof(bytes) ||
        swi_packet_read({bytes, static_cast<size_t>(length)}, header, payload) != 0 ||
        header.message != swi_message_greeting ||
        swi_unpack(swi_layout_of<swi_greeting>, payload, &greeting) != 0) {
        log_message(log_error, "SWI API: the server's greeting is not of version %d", swi_version);
        return swi_failed;
    }
    return greeting.busy != 0 ? swi_busy : swi_ok;
}

static int connect_channel(const char *channel, unique_fd &out)
{
    sockaddr_un address;
    if (socket_address(server_path_of(channel), address, sizeof(address.sun_path)) != 0) {
        log_message(log_error, "SWI API: %s: %s", server_path_of(channel).c_str(), strerror(errno));
        return swi_system_error;
    }
    unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd)
        return swi_system_error;
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        return errno == EAGAIN ? swi_busy : swi_closed;
    if (!trusted(fd.get())) {
        log_message(log_error, "SWI API: %s belongs to another user",
                    server_path_of(channel).c_str());
        return swi_failed;
    }
    const int result = read_greeting(fd.get());
    if (result == swi_ok)
        out = std::move(fd);
    return result;
}

// Gives our end its name, for whoever looks at the channels. The pair is ours, so a socket of that
// name is one that a dead client left.
static void name_channel(const char *channel, int fd)
{
    sockaddr_un address;
    if (socket_address(client_path_of(channel), address, sizeof(address.sun_path)) != 0)
        return;
    unlink(address.sun_path);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        log_message(log_debug, "SWI API: %s: %s", client_path_of(channel).c_str(), strerror(errno));
}

static int open_pair(const swi_channel_pair &names, swi_channels &channels)
{
    unique_fd request;
    unique_fd notification;
    int result = connect_channel(names.request, request);
    if (result == swi_ok)
        result = connect_channel(names.notification, notification);
    if (result != swi_ok)
        return result;
    name_channel(names.request, request.get());
    name_channel(names.notification, notification.get());
    channels.request = std::move(request);
    channels.notification = std::make_shared<unique_fd>(std::move(notification));
    return swi_ok;
}

// The first free pair. A pair that is busy says that there is a server, so the answer is swi_closed
// only if no pair has one.
static int open_any_pair(swi_channels &channels)
{
    int answer = swi_closed;
    for (size_t i = 0; i < swi_channel_pairs.size() && !clock_stopped(); i++) {
        const int result = open_pair(swi_channel_pairs[i], channels);
        if (result == swi_ok)
            channels.pair = static_cast<int>(i);
        if (result == swi_ok || result == swi_failed || result == swi_system_error)
            return result;
        if (result == swi_busy)
            answer = swi_busy;
    }
    return answer;
}

static int server_wait_ms()
{
    return std::max(clock_scaled_ms(server_start_ms), server_start_min_ms);
}

// Whoever holds the mutex looks at all channels, starts the server, waits for it and looks once more,
// and may wait for the greeting on each channel.
static int mutex_wait_ms()
{
    constexpr int looks = 2;
    constexpr int greetings = 2 * static_cast<int>(swi_channel_pairs.size());
    const int margin_ms = clock_answer_timeout_ms(greeting_ms);
    return server_wait_ms() + looks * greetings * clock_answer_timeout_ms(greeting_ms) + margin_ms;
}

static bool is_ours(const struct stat &file)
{
    return S_ISREG(file.st_mode) && (file.st_uid == 0 || file.st_uid == geteuid());
}

// Everybody may write to the directory: a file that somebody else has put there, perhaps to hold it
// for ever, is replaced. A new file is never made through open()'s O_CREAT alone, which systems that
// protect such directories refuse for a file of another owner.
static int open_mutex(unique_fd &mutex)
{
    const std::string place = rooted(swi_socket_mutex_path);
    struct stat file;
    if (lstat(place.c_str(), &file) == 0 && !is_ours(file)) {
        log_message(log_warning, "SWI API: %s belongs to another user and is made anew",
                    swi_socket_mutex_path);
        if (unlink(place.c_str()) != 0)
            return -1;
    }
    constexpr int flags = O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW;
    mutex.reset(open(place.c_str(), flags | O_CREAT | O_EXCL, 0600));
    if (!mutex && errno == EEXIST)
        mutex.reset(open(place.c_str(), flags));
    if (!mutex || fstat(mutex.get(), &file) != 0)
        return -1;
    errno = EACCES;
    return is_ours(file) ? 0 : -1;
}

// Two clients that start at once must neither start two servers nor take the same pair.
static int take_mutex(unique_fd &mutex)
{
    if (open_mutex(mutex) != 0) {
        log_message(log_error, "SWI API: %s: %s", swi_socket_mutex_path, strerror(errno));
        return swi_system_error;
    }
    const int64_t deadline = clock_now_ms() + mutex_wait_ms();
    while (flock(mutex.get(), LOCK_EX | LOCK_NB) != 0) {
        if (clock_now_ms() >= deadline || clock_stopped()) {
            log_message(log_error, "SWI API: %s is held by another program", swi_socket_mutex_path);
            return swi_busy;
        }
        clock_sleep_ms(look_again_ms);
    }
    return swi_ok;
}

// A program that was started and lives is awaited: it may only be slow, and a second one would fight
// with it over the modem's ports.
static int start_server(const char *server_path, swi_channels &channels)
{
    const char *const argv[] = {server_path, nullptr};
    if (process_alive(started_server)) {
        log_message(log_warning, "SWI API: %s, process %ld, runs but serves nobody", server_path,
                    started_server);
    } else if (process_start(server_path, argv, &started_server) != 0) {
        log_message(log_error, "SWI API: %s: %s", server_path, strerror(errno));
        return swi_system_error;
    }
    const int64_t deadline = clock_now_ms() + server_wait_ms();
    for (;;) {
        const int result = open_any_pair(channels);
        if (result != swi_closed && result != swi_busy)
            return result;
        if (clock_now_ms() >= deadline || clock_stopped())
            return swi_busy;
        clock_sleep_ms(look_again_ms);
    }
}

int swi_channels_open(swi_channels &channels, const char *server_path)
{
    unique_fd mutex;
    int result = take_mutex(mutex);
    if (result != swi_ok)
        return result;
    result = open_any_pair(channels);
    return result == swi_closed && server_path ? start_server(server_path, channels) : result;
}

void swi_channels_close(swi_channels &channels)
{
    if (channels.notification)
        shutdown(channels.notification->get(), SHUT_RDWR);
    if (channels.pair >= 0) {
        const swi_channel_pair &names = swi_channel_pairs[static_cast<size_t>(channels.pair)];
        unlink(rooted(client_path_of(names.request)).c_str());
        unlink(rooted(client_path_of(names.notification)).c_str());
    }
    channels.request.reset();
    channels.notification.reset();
    channels.pair = -1;
}

#include "command/cmdsock.h"

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <grp.h>
#include <jansson.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr size_t json_flags = JSON_COMPACT | JSON_PRESERVE_ORDER;
constexpr mode_t socket_mode = 0660;
constexpr const char *socket_group = "tessera";
constexpr gid_t no_group = static_cast<gid_t>(-1);
constexpr int send_buffer_bytes = 4 << 20; // dozens of unread replies of the largest size

using json_value = std::unique_ptr<json_t, void (*)(json_t *)>;

static json_value own(json_t *value)
{
    return {value, json_decref};
}

void json_text_free::operator()(char *text) const
{
    free(text); // Jansson's default allocator is malloc
}

char **argument_vector::argv()
{
    pointers_.clear();
    for (std::string &text : strings_)
        pointers_.push_back(text.data());
    pointers_.push_back(nullptr);
    return pointers_.data();
}

static const sockaddr *generic(const sockaddr_un &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

// ---- server half

// The group of that name in /etc/group. getgrnam would load every name service that the host has
// configured into a daemon that must stay small and must not wait for a directory server.
static gid_t find_group(const char *name)
{
    const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(rooted("/etc/group").c_str(), "re"),
                                                      fclose);
    if (file)
        while (const group *entry = fgetgrent(file.get()))
            if (strcmp(entry->gr_name, name) == 0)
                return entry->gr_gid;
    return no_group;
}

// The socket is born with its mode: there is no moment in which others could connect.
static int bind_private(int fd, const char *path, const sockaddr_un &address)
{
    const auto length = static_cast<socklen_t>(strlen(address.sun_path) + sizeof(sa_family_t));
    const mode_t old_mask = umask(static_cast<mode_t>(~socket_mode & 0777));
    const int result = bind(fd, generic(address), length);
    umask(old_mask);
    if (result != 0)
        return -1;
    const gid_t group = find_group(socket_group);
    if (group != no_group && chown(address.sun_path, static_cast<uid_t>(-1), group) != 0)
        log_message(log_debug, "Could not give %s to group %s: %s", path, socket_group,
                    strerror(errno));
    return 0;
}

// What clients have not read is charged to the daemon's socket: with the usual buffer a few that do
// not read at all would keep every other client from its reply. Beyond the system's limit only root
// may go; anybody else gets what the limit allows.
static void enlarge_send_buffer(int fd)
{
    const int size = send_buffer_bytes;
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof(size)) != 0 &&
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size)) != 0)
        log_message(log_debug, "Could not enlarge the server socket's buffer: %s", strerror(errno));
}

unique_fd cmdsock_server_open(const char *path)
{
    unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        log_message(log_error, "Could not create server socket: %s\n", strerror(errno));
        return fd;
    }
    enlarge_send_buffer(fd.get());
    sockaddr_un address;
    if (socket_address(path, address, sizeof(address.sun_path)) == 0) {
        unlink(address.sun_path);
        if (bind_private(fd.get(), path, address) == 0)
            return fd;
    }
    log_message(log_error, "Could not bind server socket to %s: %s\n", path, strerror(errno));
    return unique_fd();
}

int cmdsock_unmarshal_request(const char *text, argument_vector &arguments)
{
    const json_value request = own(json_loads(text, 0, nullptr));
    if (!json_is_array(request.get()))
        return -1;
    argument_vector strings;
    for (size_t i = 0; i < json_array_size(request.get()); i++) {
        const char *element = json_string_value(json_array_get(request.get(), i));
        if (!element)
            return -1;
        strings.add(element);
    }
    arguments = std::move(strings);
    return 0;
}

// Reads one datagram as a text; what is longer than the limit is cut. The text is valid until the
// next call.
static ssize_t read_datagram(int fd, const char *&text, sockaddr_un *sender)
{
    static char buffer[cmdsock_datagram_max + 1];
    socklen_t length = sizeof(sockaddr_un);
    ssize_t got = -1;
    do
        got = recvfrom(fd, buffer, cmdsock_datagram_max, MSG_DONTWAIT,
                       reinterpret_cast<sockaddr *>(sender), sender ? &length : nullptr);
    while (got < 0 && errno == EINTR);
    buffer[std::max<ssize_t>(got, 0)] = '\0';
    text = buffer;
    return got;
}

int cmdsock_recv_request(int fd, cmdsock_sender &sender, argument_vector &arguments)
{
    const char *text = nullptr;
    const ssize_t got = read_datagram(fd, text, &sender.address);
    if (got < 0) {
        log_message(log_error, "Could not receive message from client: %s\n", strerror(errno));
        return -1;
    }
    if (got == 0) {
        log_message(log_error, "Empty message from client\n");
        return -1;
    }
    return cmdsock_unmarshal_request(text, arguments);
}

json_text cmdsock_marshal_reply(int ret_code, const char *results)
{
    json_t *text = json_string(results); // null for null and for what is not UTF-8
    if (!text) {
        log_message(log_error, "Failed to marshal results: %p '%s' len: %d",
                    static_cast<const void *>(results), results ? results : "(null)",
                    results ? static_cast<int>(strlen(results)) : -1);
        return nullptr;
    }
    const json_value reply = own(json_object());
    json_object_set_new(reply.get(), "results", text);
    json_object_set_new(reply.get(), "ret_code", json_integer(ret_code));
    return json_text(json_dumps(reply.get(), json_flags));
}

// A client that is gone is its own affair; one that waits for a reply it will not get is not.
static void log_unsent(int error, size_t length)
{
    log_message(log_debug,
                "Could not send message to tessera client: %s, it may have been terminated"
                " early",
                strerror(error));
    if (error == EMSGSIZE)
        log_message(log_warning, "A reply of %zu bytes is too long to be sent", length);
    else if (error == EAGAIN || error == ENOBUFS)
        log_message(log_warning,
                    "A reply of %zu bytes was not taken: clients leave too many replies unread",
                    length);
}

int cmdsock_send_reply(int fd, const cmdsock_sender &sender, int ret_code, const char *results)
{
    const json_text text = cmdsock_marshal_reply(ret_code, results);
    if (!text) {
        log_message(log_error, "Could not build JSON message");
        return -1;
    }
    const size_t length = strlen(text.get());
    ssize_t sent = -1;
    do
        sent = sendto(fd, text.get(), length, MSG_DONTWAIT | MSG_NOSIGNAL, generic(sender.address),
                      sizeof(sender.address));
    while (sent < 0 && errno == EINTR);
    if (sent < 0) {
        log_unsent(errno, length);
        return -1;
    }
    if (static_cast<size_t>(sent) < length) {
        log_message(log_error, "Message was truncated");
        return -1;
    }
    return 0;
}

// ---- client half

__attribute__((format(printf, 3, 4))) static void set_error(char *error, size_t size,
                                                            const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(error, size, format, arguments);
    va_end(arguments);
}

unique_fd cmdsock_client_open(const char *client_path, const char *server_path, char *error,
                              size_t error_size)
{
    const auto fail = [&](const char *action, const char *path) {
        set_error(error, error_size, "socket %s: %s", path, strerror(errno));
        log_message(log_debug, "Unable to %s %s", action, error);
        return unique_fd();
    };
    sockaddr_un client, server;
    if (socket_address(client_path, client, cmdsock_client_path_max) != 0)
        return fail("open", client_path);
    unlink(client.sun_path);
    unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd)
        return fail("open", client_path);
    if (bind(fd.get(), generic(client), sizeof(client)) != 0)
        return fail("bind", client_path);
    if (socket_address(server_path, server, cmdsock_client_path_max) != 0 ||
        connect(fd.get(), generic(server), sizeof(server)) != 0)
        return fail("connect", server_path);
    return fd;
}

static json_text marshal_request(int argc, const char *const argv[])
{
    const json_value request = own(json_array());
    for (int i = 0; i < argc; i++)
        if (json_array_append_new(request.get(), json_string(argv[i])) != 0)
            return nullptr;
    return json_text(json_dumps(request.get(), json_flags));
}

// The daemon serves one client at a time: below a few seconds even a scaled run would give up on a
// daemon that is merely busy.
static int client_timeout_ms()
{
    constexpr int shortest_ms = 5000;
    return std::max(shortest_ms, clock_scaled_ms(cmdsock_timeout_ms));
}

// Waits for the events until the deadline. 0, or -1 with the error text set.
static int wait_socket(int fd, short events, int64_t deadline, char *error, size_t error_size)
{
    for (;;) {
        pollfd waited = {fd, events, 0};
        const int64_t left = deadline - clock_now_ms();
        const int count = poll(&waited, 1, static_cast<int>(std::max<int64_t>(left, 0)));
        if (count > 0)
            return 0;
        if (count == 0)
            set_error(error, error_size, "timeout");
        else if (errno != EINTR)
            set_error(error, error_size, "%s", strerror(errno));
        else
            continue;
        return -1;
    }
}

int cmdsock_send_request(int fd, int argc, const char *const argv[], char *error, size_t error_size)
{
    const json_text text = marshal_request(argc, argv);
    const size_t length = text ? strlen(text.get()) : 0;
    if (!text || length > cmdsock_datagram_max) {
        set_error(error, error_size, text ? "Message is too long" : "Failed to build JSON message");
        log_message(log_debug, "Could not send message: %s", error);
        return -1;
    }
    const int64_t deadline = clock_now_ms() + client_timeout_ms();
    ssize_t sent = -1;
    do {
        if (wait_socket(fd, POLLOUT, deadline, error, error_size) != 0) {
            log_message(log_debug, "Could not send message to server: %s\n", error);
            return -1;
        }
        // Another client may fill the daemon's queue between the two calls.
        sent = send(fd, text.get(), length, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && (errno == EAGAIN || errno == EINTR));
    if (sent < 0) {
        set_error(error, error_size, "%s", strerror(errno));
        log_message(log_debug, "Could not send message to server: %s\n", error);
        return -1;
    }
    if (static_cast<size_t>(sent) < length) {
        set_error(error, error_size, "Message was truncated");
        log_message(log_debug, "Could not send message: %s", error);
        return -1;
    }
    return 0;
}

static int unmarshal_reply(const char *text, int &ret_code, std::string &results)
{
    const json_value reply = own(json_loads(text, 0, nullptr));
    const json_t *code = json_object_get(reply.get(), "ret_code");
    const char *output = json_string_value(json_object_get(reply.get(), "results"));
    if (!json_is_integer(code) || !output)
        return -1;
    ret_code = static_cast<int>(json_integer_value(code));
    results = output;
    return 0;
}

int cmdsock_recv_reply(int fd, int &ret_code, std::string &results, char *error, size_t error_size)
{
    const char *text = nullptr;
    const int64_t deadline = clock_now_ms() + client_timeout_ms();
    int failed = wait_socket(fd, POLLIN, deadline, error, error_size);
    if (failed == 0) {
        const ssize_t got = read_datagram(fd, text, nullptr);
        if (got <= 0) {
            set_error(error, error_size, "%s", got == 0 ? "empty message" : strerror(errno));
            failed = -1;
        }
    }
    if (failed != 0) {
        log_message(log_debug, "Could not receive message from server: %s\n", error);
        return -1;
    }
    if (unmarshal_reply(text, ret_code, results) != 0) {
        set_error(error, error_size, "incomplete reply");
        return -1;
    }
    return 0;
}

// The command channel: one datagram each way over a Unix socket. A request is the client's argument
// vector as a JSON array of strings; the reply is the object {"results": text, "ret_code": number}.
// The daemon uses the server half, the client the other one.
#pragma once

#include "platform/unique_fd.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>

constexpr const char *cmdsock_path = "/var/run/tessera.cmd";
constexpr size_t cmdsock_datagram_max = 65536;  // what either side reads
constexpr size_t cmdsock_client_path_max = 104; // both paths of a client, with the root
constexpr int cmdsock_timeout_ms = 15000;       // the client's, for sending and for the reply

// A client to answer.
struct cmdsock_sender {
    sockaddr_un address{};
};

// An argument vector that owns its strings. The null-terminated array may be permuted.
class argument_vector
{
public:
    void add(const char *text) { strings_.emplace_back(text); }
    [[nodiscard]] int argc() const { return static_cast<int>(strings_.size()); }

    // Valid until the next add.
    [[nodiscard]] char **argv();

private:
    std::vector<std::string> strings_;
    std::vector<char *> pointers_;
};

// ---- server half; failures are logged

// Opens the server's socket at the fixed path, in place of whatever is there: for root and, where
// it exists, the group "tessera". The descriptor, or an empty one.
[[nodiscard]] unique_fd cmdsock_server_open(const char *path);

// Reads one request, without waiting. 0, or -1 when there is none that could be understood; such a
// datagram gets no reply.
[[nodiscard]] int cmdsock_recv_request(int fd, cmdsock_sender &sender, argument_vector &arguments);

[[nodiscard]] int cmdsock_unmarshal_request(const char *text, argument_vector &arguments);

// Sends the reply without waiting for a client that does not read. `results` may be null only by
// mistake: then, and when it is not UTF-8, nothing is sent. 0 or -1.
int cmdsock_send_reply(int fd, const cmdsock_sender &sender, int ret_code, const char *results);

// A text that the JSON library allocated.
struct json_text_free {
    void operator()(char *text) const;
};
using json_text = std::unique_ptr<char, json_text_free>;

// Empty when the results cannot be a JSON string.
[[nodiscard]] json_text cmdsock_marshal_reply(int ret_code, const char *results);

// ---- client half; failures go to the error text

// Opens a socket bound to client_path (in place of whatever is there) and connected to server_path.
// The descriptor, or an empty one.
[[nodiscard]] unique_fd cmdsock_client_open(const char *client_path, const char *server_path,
                                            char *error, size_t error_size);

[[nodiscard]] int cmdsock_send_request(int fd, int argc, const char *const argv[], char *error,
                                       size_t error_size);

// 0 and the reply, or -1.
[[nodiscard]] int cmdsock_recv_reply(int fd, int &ret_code, std::string &results, char *error,
                                     size_t error_size);

#include "support/fake_swi_server.h"

#include "platform/paths.h"
#include "swi/packet.h"

#include <array>
#include <cstdio>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

static packet finished(swi_packet_writer &writer)
{
    const std::span<const uint8_t> bytes = writer.finish();
    return {bytes.begin(), bytes.end()};
}

packet respond(const fake_request &to, uint32_t status, std::span<const uint8_t> parameters)
{
    std::array<uint8_t, swi_notification_bytes_max> buffer;
    swi_header header = to.header;
    header.message = swi_message_response;
    swi_packet_writer writer(buffer, header);
    int result = 0;
    if (header.kind == swi_kind_object) {
        swi_object_header object = to.object;
        object.status = status;
        object.parameter_bytes = static_cast<uint16_t>(parameters.size());
        result = writer.add(object);
    } else if (header.kind != swi_kind_air_server) {
        result = writer.add(swi_plain_response{status});
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(writer.add_bytes(parameters), 0);
    return finished(writer);
}

packet succeed(const fake_request &to)
{
    const size_t parameters_at = swi_header_bytes + swi_object_header_bytes;
    return respond(to, swi_status_ok,
                   packet(to.header.kind == swi_kind_air_server
                              ? sizeof(swi_air_server_status)
                              : swi_response_bytes_max - parameters_at));
}

packet notification(uint32_t id, const std::vector<uint32_t> &words, uint16_t parameter)
{
    std::array<uint8_t, swi_notification_bytes_max> buffer;
    swi_header header;
    header.message = swi_message_notification;
    header.kind = swi_kind_object;
    header.parameter = parameter;
    swi_object_header object;
    object.object = static_cast<uint16_t>(swi_object_notification + id);
    object.operation = swi_operation_notify;
    object.parameter_bytes = static_cast<uint16_t>(words.size() * sizeof(uint32_t));
    swi_packet_writer writer(buffer, header);
    EXPECT_EQ(writer.add(object), 0);
    for (const uint32_t word : words)
        EXPECT_EQ(writer.add(swi_number{word}), 0);
    return finished(writer);
}

static void listen_at(const char *channel, unique_fd &listener)
{
    char path[64];
    snprintf(path, sizeof(path), SWI_SERVER_SOCKET_PATTERN, channel, swi_socket_number);
    sockaddr_un address;
    ASSERT_EQ(socket_address(path, address, sizeof(address.sun_path)), 0);
    unlink(address.sun_path);
    listener.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener.get(), 8), 0);
}

fake_swi_server::fake_swi_server(answer_function answer) : answer_(std::move(answer))
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    stop_reader_.reset(ends[0]);
    stop_writer_.reset(ends[1]);
    serve();
}

fake_swi_server::~fake_swi_server()
{
    die();
}

void fake_swi_server::set_answer(answer_function answer)
{
    const std::lock_guard lock(mutex_);
    answer_ = std::move(answer);
}

void fake_swi_server::serve()
{
    EXPECT_EQ(make_directories("/tmp", 0755), 0);
    listen_at(swi_channel_pairs[0].request, request_listener_);
    listen_at(swi_channel_pairs[0].notification, notification_listener_);
    thread_ = std::thread([this] { run(); });
}

void fake_swi_server::die()
{
    if (!thread_.joinable())
        return;
    const char byte = 0;
    EXPECT_EQ(write(stop_writer_.get(), &byte, 1), 1);
    thread_.join();
    request_listener_.reset();
    notification_listener_.reset();
    request_.reset();
    notification_.reset();
}

void fake_swi_server::accept_from(const unique_fd &listener, unique_fd &client)
{
    unique_fd fd(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    std::array<uint8_t, 64> buffer;
    swi_header header;
    header.version = version;
    header.message = swi_message_greeting;
    swi_packet_writer writer(buffer, header);
    const bool refused = busy; // the test may change it as soon as it has the greeting
    EXPECT_EQ(writer.add(swi_greeting{refused ? 1U : 0U}), 0);
    const packet greeting = finished(writer);
    (void)send(fd.get(), greeting.data(), greeting.size(), MSG_NOSIGNAL);
    const std::lock_guard lock(mutex_);
    if (!refused)
        client = std::move(fd);
    changed_.notify_all();
}

void fake_swi_server::read_request()
{
    std::array<uint8_t, swi_response_bytes_max> buffer;
    const ssize_t length = recv(request_.get(), buffer.data(), buffer.size(), 0);
    fake_request request;
    std::span<const uint8_t> payload;
    if (length <= 0 || swi_packet_read(std::span(buffer).first(static_cast<size_t>(length)),
                                       request.header, payload) != 0) {
        const std::lock_guard lock(mutex_);
        request_.reset();
        return;
    }
    std::span<const uint8_t> parameters = payload;
    if (request.header.kind == swi_kind_object) {
        EXPECT_EQ(swi_object_read(payload, request.object, parameters), 0);
    }
    request.parameters.assign(parameters.begin(), parameters.end());
    answer_function answer;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        answer = answer_;
    }
    for (const packet &bytes : answer ? answer(request) : packets{succeed(request)})
        (void)send(request_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void fake_swi_server::run()
{
    for (;;) {
        pollfd fds[] = {{stop_reader_.get(), POLLIN, 0},
                        {request_listener_.get(), POLLIN, 0},
                        {notification_listener_.get(), POLLIN, 0},
                        {request_.get(), POLLIN, 0}};
        poll(fds, std::size(fds), -1);
        if (fds[0].revents) {
            char byte;
            EXPECT_EQ(read(stop_reader_.get(), &byte, 1), 1);
            return;
        }
        if (fds[3].revents) // before another client takes its place
            read_request();
        if (fds[1].revents)
            accept_from(request_listener_, request_);
        if (fds[2].revents)
            accept_from(notification_listener_, notification_);
    }
}

void fake_swi_server::notify(const packet &bytes)
{
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return static_cast<bool>(notification_); });
    EXPECT_EQ(send(notification_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
}

void fake_swi_server::interject(const packet &bytes)
{
    const std::lock_guard lock(mutex_);
    EXPECT_EQ(send(request_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
}

std::vector<fake_request> fake_swi_server::requests()
{
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<uint32_t> fake_swi_server::enabled()
{
    std::vector<uint32_t> ids;
    for (const fake_request &request : requests())
        if (request.object.operation == swi_operation_notify_enable)
            ids.push_back(request.object.object - swi_object_notification);
    return ids;
}

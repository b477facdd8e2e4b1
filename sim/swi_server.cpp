#include "sim/swi_server.h"

#include "sim/bytes.h"
#include "sim/report.h"
#include "sim/swisdk.h"
#include "swi/packet.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

static constexpr size_t record_bytes_max = 2048;
static constexpr int backlog = 8;

// The server of this process, for the fault dialect, whose functions have no other way to it, and
// the request that is being answered.
static swi_server *the_server;
static swi_header the_request;
static uint16_t the_object;

static std::span<const uint8_t> as_bytes(std::string_view text)
{
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

static std::string as_text(std::span<const uint8_t> bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// ---- packets

// A response to the present request; `parameters` follow the headers.
static std::string response_packet(uint8_t message, uint16_t kind, uint32_t status,
                                   std::span<const uint8_t> parameters)
{
    std::array<uint8_t, swi_notification_bytes_max> buffer;
    swi_header header;
    header.message = message;
    header.kind = kind;
    header.sequence = the_request.sequence;
    swi_packet_writer writer(buffer, header);
    int result = 0;
    if (kind == swi_kind_object) {
        swi_object_header object;
        object.object = the_object;
        object.status = status;
        object.parameter_bytes = static_cast<uint16_t>(parameters.size());
        result = writer.add(object);
    } else if (kind != swi_kind_air_server) {
        result = writer.add(swi_plain_response{status});
    }
    if (result != 0 || writer.add_bytes(parameters) != 0)
        return {};
    return as_text(writer.finish());
}

static std::string refusal_packet(const std::string &text)
{
    swi_error_text record;
    (void)swi_set_text(record.text, std::string_view(text).substr(0, sizeof(record.text) - 1));
    const auto *bytes = reinterpret_cast<const uint8_t *>(record.text);
    return response_packet(swi_message_response, the_request.kind, swi_status_error,
                           {bytes, sizeof(record.text)});
}

static std::string notification_packet(const swi_notification &values)
{
    std::array<uint8_t, swi_notification_bytes_max> buffer;
    std::array<uint8_t, 256> parameters;
    const swi_layout *layout = &swi_first_word;
    for (const swi_notification_row &row : swi_notifications)
        if (row.id == values.type)
            layout = row.layout;
    size_t length = 0;
    swi_header header;
    header.message = swi_message_notification;
    header.kind = swi_kind_object;
    header.parameter = swi_parameter_object;
    swi_object_header object;
    object.object = static_cast<uint16_t>(swi_object_notification + values.type);
    object.operation = swi_operation_notify;
    if (swi_pack(*layout, &values, parameters, &length) != 0)
        return {};
    object.parameter_bytes = static_cast<uint16_t>(length);
    swi_packet_writer writer(buffer, header);
    if (writer.add(object) != 0 || writer.add_bytes(std::span(parameters).first(length)) != 0)
        return {};
    return as_text(writer.finish());
}

static std::string greeting_packet(bool busy)
{
    std::array<uint8_t, 64> buffer;
    swi_header header;
    header.message = swi_message_greeting;
    swi_packet_writer writer(buffer, header);
    if (writer.add(swi_greeting{busy ? 1U : 0U}) != 0)
        return {};
    return as_text(writer.finish());
}

// ---- what the journal shows

static bool asks_for(const swi_operation &row, uint16_t kind, const swi_object_header &object)
{
    return row.kind == kind && row.object == object.object &&
           (kind != swi_kind_object || row.operation == object.operation);
}

static uint32_t number_of(const swi_field &field, const uint8_t *member)
{
    uint8_t narrow = 0;
    uint16_t medium = 0;
    uint32_t wide = 0;
    memcpy(field.bytes == 1   ? static_cast<void *>(&narrow)
           : field.bytes == 2 ? static_cast<void *>(&medium)
                              : static_cast<void *>(&wide),
           member, field.bytes);
    return narrow | medium | wide;
}

// A response in a few words; bytes that are none as they are.
static std::string describe_answer(std::string_view bytes)
{
    swi_header header;
    swi_object_header object;
    std::span<const uint8_t> payload;
    std::span<const uint8_t> parameters;
    if (swi_packet_read(as_bytes(bytes), header, payload) != 0)
        return std::string(bytes);
    if (header.kind != swi_kind_object || swi_object_read(payload, object, parameters) != 0)
        return sim_format("%s, %zu bytes",
                          header.message == swi_message_rejected ? "rejected" : "response",
                          payload.size());
    return sim_format("status %u, %zu bytes", object.status, parameters.size());
}

// The request's name and its parameters, as faults match it: "SwiSetModemDisable 1".
static std::string describe(const swi_object_header &object, const swi_operation *operation,
                            const uint8_t *record)
{
    if (object.operation == swi_operation_notify_enable)
        return "enable " + std::to_string(object.object & ~swi_object_notification);
    if (!operation)
        return "object " + std::to_string(object.object);
    std::string text = operation->name;
    for (const swi_field &field : operation->request->fields) {
        const uint8_t *member = record + field.offset;
        if (field.kind == swi_field_kind::number)
            text += " " + std::to_string(number_of(field, member));
        else if (field.kind == swi_field_kind::text)
            text += std::string(" '") + reinterpret_cast<const char *>(member) + "'";
    }
    return text;
}

// ---- faults

static std::string unsolicited(const std::string &text)
{
    swi_notification values;
    values.type = static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 10)) & 0xFFF;
    the_server->notify_bytes(notification_packet(values));
    return {};
}

static std::string spoil(const fault &f, std::string_view answer)
{
    const std::string_view fault_name = ::fault_name(f);
    if (fault_name == "rejected")
        return response_packet(swi_message_rejected, the_request.kind, swi_status_failed, {});
    if (fault_name == "wrong_kind")
        return response_packet(swi_message_response, swi_kind_port_name, swi_status_ok, {});
    // Short: lengths that agree with each other, but parameters that end too soon.
    if (the_request.kind != swi_kind_object)
        return response_packet(swi_message_response, the_request.kind, swi_status_ok, {});
    swi_header header;
    swi_object_header object;
    std::span<const uint8_t> payload;
    std::span<const uint8_t> parameters;
    if (swi_packet_read(as_bytes(answer), header, payload) != 0 ||
        swi_object_read(payload, object, parameters) != 0)
        return std::string(answer);
    return response_packet(swi_message_response, header.kind, object.status,
                           parameters.first(parameters.size() / 2));
}

static void burst_all(int64_t number)
{
    the_server->burst(number);
}

static constexpr fault_dialect dialect = {refusal_packet, unsolicited, spoil, burst_all};

// ---- the server

swi_server::swi_server(sim_services &services, const swi_modem_hooks &hooks)
    : services_(services), hooks_(hooks)
{
    the_server = this;
}

swi_server::~swi_server()
{
    server_.reset();
    stop_serving();
    services_.loop.unwatch(server_listener_.socket.get());
    if (server_listener_.socket)
        unlink(server_listener_.path.c_str());
    the_server = nullptr;
}

int swi_server::listen_at(const std::string &path, listener &out)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path.data(), path.size());
    unlink(path.c_str());
    unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd || bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(fd.get(), backlog) != 0)
        return -1;
    out.socket = std::move(fd);
    out.path = path;
    return 0;
}

// The program is another name of this one.
static int link_program(const std::string &root)
{
    std::array<char, 4096> program;
    const ssize_t length = readlink("/proc/self/exe", program.data(), program.size() - 1);
    if (length <= 0)
        return -1;
    program[static_cast<size_t>(length)] = '\0';
    const std::string place = root + "/bin/swisdk";
    struct stat found = {};
    if (lstat(place.c_str(), &found) == 0) {
        if (!S_ISLNK(found.st_mode))
            return 0; // somebody's own
        unlink(place.c_str());
    }
    return symlink(program.data(), place.c_str());
}

int swi_server::open(std::string &reason)
{
    if (link_program(services_.root) == 0 &&
        listen_at(services_.root + swisdk_socket_path, server_listener_) == 0) {
        services_.loop.watch(server_listener_.socket.get(), POLLIN,
                             [this](short) { accept_server(); });
        return 0;
    }
    reason = "Could not set up swisdk: " + std::string(strerror(errno));
    return -1;
}

void swi_server::accept_server()
{
    unique_fd fd(
        accept4(server_listener_.socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd || server_ || refusing_)
        return; // its end of the line closes, and it ends
    ucred program = {};
    socklen_t length = sizeof(program);
    (void)getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &program, &length);
    server_ = std::make_unique<packet_line>(
        services_.loop, std::move(fd), [](std::string_view) {},
        [this] {
            services_.log.note("swisdk ended");
            stop_serving();
            server_.reset();
        });
    services_.log.note("swisdk started, process " + std::to_string(program.pid));
    serve();
    server_->send("serve");
}

void swi_server::serve()
{
    for (size_t i = 0; i < pairs_.size(); i++) {
        pair &one = pairs_[i];
        const auto path = [&](const char *channel) {
            return services_.root +
                   sim_format(SWI_SERVER_SOCKET_PATTERN, channel, swi_socket_number);
        };
        if (listen_at(path(swi_channel_pairs[i].notification), one.notification_listener) != 0 ||
            listen_at(path(swi_channel_pairs[i].request), one.request_listener) != 0) {
            services_.log.note("no channel " + std::to_string(i + 1) + ": " + strerror(errno));
            continue;
        }
        services_.loop.watch(one.request_listener.socket.get(), POLLIN,
                             [this, &one](short) { accept_client(one, true); });
        services_.loop.watch(one.notification_listener.socket.get(), POLLIN,
                             [this, &one](short) { accept_client(one, false); });
    }
}

void swi_server::stop_serving()
{
    for (pair &one : pairs_) {
        one.answers.reset();
        one.request.reset();
        one.notification.reset();
        one.enabled.clear();
        for (listener *at : {&one.request_listener, &one.notification_listener}) {
            services_.loop.unwatch(at->socket.get());
            if (at->socket)
                unlink(at->path.c_str());
            at->socket.reset();
        }
    }
}

void swi_server::accept_client(pair &of, bool request_channel)
{
    listener &at = request_channel ? of.request_listener : of.notification_listener;
    unique_fd fd(accept4(at.socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd)
        return;
    std::unique_ptr<packet_line> &line = request_channel ? of.request : of.notification;
    const std::string greeting = greeting_packet(line != nullptr);
    if (line) {
        (void)::send(fd.get(), greeting.data(), greeting.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return;
    }
    line = std::make_unique<packet_line>(
        services_.loop, std::move(fd),
        [this, &of, request_channel](std::string_view bytes) {
            if (request_channel)
                request(of, bytes);
        },
        [&of, request_channel] {
            of.enabled.clear();
            (request_channel ? of.request : of.notification).reset();
            if (request_channel)
                of.answers.reset();
        });
    if (request_channel)
        of.answers = std::make_unique<outbox>(
            services_.loop,
            [this, &of](std::string_view bytes) {
                services_.log.sent(describe_answer(bytes));
                of.request->send(bytes);
            },
            [this](const hangup &end) { hang_up(end); });
    line->send(greeting);
}

// ---- requests

void swi_server::request(pair &from, std::string_view bytes)
{
    std::span<const uint8_t> payload;
    std::span<const uint8_t> parameters;
    swi_object_header object;
    the_request = {};
    if (swi_packet_read(as_bytes(bytes), the_request, payload) != 0 ||
        the_request.message != swi_message_request ||
        (the_request.kind == swi_kind_object &&
         swi_object_read(payload, object, parameters) != 0)) {
        services_.log.received(bytes);
        the_object = 0;
        from.request->send(response_packet(swi_message_rejected, swi_kind_none, 0, {}));
        return;
    }
    if (the_request.kind != swi_kind_object)
        parameters = payload;
    the_object = object.object;
    const swi_handler *handler = find_handler(the_request.kind, object);
    const swi_operation *operation = handler ? &swi_operations[handler->operation] : nullptr;
    alignas(std::max_align_t) std::array<uint8_t, record_bytes_max> record = {};
    const bool readable =
        operation && swi_unpack(*operation->request, parameters, record.data()) == 0;
    const std::string text = describe(object, operation, record.data());
    services_.log.received(text);
    const delivery plan = services_.faults.answer(text, dialect, [&] {
        return execute(from, object, readable ? handler : nullptr, record.data());
    });
    from.answers->deliver(plan);
}

const swi_handler *swi_server::find_handler(uint16_t kind, const swi_object_header &object) const
{
    for (const swi_handler &row : hooks_.handlers)
        if (asks_for(swi_operations[row.operation], kind, object))
            return &row;
    return nullptr;
}

std::string swi_server::execute(pair &from, const swi_object_header &object,
                                const swi_handler *handler, const void *record)
{
    const auto answer = [](uint32_t status, std::span<const uint8_t> parameters = {}) {
        return response_packet(swi_message_response, the_request.kind, status, parameters);
    };
    if (object.operation == swi_operation_notify_enable) {
        if (!hooks_.answering())
            return answer(swi_status_timeout);
        const uint32_t id = object.object & ~static_cast<uint32_t>(swi_object_notification);
        from.enabled.insert(id);
        hooks_.enabled(id);
        return answer(swi_status_ok);
    }
    if (!handler)
        return answer(swi_status_not_supported);
    if (the_request.kind != swi_kind_air_server && !hooks_.answering())
        return answer(swi_status_timeout);

    const swi_operation &operation = swi_operations[handler->operation];
    alignas(std::max_align_t) std::array<uint8_t, record_bytes_max> filled = {};
    std::array<uint8_t, swi_response_bytes_max> packed;
    const swi_reply reply = handler->call(record, filled.data());
    if (!reply.text.empty())
        return refusal_packet(reply.text);
    if (reply.status != swi_status_ok)
        return answer(reply.status);
    const swi_number own = {reply.own_result};
    size_t own_bytes = 0;
    size_t length = 0;
    if ((operation.own_result &&
         swi_pack(swi_layout_of<swi_number>, &own, packed, &own_bytes) != 0) ||
        swi_pack(*operation.response, filled.data(), std::span(packed).subspan(own_bytes),
                 &length) != 0)
        return answer(swi_status_failed);
    return answer(swi_status_ok, std::span(packed).first(own_bytes + length));
}

// ---- notifications

void swi_server::notify(const swi_notification &values, uint32_t enabled_by)
{
    const uint32_t wanted = enabled_by != 0 ? enabled_by : values.type;
    const std::string packet = notification_packet(values);
    for (pair &one : pairs_) {
        if (!one.notification || !one.enabled.contains(wanted))
            continue;
        services_.log.sent(
            sim_format("notify %u %d", values.type,
                       static_cast<int>(values.first | values.system_mode |
                                        values.packet_session_active | values.hdr_state)));
        one.notification->send(packet);
    }
}

void swi_server::forget_enabled()
{
    for (pair &one : pairs_)
        one.enabled.clear();
}

void swi_server::set_serving(bool serving)
{
    if (serving)
        refusing_ = false;
    else
        hang_up({});
}

void swi_server::notify_bytes(std::string_view bytes)
{
    for (pair &one : pairs_)
        if (one.notification)
            one.notification->send(bytes);
    services_.log.sent(bytes);
}

void swi_server::burst(int64_t number)
{
    swi_notification values;
    values.type = swi_notify_rssi;
    for (int64_t i = 0; i < number; i++) {
        values.first = static_cast<uint32_t>(i);
        const std::string packet = notification_packet(values);
        for (pair &one : pairs_)
            if (one.notification)
                one.notification->send(packet);
    }
    services_.log.note("burst of " + std::to_string(number));
}

// ---- faults that need no request

// Starts the program as somebody else would: nobody's child, so that nobody has to bury it.
static void start_program(const std::string &root)
{
    const std::string program = root + "/bin/swisdk";
    const pid_t first = fork();
    if (first == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        setsid();
        if (fork() == 0) {
            setenv("TESSERA_ROOT", root.c_str(), 1);
            execl(program.c_str(), "/bin/swisdk", nullptr);
        }
        _exit(0);
    }
    if (first > 0)
        waitpid(first, nullptr, 0);
}

// The server dies. Until its return nobody can start another.
void swi_server::hang_up(const hangup &end)
{
    services_.log.note("swisdk killed");
    refusing_ = true;
    // The line that may be on the stack goes with the loop's next turn.
    services_.loop.after(0, [this] {
        stop_serving();
        server_.reset();
    });
    if (end.reboot)
        hooks_.reboot();
    if (!end.return_ms)
        return;
    services_.loop.after(*end.return_ms, [this] {
        refusing_ = false;
        start_program(services_.root);
    });
}

void swi_server::act(const fault &alone)
{
    const std::string_view name = fault_name(alone);
    if (name == "burst") {
        burst(alone.number);
        return;
    }
    const delivery plan = fault_deliver(alone, {}, dialect);
    for (const delivery_step &step : plan.steps)
        if (!step.bytes.empty())
            notify_bytes(step.bytes);
    if (plan.end)
        hang_up(*plan.end);
}

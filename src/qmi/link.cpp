#include "qmi/link.h"

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/unique_fd.h"
#include "qmi/errors.h"
#include "qmi/link_parts.h"
#include "qmi/qmux.h"
#include "qmi/tlv.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

constexpr size_t read_bytes = 4096;
constexpr int stale_reads_max = 64; // what is taken off the socket before a request is sent
constexpr size_t abandoned_max = 32;
constexpr uint16_t control_transaction_max = 0xFF;
constexpr uint16_t service_transaction_max = 0xFFFF;
constexpr int connect_attempts = 20;
constexpr int connect_pause_ms = 100;

// Messages of the control service.
constexpr qmi_request allocate_client = {"CTL Get Client Id", qmi_ctl, 0x0022};
constexpr qmi_request release_client = {"CTL Release Client Id", qmi_ctl, 0x0023};
constexpr uint16_t client_revoked_id = 0x0024;
constexpr uint16_t sync_id = 0x0027;

// What the link is to one service.
struct client {
    uint8_t id = 0; // 0: not a client
    uint16_t transaction = 0;
};

struct given_client {
    uint8_t service;
    uint8_t id;
};

static struct {
    uint32_t handle = 0; // 0: closed
    uint32_t last_handle = 0;
    unique_fd fd; // none after the connection was lost
    std::string client_place;
    std::vector<uint8_t> received;
    std::array<client, 256> clients;
    // Allocations that were given up. An id that comes all the same is given back: nobody else knows
    // of it, and a modem has only so many.
    std::vector<qmi_awaited> abandoned;
    std::vector<given_client> strays;
} state;

// ---- connecting

static void forget_clients()
{
    for (client &each : state.clients)
        each.id = 0;
    state.abandoned.clear();
    state.strays.clear();
}

static void lose_connection(const char *why)
{
    log_message(log_warning, "QMI link lost: %s", why);
    state.fd.reset();
    state.received.clear();
    forget_clients();
}

static int bind_client(int fd)
{
    char path[64];
    snprintf(path, sizeof(path), qmi_client_path_format, static_cast<unsigned long>(getpid()));
    sockaddr_un address;
    if (socket_address(path, address, sizeof(address.sun_path)) != 0)
        return -1;
    // Nobody else has this process's id: what bears the name is left over.
    state.client_place = rooted(path);
    unlink(state.client_place.c_str());
    return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
}

static int connect_server(int fd)
{
    sockaddr_un address;
    if (socket_address(qmi_connect_path, address, sizeof(address.sun_path)) != 0)
        return -1;
    for (int attempt = 1;; attempt++) {
        if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0)
            return 0;
        // The server's queue is full; it may only be busy.
        if (errno != EAGAIN || attempt == connect_attempts || clock_stopped())
            return -1;
        clock_sleep_ms(connect_pause_ms);
    }
}

static void close_link()
{
    state.fd.reset();
    if (!state.client_place.empty())
        unlink(state.client_place.c_str());
    state.client_place.clear();
    state.received = {};
    state.handle = 0;
}

uint32_t qmi_open(const char *device, uint32_t &handle)
{
    handle = 0;
    if (state.handle != 0)
        (void)qmi_close(state.handle);
    state.fd.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!state.fd || bind_client(state.fd.get()) != 0 || connect_server(state.fd.get()) != 0) {
        log_message(log_warning, "No QMI link to %s through %s: %s", device, qmi_connect_path,
                    strerror(errno));
        close_link();
        return qmi_not_sent;
    }
    state.clients = {};
    forget_clients();
    state.last_handle = std::max(state.last_handle + 1, uint32_t{1});
    state.handle = handle = state.last_handle;
    return qmi_ok;
}

// ---- receiving

// Reads what is there. 1 when something came, 0 when nothing did, -1 when the connection is lost.
static int receive()
{
    const size_t before = state.received.size();
    state.received.resize(before + read_bytes);
    ssize_t count = 0;
    do {
        count = recv(state.fd.get(), state.received.data() + before, read_bytes, 0);
    } while (count < 0 && errno == EINTR);
    const int error = errno;
    state.received.resize(before + (count > 0 ? static_cast<size_t>(count) : 0));
    if (count > 0)
        return 1;
    if (count < 0 && (error == EAGAIN || error == EWOULDBLOCK))
        return 0;
    lose_connection(count == 0 ? "closed by the other side" : strerror(error));
    return -1;
}

static bool is_answer(const qmux_message &message, const qmi_awaited &expected)
{
    return message.from_modem && message.kind == qmux_response &&
           message.service == expected.service && message.client_id == expected.client_id &&
           message.transaction == expected.transaction && message.id == expected.id;
}

// The client id in the answer to an allocation. 0 or -1.
static int read_given_client(std::span<const uint8_t> tlvs, given_client &given)
{
    tlv_fields fields{tlv_find(tlvs, 0x01).value_or(std::span<const uint8_t>{})};
    return fields.number(given.service) && fields.number(given.id) && given.id != 0 &&
                   given.id != qmux_client_broadcast
               ? 0
               : -1;
}

// True for the late answer to an allocation.
static bool take_abandoned(const qmux_message &message)
{
    const auto found =
        std::find_if(state.abandoned.begin(), state.abandoned.end(),
                     [&](const qmi_awaited &each) { return is_answer(message, each); });
    if (found == state.abandoned.end())
        return false;
    state.abandoned.erase(found);
    tlv_result result;
    given_client given{};
    if (tlv_read_result(message.tlvs, result) == 0 && result.status == 0 &&
        read_given_client(message.tlvs, given) == 0)
        state.strays.push_back(given);
    return true;
}

static void note_unasked(const qmux_message &message)
{
    if (take_abandoned(message))
        return;
    if (message.service == qmi_ctl && message.kind == qmux_indication &&
        (message.id == sync_id || message.id == client_revoked_id)) {
        log_message(log_info, "QMI modem has forgotten its clients");
        forget_clients();
        return;
    }
    log_message(log_debug, "QMI %s skipped: service %u message 0x%04x transaction %u",
                message.kind == qmux_indication ? "indication" : "answer", message.service,
                message.id, message.transaction);
}

// Takes the whole frames out of what was received, up to the answer to one of `expected`; without
// such a one, all of them. -1 when the connection is lost.
static int take_frames(std::span<const qmi_awaited> expected, std::optional<qmi_answer> &found)
{
    size_t taken = 0;
    while (!found) {
        const auto rest = std::span<const uint8_t>(state.received).subspan(taken);
        size_t size = 0;
        if (qmux_frame_size(rest, size) != 0 || size > qmi_frame_bytes_max) {
            lose_connection("what came is no frame");
            return -1;
        }
        if (size == 0 || size > rest.size())
            break;
        taken += size;
        qmux_message message;
        if (qmux_decode(rest.first(size), message) != 0) {
            log_message(log_warning, "QMI frame of %zu bytes cannot be read", size);
            continue;
        }
        const auto match =
            std::find_if(expected.begin(), expected.end(),
                         [&](const qmi_awaited &each) { return is_answer(message, each); });
        if (match != expected.end()) {
            found.emplace();
            found->index = static_cast<size_t>(match - expected.begin());
            found->readable = tlv_check(message.tlvs) == 0;
            if (found->readable)
                found->tlvs.assign(message.tlvs.begin(), message.tlvs.end());
        } else {
            note_unasked(message);
        }
    }
    state.received.erase(state.received.begin(),
                         state.received.begin() + static_cast<std::ptrdiff_t>(taken));
    return 0;
}

// Takes off what has come meanwhile, so that it neither fills the socket nor delays an answer. A
// loss is noticed here before something is sent into it.
static void receive_stale()
{
    std::optional<qmi_answer> none;
    for (int i = 0; i < stale_reads_max && state.fd && receive() == 1; i++)
        if (take_frames({}, none) != 0)
            return;
}

std::optional<qmi_answer> qmi_await(std::span<const qmi_awaited> expected, int64_t deadline_ms)
{
    std::optional<qmi_answer> found;
    while (state.fd && take_frames(expected, found) == 0 && !found) {
        const int64_t left = deadline_ms - clock_now_ms();
        if (left <= 0 || clock_wait_readable(state.fd.get(), static_cast<int>(left)) != 1)
            break;
        (void)receive();
    }
    return found;
}

// ---- sending

static uint16_t next_transaction(uint8_t service)
{
    uint16_t &last = state.clients[service].transaction;
    const uint16_t most = service == qmi_ctl ? control_transaction_max : service_transaction_max;
    last = last >= most ? uint16_t{1} : static_cast<uint16_t>(last + 1);
    return last;
}

uint32_t qmi_send(const qmi_request &request, std::span<const uint8_t> tlvs, qmi_awaited &expected)
{
    if (!state.fd)
        return qmi_not_sent;
    expected = {request.service, state.clients[request.service].id, 0, request.id};
    if (request.service != qmi_ctl && expected.client_id == 0)
        return qmi_not_sent; // the modem has just forgotten its clients
    expected.transaction = next_transaction(request.service);
    std::vector<uint8_t> frame;
    if (qmux_encode({.service = request.service,
                     .client_id = expected.client_id,
                     .transaction = expected.transaction,
                     .id = request.id,
                     .tlvs = tlvs},
                    frame) != 0 ||
        frame.size() > qmi_frame_bytes_max)
        return qmi_too_long;
    ssize_t sent = 0;
    do {
        sent = send(state.fd.get(), frame.data(), frame.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent == static_cast<ssize_t>(frame.size()))
        return qmi_ok;
    if (sent >= 0)
        lose_connection("half a request was sent");
    else if (errno != EAGAIN && errno != EWOULDBLOCK)
        lose_connection(strerror(errno));
    return qmi_not_sent;
}

static uint32_t code_of(const qmi_request &request, std::span<const uint8_t> tlvs)
{
    tlv_result result;
    if (tlv_read_result(tlvs, result) != 0) {
        log_message(log_debug, "%s: the answer has no result", request.name);
        return qmi_modem_error;
    }
    if (result.status == 0)
        return qmi_ok;
    log_message(log_debug, "%s: error %u, %s", request.name, result.error,
                qmi_error_name(result.error));
    if (result.error == qmi_error_invalid_client_id)
        state.clients[request.service].id = 0;
    return qmi_modem_error + result.error;
}

uint32_t qmi_silence(const qmi_request &request)
{
    log_message(log_debug, "%s: no answer", request.name);
    return request.silence_code;
}

uint32_t qmi_take(const qmi_request &request, qmi_answer &answer, std::vector<uint8_t> &response)
{
    if (!answer.readable) {
        log_message(log_debug, "%s: the answer's TLVs are cut", request.name);
        return qmi_modem_error;
    }
    response = std::move(answer.tlvs);
    return code_of(request, response);
}

static uint32_t exchange(const qmi_request &request, std::span<const uint8_t> tlvs,
                         std::vector<uint8_t> &response)
{
    qmi_awaited expected{};
    const int64_t deadline = clock_now_ms() + clock_answer_timeout_ms(request.timeout_ms);
    if (const uint32_t code = qmi_send(request, tlvs, expected); code != qmi_ok)
        return code;
    std::optional<qmi_answer> found = qmi_await({&expected, 1}, deadline);
    return found ? qmi_take(request, *found, response) : qmi_silence(request);
}

// ---- clients

bool qmi_connected()
{
    return static_cast<bool>(state.fd);
}

bool qmi_is_client(uint8_t service)
{
    return state.clients[service].id != 0;
}

uint32_t qmi_allocate(uint8_t service)
{
    if (qmi_is_client(service))
        return qmi_ok;
    std::vector<uint8_t> response;
    tlv_writer row;
    row.begin(0x01);
    row.number(service);
    (void)row.end();
    const uint32_t code = exchange(allocate_client, row.bytes, response);
    if (code == qmi_not_sent && state.abandoned.size() < abandoned_max)
        state.abandoned.push_back(
            {qmi_ctl, 0, state.clients[qmi_ctl].transaction, allocate_client.id});
    if (code != qmi_ok)
        return code;
    given_client given{};
    if (read_given_client(response, given) != 0 || given.service != service) {
        log_message(log_debug, "%s: no client id in the answer", allocate_client.name);
        return qmi_modem_error;
    }
    state.clients[service].id = given.id;
    return qmi_ok;
}

static uint32_t send_release(const given_client &given, qmi_awaited &expected)
{
    tlv_writer row;
    row.begin(0x01);
    row.number(given.service);
    row.number(given.id);
    (void)row.end();
    return qmi_send(release_client, row.bytes, expected);
}

// Gives ids back that came too late. Nobody waits for the answers.
static void release_strays()
{
    qmi_awaited unused{};
    for (const given_client &given : std::exchange(state.strays, {}))
        (void)send_release(given, unused);
}

// Asks for all releases first and then waits for their answers, so that a silent modem costs one
// time-out and not one for each service.
static uint32_t release_all()
{
    std::vector<given_client> given = std::exchange(state.strays, {});
    for (size_t service = 1; service < state.clients.size(); service++) {
        if (const uint8_t id = std::exchange(state.clients[service].id, uint8_t{0}); id != 0)
            given.push_back({static_cast<uint8_t>(service), id});
    }
    std::vector<qmi_awaited> waited;
    for (const given_client &each : given) {
        qmi_awaited expected{};
        if (const uint32_t code = send_release(each, expected); code != qmi_ok)
            return code;
        waited.push_back(expected);
    }
    const int64_t deadline = clock_now_ms() + clock_answer_timeout_ms(release_client.timeout_ms);
    uint32_t code = qmi_ok;
    while (!waited.empty()) {
        const std::optional<qmi_answer> found = qmi_await(waited, deadline);
        if (!found) // who ends does not wait
            return clock_stopped() && state.fd ? code : uint32_t{qmi_not_sent};
        waited.erase(waited.begin() + static_cast<std::ptrdiff_t>(found->index));
        const uint32_t released = code_of(release_client, found->tlvs);
        if (released != qmi_modem_error + qmi_error_invalid_client_id) // a modem that has restarted
            code = std::max(code, released);
    }
    return code;
}

static uint32_t check_handle(uint32_t handle)
{
    if (handle == 0)
        return qmi_no_handle;
    return handle == state.handle ? qmi_ok : qmi_unknown_handle;
}

uint32_t qmi_close(uint32_t handle)
{
    if (const uint32_t code = check_handle(handle); code != qmi_ok)
        return code;
    if (state.fd)
        receive_stale();
    const uint32_t code = state.fd ? release_all() : uint32_t{qmi_not_sent};
    close_link();
    return code;
}

uint32_t qmi_make_ready(uint32_t handle)
{
    if (const uint32_t code = check_handle(handle); code != qmi_ok)
        return code;
    receive_stale();
    release_strays();
    return qmi_ok;
}

uint32_t qmi_send_wait(uint32_t handle, const qmi_request &request, std::span<const uint8_t> tlvs,
                       std::vector<uint8_t> &response)
{
    response.clear();
    if (const uint32_t code = qmi_make_ready(handle); code != qmi_ok)
        return code;
    if (const uint32_t code = qmi_allocate(request.service); code != qmi_ok)
        return code;
    return exchange(request, tlvs, response);
}

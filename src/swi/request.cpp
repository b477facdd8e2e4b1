#include "platform/clock.h"
#include "platform/log.h"
#include "swi/api.h"
#include "swi/api_state.h"
#include "swi/packet.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>

static int result_of_status(uint32_t status)
{
    switch (status) {
    case swi_status_ok:
        return swi_ok;
    case swi_status_timeout:
        return swi_modem_timeout;
    case swi_status_not_initialised:
        return swi_not_initialised;
    case swi_status_error:
    case swi_status_error_text:
        return swi_cns_error;
    case swi_status_not_supported:
        return swi_not_supported;
    case swi_status_busy:
        return swi_busy;
    default:
        return swi_failed;
    }
}

static std::span<const uint8_t> pack_request(const swi_operation &operation, const void *request)
{
    const swi_packet_kind *kind = swi_packet_kind_find(operation.kind);
    if (!kind)
        swi_fatal("No amtype specified", operation.kind);
    const size_t parameter_bytes = operation.request->wire_bytes_max;
    if (parameter_bytes > swi_parameters_max(operation.kind))
        swi_fatal("AM CNS header too big", static_cast<int>(parameter_bytes));
    swi_header header;
    header.message = swi_message_request;
    header.kind = operation.kind;
    header.sequence = ++swi_api.sequence;
    swi_packet_writer writer(swi_api.request_bytes, header);
    int result = 0;
    if (operation.kind == swi_kind_object) {
        swi_object_header object;
        object.object = operation.object;
        object.operation = operation.operation;
        object.parameter_bytes = static_cast<uint16_t>(parameter_bytes);
        result = writer.add(object);
    }
    if (result == 0 && request)
        result = writer.add(*operation.request, request);
    return result == 0 ? writer.finish() : std::span<const uint8_t>();
}

// Throws away what nobody waits for any more, so that it cannot be taken for the next answer. 0, or
// -1 if a server that never stops sending has used up the time.
static int drop_late_packets(int fd, int64_t deadline)
{
    while (clock_now_ms() < deadline && !clock_stopped()) {
        const long length = swi_channel_receive(fd, swi_api.response_bytes.data(), 0);
        if (length == 0 || (length < 0 && errno != EBADMSG))
            return 0;
        log_message(log_debug, "SWI API: dropped a late packet of %ld bytes", length);
    }
    return -1;
}

// Whether a packet answers a request that was given up before: any but the present one.
static bool is_late(const swi_header &header)
{
    return header.sequence != swi_api.sequence &&
           (header.message == swi_message_response || header.message == swi_message_rejected);
}

// Waits for the packet that ends the present request: swi_ok with its header and payload. Late packets
// do not prolong the wait.
static int await_response(int fd, int64_t deadline, swi_header &header,
                          std::span<const uint8_t> &payload)
{
    for (;;) {
        const int64_t left = deadline - clock_now_ms();
        if (left <= 0 || clock_stopped() || clock_wait_readable(fd, static_cast<int>(left)) <= 0)
            return swi_no_response;
        const long length =
            swi_channel_receive(fd, swi_api.response_bytes.data(), swi_api.response_bytes.size());
        if (length < 0 && errno == EAGAIN)
            continue;
        if (length == 0 || (length < 0 && errno != EBADMSG)) {
            log_message(log_debug, "SWI API: the request channel ended");
            return swi_no_response;
        }
        const auto size = static_cast<size_t>(std::max(0L, length));
        if (size > swi_api.response_bytes.size() ||
            swi_packet_read(std::span(swi_api.response_bytes).first(size), header, payload) != 0)
            return swi_malformed_header;
        if (!is_late(header))
            return header.message == swi_message_response ? swi_ok : swi_malformed_header;
        log_message(log_debug, "SWI API: dropped a late response");
    }
}

// Reads what follows the headers of a successful response.
static int unpack_response(const swi_operation &operation, std::span<const uint8_t> parameters,
                           void *response)
{
    swi_number own;
    if (operation.own_result) {
        const size_t bytes = swi_layout_of<swi_number>.wire_bytes_max;
        if (swi_unpack(swi_layout_of<swi_number>, parameters, &own) != 0)
            return swi_failed;
        parameters = parameters.subspan(bytes);
    }
    if (swi_unpack(*operation.response, parameters, response) != 0 && own.value == 0) {
        log_message(log_debug, "SWI API: the response to %s is too short", operation.name);
        return swi_failed;
    }
    return static_cast<int>(own.value);
}

static void keep_error_text(std::span<const uint8_t> parameters)
{
    const size_t length = std::min(parameters.size(), sizeof(swi_api.error_text.text) - 1);
    if (length > 0)
        memcpy(swi_api.error_text.text, parameters.data(), length);
}

static int read_response(const swi_operation &operation, std::span<const uint8_t> payload,
                         void *response)
{
    uint32_t status = swi_status_ok;
    std::span<const uint8_t> parameters = payload;
    if (operation.kind == swi_kind_object) {
        swi_object_header header;
        if (swi_object_read(payload, header, parameters) != 0)
            return swi_malformed_header;
        if (header.object != operation.object)
            return swi_unexpected_response;
        status = header.status;
    } else if (operation.kind != swi_kind_air_server) {
        swi_plain_response header;
        if (swi_unpack(swi_layout_of<swi_plain_response>, payload, &header) != 0)
            return swi_malformed_header;
        status = header.status;
        parameters = payload.subspan(swi_layout_of<swi_plain_response>.wire_bytes_max);
    }
    const int result = result_of_status(status);
    if (result == swi_cns_error)
        keep_error_text(parameters);
    return result == swi_ok ? unpack_response(operation, parameters, response) : result;
}

static int exchange(const swi_operation &operation, const void *request, void *response,
                    int timeout_ms)
{
    swi_api.error_text = {}; // it was about an earlier request
    const std::span<const uint8_t> packet = pack_request(operation, request);
    if (packet.empty())
        return swi_invalid_parameter;
    const int fd = swi_api.channels.request.get();
    if (fd < 0)
        return swi_no_response; // its server died, and nobody has reopened it yet
    const int64_t deadline = clock_now_ms() + clock_answer_timeout_ms(timeout_ms);
    if (drop_late_packets(fd, deadline) != 0)
        return swi_no_response;
    if (send(fd, packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        log_message(log_debug, "SWI API: %s not sent: %s", operation.name, strerror(errno));
        return swi_no_response;
    }
    swi_header header;
    std::span<const uint8_t> payload;
    const int result = await_response(fd, deadline, header, payload);
    if (result != swi_ok)
        return result;
    if (header.kind != operation.kind)
        return swi_unexpected_response;
    return read_response(operation, payload, response);
}

int swi_request(const swi_operation &operation, const void *request, void *response, int timeout_ms)
{
    const std::lock_guard lock(swi_api.request_mutex);
    if (!swi_api.open)
        return swi_not_open;
    if (!swi_api.initialised)
        return swi_not_initialised;
    if (swi_api.technology != 0 && (operation.selector & swi_api.technology) == 0)
        return swi_not_applicable;
    const int result = exchange(operation, request, response, timeout_ms);
    if (result == swi_ok && operation.kind == swi_kind_device_info) {
        const uint32_t technology = static_cast<const swi_modem_type *>(response)->technology;
        const bool known = technology == swi_gsm_modems || technology == swi_cdma_modems;
        swi_api.technology = known ? technology : 0;
    }
    return result;
}

int swi_last_error_text(char *buffer, size_t size)
{
    const std::lock_guard lock(swi_api.request_mutex);
    if (!swi_api.open)
        return swi_not_open;
    if (size == 0)
        return swi_small_buffer;
    const size_t length =
        std::min(strnlen(swi_api.error_text.text, swi_error_text_max - 1), size - 1);
    memcpy(buffer, swi_api.error_text.text, length);
    buffer[length] = '\0';
    return swi_ok;
}

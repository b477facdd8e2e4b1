#include "platform/clock.h"
#include "platform/log.h"
#include "swi/api.h"
#include "swi/api_state.h"
#include "swi/packet.h"

#include <algorithm>
#include <cerrno>
#include <exception>

#include <unistd.h>

constexpr int notification_wait_ms = 5000;

int swi_register_callback(swi_callback callback, void *context, int32_t first, int32_t second)
{
    if (!swi_api.open)
        return swi_not_open;
    const std::lock_guard lock(swi_api.callback_mutex);
    swi_api.callback = callback;
    swi_api.context = context;
    swi_api.words[0] = first;
    swi_api.words[1] = second;
    return swi_ok;
}

int swi_deregister_callback()
{
    const std::lock_guard lock(swi_api.callback_mutex);
    swi_api.callback = nullptr;
    swi_api.context = nullptr;
    return swi_api.open ? swi_ok : swi_not_open;
}

int swi_enable_notification(uint32_t id, int timeout_ms)
{
    const auto &always_on = swi_notifications_always_on;
    if (std::find(always_on.begin(), always_on.end(), id) != always_on.end())
        return swi_ok;
    for (const swi_notification_row &row : swi_notifications) {
        if (row.id != id)
            continue;
        const swi_operation enable = {"notification enable",
                                      swi_kind_object,
                                      row.object(),
                                      swi_operation_notify_enable,
                                      swi_any_modem,
                                      &swi_layout_of<swi_nothing>,
                                      &swi_layout_of<swi_nothing>,
                                      false};
        return swi_request(enable, nullptr, nullptr, timeout_ms);
    }
    return swi_invalid_parameter;
}

// The type of a notification that the table does not know: the id that its object is made of, or a
// number above all ids if its object is none of a notification.
static uint32_t unknown_type(uint16_t object)
{
    constexpr uint32_t above_all_ids = 0x10000;
    return object >= swi_object_notification
               ? static_cast<uint32_t>(object - swi_object_notification)
               : above_all_ids | object;
}

static int decode_object(std::span<const uint8_t> payload, swi_notification &notification)
{
    swi_object_header header;
    std::span<const uint8_t> parameters;
    if (swi_object_read(payload, header, parameters) != 0 ||
        header.operation != swi_operation_notify)
        return -1;
    notification.type = unknown_type(header.object);
    for (const swi_notification_row &row : swi_notifications) {
        if (row.object() != header.object)
            continue;
        notification.type = row.id;
        return swi_unpack(*row.layout, parameters, &notification);
    }
    return 0;
}

static int decode_notification(std::span<const uint8_t> bytes, swi_notification &notification)
{
    swi_header header;
    std::span<const uint8_t> payload;
    if (swi_packet_read(bytes, header, payload) != 0 || header.message != swi_message_notification)
        return -1;
    switch (header.parameter) {
    case swi_parameter_object:
        return decode_object(payload, notification);
    case swi_parameter_air_server:
        notification.type = swi_notify_air_server;
        return 0;
    case swi_parameter_firmware:
        notification.type = swi_notify_firmware;
        return 0;
    default:
        swi_fatal("SwiWaitNotification-unknown parmtype\n", header.parameter);
    }
}

static void dispatch(std::span<const uint8_t> bytes)
{
    swi_notification notification;
    if (decode_notification(bytes, notification) != 0) {
        log_message(log_warning, "SWI API: dropped a malformed notification of %zu bytes",
                    bytes.size());
        return;
    }
    const std::lock_guard lock(swi_api.callback_mutex);
    if (!swi_api.callback || swi_api.closing)
        return;
    try {
        swi_api.callback(notification, swi_api.context);
    } catch (const std::exception &reason) {
        log_message(log_error, "SWI API: notification %d given up: %s",
                    static_cast<int>(notification.type), reason.what());
    }
}

// Reads the one packet that is there. 0, or -1 with errno when the channel can no longer be read.
static int read_notification(const std::shared_ptr<unique_fd> &channel)
{
    static std::array<uint8_t, swi_notification_bytes_max> bytes; // one thread waits at a time
    const long length = swi_channel_receive(channel->get(), bytes.data(), bytes.size());
    if (length > 0) {
        dispatch(std::span(bytes).first(std::min(static_cast<size_t>(length), bytes.size())));
        return 0;
    }
    if (length < 0 && (errno == EAGAIN || errno == EINTR || errno == EBADMSG))
        return 0;
    if (length < 0 && errno != ECONNRESET)
        return -1;
    const std::lock_guard lock(swi_api.notification_mutex);
    if (swi_api.notification == channel) {
        log_message(log_debug, "SWI API: the notification channel ended");
        swi_api.notification.reset();
    }
    return 0;
}

static void take_wake_up()
{
    char drained[16];
    while (read(swi_api.wake_reader.get(), drained, sizeof(drained)) > 0)
        ;
}

static std::shared_ptr<unique_fd> current_channel()
{
    const std::lock_guard lock(swi_api.notification_mutex);
    return swi_api.notification;
}

int swi_wait_notification()
{
    while (!swi_api.closing && !clock_stopped()) {
        if (!swi_api.open)
            return swi_api.closing ? swi_ok : swi_not_open;
        // Without a channel there is nothing to read until somebody opens a new one.
        const std::shared_ptr<unique_fd> channel = current_channel();
        const int fd = channel ? channel->get() : swi_api.wake_reader.get();
        const int ready = clock_wait_readable(fd, clock_scaled_ms(notification_wait_ms));
        if (ready < 0)
            return swi_failed;
        if (ready == 0)
            continue;
        if (!channel)
            take_wake_up();
        else if (read_notification(channel) != 0)
            return swi_failed;
    }
    return swi_ok;
}

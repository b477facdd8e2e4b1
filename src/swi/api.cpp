#include "swi/api.h"

#include "platform/log.h"
#include "swi/api_state.h"
#include "swi/packet.h"

#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

swi_api_state swi_api;

void swi_fatal(const char *text, int data)
{
    log_message(log_fatal, "erAbort: API Fatal error -> %s, Data: %d\n", text, data);
    // Not exit(): this may be the notification thread, with the main thread in the middle of things.
    std::_Exit(EXIT_FAILURE);
}

static int open_wake_pipe()
{
    if (swi_api.wake_reader)
        return 0;
    int ends[2];
    if (pipe(ends) != 0)
        return -1;
    for (const int fd : ends) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    swi_api.wake_reader.reset(ends[0]);
    swi_api.wake_writer.reset(ends[1]);
    return 0;
}

static void wake_reader()
{
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(swi_api.wake_writer.get(), &byte, 1);
}

// The caller holds the request mutex.
static int open_channels()
{
    const int result = swi_channels_open(swi_api.channels, swi_api.start.server_path);
    if (result != swi_ok)
        return result;
    const std::lock_guard lock(swi_api.notification_mutex);
    swi_api.notification = swi_api.channels.notification;
    wake_reader();
    return swi_ok;
}

int swi_api_open(const swi_start_parameters &parameters)
{
    int data = 0;
    if (const char *fault = swi_packet_kinds_fault(swi_packet_kinds, &data))
        swi_fatal(fault, data);
    const std::lock_guard lock(swi_api.request_mutex);
    if (swi_api.open)
        return swi_ok;
    const size_t path_length = strnlen(parameters.server_path, sizeof(parameters.server_path));
    if (path_length == 0 || path_length == sizeof(parameters.server_path) ||
        parameters.launch != 1 || open_wake_pipe() != 0)
        return swi_system_error;
    swi_api.start = parameters;
    swi_api.closing = false;
    swi_api.technology = 0;
    const int result = open_channels();
    swi_api.open = result == swi_ok;
    swi_api.initialised = result == swi_ok;
    return result;
}

static bool channel_alive(int fd)
{
    pollfd end = {fd, POLLIN, 0};
    return fd >= 0 && poll(&end, 1, 0) >= 0 && !(end.revents & (POLLHUP | POLLERR | POLLNVAL));
}

static bool channels_alive()
{
    const auto &channels = swi_api.channels;
    return channels.pair >= 0 && channel_alive(channels.request.get()) &&
           channel_alive(channels.notification->get());
}

bool swi_api_alive()
{
    const std::lock_guard lock(swi_api.request_mutex);
    return swi_api.open && channels_alive();
}

int swi_api_reopen()
{
    const std::lock_guard lock(swi_api.request_mutex);
    if (!swi_api.open)
        return swi_not_open;
    if (channels_alive())
        return swi_ok;
    log_message(log_warning, "SWI API: the server is gone, opening its channels again");
    swi_channels_close(swi_api.channels);
    return open_channels();
}

void swi_api_close()
{
    const std::lock_guard lock(swi_api.request_mutex);
    swi_api.closing = true;
    swi_api.open = false;
    swi_api.initialised = false;
    swi_channels_close(swi_api.channels);
    if (swi_api.wake_writer)
        wake_reader();
}

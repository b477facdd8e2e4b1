// The client's ends of the SDK's channels: a pair of sequenced-packet sockets, one for requests and
// one for notifications, that the server serves for one client at a time. Opening looks for a free
// pair among the five and starts the server program when nobody serves them.
#pragma once

#include "platform/unique_fd.h"

#include <memory>

struct swi_channels {
    unique_fd request;
    std::shared_ptr<unique_fd> notification; // shared with the thread that is reading from it
    int pair = -1;                           // which of the pairs, -1 while closed
};

// Opens a free pair. With a server path, the program is started first if nobody serves the channels
// and awaited for ten seconds. swi_ok; swi_busy when no channel could be opened in that time,
// swi_system_error when the program could not be started, swi_failed when the server speaks another
// version, swi_closed when nobody serves the channels and no path was given.
[[nodiscard]] int swi_channels_open(swi_channels &channels, const char *server_path);

// Closes both ends and removes their names. A reader of the notification channel sees its end.
void swi_channels_close(swi_channels &channels);

// Receives one packet of at most `size` bytes. Its length, which is above `size` when the packet is
// longer; 0 at the end of the channel; -1 with errno, EAGAIN when there is none. An empty packet,
// which looks like the end, is -1 with EBADMSG.
[[nodiscard]] long swi_channel_receive(int fd, void *buffer, size_t size);

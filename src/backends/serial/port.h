// The modem's command port, /dev/cellcommand01: opening it for this process alone, raw at 115200
// baud with RTS/CTS, and giving it back as it was found.
#pragma once

#include "platform/unique_fd.h"

#include <span>

#include <termios.h>

constexpr const char *port_path = "/dev/cellcommand01";

struct serial_port {
    unique_fd fd;    // empty while closed
    termios saved{}; // the settings as found at open
};

// Opens and configures the port; a failure is logged and leaves it closed. 0 or -1.
[[nodiscard]] int port_open(serial_port &port);

// Restores the settings and closes. 0, or -1 with errno when the close failed; it is closed anyway.
int port_close(serial_port &port);

// Writes the bytes one by one, as the modems want them. A full queue is tried again at once, up to
// 1,000 times in all: then -1 with errno EAGAIN. -1 with errno after any other failure.
[[nodiscard]] int port_write(serial_port &port, std::span<const char> bytes);

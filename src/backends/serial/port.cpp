#include "backends/serial/port.h"

#include "platform/log.h"
#include "platform/paths.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>

constexpr int write_retries_max = 1000;

int port_open(serial_port &port)
{
    unique_fd fd(
        open(rooted(port_path).c_str(), O_RDWR | O_EXCL | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        log_message(log_fatal, "Failed to open: %s: %s", port_path, strerror(errno));
        return -1;
    }
    if (ioctl(fd.get(), TIOCEXCL) != 0) {
        log_message(log_fatal, "Failed to lock: %s", port_path);
        return -1;
    }
    if (tcgetattr(fd.get(), &port.saved) != 0) {
        log_message(log_fatal, "Old termios failed: %s (%d) %s", port_path, errno, strerror(errno));
        return -1;
    }
    termios raw = {};
    raw.c_iflag = IGNPAR;
    raw.c_cflag = B115200 | CS8 | CREAD | CLOCAL | CRTSCTS;
    cfsetispeed(&raw, B115200); // where a C library keeps the speed outside c_cflag
    cfsetospeed(&raw, B115200);
    tcflush(fd.get(), TCIFLUSH);
    tcsetattr(fd.get(), TCSANOW, &raw);
    port.fd = std::move(fd);
    return 0;
}

int port_close(serial_port &port)
{
    if (!port.fd)
        return 0;
    // Output too: a modem that takes nothing would hold up the close until its driver gives up.
    tcflush(port.fd.get(), TCIOFLUSH);
    tcsetattr(port.fd.get(), TCSANOW, &port.saved);
    // Exclusive mode belongs to the terminal, not to the descriptor: a pseudo-terminal would keep
    // it and refuse the next open.
    ioctl(port.fd.get(), TIOCNXCL);
    return port.fd.reset();
}

int port_write(serial_port &port, std::span<const char> bytes)
{
    int retries = 0;
    for (size_t sent = 0; sent < bytes.size();) {
        if (write(port.fd.get(), &bytes[sent], 1) == 1)
            sent++;
        else if (errno != EAGAIN || ++retries >= write_retries_max)
            return -1;
    }
    return 0;
}

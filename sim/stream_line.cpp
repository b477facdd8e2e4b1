#include "sim/stream_line.h"

#include <array>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>

static constexpr size_t unsent_bytes_max = 1 << 20;

stream_line::stream_line(sim_loop &loop, unique_fd fd,
                         std::function<void(std::string_view)> received,
                         std::function<void()> ended)
    : loop_(loop), fd_(std::move(fd)), received_(std::move(received)), ended_(std::move(ended))
{
    watch();
}

stream_line::~stream_line()
{
    loop_.unwatch(fd_.get());
}

void stream_line::watch()
{
    const int events = unsent_.empty() ? POLLIN : POLLIN | POLLOUT;
    loop_.watch(fd_.get(), static_cast<short>(events), [this](short seen) { ready(seen); });
}

void stream_line::send(std::string_view bytes)
{
    if (unsent_.size() + bytes.size() > unsent_bytes_max)
        return;
    const bool idle = unsent_.empty();
    unsent_ += bytes;
    if (!idle)
        return;
    flush();
    if (!unsent_.empty())
        watch();
}

void stream_line::flush()
{
    while (!unsent_.empty()) {
        const ssize_t sent =
            ::send(fd_.get(), unsent_.data(), unsent_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (sent < 0)
            unsent_.clear(); // nobody is there any more; the end will be noticed when reading
        else
            unsent_.erase(0, static_cast<size_t>(sent));
    }
}

void stream_line::ready(short events)
{
    if (events & POLLOUT) {
        flush();
        if (unsent_.empty())
            watch();
    }
    if (!(events & (POLLIN | POLLHUP | POLLERR)))
        return;
    std::array<char, 8192> buffer;
    const ssize_t length = recv(fd_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (length > 0) {
        const auto received = received_; // it may destroy this object
        received(std::string_view(buffer.data(), static_cast<size_t>(length)));
        return;
    }
    if (length < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return;
    const auto ended = ended_;
    loop_.unwatch(fd_.get());
    ended();
}

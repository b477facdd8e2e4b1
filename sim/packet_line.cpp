#include "sim/packet_line.h"

#include <array>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>

static constexpr size_t packet_bytes_max = 4096;
static constexpr size_t waiting_max = 100000;

packet_line::packet_line(sim_loop &loop, unique_fd fd,
                         std::function<void(std::string_view)> received,
                         std::function<void()> ended)
    : loop_(loop), fd_(std::move(fd)), received_(std::move(received)), ended_(std::move(ended))
{
    watch();
}

packet_line::~packet_line()
{
    loop_.unwatch(fd_.get());
}

void packet_line::watch()
{
    const int events = waiting_.empty() ? POLLIN : POLLIN | POLLOUT;
    loop_.watch(fd_.get(), static_cast<short>(events), [this](short seen) { ready(seen); });
}

void packet_line::send(std::string_view packet)
{
    if (waiting_.size() < waiting_max)
        waiting_.emplace_back(packet);
    if (waiting_.size() == 1 && !flush())
        watch();
}

// Whether everything has left.
bool packet_line::flush()
{
    while (!waiting_.empty()) {
        const std::string &packet = waiting_.front();
        if (::send(fd_.get(), packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 &&
            (errno == EAGAIN || errno == EWOULDBLOCK))
            return false;
        waiting_.pop_front(); // what failed otherwise has no reader any more
    }
    return true;
}

void packet_line::ready(short events)
{
    if ((events & POLLOUT) && flush())
        watch();
    if (!(events & (POLLIN | POLLHUP | POLLERR)))
        return;
    std::array<char, packet_bytes_max> buffer;
    const ssize_t length = recv(fd_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (length > 0) {
        const auto received = received_; // it may destroy this object
        received(std::string_view(buffer.data(), static_cast<size_t>(length)));
        return;
    }
    if (length < 0 && errno == EAGAIN)
        return;
    if (length == 0 && !(events & (POLLHUP | POLLERR)))
        return; // an empty packet
    const auto ended = ended_;
    loop_.unwatch(fd_.get());
    ended();
}

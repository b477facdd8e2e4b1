#include "sim/loop.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <vector>

#include <poll.h>

int64_t sim_loop::now_ms()
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void sim_loop::watch(int fd, short events, std::function<void(short)> ready)
{
    watchers_[fd] = {events, ++serial_, std::move(ready)};
}

void sim_loop::unwatch(int fd)
{
    watchers_.erase(fd);
}

sim_timer sim_loop::after(int64_t delay_ms, std::function<void()> due)
{
    const sim_timer timer(now_ms() + std::max<int64_t>(delay_ms, 0), ++serial_);
    timers_.emplace(timer, std::move(due));
    return timer;
}

void sim_loop::cancel(const sim_timer &timer)
{
    timers_.erase(timer);
}

void sim_loop::run_timers()
{
    const int64_t now = now_ms();
    while (!stopped_ && !timers_.empty() && timers_.begin()->first.first <= now) {
        const auto due = timers_.extract(timers_.begin());
        due.mapped()();
    }
}

int sim_loop::wait_and_serve()
{
    struct seen {
        int fd;
        uint64_t serial;
    };
    std::vector<struct pollfd> polled;
    std::vector<seen> order;
    for (const auto &[fd, entry] : watchers_) {
        polled.push_back({fd, entry.events, 0});
        order.push_back({fd, entry.serial});
    }
    int timeout_ms = -1;
    if (!timers_.empty()) {
        const int64_t left = timers_.begin()->first.first - now_ms();
        timeout_ms = static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
    }
    if (poll(polled.data(), static_cast<nfds_t>(polled.size()), timeout_ms) < 0)
        return errno == EINTR ? 0 : -1;

    for (size_t i = 0; i < polled.size() && !stopped_; i++) {
        if (polled[i].revents == 0)
            continue;
        const auto found = watchers_.find(order[i].fd);
        if (found == watchers_.end() || found->second.serial != order[i].serial)
            continue;
        const auto ready = found->second.ready;
        ready(polled[i].revents);
    }
    return 0;
}

int sim_loop::run()
{
    while (!stopped_) {
        run_timers();
        if (!stopped_ && wait_and_serve() != 0)
            return -1;
    }
    return 0;
}

// The simulator's one thread: it waits in poll(2) for descriptors and timers and calls whoever asked
// for them, one at a time. Callbacks may watch, unwatch, set and cancel anything, themselves
// included. The loop owns no descriptor; its user unwatches one before closing it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

// When it is due and the order in which it was set, which decides between equal times.
using sim_timer = std::pair<int64_t, uint64_t>;

class sim_loop
{
public:
    // Calls `ready` with the returned events whenever one of `events` (or an error) is there.
    // Watching a descriptor again replaces what was asked for before.
    void watch(int fd, short events, std::function<void(short)> ready);
    void unwatch(int fd);

    // Calls `due` once, `delay_ms` from now: real milliseconds, which no time scale shortens.
    sim_timer after(int64_t delay_ms, std::function<void()> due);

    // Forgets a timer; one that has run already is no error.
    void cancel(const sim_timer &timer);

    // Serves until stop(). 0, or -1 with errno set if the wait itself fails.
    int run();
    void stop() { stopped_ = true; }

    // The monotonic clock in milliseconds.
    static int64_t now_ms();

private:
    struct watcher {
        short events;
        uint64_t serial;
        std::function<void(short)> ready;
    };

    void run_timers();
    int wait_and_serve();

    std::map<int, watcher> watchers_;
    std::map<sim_timer, std::function<void()>> timers_;
    uint64_t serial_ = 0;
    bool stopped_ = false;
};

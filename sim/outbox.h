// Sends answers in the time that their delivery asks for. A late answer does not hold up the next
// one: each goes its own way, so that an answer can arrive when nobody expects it any more.
#pragma once

#include "sim/fault.h"
#include "sim/loop.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

class outbox
{
public:
    // `send` writes bytes to the daemon, `hang_up` breaks the line.
    outbox(sim_loop &loop, std::function<void(std::string_view)> send,
           std::function<void(const hangup &)> hang_up);

    void deliver(const delivery &plan);

    // Drops what has not left yet: the line is gone.
    void clear()
    {
        line_ = std::make_shared<int>();
        held_.clear();
    }

private:
    void in(int64_t delay_ms, std::function<void()> action);

    void release_held();

    sim_loop &loop_;
    std::function<void(std::string_view)> send_;
    std::function<void(const hangup &)> hang_up_;
    std::string held_;                                    // leaves behind the next answer
    std::shared_ptr<int> line_ = std::make_shared<int>(); // timers of an older line find it gone
};

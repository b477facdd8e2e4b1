#include "sim/outbox.h"

#include <utility>

outbox::outbox(sim_loop &loop, std::function<void(std::string_view)> send,
               std::function<void(const hangup &)> hang_up)
    : loop_(loop), send_(std::move(send)), hang_up_(std::move(hang_up))
{
}

void outbox::in(int64_t delay_ms, std::function<void()> action)
{
    if (delay_ms == 0) {
        action();
        return;
    }
    const std::weak_ptr<int> line = line_;
    loop_.after(delay_ms, [line, action = std::move(action)] {
        if (!line.expired())
            action();
    });
}

void outbox::release_held()
{
    const std::string bytes = std::exchange(held_, {});
    if (!bytes.empty())
        send_(bytes);
}

void outbox::deliver(const delivery &plan)
{
    if (plan.held) {
        for (const delivery_step &step : plan.steps)
            held_ += step.bytes;
        return;
    }
    int64_t at_ms = 0;
    for (const delivery_step &step : plan.steps) {
        at_ms += step.delay_ms;
        if (!step.bytes.empty())
            in(at_ms, [this, bytes = step.bytes] { send_(bytes); });
    }
    if (!plan.steps.empty() && !held_.empty())
        in(at_ms, [this] { release_held(); });
    if (plan.end)
        in(at_ms, [this, end = *plan.end] { hang_up_(end); });
}

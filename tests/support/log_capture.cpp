#include "support/log_capture.h"

#include "platform/log.h"

#include <algorithm>
#include <mutex>

static std::mutex mutex;
static std::vector<std::string> captured;

static std::function<void(const std::string &)> listener;

static void capture(int priority, const char *text)
{
    const std::string line = std::to_string(priority) + " " + text;
    std::function<void(const std::string &)> heard;
    {
        const std::lock_guard lock(mutex);
        captured.push_back(line);
        heard = listener;
    }
    if (heard)
        heard(line);
}

log_capture::log_capture()
{
    clear();
    log_set_threshold(log_debug);
    log_set_sink(capture);
}

log_capture::~log_capture()
{
    log_set_sink(nullptr);
    log_set_threshold(log_info);
    on_line(nullptr);
}

void log_capture::on_line(std::function<void(const std::string &)> function)
{
    const std::lock_guard lock(mutex);
    listener = std::move(function);
}

std::vector<std::string> log_capture::lines() const
{
    const std::lock_guard lock(mutex);
    return captured;
}

int log_capture::count(const std::string &line) const
{
    const auto all = lines();
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}

bool log_capture::has(const std::string &part) const
{
    const auto all = lines();
    return std::any_of(all.begin(), all.end(),
                       [&](const std::string &line) { return line.find(part) != line.npos; });
}

void log_capture::clear()
{
    const std::lock_guard lock(mutex);
    captured.clear();
}

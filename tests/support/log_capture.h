// Collects the log lines of one test, all priorities, as "priority text".
#pragma once

#include <functional>
#include <string>
#include <vector>

class log_capture
{
public:
    log_capture();
    ~log_capture();
    log_capture(const log_capture &) = delete;
    log_capture &operator=(const log_capture &) = delete;

    [[nodiscard]] std::vector<std::string> lines() const;
    [[nodiscard]] int count(const std::string &line) const; // how often exactly this line came
    [[nodiscard]] bool has(const std::string &part) const;  // whether some line holds this
    void clear();

    // Called after each line, by the thread that logged it.
    void on_line(std::function<void(const std::string &)> function);
};

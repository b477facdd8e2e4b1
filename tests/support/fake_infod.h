// The information service of unit tests, linked instead of the real one: records what is pushed and
// fails on demand. One at a time.
#pragma once

#include <atomic>
#include <string>
#include <vector>

struct fake_infod {
    fake_infod();
    ~fake_infod();

    std::vector<std::string> pushed; // "text KEY=VALUE" or "long KEY=VALUE"
    int start_result = 0;            // what a session's start returns
    int start_errno = 0;
    int handle = 3;     // what it stores
    int end_result = 0; // what its end returns
    std::atomic<int> sessions_open = 0;
    std::atomic<int> overlaps = 0; // sessions that began within another one
};

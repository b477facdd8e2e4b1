// Two SIM holders in front of one modem, installed while it exists.
#pragma once

#include <set>
#include <string>

struct fake_dualsim {
    fake_dualsim();
    ~fake_dualsim();
    fake_dualsim(const fake_dualsim &) = delete;
    fake_dualsim &operator=(const fake_dualsim &) = delete;

    int index = 0;
    int mode = 2;
    // The operations that fail, by the names of their slots.
    std::set<std::string> failing;
};

// Two SIM holders in front of one modem, installed while it exists.
#pragma once

#include <vector>

struct fake_dualsim {
    fake_dualsim();
    ~fake_dualsim();
    fake_dualsim(const fake_dualsim &) = delete;
    fake_dualsim &operator=(const fake_dualsim &) = delete;

    int index = 0;
    int mode = 2;
    bool mode_readable = true;
    bool index_settable = true;
};

// A modem whose operations only record that they were called, with their arguments.
#pragma once

#include "cellmodem/cellmodem.h"

#include <map>
#include <string>
#include <vector>

struct fake_modem {
    fake_modem();
    ~fake_modem();
    fake_modem(const fake_modem &) = delete;
    fake_modem &operator=(const fake_modem &) = delete;

    cellmodem record;                   // attached, every slot filled
    std::vector<std::string> calls;     // "name(arguments)"
    std::map<std::string, int> results; // by name; 0 for those not there
};

// The slots alone, for a record of somebody else's while a fake_modem exists.
extern const cellmodem_slots fake_modem_slots;

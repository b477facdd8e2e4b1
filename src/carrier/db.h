// The daemon's carrier database: names for the numbers by which a modem tells its network. The
// site's own table (/etc/config) is preferred to the installed one (/etc); it replaces that wholly.
//
// The table is read with the first look-up, since most modem families say names themselves, and
// stays in memory until the daemon ends. A file that changes meanwhile is seen by the next daemon.
// For the main thread only.
#pragma once

#include "carrier/table.h"

#include <cstdint>

constexpr const char *carrier_db_own_path = "/etc/config/mcc-mnc-table.csv";
constexpr const char *carrier_db_path = "/etc/mcc-mnc-table.csv";

// Makes the database, of which nothing is there yet. 0.
[[nodiscard]] int carrier_db_create();

// Names the network with these codes. 0 with `result` filled; -1, with `result` as it was, when the
// table has no such network or could not be read. A failed reading is logged and tried again by the
// next look-up; an empty or useless file is read once. Never throws.
[[nodiscard]] int carrier_db_lookup(carrier_network &result, uint16_t mcc, uint16_t mnc);

// Gives the memory back. For the end of the daemon: look-ups after it find nothing.
void carrier_db_free();

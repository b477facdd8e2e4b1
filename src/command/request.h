// A client's request: what its options ask for. Text fields are there once the option was given,
// even with an empty value.
#pragma once

#include "cellmodem/cellmodem.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

struct request {
    int format = output_lines;
    bool info = false;
    bool status = false;
    bool getsms = false;
    std::optional<std::string> dial_string;
    bool voice = false;
    bool dip_connect = false;
    std::optional<std::string> apn;
    std::optional<std::string> apn_type;
    int auth = 0; // 0 none, 1 PAP, 2 CHAP
    std::optional<std::string> username;
    std::optional<std::string> password;
    bool disconnect = false;
    bool force = false;
    bool reset = false;
    std::optional<bool> radio;
    std::optional<int> sim; // -1, 0 or 1
    bool simunlock = false;
    bool simunblock = false;
    std::optional<std::string> pin;
    std::optional<std::string> puk;
    bool activate = false;
    std::optional<std::string> msl;
    std::optional<std::string> msid;
    std::optional<std::string> mdn;
    bool rtn = false;
    std::optional<uint8_t> region; // 0 to 6
    std::optional<std::string> unlock_password;
    bool gps_start = false;
    bool gps_stop = false;
    int fix_interval_s = 5;
    std::optional<int> rat; // a row of rat_names()
    std::optional<uint32_t> mode_mask;
    std::optional<uint64_t> band_mask;
    std::optional<uint64_t> lte_band_mask;
    std::optional<std::string> acquisition_order;
    std::optional<std::string> sms_file;
    std::optional<std::string> smsc;
    bool connstatus = false;
    bool ping = false;
    int result = 0; // 1 after any failure
};

// Reads the options into the request. Mistakes are logged; the usage, where an option asks for it,
// goes to `out`. 0, or -1 when nothing of the request may run.
[[nodiscard]] int request_parse(request &wanted, int argc, char **argv, FILE *out);

// The DirectIP modem: an LTE modem that is controlled by AT commands and carries data over a network
// interface of its own. It has a state, so what one command changes the next one shows.
#pragma once

#include "sim/at_modem.h"
#include "sim/family.h"
#include "sim/state_fields.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// Every field is a key of a scenario's "state". The values here are those of a modem in service.
struct directip_state {
    std::string manufacturer = "Sierra Wireless, Incorporated";
    std::string model = "DIP7300";
    std::string revision = "FW_DIP_05.05.16.02 r21040 build1 2014/03/17 23:49:48";
    std::string imei = "004999010640000";
    std::string imei_sv = "11";
    std::string fsn = "LF421200030110";
    std::string gcap = "+CGSM";
    bool echo = false;

    int64_t cfun = 1; // 1 radio on; 0 and 4 off
    std::string sim = "READY";
    std::string registration = "home"; // what the network would grant a modem whose radio is on
    std::string mode = "LTE";
    int64_t temperature = 32;
    int64_t uptime_s = 1571;
    int64_t bootup_s = 0;
    int64_t cell_id = 5165836;

    std::string band = "B3";
    std::string bandwidth = "20 MHz";
    int64_t rx_channel = 1550;
    int64_t tx_channel = 19550;
    int64_t tac = 20283;
    int64_t rssi_dbm = -76;
    int64_t rsrp_dbm = -107;
    int64_t rsrq_db = -9;
    double sinr_db = 9.6;
    int64_t tx_power = 0;

    std::string wcdma_band = "WCDMA 2100";
    int64_t wcdma_channel = 10662;
    int64_t rx_level_c0_dbm = -68;
    int64_t rx_level_c1_dbm = -106;
    int64_t lac = 5001;

    std::string gsm_band = "GSM900";
    int64_t gsm_channel = 62;
    int64_t rx_level_dbm = -71;

    std::string pdp_type = "IP"; // context 1, which survives a reset as all of it does
    std::string apn;
    int64_t auth_type = 0;
    std::string user;
    std::string password;

    bool session = false;
    int64_t activate_ms = 0;      // from the OK of an activation until the context is active
    int64_t reset_hangup_ms = -1; // for how long a reset takes the port away; -1: not at all
};

std::span<const state_field<directip_state>> directip_fields();

struct directip_modem {
    directip_state state;
    directip_state power_up;   // what a reset goes back to
    int64_t booted_at_ms = 0;  // uptime_s counts from here
    int64_t active_at_ms = -1; // a context that is being activated is active then; -1: none is
};

// Whether the network knows the modem: radio on, SIM ready, and the network willing.
bool directip_registered(const directip_state &state);

// Brings the state up to the time: an activation that is through, a session that has lost its network.
void directip_settle(directip_modem &modem, int64_t now_ms);

// Goes back to the power-up state where a reset does, and counts the time anew.
void directip_reboot(directip_modem &modem, int64_t now_ms);

// Carries one command line out; it begins with AT.
at_reply directip_execute(directip_modem &modem, std::string_view line);

// The information text of AT!GSTATUS?, as such modems lay it out for LTE, WCDMA and GSM.
std::string directip_gstatus(const directip_state &state);

extern const sim_family directip_family;

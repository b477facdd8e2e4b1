// The UMTS/GSM modem: reached through the SDK's server, which sends a notification for each change
// of what its clients may listen to, whoever caused it: a request, the network, or a person at the
// control socket.
#pragma once

#include "sim/family.h"
#include "sim/swi_modem.h"

#include <cstdint>
#include <span>
#include <string>

// Every field is a key of a scenario's "state". The values here are those of a modem in service.
// A code of -1 follows from the other fields; any other number is what the modem says, right or not.
struct gsm_state : swi_modem_state {
    gsm_state();

    std::string imei = "004999010650001";
    std::string serial = "UG03003081001";

    bool radio = true;
    int64_t radio_ms = 20; // from a switch's answer until it is done
    std::string sim = "ready";
    std::string pin = "1234";
    std::string puk = "12345678";
    bool pin_lock = false; // the SIM asks for its PIN after a reset
    int64_t pin_tries = 3;
    int64_t puk_tries = 10;
    std::string mode = "HSDPA";
    int64_t rssi = -71;
    int64_t ber = 0;
    std::string ecio = "13,9"; // half decibels of each cell, at most 6
    int64_t mcc = 310;
    int64_t mnc = 26;
    std::string msin = "1234567890";
    std::string phone_number = "15551230000";
    std::string country = "USA";
    std::string carrier = "Test Network";
    std::string radio_bands = "48,81";
    int64_t band = 14;
    std::string bands = "0,2,14,65535";
    int64_t temperature = 31;
    int64_t region = 2;
    std::string region_unlock = "K594";
    int64_t rat = 0;
    bool tracking = false;
    int64_t fix_interval_s = 0;
    bool packet_session = false;

    int64_t modem_status = -1;
    int64_t service_status = -1;
    int64_t service_type = -1;
    int64_t roaming_status = -1;
    int64_t sim_status = -1;
    int64_t network_status = -1;
    int64_t system_mode = -1;
};

std::span<const state_field<gsm_state>> gsm_fields();

// What follows from the state: the codes that the modem reports.
struct gsm_view {
    uint32_t radio = 0;
    uint32_t sim_status = 0;
    uint32_t network_status = 0;
    uint32_t system_mode = 0;
    uint32_t packet_session = 0;
    uint32_t rssi = 0;
    uint32_t temperature = 0;
    std::string call;

    uint32_t modem_status = 0;
    uint32_t service_status = 0;
    uint32_t service_type = 0;
    uint32_t roaming_status = 0;
};

gsm_view gsm_look(const gsm_state &state);

// Sets what cannot be with the rest of the state: no session without a network.
void gsm_settle(gsm_state &state);

extern const sim_family gsm_family;

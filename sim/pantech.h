// The Pantech modem: an LTE and CDMA modem that is controlled by WMC frames, keeps one received
// message and takes messages to be sent. It has a state, and every answer is made from it.
#pragma once

#include "sim/at_modem.h"
#include "sim/family.h"
#include "sim/state_fields.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

// Every field is a key of a scenario's "state". The values here are those of a modem in service.
struct pantech_state {
    std::string manufacturer = "PANTECH";
    std::string model = "Simulated LTE";
    std::string firmware = "SIM-1.0.42";
    std::string hardware = "SIM-A";
    std::string min = "5550100042";
    std::string meid = "A1000009D82A42";
    std::string imei = "990000560042424";
    std::string iccid = "89148000000842424242";
    std::string sim_mcc = "001";
    std::string sim_mnc = "01";
    int64_t home_sid = 42;
    int64_t prefmode = 30;

    std::string apn = "internet";
    std::string service = "LTE";
    int64_t signal = 71;      // -dBm; 0: nothing is known
    int64_t signal_other = 0; // the same at the other place
    std::string operator_name = "Test Network";
    std::string ipv4 = "10.172.42.7";
    std::string ipv6 = "2001:db8:42::7";

    std::string sms_id = "00 01 0c 1e 08 2a 11 00 00 00 01"; // 11 bytes, hexadecimal
    std::string sms_number = "5550100099";                   // empty: there is no message
    std::string sms_text = "Water in the cellar";
    int64_t sms_length = -1; // what the modem says it is; -1: what it is

    int64_t send_result = 0; // what the modem says to a message it was given; 0: sent
    int64_t sent_count = 0;  // the last message that it sent
    std::string sent_number;
    std::string sent_smsc;
    std::string sent_text;
};

std::span<const state_field<pantech_state>> pantech_fields();

// What is done to the replies of one command: first the beginning and then bytes somewhere are
// replaced, then the length is changed.
struct pantech_override {
    std::string prefix_hex;
    int64_t at = 0;
    std::string data_hex;
    int64_t length = -1; // -1: as it is
};

struct pantech_modem {
    pantech_state state;
    std::map<uint8_t, pantech_override> overrides;
};

// The state and, as "replies", the overrides by command: {"0x06": {"length": 643}}. All or nothing.
int pantech_merge_state(pantech_modem &modem, json_t *state, json_refusal &refusal);
json_ref pantech_dump_state(const pantech_modem &modem);

// Carries one command line out; it begins with AT. A frame that the modem refuses is answered with
// ERROR, and `refusal` says why.
at_reply pantech_execute(pantech_modem &modem, std::string_view line, std::string &refusal);

extern const sim_family pantech_family;

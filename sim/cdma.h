// The CDMA modem: reached through the SDK's server like the UMTS/GSM one. It is provisioned with a
// lock code, carries a data call whose interface comes and goes in the root, keeps received messages
// and sends those it is given, and returns to its factory state.
#pragma once

#include "sim/cdma_messages.h"
#include "sim/family.h"
#include "sim/swi_modem.h"

#include <cstdint>
#include <span>
#include <string>

// Every field is a key of a scenario's "state". The values here are those of a modem in service.
// A code of -1 follows from the other fields; any other number is what the modem says, right or not.
struct cdma_state : swi_modem_state {
    cdma_state();

    int64_t esn = 0x8042A042;
    int64_t factory_boot_ms = 12000; // the boot after a factory reset

    // What is provisioned, and what the provisioning says.
    int64_t msl = 424242;
    std::string mdn = "5550100042"; // empty: not set
    std::string imsi = "001015550100042";
    int64_t home_sid = 4242;
    int64_t home_nid = 42;
    bool date_set = true;
    int64_t lock_result = -1;
    int64_t missing = -1;
    int64_t nam_status = -1;
    std::string phone_number; // empty: the directory number

    int64_t prl_version = 10042;
    int64_t sid = 4242; // of the network in use
    int64_t nid = 42;
    int64_t hdr_mac_index = 5;
    int64_t packet_zone = 12;
    int64_t band_class = 1;
    int64_t mip_behavior = 2;
    int64_t mip_profile = 0; // the active one
    std::string mip_nai = "5550100042@cdma.test";
    std::string mip_home_ip = "10.172.42.7";
    std::string mip_ha_ip_1 = "198.51.100.1";
    std::string mip_ha_ip_2 = "198.51.100.2";
    std::string factory_nai = "factory@cdma.test"; // of profile 0 after a factory reset

    int64_t rssi = 85; // four magnitudes below 0
    int64_t ecio = 6;
    int64_t hdr_rssi = 82;
    int64_t hdr_ecio = 3;
    int64_t carrier_id = 1;
    int64_t total_frames = 15420;
    int64_t bad_frames = 12;
    int64_t tx_bytes = 48213;
    int64_t rx_bytes = 391842;
    int64_t powersave_mode = 0;
    int64_t transmit_power = -12;
    int64_t temperature = 31;
    int64_t channel = 425;
    int64_t longitude = -1742400;
    int64_t latitude = 561600;
    std::string radio_bands = "1:0,1:1"; // code and technology of each
    int64_t hdr_state = -1;
    int64_t authentication = 0;
    int64_t service = -1;
    int64_t evdo_service = -1;
    int64_t roaming = -1;
    int64_t roaming_indicator = 1;
    int64_t call_status = -1;

    int64_t call_type = 257; // of the present call; 0 is a voice call
    std::string call_number;
    std::string caller_id = "5550100099";
    bool call_privacy = false;
    int64_t connect_ms = 300; // from a call's beginning until it is connected
    int64_t disconnect_ms = 50;
    int64_t call_error = 0; // not 0: calls end with it instead
    bool ppp = true;        // a connected data call brings the interface up
    std::string ppp_name = "dialout0";
    std::string ppp_address = "10.172.42.7";

    int64_t sms_more = -1;   // what a message read says of further ones
    int64_t sms_result = -1; // its own result
    int64_t sent_count = 0;  // the last message that it sent
    int64_t sent_reference = 0;
    std::string sent_from;
    std::string sent_number;
    std::string sent_text;
};

std::span<const state_field<cdma_state>> cdma_fields();

// What the modem holds besides: unlocked, it takes changes that only locking it again commits.
struct cdma_provisioning {
    bool unlocked = false;
    bool nam_selected = false;
    bool out_of_order = false; // something was written before
    std::string mdn;
    std::string imsi;
    int64_t home_sid = 0;
    int64_t home_nid = 0;
};

struct cdma_modem {
    cdma_state state;
    cdma_provisioning provisioning;
    cdma_messages messages;
    bool factory_boot = false; // the next boot is the one after a factory reset
};

// The state and, as "messages", the received messages; "receive" has more of them. All or nothing.
int cdma_merge_state(cdma_modem &modem, json_t *state, json_refusal &refusal);
json_ref cdma_dump_state(const cdma_modem &modem);

// Whether calls can be made and messages sent.
bool cdma_in_service(const cdma_state &state);
bool cdma_activated(const cdma_state &state);

// What follows from the state: what the modem reports.
struct cdma_view {
    uint32_t hdr_state = 0;
    uint32_t call_status = 0;
    uint32_t call_privacy = 0;
    std::string call;

    uint32_t nam_status = 0;
    uint32_t service = 0;
    uint32_t evdo_service = 0;
    uint32_t roaming = 0;
    bool interface_up = false;
};

cdma_view cdma_look(const cdma_state &state);

// Sets what cannot be with the rest of the state: no call without a network.
void cdma_settle(cdma_state &state);

// ---- provisioning (cdma_provisioning.cpp); what a reply refuses has changed nothing

swi_reply cdma_unlock(cdma_modem &modem, uint32_t msl);
swi_reply cdma_select_nam(cdma_modem &modem, uint8_t nam);
swi_reply cdma_write_mdn(cdma_modem &modem, uint8_t nam, const std::string &mdn);
swi_reply cdma_write_imsi(cdma_modem &modem, uint8_t nam, const std::string &imsi);
swi_reply cdma_read_home(const cdma_modem &modem, uint8_t nam, swi_home_sid_nid &home);
swi_reply cdma_write_home(cdma_modem &modem, const swi_home_sid_nid &home);
swi_reply cdma_lock(cdma_modem &modem, uint32_t flag, swi_lock_result &result);
swi_reply cdma_factory_reset(cdma_modem &modem, uint32_t mode);

// What a reboot does to the modem. The boot's milliseconds, which a time scale shortens.
int64_t cdma_power_up(cdma_modem &modem);

extern const sim_family cdma_family;

// The Gobi modem: a modem for LTE, UMTS and GSM, for UMTS and GSM, or for CDMA networks that is
// controlled by QMI. It has a state, so what one message changes the next one shows, whoever asks.
//
// Facts of every message: the public QMI message descriptions (libqmi). Where there is no public
// layout (DMS 0x0023 beyond its first TLV, WDS 0x0035, 0x003C, 0x003E) the layout is this project's
// own and is marked so where it is written.
#pragma once

#include "sim/family.h"
#include "sim/qmi_server.h"
#include "sim/state_fields.h"

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Radio interfaces, as QMI numbers them.
enum gobi_radio : uint8_t {
    gobi_radio_none = 0,
    gobi_radio_cdma = 1,
    gobi_radio_evdo = 2,
    gobi_radio_gsm = 4,
    gobi_radio_umts = 5,
    gobi_radio_lte = 8,
    gobi_radio_tdscdma = 9,
};

// Every field is a key of a scenario's "state". The values here are those of an LTE modem in
// service; the others change what differs. What is -1 is derived from the rest of the state.
struct gobi_state {
    std::string modem = "LTE"; // LTE, UMTS or CDMA

    std::string manufacturer = "Sierra Wireless, Incorporated";
    std::string model = "MC7700";
    std::string revision = "SWI9200X_03.05.23.02AP R5875 CARMD-EN-10526 2013/07/26 21:32:12";
    std::string boot_version = "SWI9200X_03.05.23.02BT";
    std::string pri_version = "05.03";
    std::string hardware = "MSM9200A";
    std::string software_version = "AMSS 3.5.23";
    std::string sku = "1101420";
    std::string imei = "356853050370859";
    std::string imei_sv = "18";
    std::string esn;
    std::string meid;
    std::string msisdn = "15550100";
    std::string min;
    std::string radios = "lte,umts,gsm";
    int64_t max_tx_rate = 50000000;
    int64_t max_rx_rate = 100000000;
    int64_t prl_version = -1; // none
    bool prl_only = false;
    int64_t activation = 1;
    std::string firmware_build = "03.05.23.02";
    std::string firmware_id = "03.05.23.02";
    std::string carrier_build = "GENNA-UMTS";
    std::string carrier_id = "9999999_9902574";
    bool multicarrier = true; // holds images for several carriers
    bool external_power = true;
    int64_t battery = 0;

    int64_t mode = 0; // operating mode: 0 is online
    bool wireless_disabled = false;

    std::string sim = "present";
    std::string iccid = "89014104255001234567";
    std::string imsi = "001010123456789";
    int64_t uim_state = -1;
    bool pin1_enabled = false;
    bool pin1_verified = false;
    std::string pin1 = "1234";
    std::string puk1 = "12345678";
    int64_t pin1_retries = 3;
    int64_t puk1_retries = 10;
    int64_t pin1_status = -1;
    bool pin2_enabled = true;
    bool pin2_verified = false;
    std::string pin2 = "5678";
    std::string puk2 = "87654321";
    int64_t pin2_retries = 3;
    int64_t puk2_retries = 10;
    int64_t pin2_status = -1;

    std::string registration = "home"; // what the network grants
    int64_t registration_raw = -1;
    std::string coverage = "lte,umts,gsm"; // the networks within reach
    int64_t mcc = 1;
    int64_t mnc = 1;
    bool mnc_three_digits = false;
    std::string network_name = "Test Network";
    int64_t home_mcc = 1;
    int64_t home_mnc = 1;
    std::string home_name = "Test Network";
    int64_t sid = 4139;
    int64_t nid = 65535;
    int64_t roaming = -1;
    int64_t roaming_default = -1;
    int64_t capability = -1; // data service capability
    int64_t lac = 5001;
    int64_t tac = 20283;
    int64_t cell_id = 5165836;
    int64_t bs_id = 1234;

    int64_t lte_rssi_dbm = -67;
    int64_t lte_rsrq_db = -9;
    int64_t lte_rsrp_dbm = -97;
    double lte_snr_db = 9.6;
    int64_t umts_rssi_dbm = -72;
    double umts_ecio_db = -5.5;
    int64_t gsm_rssi_dbm = -76;
    int64_t cdma_rssi_dbm = -80;
    double cdma_ecio_db = -7.5;
    int64_t hdr_rssi_dbm = -82;
    double hdr_ecio_db = -4.5;
    int64_t hdr_sinr_level = 5;
    int64_t hdr_io_dbm = -79;

    int64_t lte_band = 3; // the number of the E-UTRA band
    int64_t lte_channel = 1550;
    int64_t lte_bandwidth = 5; // 20 MHz
    int64_t umts_band = 80;    // active band numbers: 80 is WCDMA 2100
    int64_t umts_channel = 10662;
    int64_t gsm_band = 44; // E-GSM 900
    int64_t gsm_channel = 62;
    int64_t cdma_band = 0; // band class 0
    int64_t cdma_channel = 384;
    int64_t hdr_channel = 283;
    int64_t band_capability = 0x0002000007E80380;
    int64_t lte_band_capability = 0x0000000000011FDF;

    int64_t mode_preference = 0x1C;
    int64_t band_preference = 0x0002000007E80380;
    int64_t lte_band_preference = 0x0000000000011FDF;
    std::string acquisition_order = "8,5,4";
    int64_t prl_preference = 0x3FFF;
    int64_t roaming_preference = 255;
    int64_t emergency_mode = 0;
    int64_t selection = 0; // 0 automatic, 1 manual
    int64_t selection_mcc = 0;
    int64_t selection_mnc = 0;
    int64_t service_domain = 2;
    int64_t gsm_wcdma_order = 0;
    int64_t usage = 2;
    int64_t voice_domain = 1;
    int64_t technology_preference = 0;
    int64_t technology_duration = 0;
    int64_t technology_persistent = 0;

    bool session = false;
    std::string session_ip = "ipv4v6"; // of the session there is
    std::string session_apn;
    int64_t session_profile = 1;
    int64_t session_handle = 0;
    int64_t connect_ms = 0;      // what a start takes
    int64_t call_end_reason = 0; // with which a start fails; 0: it does not
    int64_t verbose_type = 0;
    int64_t verbose_reason = 0;
    std::string accept_apn;  // the only one the network takes; empty: any
    std::string accept_user; // likewise, with the password
    std::string accept_password;
    std::string network_ip = "ipv4v6"; // what the network grants
    std::string ipv4 = "10.64.0.2";
    std::string ipv4_gateway = "10.64.0.1";
    std::string ipv4_mask = "255.255.255.248";
    std::string ipv4_dns1 = "10.64.0.53";
    std::string ipv4_dns2 = "10.64.0.54";
    std::string ipv6 = "2001:db8::2";
    int64_t ipv6_prefix = 64;
    std::string ipv6_gateway = "2001:db8::1";
    std::string ipv6_dns1 = "2001:db8::53";
    std::string ipv6_dns2 = "2001:db8::54";
    int64_t mtu = 1500;
    int64_t tx_rate = 5000000;
    int64_t rx_rate = 10000000;
    int64_t bearer = -1; // data bearer technology
    bool dormant = false;
    int64_t autoconnect = 0;
    int64_t tx_packets = 1200;
    int64_t rx_packets = 3400;
    int64_t tx_bytes = 150000;
    int64_t rx_bytes = 4500000;
    int64_t mip_profile = -1; // none
    std::string mip_nai;

    bool gps = false;
    bool gps_tracking = false;
    int64_t gps_already_error = 69; // for switching it off when it is off; 0: none
    std::string nmea = "$GPGGA,120000.00,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*5E";
    int64_t nmea_ms = 1000;
    int64_t gps_mode = 0; // of the default tracking session
    int64_t gps_timeout_s = 60;
    int64_t gps_interval_s = 1;
    int64_t gps_accuracy_m = 50;

    int64_t uim_slots = 20;
    int64_t nv_slots = 100;
    std::string smsc = "+15550111";
    int64_t send_error = 0; // QMI error with which sending fails; 0: it does not
    int64_t send_rp_cause = 0;
    int64_t send_tp_cause = 0;
    int64_t message_reference = 0;

    int64_t answer_ms = 0;
    bool in_series = false;
    int64_t under_way_max = 0;
    bool drops_surplus = false;
    int64_t client_ids = 254;
    int64_t reset_hangup_ms = -1; // for how long a reset takes the socket away; -1: not at all
};

// A stored data profile.
struct gobi_profile {
    int64_t type = 0; // 0 3GPP, 1 3GPP2
    int64_t index = 1;
    std::string name;
    std::string pdp_type = "ipv4v6";
    std::string apn;
    int64_t auth = 0; // bit 0 PAP, bit 1 CHAP
    std::string user;
    std::string password;
    std::map<uint8_t, std::vector<uint8_t>> others; // settings without a key of their own
};

// A stored short message. In a scenario either the PDU is given, or a sender and a text to make one
// from.
struct gobi_message {
    std::string storage = "UIM";
    int64_t index = -1; // -1: the first free place
    std::string tag = "unread";
    std::string mode = "gsm"; // gsm or cdma
    std::string pdu;          // hexadecimal
    std::string from;
    std::string text;
};

struct gobi_route {
    uint8_t type, message_class, storage, action;
};

struct gobi_modem {
    gobi_state state;
    std::vector<gobi_profile> profiles;
    std::vector<gobi_message> messages;
    std::vector<gobi_message> arriving; // from the network, not announced yet
    std::vector<gobi_message> sent;     // PDUs that clients had sent
    std::vector<gobi_route> routes;
    bool transfer_reports = false;
    gobi_state power_up; // what a reset goes back to
    std::vector<gobi_profile> power_up_profiles;
    int64_t connected_at_ms = 0;
    uint8_t session_client = 0; // whose client id the session lives with; 0: nobody's
    uint16_t end_reason = 0;    // why the last session ended
    int64_t last_bearer = -1;
    bool restart = false; // the modem resets once the answer has left
    uint32_t transfer_transaction = 0;
    std::map<size_t, std::vector<uint8_t>> told; // what clients have heard of, by its row
    // Abandons a request of a client; set where there is a server.
    std::function<bool(const qmi_client &, uint16_t)> abort;
};

// One message of a service.
struct gobi_row {
    uint16_t id = 0;
    qmi_message_info info;
    // A QMI error; null for what is only an indication.
    uint16_t (*run)(gobi_modem &modem, const qmi_call &call, tlv_writer &answer) = nullptr;
};

const gobi_row *gobi_find(uint8_t service, uint16_t id);

// Carries one request out, whose mandatory TLV is there; a QMI error.
uint16_t gobi_execute(gobi_modem &modem, const qmi_call &call, tlv_writer &answer);

std::span<const gobi_row> gobi_wds_rows();
std::span<const gobi_row> gobi_dms_rows();
std::span<const gobi_row> gobi_nas_rows();
std::span<const gobi_row> gobi_wms_rows();
std::span<const gobi_row> gobi_pds_rows();

// ---- state (gobi_state.cpp)

std::span<const state_field<gobi_state>> gobi_fields();

// A modem of that kind in service; false if there is no such kind.
bool gobi_preset(gobi_modem &modem, std::string_view kind);

// Changes what `state` names: the fields, and the lists "profiles", "messages" (both as a whole) and
// "deliver" (messages that arrive now). All or nothing.
int gobi_merge(gobi_modem &modem, json_t *state, json_refusal &refusal);
json_ref gobi_dump(const gobi_modem &modem);

// ---- what follows from the state (gobi_radio.cpp)

// The names of a list such as "lte,umts" as radio interfaces; false if one is none.
bool gobi_radios(std::string_view names, std::vector<uint8_t> &radios);

// The interfaces in service, the first one serving; empty with the radio off, without a usable
// SIM, or with nothing within reach.
std::vector<uint8_t> gobi_serving(const gobi_state &state);

uint8_t gobi_uim_state(const gobi_state &state);
uint8_t gobi_pin_status(const gobi_state &state, int pin); // pin 1 or 2
uint8_t gobi_registration(const gobi_state &state);
bool gobi_may_call(const gobi_state &state);
uint8_t gobi_roaming(const gobi_state &state);
int8_t gobi_bearer(const gobi_state &state);
uint16_t gobi_active_band(const gobi_state &state, uint8_t radio);
uint32_t gobi_active_channel(const gobi_state &state, uint8_t radio);

// Ends a session whose network is gone.
void gobi_settle(gobi_modem &modem);
void gobi_end_session(gobi_modem &modem, uint16_t reason);

// Goes back to the power-up state where a reset does.
void gobi_reboot(gobi_modem &modem);

// ---- indications (gobi_events.cpp)

// Tells the clients what has changed since the last call.
void gobi_announce(gobi_modem &modem, qmi_server &server);

// The indication of that id as it would be now; false: there is none.
bool gobi_indication(const gobi_modem &modem, uint8_t service, uint16_t id, tlv_writer &out);

// What comes by the clock: positions, and every second the counts of a session.
void gobi_send_position(const gobi_modem &modem, qmi_server &server);
void gobi_send_statistics(const gobi_modem &modem, qmi_server &server);

// The two messages that every service has: forget what the client wants, and note it.
uint16_t gobi_reset_client(gobi_modem &modem, const qmi_call &call, tlv_writer &answer);
uint16_t gobi_set_event_report(gobi_modem &modem, const qmi_call &call, tlv_writer &answer);

// ---- pieces that answers and indications share

void gobi_write_serving_system(const gobi_state &state, bool indication, tlv_writer &out);
void gobi_write_signal_info(const gobi_state &state, tlv_writer &out);
void gobi_write_bearer(int8_t bearer, tlv_writer &out);
void gobi_write_bands(const gobi_state &state, uint8_t type, bool wide, tlv_writer &out);

// Stores a message; the place it got, or -1 if there is none for it.
int64_t gobi_store(gobi_modem &modem, gobi_message message);

// Takes the messages in that have arrived, as far as there is room, and tells who wants to know.
void gobi_take_messages(gobi_modem &modem, qmi_server &server);

// The octets of a hexadecimal PDU.
std::vector<uint8_t> gobi_octets(const std::string &hex);
std::string gobi_hex(std::span<const uint8_t> octets);

extern const sim_family gobi_family;

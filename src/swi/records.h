// What the operations of the SDK client take and give: plain records, filled and read by the
// back-ends. How they travel is swi/wire.h's business. All texts end with a NUL within their field;
// they are the modem's bytes, in whatever encoding it uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

constexpr size_t swi_cells_max = 6;
constexpr size_t swi_radio_bands_max = 256;
constexpr size_t swi_band_types_max = 64;
constexpr size_t swi_error_text_max = 80;
constexpr size_t swi_message_text_max = 240;

// For operations without parameters or without a response.
struct swi_nothing {
};

struct swi_number {
    uint32_t value = 0;
};

struct swi_signed_number {
    int32_t value = 0;
};

struct swi_text {
    char text[64] = "";
};

// Copies a text into a field of a record. 0, or -1 when it does not fit with its NUL.
template <size_t N>
[[nodiscard]] int swi_set_text(char (&field)[N], std::string_view text)
{
    if (text.size() >= N || text.find('\0') != std::string_view::npos)
        return -1;
    memset(field, 0, N);
    memcpy(field, text.data(), text.size());
    return 0;
}

// ---- the server and the modem behind it

struct swi_air_server_status {
    uint32_t unavailable = 0; // 0: the server reaches the modem
    uint8_t other[1004] = {};
};
static_assert(sizeof(swi_air_server_status) == 1008);

struct swi_modem_type {
    uint32_t type_code = 0;
    uint32_t technology = 0; // a swi_selector, 0 while the server does not know
    char product[24] = "";
};

struct swi_error_text {
    char text[swi_error_text_max] = "";
};

// ---- UMTS/GSM modems

struct swi_gsm_imsi {
    uint16_t mcc = 0; // the hexadecimal digits are the decimal ones: 0x310
    uint16_t mnc = 0;
    char msin[11] = "";
};

struct swi_gsm_system_status {
    uint32_t modem_status = 0;
    uint32_t service_status = 0;
    uint32_t service_type = 0;
    uint32_t roaming_status = 0;
    char country[8] = "";
    char carrier[32] = "";
};

struct swi_rssi_ber {
    int32_t rssi = 0;
    int32_t ber = 0;
};

struct swi_cell {
    uint16_t rscp = 0;
    uint16_t second = 0;
    uint16_t ecio = 0; // half decibels below 0
};

struct swi_rscp_ecio {
    uint16_t count = 0;
    swi_cell cells[swi_cells_max];
};

struct swi_radio_band {
    uint16_t band = 0;
    uint8_t technology = 0;
};

struct swi_radio_bands {
    uint16_t count = 0;
    swi_radio_band bands[swi_radio_bands_max];
};

struct swi_band_type {
    uint16_t type = 0;
};

struct swi_band_info {
    uint16_t current = 0;
    uint16_t count = 0;
    swi_band_type valid[swi_band_types_max];
};

struct swi_radio_temperature {
    uint32_t state = 0;
    int32_t celsius = 0;
};

struct swi_set_region {
    uint32_t region = 0;
    char unlock_text[11] = "";
};

struct swi_phonebook_request {
    uint32_t size = 204; // of the request, the reserve included
    uint32_t book = 0;
    uint32_t index = 0;
};

struct swi_phonebook_entry {
    uint32_t entries = 0; // in the whole book; with 0 there is no entry to read
    uint8_t digit_count = 0;
    uint8_t digits[40] = {}; // one value from 0 to 9 each
    char name[32] = "";
};

enum swi_sim_verify_type { swi_verify_pin = 1, swi_verify_unblock = 3 };

struct swi_sim_verify {
    uint32_t size = 28;
    uint32_t type = 0;
    char pin[9] = "";
    char puk[9] = "";
};

struct swi_sim_lock {
    uint32_t size = 20;
    uint32_t lock = 0; // 0 takes the lock away
    char pin[9] = "";
};

struct swi_rat_request {
    uint32_t size = 12;
    uint32_t rat = 0;
};

// The words between the size and the fix interval are what the modem wants; what they mean to it
// is not known here.
struct swi_track_request {
    uint32_t size = 24;
    uint32_t mode = 1;
    uint32_t fixes = 255;
    uint32_t accuracy_m = 0;
    uint32_t fix_timeout = 1000;
    uint32_t fix_interval_s = 0;
};

struct swi_end_session_request {
    uint32_t size = 8;
    uint32_t session = 0;
};

// ---- CDMA modems

struct swi_call_request {
    uint32_t call_type = 0;
    char number[33] = "";
};

struct swi_nam_text {
    uint8_t nam = 0;
    char text[32] = "";
};

struct swi_nam {
    uint8_t nam = 0;
};

struct swi_home_sid_nid {
    uint8_t nam = 0;
    uint16_t sid = 0;
    uint16_t nid = 0;
};

struct swi_lock_result {
    uint32_t result = 0;
    uint16_t missing = 0; // a mask of what is not provisioned
};

struct swi_sms_status {
    uint32_t stored = 0;
    uint32_t pending = 0;
    uint32_t other[2] = {};
};
static_assert(sizeof(swi_sms_status) == 16);

struct swi_sms_read_request {
    uint32_t buffer_bytes = swi_message_text_max; // a longer text is refused with its size
};

struct swi_sms_message {
    uint32_t id = 0;
    uint8_t status = 0;
    uint8_t encoding = 0;
    uint8_t format = 0;
    uint8_t more = 0; // nonzero: further messages are waiting
    uint16_t text_bytes = 0;
    char sender[32] = "";
    uint8_t text[swi_message_text_max] = {};
};

struct swi_sms_submit {
    uint32_t reference = 0;
    char own_number[32] = "";
    char destination[18] = "";
    uint8_t destination_length = 0;
    uint16_t text_bytes = 0;
    uint8_t text[swi_message_text_max] = {};
};

struct swi_mip_profile {
    char nai[128] = "";
    uint32_t home_address = 0; // host order
    uint32_t primary_agent = 0;
    uint32_t secondary_agent = 0;
};

struct swi_rssi_ecio {
    uint16_t rssi = 0;
    uint16_t ecio = 0;
    uint16_t hdr_rssi = 0;
    uint16_t hdr_ecio = 0;
};

struct swi_frames {
    uint32_t total = 0;
    uint32_t bad = 0;
};

struct swi_byte_counter {
    uint32_t sent = 0;
    uint32_t received = 0;
};

struct swi_base_station {
    int32_t longitude = 0;
    int32_t latitude = 0;
};

struct swi_roaming {
    uint32_t status = 0;
    uint32_t indicator = 0;
};

// ---- notifications

// One notification, decoded. The members that its type does not have are 0.
struct swi_notification {
    uint32_t type = 0;
    uint32_t first = 0; // the first parameter word
    uint32_t system_mode = 0;
    uint32_t packet_session_active = 0;
    uint16_t hdr_state = 0;
    char caller_id[33] = "";
};

// The Gobi modem's state as tables: its fields, its lists, and how the three kinds of modem differ.

#include "sim/bytes.h"
#include "sim/gobi.h"
#include "sms/pdu_3gpp.h"
#include "sms/pdu_cdma.h"

#include <algorithm>
#include <array>
#include <ctime>

#include <arpa/inet.h>

static constexpr int64_t day_ms = 24L * 3600 * 1000;
static constexpr int64_t byte_max = 0xFF;
static constexpr int64_t word_max = 0xFFFF;
static constexpr int64_t long_max = 0xFFFFFFFF;
static constexpr const char ip_choices[] = "ipv4|ipv6|ipv4v6";

using field = state_field<gobi_state>;
using profile_field = state_field<gobi_profile>;
using message_field = state_field<gobi_message>;

// clang-format off
static constexpr std::array gobi_table = {
    field{"modem",                 &gobi_state::modem, "LTE|UMTS|CDMA"},
    field{"manufacturer",          &gobi_state::manufacturer},
    field{"model",                 &gobi_state::model},
    field{"revision",              &gobi_state::revision},
    field{"boot_version",          &gobi_state::boot_version},
    field{"pri_version",           &gobi_state::pri_version},
    field{"hardware",              &gobi_state::hardware},
    field{"software_version",      &gobi_state::software_version},
    field{"sku",                   &gobi_state::sku},
    field{"imei",                  &gobi_state::imei},
    field{"imei_sv",               &gobi_state::imei_sv},
    field{"esn",                   &gobi_state::esn},
    field{"meid",                  &gobi_state::meid},
    field{"msisdn",                &gobi_state::msisdn},
    field{"min",                   &gobi_state::min},
    field{"radios",                &gobi_state::radios},
    field{"max_tx_rate",           &gobi_state::max_tx_rate,           nullptr, 0, long_max},
    field{"max_rx_rate",           &gobi_state::max_rx_rate,           nullptr, 0, long_max},
    field{"prl_version",           &gobi_state::prl_version,           nullptr, -1, word_max},
    field{"prl_only",              &gobi_state::prl_only},
    field{"activation",            &gobi_state::activation,            nullptr, 0, word_max},
    field{"firmware_build",        &gobi_state::firmware_build},
    field{"firmware_id",           &gobi_state::firmware_id},
    field{"carrier_build",         &gobi_state::carrier_build},
    field{"carrier_id",            &gobi_state::carrier_id},
    field{"multicarrier",          &gobi_state::multicarrier},
    field{"external_power",        &gobi_state::external_power},
    field{"battery",               &gobi_state::battery,               nullptr, 0, 100},
    field{"mode",                  &gobi_state::mode,                  nullptr, 0, byte_max},
    field{"wireless_disabled",     &gobi_state::wireless_disabled},
    field{"sim",                   &gobi_state::sim,                   "present|absent|error"},
    field{"iccid",                 &gobi_state::iccid},
    field{"imsi",                  &gobi_state::imsi},
    field{"uim_state",             &gobi_state::uim_state,             nullptr, -1, byte_max},
    field{"pin1_enabled",          &gobi_state::pin1_enabled},
    field{"pin1_verified",         &gobi_state::pin1_verified},
    field{"pin1",                  &gobi_state::pin1},
    field{"puk1",                  &gobi_state::puk1},
    field{"pin1_retries",          &gobi_state::pin1_retries,          nullptr, 0, byte_max},
    field{"puk1_retries",          &gobi_state::puk1_retries,          nullptr, 0, byte_max},
    field{"pin1_status",           &gobi_state::pin1_status,           nullptr, -1, byte_max},
    field{"pin2_enabled",          &gobi_state::pin2_enabled},
    field{"pin2_verified",         &gobi_state::pin2_verified},
    field{"pin2",                  &gobi_state::pin2},
    field{"puk2",                  &gobi_state::puk2},
    field{"pin2_retries",          &gobi_state::pin2_retries,          nullptr, 0, byte_max},
    field{"puk2_retries",          &gobi_state::puk2_retries,          nullptr, 0, byte_max},
    field{"pin2_status",           &gobi_state::pin2_status,           nullptr, -1, byte_max},
    field{"registration",          &gobi_state::registration,          "home|roaming|searching|denied|none|unknown"},
    field{"registration_raw",      &gobi_state::registration_raw,      nullptr, -1, byte_max},
    field{"coverage",              &gobi_state::coverage},
    field{"mcc",                   &gobi_state::mcc,                   nullptr, 0, 999},
    field{"mnc",                   &gobi_state::mnc,                   nullptr, 0, 999},
    field{"mnc_three_digits",      &gobi_state::mnc_three_digits},
    field{"network_name",          &gobi_state::network_name},
    field{"home_mcc",              &gobi_state::home_mcc,              nullptr, 0, 999},
    field{"home_mnc",              &gobi_state::home_mnc,              nullptr, 0, 999},
    field{"home_name",             &gobi_state::home_name},
    field{"sid",                   &gobi_state::sid,                   nullptr, 0, word_max},
    field{"nid",                   &gobi_state::nid,                   nullptr, 0, word_max},
    field{"roaming",               &gobi_state::roaming,               nullptr, -1, byte_max},
    field{"roaming_default",       &gobi_state::roaming_default,       nullptr, -1, byte_max},
    field{"capability",            &gobi_state::capability,            nullptr, -1, byte_max},
    field{"lac",                   &gobi_state::lac,                   nullptr, 0, word_max},
    field{"tac",                   &gobi_state::tac,                   nullptr, 0, word_max},
    field{"cell_id",               &gobi_state::cell_id,               nullptr, 0, long_max},
    field{"bs_id",                 &gobi_state::bs_id,                 nullptr, 0, word_max},
    field{"lte_rssi_dbm",          &gobi_state::lte_rssi_dbm,          nullptr, -128, 127},
    field{"lte_rsrq_db",           &gobi_state::lte_rsrq_db,           nullptr, -128, 127},
    field{"lte_rsrp_dbm",          &gobi_state::lte_rsrp_dbm,          nullptr, -32768, 32767},
    field{"lte_snr_db",            &gobi_state::lte_snr_db,            nullptr, -3276, 3276},
    field{"umts_rssi_dbm",         &gobi_state::umts_rssi_dbm,         nullptr, -128, 127},
    field{"umts_ecio_db",          &gobi_state::umts_ecio_db,          nullptr, -127, 0},
    field{"gsm_rssi_dbm",          &gobi_state::gsm_rssi_dbm,          nullptr, -128, 127},
    field{"cdma_rssi_dbm",         &gobi_state::cdma_rssi_dbm,         nullptr, -128, 127},
    field{"cdma_ecio_db",          &gobi_state::cdma_ecio_db,          nullptr, -127, 0},
    field{"hdr_rssi_dbm",          &gobi_state::hdr_rssi_dbm,          nullptr, -128, 127},
    field{"hdr_ecio_db",           &gobi_state::hdr_ecio_db,           nullptr, -127, 0},
    field{"hdr_sinr_level",        &gobi_state::hdr_sinr_level,        nullptr, 0, byte_max},
    field{"hdr_io_dbm",            &gobi_state::hdr_io_dbm,            nullptr, INT32_MIN, INT32_MAX},
    field{"lte_band",              &gobi_state::lte_band,              nullptr, 1, 64},
    field{"lte_channel",           &gobi_state::lte_channel,           nullptr, 0, long_max},
    field{"lte_bandwidth",         &gobi_state::lte_bandwidth,         nullptr, 0, long_max},
    field{"umts_band",             &gobi_state::umts_band,             nullptr, 0, word_max},
    field{"umts_channel",          &gobi_state::umts_channel,          nullptr, 0, long_max},
    field{"gsm_band",              &gobi_state::gsm_band,              nullptr, 0, word_max},
    field{"gsm_channel",           &gobi_state::gsm_channel,           nullptr, 0, long_max},
    field{"cdma_band",             &gobi_state::cdma_band,             nullptr, 0, word_max},
    field{"cdma_channel",          &gobi_state::cdma_channel,          nullptr, 0, long_max},
    field{"hdr_channel",           &gobi_state::hdr_channel,           nullptr, 0, long_max},
    field{"band_capability",       &gobi_state::band_capability,       nullptr, 0, INT64_MAX},
    field{"lte_band_capability",   &gobi_state::lte_band_capability,   nullptr, 0, INT64_MAX},
    field{"mode_preference",       &gobi_state::mode_preference,       nullptr, 0, word_max},
    field{"band_preference",       &gobi_state::band_preference,       nullptr, INT64_MIN, INT64_MAX},
    field{"lte_band_preference",   &gobi_state::lte_band_preference,   nullptr, INT64_MIN, INT64_MAX},
    field{"acquisition_order",     &gobi_state::acquisition_order},
    field{"prl_preference",        &gobi_state::prl_preference,        nullptr, 0, word_max},
    field{"roaming_preference",    &gobi_state::roaming_preference,    nullptr, 0, word_max},
    field{"emergency_mode",        &gobi_state::emergency_mode,        nullptr, 0, byte_max},
    field{"selection",             &gobi_state::selection,             nullptr, 0, 1},
    field{"selection_mcc",         &gobi_state::selection_mcc,         nullptr, 0, 999},
    field{"selection_mnc",         &gobi_state::selection_mnc,         nullptr, 0, 999},
    field{"service_domain",        &gobi_state::service_domain,        nullptr, 0, long_max},
    field{"gsm_wcdma_order",       &gobi_state::gsm_wcdma_order,       nullptr, 0, long_max},
    field{"usage",                 &gobi_state::usage,                 nullptr, 0, long_max},
    field{"voice_domain",          &gobi_state::voice_domain,          nullptr, 0, long_max},
    field{"technology_preference", &gobi_state::technology_preference, nullptr, 0, word_max},
    field{"technology_duration",   &gobi_state::technology_duration,   nullptr, 0, byte_max},
    field{"technology_persistent", &gobi_state::technology_persistent, nullptr, 0, word_max},
    field{"session",               &gobi_state::session},
    field{"session_ip",            &gobi_state::session_ip,            ip_choices},
    field{"session_apn",           &gobi_state::session_apn},
    field{"session_profile",       &gobi_state::session_profile,       nullptr, 0, byte_max},
    field{"session_handle",        &gobi_state::session_handle,        nullptr, 0, long_max},
    field{"connect_ms",            &gobi_state::connect_ms,            nullptr, 0, day_ms},
    field{"call_end_reason",       &gobi_state::call_end_reason,       nullptr, 0, word_max},
    field{"verbose_type",          &gobi_state::verbose_type,          nullptr, 0, word_max},
    field{"verbose_reason",        &gobi_state::verbose_reason,        nullptr, -32768, 32767},
    field{"accept_apn",            &gobi_state::accept_apn},
    field{"accept_user",           &gobi_state::accept_user},
    field{"accept_password",       &gobi_state::accept_password},
    field{"network_ip",            &gobi_state::network_ip,            ip_choices},
    field{"ipv4",                  &gobi_state::ipv4},
    field{"ipv4_gateway",          &gobi_state::ipv4_gateway},
    field{"ipv4_mask",             &gobi_state::ipv4_mask},
    field{"ipv4_dns1",             &gobi_state::ipv4_dns1},
    field{"ipv4_dns2",             &gobi_state::ipv4_dns2},
    field{"ipv6",                  &gobi_state::ipv6},
    field{"ipv6_prefix",           &gobi_state::ipv6_prefix,           nullptr, 0, 128},
    field{"ipv6_gateway",          &gobi_state::ipv6_gateway},
    field{"ipv6_dns1",             &gobi_state::ipv6_dns1},
    field{"ipv6_dns2",             &gobi_state::ipv6_dns2},
    field{"mtu",                   &gobi_state::mtu,                   nullptr, 0, long_max},
    field{"tx_rate",               &gobi_state::tx_rate,               nullptr, 0, long_max},
    field{"rx_rate",               &gobi_state::rx_rate,               nullptr, 0, long_max},
    field{"bearer",                &gobi_state::bearer,                nullptr, -1, 127},
    field{"dormant",               &gobi_state::dormant},
    field{"autoconnect",           &gobi_state::autoconnect,           nullptr, 0, 2},
    field{"tx_packets",            &gobi_state::tx_packets,            nullptr, 0, long_max},
    field{"rx_packets",            &gobi_state::rx_packets,            nullptr, 0, long_max},
    field{"tx_bytes",              &gobi_state::tx_bytes,              nullptr, 0, INT64_MAX},
    field{"rx_bytes",              &gobi_state::rx_bytes,              nullptr, 0, INT64_MAX},
    field{"mip_profile",           &gobi_state::mip_profile,           nullptr, -1, byte_max},
    field{"mip_nai",               &gobi_state::mip_nai},
    field{"gps",                   &gobi_state::gps},
    field{"gps_tracking",          &gobi_state::gps_tracking},
    field{"gps_already_error",     &gobi_state::gps_already_error,     nullptr, 0, word_max},
    field{"nmea",                  &gobi_state::nmea},
    field{"nmea_ms",               &gobi_state::nmea_ms,               nullptr, 1, day_ms},
    field{"gps_mode",              &gobi_state::gps_mode,              nullptr, 0, 2},
    field{"gps_timeout_s",         &gobi_state::gps_timeout_s,         nullptr, 0, byte_max},
    field{"gps_interval_s",        &gobi_state::gps_interval_s,        nullptr, 0, long_max},
    field{"gps_accuracy_m",        &gobi_state::gps_accuracy_m,        nullptr, 0, long_max},
    field{"uim_slots",             &gobi_state::uim_slots,             nullptr, 0, 255},
    field{"nv_slots",              &gobi_state::nv_slots,              nullptr, 0, 255},
    field{"smsc",                  &gobi_state::smsc},
    field{"send_error",            &gobi_state::send_error,            nullptr, 0, word_max},
    field{"send_rp_cause",         &gobi_state::send_rp_cause,         nullptr, 0, word_max},
    field{"send_tp_cause",         &gobi_state::send_tp_cause,         nullptr, 0, byte_max},
    field{"message_reference",     &gobi_state::message_reference,     nullptr, 0, word_max},
    field{"answer_ms",             &gobi_state::answer_ms,             nullptr, 0, day_ms},
    field{"in_series",             &gobi_state::in_series},
    field{"under_way_max",         &gobi_state::under_way_max,         nullptr, 0, 1000},
    field{"drops_surplus",         &gobi_state::drops_surplus},
    field{"client_ids",            &gobi_state::client_ids,            nullptr, 0, 254},
    field{"reset_hangup_ms",       &gobi_state::reset_hangup_ms,       nullptr, -1, day_ms},
};

static constexpr std::array profile_table = {
    profile_field{"type",     &gobi_profile::type, nullptr, 0, 2},
    profile_field{"index",    &gobi_profile::index, nullptr, 0, byte_max},
    profile_field{"name",     &gobi_profile::name},
    profile_field{"pdp_type", &gobi_profile::pdp_type, "ipv4|ppp|ipv6|ipv4v6|nonip"},
    profile_field{"apn",      &gobi_profile::apn},
    profile_field{"auth",     &gobi_profile::auth, nullptr, 0, 3},
    profile_field{"user",     &gobi_profile::user},
    profile_field{"password", &gobi_profile::password},
};

static constexpr std::array message_table = {
    message_field{"storage",  &gobi_message::storage, "UIM|NV"},
    message_field{"index",    &gobi_message::index, nullptr, -1, byte_max},
    message_field{"tag",      &gobi_message::tag, "read|unread|sent|unsent"},
    message_field{"mode",     &gobi_message::mode, "gsm|cdma"},
    message_field{"pdu",      &gobi_message::pdu, nullptr, 0, 2 * pdu_cdma_octets_max},
    message_field{"from",     &gobi_message::from},
    message_field{"text",     &gobi_message::text},
};
// clang-format on

std::span<const state_field<gobi_state>> gobi_fields()
{
    return gobi_table;
}

// ---- the kinds of modem

static void become_lte(gobi_state &state)
{
    state = gobi_state();
}

static void become_umts(gobi_state &state)
{
    state = gobi_state();
    state.model = "MC8705";
    state.revision = "T1_0_3_2AP R361 CNSZ 2011/04/18 15:41:56";
    state.boot_version = "T1_0_3_2BT";
    state.hardware = "MDM8200A";
    state.multicarrier = false;
    state.radios = "umts,gsm";
    state.coverage = "umts,gsm";
    state.max_tx_rate = 5760000;
    state.max_rx_rate = 21600000;
    state.mode_preference = 0x0C;
    state.lte_band_capability = 0;
    state.lte_band_preference = 0;
    state.acquisition_order = "5,4";
}

static void become_cdma(gobi_state &state)
{
    state = gobi_state();
    state.model = "MC8355";
    state.revision = "D3200-STSUGN-1575 1 [Mar 11 2011 11:00:00]";
    state.boot_version = "D3200-SBHTGN-1575";
    state.hardware = "MDM6200";
    state.imei.clear();
    state.imei_sv.clear();
    state.esn = "80A2B3C4";
    state.meid = "A1000012345678";
    state.msisdn = "6175550142";
    state.min = "6175550100";
    state.radios = "cdma,evdo";
    state.coverage = "evdo,cdma";
    state.max_tx_rate = 1800000;
    state.max_rx_rate = 3100000;
    state.prl_version = 61101;
    state.mcc = 310;
    state.mnc = 12;
    state.network_name = "Test CDMA";
    state.home_mcc = 310;
    state.home_mnc = 12;
    state.home_name = "Test CDMA";
    state.imsi = "310126175550100";
    state.mode_preference = 0x03;
    state.band_capability = 0x07;
    state.band_preference = 0x07;
    state.lte_band_capability = 0;
    state.lte_band_preference = 0;
    state.acquisition_order = "2,1";
    state.mip_profile = 1;
    state.mip_nai = "6175550142@test.example";
}

struct preset {
    const char *kind;
    void (*become)(gobi_state &);
};

static constexpr std::array presets = {
    preset{"LTE", become_lte},
    preset{"UMTS", become_umts},
    preset{"CDMA", become_cdma},
};

static std::vector<gobi_profile> default_profiles(bool cdma)
{
    std::vector<gobi_profile> profiles(3);
    profiles[0] = {0, 1, "profile1", "ipv4v6", "internet", 0, {}, {}, {}};
    profiles[1] = {0, 2, "profile2", "ipv4", "", 0, {}, {}, {}};
    profiles[2] = {0, 3, "profile3", "ipv4v6", cdma ? "cdma" : "broadband", 0, {}, {}, {}};
    return profiles;
}

bool gobi_preset(gobi_modem &modem, std::string_view kind)
{
    for (const preset &row : presets) {
        if (kind != row.kind)
            continue;
        row.become(modem.state);
        modem.state.modem = row.kind;
        modem.profiles = default_profiles(kind == "CDMA");
        const bool cdma = kind == "CDMA";
        modem.routes.clear();
        for (uint8_t message_class = 0; message_class <= 5; message_class++)
            modem.routes.push_back({0, message_class, uint8_t{cdma}, 1});
        return true;
    }
    return false;
}

// ---- reading

static int check_addresses(const gobi_state &state, json_refusal &refusal)
{
    struct address_key {
        const char *name;
        int family;
        const std::string &text;
    };
    const address_key keys[] = {
        {"ipv4", AF_INET, state.ipv4},
        {"ipv4_gateway", AF_INET, state.ipv4_gateway},
        {"ipv4_mask", AF_INET, state.ipv4_mask},
        {"ipv4_dns1", AF_INET, state.ipv4_dns1},
        {"ipv4_dns2", AF_INET, state.ipv4_dns2},
        {"ipv6", AF_INET6, state.ipv6},
        {"ipv6_gateway", AF_INET6, state.ipv6_gateway},
        {"ipv6_dns1", AF_INET6, state.ipv6_dns1},
        {"ipv6_dns2", AF_INET6, state.ipv6_dns2},
    };
    std::array<unsigned char, 16> address = {};
    for (const address_key &key : keys)
        if (inet_pton(key.family, key.text.c_str(), address.data()) != 1)
            return json_refuse(refusal, key.name,
                               "must be an address, such as " + std::string(key.family == AF_INET
                                                                                ? "10.64.0.2"
                                                                                : "2001:db8::2"));
    return 0;
}

static bool is_order(std::string_view text)
{
    bool digit = false;
    for (const char c : text) {
        if (c != ',' && (c < '0' || c > '9'))
            return false;
        if (c == ',' && !digit)
            return false;
        digit = c != ',';
    }
    return text.empty() || digit;
}

static int check_fields(const gobi_state &state, json_refusal &refusal)
{
    std::vector<uint8_t> radios;
    if (!gobi_radios(state.radios, radios))
        return json_refuse(refusal, "radios",
                           "must be names of lte, umts, gsm, tdscdma, cdma, evdo");
    if (!gobi_radios(state.coverage, radios))
        return json_refuse(refusal, "coverage",
                           "must be names of lte, umts, gsm, tdscdma, cdma, evdo");
    if (!is_order(state.acquisition_order))
        return json_refuse(refusal, "acquisition_order",
                           "must be numbers of radio interfaces, such as 8,5,4");
    return check_addresses(state, refusal);
}

static sms_time time_now()
{
    const time_t now = time(nullptr);
    struct tm parts = {};
    gmtime_r(&now, &parts);
    sms_time result;
    result.year = parts.tm_year + 1900;
    result.month = parts.tm_mon + 1;
    result.day = parts.tm_mday;
    result.hour = parts.tm_hour;
    result.minute = parts.tm_min;
    result.second = parts.tm_sec;
    return result;
}

static sms_body body_of(const std::string &text, sms_encoding plain)
{
    sms_body body;
    std::vector<uint8_t> units;
    body.text = text;
    body.encoding = charset_encode(plain, text, units) == 0 ? plain : sms_encoding_utf16;
    return body;
}

static int make_3gpp(const gobi_message &message, std::vector<uint8_t> &octets)
{
    pdu_3gpp pdu;
    pdu.kind = pdu_3gpp_deliver;
    pdu.number = sms_address_from_text(message.from);
    pdu.pid = 0;
    pdu.sent = time_now();
    pdu.sent->zone_minutes = 0;
    pdu.body = body_of(message.text, sms_encoding_gsm7);
    return pdu_3gpp_encode(pdu, octets);
}

static int make_cdma(const gobi_message &message, std::vector<uint8_t> &octets)
{
    pdu_cdma pdu;
    pdu.kind = pdu_cdma_deliver;
    pdu.number = sms_address_from_text(message.from);
    pdu.message_id = 1;
    pdu.sent = time_now();
    pdu.body = body_of(message.text, sms_encoding_ascii7);
    return pdu_cdma_encode(pdu, octets);
}

static int complete_message(gobi_message &message, json_refusal &refusal)
{
    std::string octets;
    if (bytes_from_hex(message.pdu, octets) != 0)
        return json_refuse(refusal, "pdu", "must be pairs of hexadecimal digits");
    if (!message.pdu.empty()) {
        message.pdu = gobi_hex({reinterpret_cast<const uint8_t *>(octets.data()), octets.size()});
        return 0;
    }
    std::vector<uint8_t> made;
    if ((message.mode == "gsm" ? make_3gpp(message, made) : make_cdma(message, made)) != 0)
        return json_refuse(refusal, "text", "does not fit one message, or the sender is none");
    message.pdu = gobi_hex(made);
    return 0;
}

template <class Item, size_t Count>
static int read_list(json_t *array, const char *name,
                     const std::array<state_field<Item>, Count> &fields, const Item &initial,
                     int (*complete)(Item &, json_refusal &), std::vector<Item> &out,
                     json_refusal &refusal)
{
    out.clear();
    if (!json_is_array(array))
        return json_refuse(refusal, name, "must be an array of objects");
    for (size_t i = 0; i < json_array_size(array); i++) {
        json_t *row = json_array_get(array, i);
        Item item = initial;
        refusal = {{}, "must be an object"};
        if (!json_is_object(row) ||
            state_merge(item, std::span<const state_field<Item>>(fields), row, refusal) != 0 ||
            (complete && complete(item, refusal) != 0)) {
            json_refuse_inside(refusal, std::to_string(i));
            return json_refuse_inside(refusal, name);
        }
        out.push_back(std::move(item));
    }
    return 0;
}

static int merge_lists(gobi_modem &modem, json_t *state, json_refusal &refusal)
{
    gobi_message initial;
    if (modem.state.modem == "CDMA") {
        initial.mode = "cdma";
        initial.storage = "NV";
    }
    std::vector<gobi_message> messages;
    if (json_t *given = json_object_get(state, "profiles"))
        if (read_list(given, "profiles", profile_table, gobi_profile(),
                      static_cast<int (*)(gobi_profile &, json_refusal &)>(nullptr), modem.profiles,
                      refusal) != 0)
            return -1;
    if (json_t *given = json_object_get(state, "messages")) {
        if (read_list(given, "messages", message_table, initial, complete_message, messages,
                      refusal) != 0)
            return -1;
        modem.messages.clear();
        for (gobi_message &message : messages)
            if (gobi_store(modem, std::move(message)) < 0)
                return json_refuse(refusal, "messages", "there is no place for all of them");
    }
    if (json_t *given = json_object_get(state, "deliver")) {
        if (read_list(given, "deliver", message_table, initial, complete_message, messages,
                      refusal) != 0)
            return -1;
        for (gobi_message &message : messages)
            modem.arriving.push_back(std::move(message));
    }
    return 0;
}

// A session that a scenario starts is nobody's; one that it ends was ended by the network.
static void follow_session(const gobi_state &before, gobi_modem &modem)
{
    static constexpr int64_t first_handle = 0x10000000;
    static constexpr uint16_t network_ended = 1003;
    gobi_state &state = modem.state;
    if (!state.session && before.session)
        modem.end_reason = network_ended;
    if (!state.session || before.session)
        return;
    modem.session_client = 0;
    modem.connected_at_ms = sim_loop::now_ms();
    if (state.session_handle == before.session_handle)
        state.session_handle = std::max(first_handle, state.session_handle + 1);
}

int gobi_merge(gobi_modem &modem, json_t *state, json_refusal &refusal)
{
    gobi_modem changed = modem;
    std::string kind;
    if (json_read(state, "modem", kind, refusal) != 0)
        return -1;
    if (!kind.empty() && kind != modem.state.modem)
        (void)gobi_preset(changed, kind); // an unknown one is refused with the other fields
    const json_ref fields(json_copy(state));
    for (const char *list : {"profiles", "messages", "deliver"})
        json_object_del(fields.get(), list);
    if (state_merge(changed.state, gobi_fields(), fields.get(), refusal) != 0 ||
        check_fields(changed.state, refusal) != 0 || merge_lists(changed, state, refusal) != 0)
        return -1;
    follow_session(modem.state, changed);
    modem = std::move(changed);
    return 0;
}

// ---- showing

template <class Item, size_t Count>
static json_t *show_list(const std::vector<Item> &items,
                         const std::array<state_field<Item>, Count> &fields)
{
    json_t *array = json_array();
    for (const Item &item : items)
        json_array_append_new(
            array, state_dump(item, std::span<const state_field<Item>>(fields)).release());
    return array;
}

json_ref gobi_dump(const gobi_modem &modem)
{
    json_ref object = state_dump(modem.state, gobi_fields());
    json_object_set_new(object.get(), "profiles", show_list(modem.profiles, profile_table));
    json_object_set_new(object.get(), "messages", show_list(modem.messages, message_table));
    json_object_set_new(object.get(), "sent", show_list(modem.sent, message_table));
    return object;
}

std::vector<uint8_t> gobi_octets(const std::string &hex)
{
    std::string bytes;
    (void)bytes_from_hex(hex, bytes);
    return {bytes.begin(), bytes.end()};
}

std::string gobi_hex(std::span<const uint8_t> octets)
{
    std::string text;
    for (const uint8_t octet : octets)
        text += sim_format("%02X", octet);
    return text;
}

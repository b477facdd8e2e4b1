// The Gobi modem's network access: serving system, signal, bands, preferences.

#include "sim/gobi.h"
#include "sim/qmi_tlvs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

static uint16_t register_indications(gobi_modem &, const qmi_call &call, tlv_writer &)
{
    std::span<const uint8_t> rest = call.tlvs;
    tlv item;
    while (tlv_next(rest, item) == 1)
        if (!item.value.empty())
            call.client.registered[item.type] = item.value[0] != 0;
    return qmi_error_none;
}

// ---- signal

struct strength {
    uint8_t radio;
    int64_t dbm;
    double ecio_db;
};

static strength strength_of(const gobi_state &state, uint8_t radio)
{
    switch (radio) {
    case gobi_radio_lte:
        return {radio, state.lte_rssi_dbm, 0};
    case gobi_radio_gsm:
        return {radio, state.gsm_rssi_dbm, 0};
    case gobi_radio_cdma:
        return {radio, state.cdma_rssi_dbm, state.cdma_ecio_db};
    case gobi_radio_evdo:
        return {radio, state.hdr_rssi_dbm, state.hdr_ecio_db};
    default:
        return {radio, state.umts_rssi_dbm, state.umts_ecio_db};
    }
}

enum strength_item : uint16_t {
    item_rssi = 1 << 0,
    item_ecio = 1 << 1,
    item_io = 1 << 2,
    item_sinr = 1 << 3,
    item_error_rate = 1 << 4,
    item_rsrq = 1 << 5,
    item_lte_snr = 1 << 6,
    item_lte_rsrp = 1 << 7,
};

static uint16_t get_signal_strength(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    const std::vector<uint8_t> serving = gobi_serving(state);
    uint16_t wanted = 0;
    if (auto fields = call.find(0x10))
        (void)fields->number(wanted);
    if (serving.empty()) {
        tlv_add(answer, 0x01, static_cast<int8_t>(-125), uint8_t{gobi_radio_none});
        return qmi_error_none;
    }
    std::vector<strength> all;
    for (const uint8_t radio : serving)
        all.push_back(strength_of(state, radio));
    const auto count = static_cast<uint16_t>(all.size());
    tlv_add(answer, 0x01, static_cast<int8_t>(all[0].dbm), all[0].radio);
    if (count > 1) {
        tlv_add(answer, 0x10, uint16_t{1}, static_cast<int8_t>(all[1].dbm), all[1].radio);
    }
    if (wanted & item_rssi) {
        tlv_add(answer, 0x11, count);
        for (const strength &one : all) {
            answer.number(u8(-one.dbm));
            answer.number(one.radio);
        }
    }
    // Ec/Io is a figure of code division only.
    std::vector<strength> coded;
    for (const strength &one : all)
        if (one.radio != gobi_radio_lte && one.radio != gobi_radio_gsm)
            coded.push_back(one);
    if ((wanted & item_ecio) && !coded.empty()) {
        tlv_add(answer, 0x12, static_cast<uint16_t>(coded.size()));
        for (const strength &one : coded) {
            answer.number(u8(std::lround(-2 * one.ecio_db)));
            answer.number(one.radio);
        }
    }
    const bool evdo = serving.front() == gobi_radio_evdo || serving.back() == gobi_radio_evdo;
    const bool lte = serving.front() == gobi_radio_lte;
    if ((wanted & item_io) && evdo)
        tlv_add(answer, 0x13, static_cast<int32_t>(state.hdr_io_dbm));
    if ((wanted & item_sinr) && evdo)
        tlv_add(answer, 0x14, u8(state.hdr_sinr_level));
    if (wanted & item_error_rate) {
        tlv_add(answer, 0x15, count);
        for (const strength &one : all) {
            answer.number(uint16_t{0});
            answer.number(one.radio);
        }
    }
    if ((wanted & item_rsrq) && lte)
        tlv_add(answer, 0x16, static_cast<int8_t>(state.lte_rsrq_db), uint8_t{gobi_radio_lte});
    if ((wanted & item_lte_snr) && lte)
        tlv_add(answer, 0x17, static_cast<int16_t>(std::lround(10 * state.lte_snr_db)));
    if ((wanted & item_lte_rsrp) && lte)
        tlv_add(answer, 0x18, static_cast<int16_t>(state.lte_rsrp_dbm));
    return qmi_error_none;
}

static uint16_t get_signal_info(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    gobi_write_signal_info(modem.state, answer);
    return qmi_error_none;
}

// ---- networks

static uint16_t get_serving_system(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    gobi_write_serving_system(modem.state, false, answer);
    return qmi_error_none;
}

static uint16_t get_home_network(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    if (gobi_uim_state(state) != 0)
        return qmi_error_uim_uninitialized;
    tlv_add(answer, 0x01, u16(state.home_mcc), u16(state.home_mnc));
    answer.counted_text<uint8_t>(state.home_name);
    const bool cdma = state.modem == "CDMA";
    if (cdma)
        tlv_add(answer, 0x10, u16(state.sid), u16(state.nid));
    else
        tlv_add(answer, 0x12, uint8_t{1}, uint8_t{state.mnc_three_digits});
    return qmi_error_none;
}

static void write_name(tlv_writer &out, const std::string &name)
{
    static constexpr uint8_t unknown_initials = 255;
    out.number(uint8_t{0}); // encoding: unspecified
    out.number(unknown_initials);
    out.number(uint8_t{0}); // no spare bits
    out.counted_text<uint8_t>(name);
}

// The modem knows the names of its own network and of the one it is in.
static uint16_t get_plmn_name(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    tlv_fields fields = *call.find(0x01);
    uint16_t mcc = 0;
    uint16_t mnc = 0;
    (void)(fields.number(mcc) && fields.number(mnc));
    const bool home = mcc == state.home_mcc && mnc == state.home_mnc;
    if (!home && (mcc != state.mcc || mnc != state.mnc))
        return qmi_error_information_unavailable;
    const std::string &name = home ? state.home_name : state.network_name;
    answer.begin(0x10);
    answer.number(uint8_t{0});
    answer.counted_text<uint8_t>(name);
    write_name(answer, name);
    write_name(answer, name);
    tlv_add(answer, 0x11, uint32_t{1}, uint32_t{1});
    tlv_add(answer, 0x12, uint32_t{home});
    return qmi_error_none;
}

static uint16_t get_bands(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    const std::vector<uint8_t> serving = gobi_serving(state);
    if (serving.empty())
        return qmi_error_information_unavailable;
    gobi_write_bands(state, 0x01, false, answer);
    gobi_write_bands(state, 0x11, true, answer);
    if (serving.front() == gobi_radio_lte)
        tlv_add(answer, 0x12, uint8_t{1}, uint8_t{gobi_radio_lte}, u32(state.lte_bandwidth));
    return qmi_error_none;
}

// ---- preferences

static uint16_t set_technology(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint16_t mask = 0;
    uint8_t duration = 0;
    (void)(fields.number(mask) && fields.number(duration));
    if (duration > 6)
        return qmi_error_invalid_argument;
    modem.state.technology_preference = mask;
    modem.state.technology_duration = duration;
    if (duration == 0)
        modem.state.technology_persistent = mask;
    return qmi_error_none;
}

static uint16_t get_technology(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    tlv_add(answer, 0x01, u16(state.technology_preference), u8(state.technology_duration));
    if (state.technology_duration != 0)
        tlv_add(answer, 0x10, u16(state.technology_persistent));
    return qmi_error_none;
}

// The preferences that are one number each, where they are in the request and in the answer to the
// question for them; above 0x19 the two differ. An answer's 0 means that it is not in there.
struct preference {
    uint8_t set_type, get_type;
    uint8_t bytes;
    int64_t gobi_state::*member;
};

static constexpr std::array preferences = {
    preference{0x10, 0x10, 1, &gobi_state::emergency_mode},
    preference{0x11, 0x11, 2, &gobi_state::mode_preference},
    preference{0x12, 0x12, 8, &gobi_state::band_preference},
    preference{0x13, 0x13, 2, &gobi_state::prl_preference},
    preference{0x14, 0x14, 2, &gobi_state::roaming_preference},
    preference{0x15, 0x15, 8, &gobi_state::lte_band_preference},
    preference{0x18, 0x18, 4, &gobi_state::service_domain},
    preference{0x19, 0x19, 4, &gobi_state::gsm_wcdma_order},
    preference{0x21, 0x1F, 4, &gobi_state::usage},
    preference{0x23, 0x20, 4, &gobi_state::voice_domain},
};

static uint64_t read_number(std::span<const uint8_t> bytes)
{
    uint64_t number = 0;
    for (size_t i = bytes.size(); i > 0; i--)
        number = number << 8 | bytes[i - 1];
    return number;
}

static uint16_t read_order(tlv_fields fields, std::string &order)
{
    uint8_t count = 0;
    if (!fields.number(count))
        return qmi_error_malformed;
    order.clear();
    for (int i = 0; i < count; i++) {
        uint8_t radio = 0;
        if (!fields.number(radio))
            return qmi_error_malformed;
        order += (order.empty() ? "" : ",") + std::to_string(radio);
    }
    return qmi_error_none;
}

static uint16_t read_selection(tlv_fields fields, gobi_state &state)
{
    uint8_t mode = 0;
    uint16_t mcc = 0;
    uint16_t mnc = 0;
    if (!fields.number(mode) || !fields.number(mcc) || !fields.number(mnc))
        return qmi_error_malformed;
    if (mode > 1 || mcc > 999 || mnc > 999)
        return qmi_error_invalid_argument;
    state.selection = mode;
    state.selection_mcc = mode == 1 ? mcc : 0;
    state.selection_mnc = mode == 1 ? mnc : 0;
    return qmi_error_none;
}

// What is permanent is also what the modem wakes up with.
static void keep_preferences(gobi_modem &modem)
{
    modem.power_up.mode_preference = modem.state.mode_preference;
    modem.power_up.band_preference = modem.state.band_preference;
    modem.power_up.lte_band_preference = modem.state.lte_band_preference;
    modem.power_up.acquisition_order = modem.state.acquisition_order;
}

static uint16_t set_preferences(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    gobi_state changed = modem.state;
    uint8_t duration = 1;
    for (const preference &row : preferences) {
        const auto value = call.find(row.set_type);
        if (value && value->rest.size() < row.bytes)
            return qmi_error_malformed;
        if (value)
            changed.*row.member = static_cast<int64_t>(read_number(value->rest.first(row.bytes)));
    }
    if (const auto fields = call.find(0x16))
        if (const uint16_t error = read_selection(*fields, changed))
            return error;
    if (const auto fields = call.find(0x1E))
        if (const uint16_t error = read_order(*fields, changed.acquisition_order))
            return error;
    if (auto fields = call.find(0x17))
        (void)fields->number(duration);
    if (changed.mode_preference == 0)
        return qmi_error_invalid_argument;
    modem.state = std::move(changed);
    if (duration == 1)
        keep_preferences(modem);
    return qmi_error_none;
}

static void write_order(const std::string &order, tlv_writer &out)
{
    std::vector<uint8_t> radios;
    size_t at = 0;
    while (at < order.size()) {
        const size_t end = std::min(order.find(',', at), order.size());
        radios.push_back(u8(std::strtol(order.c_str() + at, nullptr, 10)));
        at = end + 1;
    }
    tlv_add(out, 0x1C, static_cast<uint8_t>(radios.size()));
    out.octets(radios);
}

static uint16_t get_preferences(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    for (const preference &row : preferences) {
        answer.begin(row.get_type);
        for (int i = 0; i < row.bytes; i++)
            answer.number(u8(state.*row.member >> (8 * i)));
    }
    tlv_add(answer, 0x16, u8(state.selection));
    if (state.selection == 1)
        tlv_add(answer, 0x1B, u16(state.selection_mcc), u16(state.selection_mnc), uint8_t{0});
    write_order(state.acquisition_order, answer);
    return qmi_error_none;
}

static constexpr std::array rows = {
    gobi_row{0x0000, {"Reset"}, gobi_reset_client},
    gobi_row{0x0002, {"Set event report"}, gobi_set_event_report},
    gobi_row{0x0003, {"Register indications"}, register_indications},
    gobi_row{0x0020, {"Get signal strength"}, get_signal_strength},
    gobi_row{0x0024, {"Get serving system"}, get_serving_system},
    gobi_row{0x0025, {"Get home network"}, get_home_network},
    gobi_row{0x002A, {"Set technology preference", 3}, set_technology},
    gobi_row{0x002B, {"Get technology preference"}, get_technology},
    gobi_row{0x0031, {"Get RF band information"}, get_bands},
    gobi_row{0x0033, {"Set system selection preference"}, set_preferences},
    gobi_row{0x0034, {"Get system selection preference"}, get_preferences},
    gobi_row{0x0044, {"Get PLMN name", 4}, get_plmn_name},
    gobi_row{0x004F, {"Get signal information"}, get_signal_info},
    gobi_row{0x0051, {"Signal information"}, nullptr}, // an indication only
};

std::span<const gobi_row> gobi_nas_rows()
{
    return rows;
}

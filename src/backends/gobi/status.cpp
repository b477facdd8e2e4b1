// The status record: what the modem, its SIM and its network are doing.

#include "backends/gobi/record.h"
#include "carrier/db.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/markers.h"
#include "platform/paths.h"
#include "publish/output.h"
#include "publish/state.h"
#include "qmi/messages.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>

enum status_query {
    ask_uim,
    ask_pins,
    ask_signal,
    ask_bands,
    ask_mode,
    ask_activation,
    ask_prl,
    ask_bearer,
    ask_imsi,
    ask_iccid,
    ask_system,
    ask_numbers,
    ask_settings,
    ask_mip_index,
    ask_mip_profile,
    ask_images,
    ask_selection,
    status_queries,
};

struct status_facts {
    const cellmodem &modem;
    std::array<uint32_t, status_queries> codes;
    uint8_t uim_state = 0;
    qmi_pin_states pins;
    qmi_signal_info signal;
    qmi_active_bands bands;
    uint8_t operating_mode = 0;
    uint16_t activation = 0;
    uint16_t prl_version = 0;
    int8_t bearer = 0;
    std::string imsi, iccid;
    qmi_serving_system system;
    std::optional<carrier_network> network;
    qmi_voice_numbers numbers;
    qmi_runtime_settings settings;
    uint8_t mip_index = 0;
    qmi_mip_profile mip_profile;
    qmi_images images;
    qmi_system_selection selection;

    explicit status_facts(const cellmodem &of) : modem(of) { codes.fill(gobi_not_asked); }
};

using facts = const status_facts &;
using query = gobi_query<status_facts>;
using row = gobi_row<status_facts>;

static bool answered(facts f, status_query asked)
{
    return f.codes[asked] == qmi_ok;
}

template <class number>
static gobi_value number_value(const std::optional<number> &value)
{
    return value ? gobi_value(int64_t{*value}) : gobi_value();
}

// A text that the log misses when it is empty.
static gobi_value text_or_line(const std::optional<std::string> &bytes, const char *line)
{
    const std::string text = gobi_text(bytes.value_or(""));
    if (text.empty())
        log_message(log_debug, "%s", line);
    return text;
}

// ---- SIM

enum uim_state : uint8_t { uim_ready = 0 };
enum pin_state : uint8_t { pin_wanted = 1, puk_wanted = 4 };

constexpr unsigned pin_states = 8; // that are shown

static gobi_value sim_status(facts f)
{
    switch (f.uim_state) {
    case uim_ready:
        return "SIM Initialized";
    case qmi_uim_locked:
        return "SIM Locked";
    case qmi_uim_absent:
        return "SIM Not Present";
    default:
        return "SIM State Unavailable";
    }
}

// What PIN 1 has to say comes first. A SIM that is locked by something else has no kind of lock.
static gobi_value sim_lock(facts f)
{
    if (answered(f, ask_pins) && f.pins.pin1) {
        if (f.pins.pin1->status == pin_wanted)
            return "SIM_LOCK_PIN";
        if (f.pins.pin1->status == puk_wanted)
            return "SIM_LOCK_PUK";
    }
    if (f.uim_state == uim_ready)
        return "SIM_READY";
    return f.uim_state == qmi_uim_locked ? gobi_value() : gobi_value("SIM_ERROR");
}

using pin_member = std::optional<qmi_pin_status> qmi_pin_states::*;

static std::optional<qmi_pin_status> shown_pin(facts f, pin_member pin)
{
    const auto &state = f.pins.*pin;
    return state && state->status < pin_states ? state : std::nullopt;
}

template <pin_member pin>
static gobi_value pin_status(facts f)
{
    const auto shown = shown_pin(f, pin);
    return shown ? gobi_name_value(gobi_pin_names, shown->status) : gobi_value();
}

template <pin_member pin, uint8_t qmi_pin_status::*left>
static gobi_value pin_left(facts f)
{
    const auto shown = shown_pin(f, pin);
    return shown ? gobi_value(int64_t{(*shown).*left}) : gobi_value();
}

// ---- signal

// A number of tenths as a decimal fraction.
static std::string tenths(int number)
{
    char text[16];
    snprintf(text, sizeof(text), "%s%d.%d", number < 0 ? "-" : "", abs(number) / 10,
             abs(number) % 10);
    return text;
}

// A number of one of the networks, as it is.
template <auto network, auto member>
static gobi_value signal_number(facts f)
{
    const auto &signal = f.signal.*network;
    return signal ? gobi_value(std::to_string((*signal).*member)) : gobi_value();
}

template <auto network>
static gobi_value signal_ecio(facts f)
{
    const auto &signal = f.signal.*network;
    return signal ? gobi_value(tenths(-5 * signal->ecio)) : gobi_value();
}

static gobi_value lte_snr(facts f)
{
    return f.signal.lte ? gobi_value(tenths(f.signal.lte->snr)) : gobi_value();
}

static gobi_value gsm_rssi(facts f)
{
    return f.signal.gsm_rssi ? gobi_value(std::to_string(*f.signal.gsm_rssi)) : gobi_value();
}

// The strength in the fastest network that the modem is in.
static std::optional<int> best_rssi(const qmi_signal_info &signal)
{
    if (signal.lte)
        return signal.lte->rssi;
    if (signal.wcdma)
        return signal.wcdma->rssi;
    if (signal.gsm_rssi)
        return signal.gsm_rssi;
    if (signal.hdr)
        return signal.hdr->rssi;
    return signal.cdma ? std::optional<int>(signal.cdma->rssi) : std::nullopt;
}

constexpr int weakest_dbm = -113;
constexpr int strongest_dbm = -51;

static gobi_value signal_quality(facts f)
{
    const auto rssi = best_rssi(f.signal);
    if (!rssi)
        return {};
    const int dbm = std::clamp(*rssi, weakest_dbm, strongest_dbm);
    return int64_t{(dbm - weakest_dbm) * 100 / (strongest_dbm - weakest_dbm)};
}

// Each band once, though several networks may be in it.
static gobi_value current_bands(facts f)
{
    std::string list;
    std::vector<uint16_t> seen;
    for (const qmi_active_band &active : f.bands.bands.items) {
        if (std::find(seen.begin(), seen.end(), active.band) != seen.end())
            continue;
        seen.push_back(active.band);
        gobi_list_add(list, ", ", gobi_active_band_name(active.band));
    }
    return gobi_list{list};
}

// ---- network

static gobi_value bearer(facts f)
{
    return f.bearer < 0 ? gobi_value()
                        : gobi_name_value(gobi_bearer_names, static_cast<size_t>(f.bearer));
}

static gobi_value registration(facts f)
{
    const char *name = gobi_name(gobi_registration_names, f.system.registration);
    return name ? name : "Unknown";
}

template <uint16_t qmi_plmn::*member>
static gobi_value plmn_number(facts f)
{
    return f.system.plmn ? gobi_value(int64_t{(*f.system.plmn).*member}) : gobi_value();
}

template <auto member>
static gobi_value network_name(facts f)
{
    return f.network ? gobi_value(std::string((*f.network).*member)) : gobi_value();
}

template <uint16_t qmi_cdma_system::*member>
static gobi_value cdma_number(facts f)
{
    return f.system.cdma && gobi_is_cdma() ? gobi_value(int64_t{(*f.system.cdma).*member})
                                           : gobi_value();
}

constexpr uint8_t indicator_home = 1;

template <std::optional<uint8_t> qmi_serving_system::*indicator>
static gobi_value roaming(facts f)
{
    const auto &value = f.system.*indicator;
    if (!value)
        return {};
    return *value == indicator_home ? "Not Roaming" : "Roaming";
}

static gobi_value service_mode(facts f)
{
    std::string list;
    if (f.system.data_services)
        list = gobi_name_list(gobi_data_service_names, f.system.data_services->items, ", ");
    return list.empty() ? "No Service" : list;
}

// ---- session

template <std::optional<uint32_t> qmi_runtime_settings::*member>
static gobi_value ipv4(facts f)
{
    const auto &number = f.settings.*member;
    return number ? gobi_value(in_addr{htonl(*number)}) : gobi_value();
}

template <std::optional<qmi_ipv6_prefix> qmi_runtime_settings::*member>
static gobi_value ipv6(facts f)
{
    const auto &prefix = f.settings.*member;
    if (!prefix)
        return {};
    in6_addr address;
    static_assert(sizeof(address) == sizeof(prefix->address));
    memcpy(&address, prefix->address.data(), sizeof(address));
    return address;
}

static gobi_value ipv6_prefix(facts f)
{
    return f.settings.ipv6_address ? gobi_value(int64_t{f.settings.ipv6_address->length})
                                   : gobi_value();
}

// ---- preferences

static const char *image_type_name(uint8_t type)
{
    switch (type) {
    case qmi_image_modem:
        return "firmware";
    case qmi_image_carrier:
        return "carrier";
    default:
        return "unknown";
    }
}

// The log has all of every preferred image; the record only their names.
static void log_images(const qmi_images &images)
{
    int number = 0;
    for (const qmi_image &image : images.preferred.items) {
        if (image.type > qmi_image_carrier)
            log_message(log_debug, "Preferred Firmware %d - invalid firmware type %d provided",
                        number, image.type);
        std::string id;
        char digits[3];
        for (const uint8_t octet : image.unique_id) {
            snprintf(digits, sizeof(digits), "%02x", octet);
            id += digits;
        }
        log_message(log_debug, "Preferred Firmware %d: image_type %s, unique_id %s, build_id %s",
                    number, image_type_name(image.type), id.c_str(),
                    gobi_text(image.build_id.text).c_str());
        number++;
    }
}

// The build of the first image of that type, nothing when there is none.
static std::string preferred_build(facts f, uint8_t type)
{
    for (const qmi_image &image : f.images.preferred.items)
        if (image.type == type)
            return gobi_text(image.build_id.text);
    return {};
}

static gobi_value preferred_carrier(facts f)
{
    const std::string build = preferred_build(f, qmi_image_carrier);
    return build.empty() ? "Automatic" : build;
}

// As the user would choose it.
static gobi_value rat(facts f)
{
    constexpr unsigned all_modes = 0x3F;
    const unsigned modes = f.selection.mode_mask.value_or(0) & all_modes;
    return modes == all_modes ? "AUTOMATIC" : gobi_bit_list(gobi_rat_names, modes, "+");
}

// ---- the record

static bool wants_cdma(facts)
{
    return gobi_is_cdma();
}

static bool wants_carriers(facts)
{
    return file_exists(marker_is_multicarrier);
}

// clang-format off
// In the order of status_query.
constexpr query queries[] = {
    {[](status_facts &f) { return qmi_dms_uim_state(f.uim_state); }, "Could not get UIM States"},
    {[](status_facts &f) { return qmi_dms_pin_status(f.pins); }, "Could not get PIN States", nullptr, gobi_no_query, ask_uim},
    {[](status_facts &f) { return qmi_nas_signal_info(f.signal); }},
    {[](status_facts &f) { return qmi_nas_active_bands(f.bands); }},
    {[](status_facts &f) { return qmi_dms_operating_mode(f.operating_mode); }},
    {[](status_facts &f) { return qmi_dms_activation_state(f.activation); }, nullptr, wants_cdma},
    {[](status_facts &f) { return qmi_dms_prl_version(f.prl_version); }, nullptr, wants_cdma},
    {[](status_facts &f) { return qmi_wds_data_bearer(f.bearer); }},
    {[](status_facts &f) { return qmi_dms_imsi(f.imsi); }, "Failed to get gobi IMSI"},
    {[](status_facts &f) { return qmi_dms_iccid(f.iccid); }, "Failed to get gobi ICCID"},
    {[](status_facts &f) { return qmi_nas_serving_system(f.system); }},
    {[](status_facts &f) { return qmi_dms_voice_numbers(f.numbers); }, "Failed to get gobi voice number"},
    {[](status_facts &f) { return qmi_wds_runtime_settings(f.settings); }},
    {[](status_facts &f) { return qmi_wds_active_mip_profile(f.mip_index); }, nullptr, wants_cdma},
    {[](status_facts &f) { return qmi_wds_mip_profile(f.mip_index, f.mip_profile); }, nullptr, wants_cdma, ask_mip_index},
    {[](status_facts &f) { return qmi_dms_firmware_preference(f.images); }, nullptr, wants_carriers},
    {[](status_facts &f) { return qmi_nas_system_selection(f.selection); }},
};
static_assert(std::size(queries) == status_queries);

using sig = qmi_signal_info;
constexpr bool push = true;

constexpr row rows[] = {
    {"device-state", gobi_no_query, [](facts f) { return gobi_value(device_state_name(f.modem.device_state)); }, push},
    {"session-state", gobi_no_query, [](facts f) { return gobi_value(session_state_name(f.modem.session_state)); }, push},
    {"sim-status", ask_uim, sim_status, push},
    {"sim-lock", ask_uim, sim_lock},
    {"pin1-status", ask_pins, pin_status<&qmi_pin_states::pin1>},
    {"pin1-retries-left", ask_pins, pin_left<&qmi_pin_states::pin1, &qmi_pin_status::verify_left>},
    {"pin1-unblocks-left", ask_pins, pin_left<&qmi_pin_states::pin1, &qmi_pin_status::unblock_left>},
    {"pin2-status", ask_pins, pin_status<&qmi_pin_states::pin2>},
    {"pin2-retries-left", ask_pins, pin_left<&qmi_pin_states::pin2, &qmi_pin_status::verify_left>},
    {"pin2-unblocks-left", ask_pins, pin_left<&qmi_pin_states::pin2, &qmi_pin_status::unblock_left>},
    {"hdr-rssi", ask_signal, signal_number<&sig::hdr, &qmi_hdr_signal::rssi>, push},
    {"hdr-ecio", ask_signal, signal_ecio<&sig::hdr>, push},
    {"hdr-sinr", ask_signal, signal_number<&sig::hdr, &qmi_hdr_signal::sinr>, push},
    {"hdr-io", ask_signal, signal_number<&sig::hdr, &qmi_hdr_signal::io>, push},
    {"lte-rsrq", ask_signal, signal_number<&sig::lte, &qmi_lte_signal::rsrq>, push},
    {"lte-rsrp", ask_signal, signal_number<&sig::lte, &qmi_lte_signal::rsrp>, push},
    {"lte-snr", ask_signal, lte_snr, push},
    {"lte-rssi", ask_signal, signal_number<&sig::lte, &qmi_lte_signal::rssi>, push},
    {"wcdma-rssi", ask_signal, signal_number<&sig::wcdma, &qmi_code_signal::rssi>, push},
    {"wcdma-ecio", ask_signal, signal_ecio<&sig::wcdma>, push},
    {"gsm-rssi", ask_signal, gsm_rssi, push},
    {"cdma-rssi", ask_signal, signal_number<&sig::cdma, &qmi_code_signal::rssi>, push},
    {"cdma-ecio", ask_signal, signal_ecio<&sig::cdma>, push},
    {"signal-quality", ask_signal, signal_quality},
    {"current-bands", ask_bands, current_bands},
    {"modem-status", ask_mode, [](facts f) { return gobi_name_value(gobi_modem_status_names, f.operating_mode); }},
    {"nam-status", ask_activation, [](facts f) { return gobi_name_value(gobi_nam_status_names, f.activation); }},
    {"prl-version", ask_prl, [](facts f) { return gobi_value(int64_t{f.prl_version}); }},
    {"mode", ask_bearer, bearer, push},
    {"sim-imsi", ask_imsi, [](facts f) { return text_or_line(f.imsi, "Gobi sim-imsi was empty"); }, push},
    {"sim-iccid", ask_iccid, [](facts f) { return text_or_line(f.iccid, "Gobi sim-iccid was empty"); }, push},
    {"service-status", ask_system, registration},
    {"network-status", ask_system, registration},
    {"mcc", ask_system, plmn_number<&qmi_plmn::mcc>},
    {"mnc", ask_system, plmn_number<&qmi_plmn::mnc>},
    {"carrier", ask_system, network_name<&carrier_network::network>, push},
    {"country", ask_system, network_name<&carrier_network::country>},
    {"sid", ask_system, cdma_number<&qmi_cdma_system::sid>},
    {"nid", ask_system, cdma_number<&qmi_cdma_system::nid>},
    {"roaming-status-default", ask_system, roaming<&qmi_serving_system::default_roaming>},
    {"roaming-status", ask_system, roaming<&qmi_serving_system::roaming>},
    {"service-mode", ask_system, service_mode},
    {"phone-number1", ask_numbers, [](facts f) { return text_or_line(f.numbers.voice, "Gobi voice phone-number1 was empty"); }, push},
    {"phone-number2", ask_numbers, [](facts f) { return text_or_line(f.numbers.identification, "Gobi voice phone-number2 was empty"); }, push},
    {"ipv4address", ask_settings, ipv4<&qmi_runtime_settings::ipv4_address>},
    {"ipv4gateway", ask_settings, ipv4<&qmi_runtime_settings::ipv4_gateway>},
    {"ipv4subnet", ask_settings, ipv4<&qmi_runtime_settings::ipv4_subnet>},
    {"ipv6address", ask_settings, ipv6<&qmi_runtime_settings::ipv6_address>},
    {"ipv6prefix", ask_settings, ipv6_prefix},
    {"ipv6gateway", ask_settings, ipv6<&qmi_runtime_settings::ipv6_gateway>},
    {"mip-profile-index", ask_mip_index, [](facts f) { return gobi_value(int64_t{f.mip_index}); }},
    {"mip-profile-nai", ask_mip_profile, [](facts f) { return gobi_text_value(f.mip_profile.nai); }},
    {"preferred-firmware", ask_images, [](facts f) { return gobi_value(preferred_build(f, qmi_image_modem)); }, push},
    {"preferred-carrier", ask_images, preferred_carrier, push},
    {"rat", ask_selection, rat, push},
};
// clang-format on

static void find_network(status_facts &known)
{
    carrier_network found;
    const auto &plmn = known.system.plmn;
    if (answered(known, ask_system) && plmn && carrier_db_lookup(found, plmn->mcc, plmn->mnc) == 0)
        known.network = found;
}

int gobi_status(cellmodem &modem, FILE *out, int mode)
{
    status_facts known(modem);
    const int result = gobi_ask<status_facts>(queries, known);
    find_network(known);
    if (answered(known, ask_images))
        log_images(known.images);
    status_begin(out, mode);
    gobi_write<status_facts>(rows, known, out, mode);
    status_end(out, mode);
    return result;
}

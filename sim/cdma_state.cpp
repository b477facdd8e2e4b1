// The CDMA modem's state: its fields, and what follows from them.

#include "sim/cdma.h"

#include <array>

#include <arpa/inet.h>

static constexpr int64_t day_ms = swi_state_ms_max;
static constexpr int64_t word_max = swi_state_word_max;
static constexpr int64_t half_word_max = 0xFFFF;

using field = state_field<cdma_state>;

cdma_state::cdma_state()
{
    product = "UCD5800";
    type_code = 0x7B01;
    hardware = "UCD5800 Rev 2.0";
    boot = "UCD_00_05_21_B";
    firmware = "UCD_00_05_21_A";
    boot_ms = 6000;
}

// clang-format off
static constexpr std::array cdma_table = table_join(swi_modem_fields<cdma_state>, std::array{
    field{"esn",               &cdma_state::esn,               nullptr, 0, word_max},
    field{"factory_boot_ms",   &cdma_state::factory_boot_ms,   nullptr, 0, day_ms},
    field{"msl",               &cdma_state::msl,               nullptr, 0, word_max},
    field{"mdn",               &cdma_state::mdn},
    field{"imsi",              &cdma_state::imsi},
    field{"home_sid",          &cdma_state::home_sid,          nullptr, 0, half_word_max},
    field{"home_nid",          &cdma_state::home_nid,          nullptr, 0, half_word_max},
    field{"date_set",          &cdma_state::date_set},
    field{"lock_result",       &cdma_state::lock_result,       nullptr, -1, word_max},
    field{"missing",           &cdma_state::missing,           nullptr, -1, half_word_max},
    field{"nam_status",        &cdma_state::nam_status,        nullptr, -1, word_max},
    field{"phone_number",      &cdma_state::phone_number},
    field{"prl_version",       &cdma_state::prl_version,       nullptr, 0, word_max},
    field{"sid",               &cdma_state::sid,               nullptr, 0, word_max},
    field{"nid",               &cdma_state::nid,               nullptr, 0, word_max},
    field{"hdr_mac_index",     &cdma_state::hdr_mac_index,     nullptr, 0, word_max},
    field{"packet_zone",       &cdma_state::packet_zone,       nullptr, 0, word_max},
    field{"band_class",        &cdma_state::band_class,        nullptr, 0, word_max},
    field{"mip_behavior",      &cdma_state::mip_behavior,      nullptr, 0, word_max},
    field{"mip_profile",       &cdma_state::mip_profile,       nullptr, 0, word_max},
    field{"mip_nai",           &cdma_state::mip_nai},
    field{"mip_home_ip",       &cdma_state::mip_home_ip},
    field{"mip_ha_ip_1",       &cdma_state::mip_ha_ip_1},
    field{"mip_ha_ip_2",       &cdma_state::mip_ha_ip_2},
    field{"factory_nai",       &cdma_state::factory_nai},
    field{"rssi",              &cdma_state::rssi,              nullptr, 0, half_word_max},
    field{"ecio",              &cdma_state::ecio,              nullptr, 0, half_word_max},
    field{"hdr_rssi",          &cdma_state::hdr_rssi,          nullptr, 0, half_word_max},
    field{"hdr_ecio",          &cdma_state::hdr_ecio,          nullptr, 0, half_word_max},
    field{"carrier_id",        &cdma_state::carrier_id,        nullptr, 0, word_max},
    field{"total_frames",      &cdma_state::total_frames,      nullptr, 0, word_max},
    field{"bad_frames",        &cdma_state::bad_frames,        nullptr, 0, word_max},
    field{"tx_bytes",          &cdma_state::tx_bytes,          nullptr, 0, word_max},
    field{"rx_bytes",          &cdma_state::rx_bytes,          nullptr, 0, word_max},
    field{"powersave_mode",    &cdma_state::powersave_mode,    nullptr, 0, word_max},
    field{"transmit_power",    &cdma_state::transmit_power,    nullptr, INT32_MIN, INT32_MAX},
    field{"temperature",       &cdma_state::temperature,       nullptr, INT32_MIN, INT32_MAX},
    field{"channel",           &cdma_state::channel,           nullptr, 0, word_max},
    field{"longitude",         &cdma_state::longitude,         nullptr, INT32_MIN, INT32_MAX},
    field{"latitude",          &cdma_state::latitude,          nullptr, INT32_MIN, INT32_MAX},
    field{"radio_bands",       &cdma_state::radio_bands},
    field{"hdr_state",         &cdma_state::hdr_state,         nullptr, -1, half_word_max},
    field{"authentication",    &cdma_state::authentication,    nullptr, 0, word_max},
    field{"service",           &cdma_state::service,           nullptr, -1, word_max},
    field{"evdo_service",      &cdma_state::evdo_service,      nullptr, -1, word_max},
    field{"roaming",           &cdma_state::roaming,           nullptr, -1, word_max},
    field{"roaming_indicator", &cdma_state::roaming_indicator, nullptr, 0, word_max},
    field{"call",              &cdma_state::call,              "none|connecting|connected|incoming"},
    field{"call_type",         &cdma_state::call_type,         nullptr, 0, word_max},
    field{"call_number",       &cdma_state::call_number},
    field{"call_status",       &cdma_state::call_status,       nullptr, -1, word_max},
    field{"call_privacy",      &cdma_state::call_privacy},
    field{"call_error",        &cdma_state::call_error,        nullptr, 0, word_max},
    field{"caller_id",         &cdma_state::caller_id},
    field{"connect_ms",        &cdma_state::connect_ms,        nullptr, 0, day_ms},
    field{"disconnect_ms",     &cdma_state::disconnect_ms,     nullptr, 0, day_ms},
    field{"ppp",               &cdma_state::ppp},
    field{"ppp_name",          &cdma_state::ppp_name},
    field{"ppp_address",       &cdma_state::ppp_address},
    field{"sms_more",          &cdma_state::sms_more,          nullptr, -1, 255},
    field{"sms_result",        &cdma_state::sms_result,        nullptr, -1, word_max},
    field{"sent_count",        &cdma_state::sent_count,        nullptr, 0, INT32_MAX},
    field{"sent_reference",    &cdma_state::sent_reference,    nullptr, 0, word_max},
    field{"sent_from",         &cdma_state::sent_from},
    field{"sent_number",       &cdma_state::sent_number},
    field{"sent_text",         &cdma_state::sent_text},
});

static constexpr std::pair<const char *, std::string cdma_state::*> addresses[] = {
    {"mip_home_ip", &cdma_state::mip_home_ip},
    {"mip_ha_ip_1", &cdma_state::mip_ha_ip_1},
    {"mip_ha_ip_2", &cdma_state::mip_ha_ip_2},
    {"ppp_address", &cdma_state::ppp_address},
};
// clang-format on

std::span<const state_field<cdma_state>> cdma_fields()
{
    return cdma_table;
}

// ---- scenario

static int check(const cdma_state &state, json_refusal &refusal)
{
    in_addr unused = {};
    for (const auto &[name, member] : addresses)
        if (inet_pton(AF_INET, (state.*member).c_str(), &unused) != 1)
            return json_refuse(refusal, name, "must be an IPv4 address");
    const std::string &name = state.ppp_name;
    if (name.empty() || name.size() > 15 || name.find_first_of(" \t\r\n/") != name.npos)
        return json_refuse(refusal, "ppp_name", "must be the name of an interface");
    return 0;
}

int cdma_merge_state(cdma_modem &modem, json_t *state, json_refusal &refusal)
{
    cdma_modem changed = modem;
    const json_ref fields(json_copy(state));
    json_t *messages = json_object_get(state, "messages");
    json_t *receive = json_object_get(state, "receive");
    json_object_del(fields.get(), "messages");
    json_object_del(fields.get(), "receive");
    if (state_merge(changed.state, cdma_fields(), fields.get(), refusal) != 0 ||
        check(changed.state, refusal) != 0)
        return -1;
    if (messages && changed.messages.assign(messages, refusal) != 0)
        return json_refuse_inside(refusal, "messages");
    if (receive && changed.messages.append(receive, refusal) != 0)
        return json_refuse_inside(refusal, "receive");
    modem = std::move(changed);
    return 0;
}

json_ref cdma_dump_state(const cdma_modem &modem)
{
    json_ref object = state_dump(modem.state, cdma_fields());
    json_object_set_new(object.get(), "messages", modem.messages.dump().release());
    return object;
}

// ---- what follows

bool cdma_in_service(const cdma_state &state)
{
    return swi_modem_granted(state);
}

bool cdma_activated(const cdma_state &state)
{
    return !state.mdn.empty() && !state.imsi.empty();
}

static uint32_t call_mask(const cdma_state &state)
{
    constexpr uint32_t voice_call = 0x2;
    constexpr uint32_t packet_call = 0x4;
    if (state.call == "none")
        return 0;
    return state.call == "incoming" || state.call_type == 0 ? voice_call : packet_call;
}

cdma_view cdma_look(const cdma_state &state)
{
    constexpr uint32_t hdr_open = 4;
    constexpr uint32_t digital = 2;
    constexpr uint32_t rev_a = 4;
    const bool in_service = cdma_in_service(state);
    cdma_view view;
    view.hdr_state =
        swi_given_or(state.hdr_state, in_service && cdma_activated(state) ? hdr_open : 0);
    view.call_status = swi_given_or(state.call_status, call_mask(state));
    view.call_privacy = state.call_privacy;
    view.call = state.call;
    view.nam_status = swi_given_or(state.nam_status, cdma_activated(state));
    view.service = swi_given_or(state.service, in_service ? digital : 0);
    view.evdo_service = swi_given_or(state.evdo_service, in_service ? rev_a : 0);
    view.roaming = swi_given_or(state.roaming, state.registration == "roaming");
    view.interface_up = state.ppp && state.call == "connected" && state.call_type != 0;
    return view;
}

void cdma_settle(cdma_state &state)
{
    if (!cdma_in_service(state))
        state.call = "none";
}

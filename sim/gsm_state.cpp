// The UMTS/GSM modem's state: its fields, and what follows from them.

#include "sim/gsm.h"

#include <array>

static constexpr int64_t day_ms = swi_state_ms_max;
static constexpr int64_t word_max = swi_state_word_max;

using field = state_field<gsm_state>;

gsm_state::gsm_state()
{
    product = "UGM8800";
    type_code = 0x7A01;
    hardware = "1.0";
    boot = "UGM_00_07_35_B";
    firmware = "UGM_00_07_35_A";
    boot_ms = 300;
}

// clang-format off
static constexpr std::array gsm_table = table_join(swi_modem_fields<gsm_state>, std::array{
    field{"imei",            &gsm_state::imei},
    field{"serial",          &gsm_state::serial},
    field{"radio",           &gsm_state::radio},
    field{"radio_ms",        &gsm_state::radio_ms,        nullptr, 0, day_ms},
    field{"sim",             &gsm_state::sim,             "ready|pin|puk|absent|removed|failed"},
    field{"pin",             &gsm_state::pin},
    field{"puk",             &gsm_state::puk},
    field{"pin_lock",        &gsm_state::pin_lock},
    field{"pin_tries",       &gsm_state::pin_tries,       nullptr, 0, 3},
    field{"puk_tries",       &gsm_state::puk_tries,       nullptr, 0, 10},
    field{"mode",            &gsm_state::mode,            "GPRS|EDGE|UMTS|HSDPA|HSUPA|HSPA"},
    field{"rssi",            &gsm_state::rssi,            nullptr, -200, 0},
    field{"ber",             &gsm_state::ber,             nullptr, -1, 99},
    field{"ecio",            &gsm_state::ecio},
    field{"mcc",             &gsm_state::mcc,             nullptr, 0, 999},
    field{"mnc",             &gsm_state::mnc,             nullptr, 0, 999},
    field{"msin",            &gsm_state::msin},
    field{"phone_number",    &gsm_state::phone_number},
    field{"country",         &gsm_state::country},
    field{"carrier",         &gsm_state::carrier},
    field{"radio_bands",     &gsm_state::radio_bands},
    field{"band",            &gsm_state::band,            nullptr, 0, 0xFFFF},
    field{"bands",           &gsm_state::bands},
    field{"temperature",     &gsm_state::temperature,     nullptr, -100, 200},
    field{"region",          &gsm_state::region,          nullptr, 0, word_max},
    field{"region_unlock",   &gsm_state::region_unlock},
    field{"rat",             &gsm_state::rat,             nullptr, 0, 4},
    field{"tracking",        &gsm_state::tracking},
    field{"fix_interval_s",  &gsm_state::fix_interval_s,  nullptr, 0, word_max},
    field{"packet_session",  &gsm_state::packet_session},
    field{"call",            &gsm_state::call,            "none|connecting|connected"},
    field{"modem_status",    &gsm_state::modem_status,    nullptr, -1, word_max},
    field{"service_status",  &gsm_state::service_status,  nullptr, -1, word_max},
    field{"service_type",    &gsm_state::service_type,    nullptr, -1, word_max},
    field{"roaming_status",  &gsm_state::roaming_status,  nullptr, -1, word_max},
    field{"sim_status",      &gsm_state::sim_status,      nullptr, -1, word_max},
    field{"network_status",  &gsm_state::network_status,  nullptr, -1, word_max},
    field{"system_mode",     &gsm_state::system_mode,     nullptr, -1, word_max},
});
// clang-format on

std::span<const state_field<gsm_state>> gsm_fields()
{
    return gsm_table;
}

// The codes are numbered by their place in such a list.
static uint32_t place_in(std::string_view choices, std::string_view text)
{
    uint32_t place = 0;
    for (size_t end = choices.find('|'); choices.substr(0, end) != text; end = choices.find('|')) {
        if (end == std::string_view::npos)
            return place;
        choices.remove_prefix(end + 1);
        place++;
    }
    return place;
}

static uint32_t sim_code(const gsm_state &state)
{
    if (state.sim == "pin")
        return 5;
    if (state.sim == "puk")
        return 6;
    if (state.sim == "failed")
        return 4;
    return place_in("ready|absent|removed", state.sim);
}

static bool registered(const gsm_state &state)
{
    return state.radio && state.sim == "ready" && swi_modem_granted(state);
}

static uint32_t service_code(const gsm_state &state)
{
    constexpr uint32_t no_service = 2;
    constexpr uint32_t forbidden = 4;
    if (registered(state))
        return 0;
    return state.radio && state.registration == "denied" ? forbidden : no_service;
}

gsm_view gsm_look(const gsm_state &state)
{
    constexpr uint32_t low_power = 2;
    constexpr uint32_t circuit_and_packet = 2;
    constexpr uint32_t invalid_service = 3;
    const bool on_network = registered(state);
    const uint32_t service = service_code(state);
    gsm_view view;
    view.radio = state.radio;
    view.sim_status = swi_given_or(state.sim_status, sim_code(state));
    view.network_status = swi_given_or(state.network_status, service);
    view.system_mode =
        swi_given_or(state.system_mode,
                     on_network ? 1 + place_in("GPRS|EDGE|UMTS|HSDPA|HSUPA|HSPA", state.mode) : 0);
    view.packet_session = state.packet_session;
    view.rssi = static_cast<uint32_t>(state.rssi);
    view.temperature = static_cast<uint32_t>(state.temperature);
    view.call = state.call;
    view.modem_status = swi_given_or(state.modem_status, state.radio ? 1 : low_power);
    view.service_status = swi_given_or(state.service_status, service);
    view.service_type =
        swi_given_or(state.service_type, on_network ? circuit_and_packet : invalid_service);
    view.roaming_status =
        swi_given_or(state.roaming_status, on_network && state.registration == "roaming");
    return view;
}

void gsm_settle(gsm_state &state)
{
    if (registered(state))
        return;
    state.packet_session = false;
    state.call = "none";
}

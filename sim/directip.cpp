#include "sim/directip.h"

#include "sim/bytes.h"

#include <array>
#include <memory>

static constexpr int64_t day_ms = 24L * 3600 * 1000;
static constexpr int64_t word_max = 0xFFFFFFFF;

// Result codes of the network's refusals, from the mobile equipment errors of 3GPP TS 27.007.
static constexpr int cme_sim_not_inserted = 10;
static constexpr int cme_no_network_service = 30;

using field = state_field<directip_state>;

// clang-format off
static constexpr std::array directip_table = {
    field{"manufacturer",    &directip_state::manufacturer},
    field{"model",           &directip_state::model},
    field{"revision",        &directip_state::revision},
    field{"imei",            &directip_state::imei},
    field{"imei_sv",         &directip_state::imei_sv},
    field{"fsn",             &directip_state::fsn},
    field{"gcap",            &directip_state::gcap},
    field{"echo",            &directip_state::echo},
    field{"cfun",            &directip_state::cfun,            nullptr, 0, 4},
    field{"sim",             &directip_state::sim,             "READY|SIM PIN|SIM PUK|absent"},
    field{"registration",    &directip_state::registration,    "home|roaming|searching|denied|none"},
    field{"mode",            &directip_state::mode,            "LTE|WCDMA|GSM"},
    field{"temperature",     &directip_state::temperature,     nullptr, -100, 200},
    field{"uptime_s",        &directip_state::uptime_s,        nullptr, 0, word_max},
    field{"bootup_s",        &directip_state::bootup_s,        nullptr, 0, word_max},
    field{"cell_id",         &directip_state::cell_id,         nullptr, 0, word_max},
    field{"band",            &directip_state::band},
    field{"bandwidth",       &directip_state::bandwidth},
    field{"rx_channel",      &directip_state::rx_channel,      nullptr, 0, word_max},
    field{"tx_channel",      &directip_state::tx_channel,      nullptr, 0, word_max},
    field{"tac",             &directip_state::tac,             nullptr, 0, 0xFFFF},
    field{"rssi_dbm",        &directip_state::rssi_dbm,        nullptr, -200, 0},
    field{"rsrp_dbm",        &directip_state::rsrp_dbm,        nullptr, -200, 0},
    field{"rsrq_db",         &directip_state::rsrq_db,         nullptr, -100, 100},
    field{"sinr_db",         &directip_state::sinr_db,         nullptr, -100, 100},
    field{"tx_power",        &directip_state::tx_power,        nullptr, -100, 100},
    field{"wcdma_band",      &directip_state::wcdma_band},
    field{"wcdma_channel",   &directip_state::wcdma_channel,   nullptr, 0, word_max},
    field{"rx_level_c0_dbm", &directip_state::rx_level_c0_dbm, nullptr, -200, 0},
    field{"rx_level_c1_dbm", &directip_state::rx_level_c1_dbm, nullptr, -200, 0},
    field{"lac",             &directip_state::lac,             nullptr, 0, 0xFFFF},
    field{"gsm_band",        &directip_state::gsm_band},
    field{"gsm_channel",     &directip_state::gsm_channel,     nullptr, 0, word_max},
    field{"rx_level_dbm",    &directip_state::rx_level_dbm,    nullptr, -200, 0},
    field{"pdp_type",        &directip_state::pdp_type,        "IP|IPV6|IPV4V6"},
    field{"apn",             &directip_state::apn},
    field{"auth_type",       &directip_state::auth_type,       nullptr, 0, 3},
    field{"user",            &directip_state::user},
    field{"password",        &directip_state::password},
    field{"session",         &directip_state::session},
    field{"activate_ms",     &directip_state::activate_ms,     nullptr, 0, day_ms},
    field{"reset_hangup_ms", &directip_state::reset_hangup_ms, nullptr, -1, day_ms},
};
// clang-format on

std::span<const state_field<directip_state>> directip_fields()
{
    return directip_table;
}

bool directip_registered(const directip_state &state)
{
    return state.cfun == 1 && state.sim == "READY" &&
           state_choice("home|roaming", state.registration);
}

void directip_settle(directip_modem &modem, int64_t now_ms)
{
    const int64_t seconds = (now_ms - modem.booted_at_ms) / 1000;
    modem.state.uptime_s += seconds;
    modem.booted_at_ms += seconds * 1000;
    if (modem.active_at_ms >= 0 && now_ms >= modem.active_at_ms) {
        modem.state.session = true;
        modem.active_at_ms = -1;
    }
    if (!directip_registered(modem.state)) {
        modem.state.session = false;
        modem.active_at_ms = -1;
    }
}

void directip_reboot(directip_modem &modem, int64_t now_ms)
{
    modem.state.cfun = modem.power_up.cfun;
    modem.state.echo = modem.power_up.echo;
    modem.state.session = false;
    modem.active_at_ms = -1;
    modem.state.uptime_s = 0;
    modem.booted_at_ms = now_ms;
}

static at_reply run_nothing(directip_modem &, std::string_view)
{
    return {};
}

static at_reply run_echo(directip_modem &modem, std::string_view argument)
{
    if (!argument.empty() && argument != "0" && argument != "1")
        return at_error();
    modem.state.echo = argument == "1";
    return {};
}

static at_reply run_identity(directip_modem &modem, std::string_view)
{
    static constexpr const char layout[] = "Manufacturer: {manufacturer}\r\n"
                                           "Model: {model}\r\n"
                                           "Revision: {revision}\r\n"
                                           "IMEI: {imei}\r\n"
                                           "IMEI SV: {imei_sv}\r\n"
                                           "FSN: {fsn}\r\n"
                                           "+GCAP: {gcap}";
    return at_information(layout_expand(layout, [&modem](std::string_view name) {
        return state_print(modem.state, directip_fields(), name);
    }));
}

static at_reply run_gstatus(directip_modem &modem, std::string_view)
{
    return at_information(directip_gstatus(modem.state));
}

static at_reply run_show_radio(directip_modem &modem, std::string_view)
{
    return at_information("+CFUN: " + std::to_string(modem.state.cfun));
}

static at_reply run_radio(directip_modem &modem, std::string_view argument)
{
    if (argument != "0" && argument != "1" && argument != "4")
        return at_error();
    modem.state.cfun = argument.front() - '0';
    directip_settle(modem, sim_loop::now_ms());
    return {};
}

static at_reply run_reset(directip_modem &modem, std::string_view)
{
    at_reply reply;
    if (modem.state.reset_hangup_ms >= 0)
        reply.end = hangup{modem.state.reset_hangup_ms, true};
    directip_reboot(modem, sim_loop::now_ms());
    return reply;
}

static at_reply run_sim(directip_modem &modem, std::string_view)
{
    if (modem.state.sim == "absent")
        return at_cme_error(cme_sim_not_inserted);
    return at_information("+CPIN: " + modem.state.sim);
}

static at_reply run_show_context(directip_modem &modem, std::string_view)
{
    return at_information("+CGDCONT: 1,\"" + modem.state.pdp_type + "\",\"" + modem.state.apn +
                          "\",\"0.0.0.0\",0,0");
}

// "1,\"IP\",\"internet\"", and whatever more there is of addresses and compression.
static at_reply run_context(directip_modem &modem, std::string_view argument)
{
    std::vector<std::string> given;
    if (at_arguments(argument, given) != 0 || given.size() < 2 || given[0] != "1" ||
        !state_choice("IP|IPV6|IPV4V6", given[1]))
        return at_error();
    const std::string apn = given.size() > 2 ? given[2] : std::string();
    if (apn.size() > state_text_bytes_max)
        return at_error();
    modem.state.pdp_type = given[1];
    modem.state.apn = apn;
    return {};
}

static at_reply run_show_authentication(directip_modem &modem, std::string_view)
{
    return at_information("$QCPDPP: 1," + std::to_string(modem.state.auth_type) + ",\"" +
                          modem.state.user + "\"");
}

// "1,0", or "1,TYPE,\"user\",\"password\".
static at_reply run_authentication(directip_modem &modem, std::string_view argument)
{
    std::vector<std::string> given;
    if (at_arguments(argument, given) != 0 || given.size() < 2 || given[0] != "1" ||
        !state_choice("0|1|2|3", given[1]))
        return at_error();
    const bool open = given[1] == "0";
    if (given.size() != (open ? 2 : 4) || (!open && (given[2].size() > state_text_bytes_max ||
                                                     given[3].size() > state_text_bytes_max)))
        return at_error();
    modem.state.auth_type = given[1].front() - '0';
    modem.state.user = open ? std::string() : given[2];
    modem.state.password = open ? std::string() : given[3];
    return {};
}

static at_reply run_show_session(directip_modem &modem, std::string_view)
{
    return at_information(modem.state.session ? "!SCACT: 1,1" : "!SCACT: 1,0");
}

static at_reply activate(directip_modem &modem)
{
    at_reply no_carrier;
    no_carrier.result = "NO CARRIER";
    if (modem.state.cfun == 1 && modem.state.registration == "denied")
        return no_carrier;
    if (!directip_registered(modem.state))
        return at_cme_error(cme_no_network_service);
    if (!modem.state.session && modem.active_at_ms < 0)
        modem.active_at_ms = sim_loop::now_ms() + modem.state.activate_ms;
    return {};
}

static at_reply deactivate(directip_modem &modem)
{
    if (!modem.state.session && modem.active_at_ms < 0)
        return at_error();
    modem.state.session = false;
    modem.active_at_ms = -1;
    return {};
}

static at_reply run_session(directip_modem &modem, std::string_view argument)
{
    if (argument == "1,1")
        return activate(modem);
    return argument == "0,1" ? deactivate(modem) : at_error();
}

using command = at_command<directip_modem>;

// The first row that fits is taken.
static constexpr std::array commands = {
    command{"!GSTATUS?", false, run_gstatus},
    command{"!RESET", false, run_reset},
    command{"!SCACT?", false, run_show_session},
    command{"!SCACT=", true, run_session},
    command{"$QCPDPP?", false, run_show_authentication},
    command{"$QCPDPP=", true, run_authentication},
    command{"+CFUN?", false, run_show_radio},
    command{"+CFUN=", true, run_radio},
    command{"+CGDCONT?", false, run_show_context},
    command{"+CGDCONT=", true, run_context},
    command{"+CPIN?", false, run_sim},
    command{"E", true, run_echo},
    command{"I", false, run_identity},
    command{"", false, run_nothing},
};

at_reply directip_execute(directip_modem &modem, std::string_view line)
{
    directip_settle(modem, sim_loop::now_ms());
    return at_dispatch(std::span<const command>(commands), modem, line);
}

// The one modem of this process.
static directip_modem the_modem;
static std::unique_ptr<at_modem> the_port;

static constexpr at_hooks directip_hooks = {
    .echo = [] { return the_modem.state.echo; },
    .execute = [](std::string_view line) { return directip_execute(the_modem, line); },
    .reboot = [] { directip_reboot(the_modem, sim_loop::now_ms()); },
};

static int directip_start(sim_services &services, std::string &reason)
{
    the_modem.power_up = the_modem.state;
    the_modem.booted_at_ms = sim_loop::now_ms();
    the_port = std::make_unique<at_modem>(
        services, std::vector<std::string>{"/dev/cellcommand01", "/dev/cellmodem01"},
        directip_hooks);
    return the_port->open(reason);
}

static void directip_stop()
{
    the_port.reset();
}

static int directip_merge(json_t *state, json_refusal &refusal)
{
    directip_modem changed = the_modem;
    if (the_port)
        directip_settle(changed, sim_loop::now_ms());
    if (state_merge(changed.state, directip_fields(), state, refusal) != 0)
        return -1;
    if (!state_choice("0|1|4", std::to_string(changed.state.cfun)))
        return json_refuse(refusal, "cfun", "must be 0, 1 or 4");
    if (json_object_get(state, "session"))
        changed.active_at_ms = -1;
    the_modem = std::move(changed);
    return 0;
}

static json_ref directip_dump()
{
    directip_settle(the_modem, sim_loop::now_ms());
    return state_dump(the_modem.state, directip_fields());
}

static void directip_act(const fault &alone)
{
    the_port->act(alone);
}

static constexpr const char *directip_markers[] = {"cellmodem_is_sierra_directip",
                                                   "cellmodem_is_lte", nullptr};

const sim_family directip_family = {
    .name = "directip",
    .summary = "LTE modem, AT commands on /dev/cellcommand01",
    .markers = directip_markers,
    .start = directip_start,
    .stop = directip_stop,
    .merge_state = directip_merge,
    .dump_state = directip_dump,
    .act = directip_act,
};

#include "sim/gsm.h"

#include <algorithm>

static constexpr uint32_t msisdn_book = 3;
static constexpr uint32_t tracking_off = 1062;
static constexpr uint32_t tracking_on = 1063;
static constexpr int64_t pin_tries_max = 3;
static constexpr int64_t puk_tries_max = 10;
static constexpr uint32_t region_max = 6;
static constexpr uint32_t rat_max = 4;

// The one modem of this process.
static gsm_state the_state;
static gsm_state the_power_up;
static sim_services *the_services;

static gsm_state &state()
{
    return the_state;
}

// ---- notifications: every change of the view makes its own

static constexpr swi_reported<gsm_view> reported_values[] = {
    {swi_notify_modem_disabled, &gsm_view::radio, &swi_notification::first},
    {swi_notify_sim_status, &gsm_view::sim_status, &swi_notification::first},
    {swi_notify_network_status, &gsm_view::network_status, &swi_notification::first},
    {swi_notify_gsm_system_status, &gsm_view::system_mode, &swi_notification::system_mode},
    {swi_notify_service_icon, &gsm_view::packet_session, &swi_notification::packet_session_active},
    {swi_notify_packet_session, &gsm_view::packet_session,
     &swi_notification::packet_session_active},
    {swi_notify_rssi, &gsm_view::rssi, &swi_notification::first},
    {swi_notify_radio_temp_state, &gsm_view::temperature, &swi_notification::first},
};

static swi_reporter<gsm_view> the_reporter(reported_values);

static void report_changes()
{
    gsm_settle(the_state);
    the_reporter.changes(gsm_look(the_state));
}

static void report(uint32_t id)
{
    the_reporter.one(id);
}

// ---- requests

// A GSM modem has no serial number of that kind, but it answers.
static swi_reply get_esn(const swi_nothing &, swi_number &)
{
    return {};
}

// A number whose hexadecimal digits are the given one's decimal digits.
static uint16_t as_digits(int64_t number)
{
    uint32_t digits = 0;
    for (unsigned shift = 0; number > 0 && shift < 16; shift += 4, number /= 10)
        digits |= static_cast<uint32_t>(number % 10) << shift;
    return static_cast<uint16_t>(digits);
}

static bool sim_usable()
{
    return the_state.sim == "ready";
}

static swi_reply get_imsi(const swi_nothing &, swi_gsm_imsi &imsi)
{
    if (!sim_usable())
        return swi_refuse("SIM not ready");
    imsi.mcc = as_digits(the_state.mcc);
    imsi.mnc = as_digits(the_state.mnc);
    swi_put_text(imsi.msin, the_state.msin);
    return {};
}

static swi_reply get_system_status(const swi_nothing &, swi_gsm_system_status &status)
{
    const gsm_view view = gsm_look(the_state);
    status.modem_status = view.modem_status;
    status.service_status = view.service_status;
    status.service_type = view.service_type;
    status.roaming_status = view.roaming_status;
    swi_put_text(status.country, the_state.country);
    swi_put_text(status.carrier, the_state.carrier);
    return {};
}

static swi_reply get_signal(const swi_nothing &, swi_rssi_ber &signal)
{
    signal.rssi = static_cast<int32_t>(the_state.rssi);
    signal.ber = static_cast<int32_t>(the_state.ber);
    return {};
}

// Calls `take` with each number of a list "1,2,3".
template <class Take>
static void each_number(std::string_view list, Take take)
{
    swi_each_part(list, ',', [&](std::string_view part) { take(swi_list_number(part)); });
}

static swi_reply get_cells(const swi_number &wanted, swi_rscp_ecio &cells)
{
    each_number(the_state.ecio, [&](uint16_t ecio) {
        if (cells.count < std::min<uint32_t>(wanted.value, swi_cells_max))
            cells.cells[cells.count++] = {static_cast<uint16_t>(80 + cells.count), 0, ecio};
    });
    return {};
}

static swi_reply get_radio_bands(const swi_nothing &, swi_radio_bands &bands)
{
    each_number(the_state.radio_bands, [&](uint16_t band) {
        if (bands.count < swi_radio_bands_max)
            bands.bands[bands.count++] = {band, 2};
    });
    return {};
}

static swi_reply get_band_info(const swi_nothing &, swi_band_info &info)
{
    info.current = static_cast<uint16_t>(the_state.band);
    each_number(the_state.bands, [&](uint16_t type) {
        if (info.count < swi_band_types_max)
            info.valid[info.count++].type = type;
    });
    return {};
}

static swi_reply get_temperature(const swi_nothing &, swi_radio_temperature &temperature)
{
    temperature.celsius = static_cast<int32_t>(the_state.temperature);
    return {};
}

static swi_reply get_phonebook_entry(const swi_phonebook_request &request,
                                     swi_phonebook_entry &entry)
{
    if (!sim_usable())
        return swi_refuse("SIM not ready");
    if (request.book != msisdn_book || the_state.phone_number.empty())
        return {};
    entry.entries = 1;
    for (const char digit : the_state.phone_number)
        if (entry.digit_count < sizeof(entry.digits))
            entry.digits[entry.digit_count++] = static_cast<uint8_t>(digit - '0');
    (void)swi_set_text(entry.name, "Line 1");
    return {};
}

// ---- radio

static swi_reply get_modem_enable(const swi_nothing &, swi_number &enabled)
{
    enabled.value = the_state.radio;
    return {};
}

static swi_reply set_modem_disable(const swi_number &enable, swi_nothing &)
{
    const bool on = enable.value != 0;
    the_services->loop.after(the_state.radio_ms, [on] {
        the_state.radio = on;
        report_changes();
    });
    return {};
}

static int64_t power_up()
{
    the_state.radio = the_power_up.radio;
    the_state.tracking = false;
    the_state.packet_session = false;
    the_state.call = "none";
    if (the_state.pin_lock && the_state.sim == "ready")
        the_state.sim = "pin";
    return the_state.boot_ms;
}

// ---- SIM

static swi_reply count_pin_failure()
{
    the_state.pin_tries = std::max<int64_t>(0, the_state.pin_tries - 1);
    if (the_state.pin_tries == 0)
        the_state.sim = "puk";
    return swi_refuse(the_state.pin_tries == 0 ? "Incorrect PIN, PIN1 is blocked"
                                               : sim_format("Incorrect PIN, %d tries left",
                                                            static_cast<int>(the_state.pin_tries)));
}

// What the SIM says to a PIN; an empty text when it is right.
static swi_reply check_pin(const char *pin)
{
    if (the_state.sim != "ready" && the_state.sim != "pin")
        return swi_refuse(the_state.sim == "puk" ? "SIM PUK required" : "SIM not available");
    if (pin != the_state.pin)
        return count_pin_failure();
    the_state.pin_tries = pin_tries_max;
    the_state.sim = "ready";
    return {};
}

static swi_reply check_puk(const char *puk, const char *pin)
{
    if (the_state.sim != "puk")
        return swi_refuse("SIM PUK not expected");
    if (puk != the_state.puk) {
        the_state.puk_tries = std::max<int64_t>(0, the_state.puk_tries - 1);
        if (the_state.puk_tries == 0)
            the_state.sim = "failed";
        return swi_refuse(
            sim_format("Incorrect PUK, %d tries left", static_cast<int>(the_state.puk_tries)));
    }
    the_state.pin_tries = pin_tries_max;
    the_state.puk_tries = puk_tries_max;
    if (*pin)
        the_state.pin = pin;
    the_state.sim = "ready";
    return {};
}

static swi_reply verify_sim(const swi_sim_verify &request, swi_nothing &)
{
    swi_reply reply = {swi_status_not_supported, 0, {}};
    if (request.type == swi_verify_pin)
        reply = check_pin(request.pin);
    else if (request.type == swi_verify_unblock)
        reply = check_puk(request.puk, request.pin);
    report_changes();
    return reply;
}

static swi_reply lock_sim(const swi_sim_lock &request, swi_nothing &)
{
    swi_reply reply = check_pin(request.pin);
    if (reply.text.empty())
        the_state.pin_lock = request.lock != 0;
    report_changes();
    return reply;
}

// ---- settings

static swi_reply set_rat(const swi_rat_request &request, swi_nothing &)
{
    if (request.rat > rat_max)
        return swi_refuse("RAT not supported");
    the_state.rat = request.rat;
    return {};
}

static swi_reply get_region(const swi_nothing &, swi_number &region)
{
    region.value = static_cast<uint32_t>(the_state.region);
    return {};
}

static swi_reply set_region(const swi_set_region &request, swi_number &status)
{
    if (request.region > region_max)
        return swi_refuse("Region not supported");
    status.value = request.unlock_text != the_state.region_unlock;
    if (status.value == 0)
        the_state.region = request.region;
    return {};
}

static swi_reply start_tracking(const swi_track_request &request, swi_nothing &)
{
    if (the_state.tracking)
        return {swi_status_ok, tracking_on, {}};
    the_state.tracking = true;
    the_state.fix_interval_s = request.fix_interval_s;
    return {};
}

static swi_reply end_tracking(const swi_end_session_request &, swi_nothing &)
{
    if (!the_state.tracking)
        return {swi_status_ok, tracking_off, {}};
    the_state.tracking = false;
    return {};
}

static constexpr std::array own_handlers = {
    swi_handle<swi_op_reset_gsm, swi_modem_reset>(),
    swi_handle<swi_op_get_esn, get_esn>(),
    swi_handle<swi_op_get_imei, swi_reply_text<state, &gsm_state::imei>>(),
    swi_handle<swi_op_get_serial_number, swi_reply_text<state, &gsm_state::serial>>(),
    swi_handle<swi_op_get_gsm_imsi, get_imsi>(),
    swi_handle<swi_op_get_gsm_system_status, get_system_status>(),
    swi_handle<swi_op_get_rssi_ber, get_signal>(),
    swi_handle<swi_op_get_rscp_ecio, get_cells>(),
    swi_handle<swi_op_get_current_radio_band, get_radio_bands>(),
    swi_handle<swi_op_get_band_info, get_band_info>(),
    swi_handle<swi_op_get_radio_temp_state, get_temperature>(),
    swi_handle<swi_op_get_prl_region, get_region>(),
    swi_handle<swi_op_set_prl_region, set_region>(),
    swi_handle<swi_op_get_phonebook_entry, get_phonebook_entry>(),
    swi_handle<swi_op_get_modem_enable, get_modem_enable>(),
    swi_handle<swi_op_set_modem_disable, set_modem_disable>(),
    swi_handle<swi_op_set_sim_verify, verify_sim>(),
    swi_handle<swi_op_set_sim_lock, lock_sim>(),
    swi_handle<swi_op_set_rat, set_rat>(),
    swi_handle<swi_op_set_lbs_pd_track, start_tracking>(),
    swi_handle<swi_op_set_lbs_end_session, end_tracking>(),
};

static constexpr auto gsm_handlers =
    table_join(swi_modem_handlers<state, swi_gsm_modems>, own_handlers);

// ---- the family

static constexpr swi_modem_slots gsm_slots = {
    .state = &the_state,
    .handlers = gsm_handlers,
    .power_up = power_up,
    .settle = report_changes,
    .report = report,
};

static int gsm_start(sim_services &services, std::string &reason)
{
    the_services = &services;
    gsm_settle(the_state);
    the_power_up = the_state;
    return swi_modem_start(services, gsm_slots, reason);
}

static int gsm_merge(json_t *state, json_refusal &refusal)
{
    if (state_merge(the_state, gsm_fields(), state, refusal) != 0)
        return -1;
    swi_modem_merged();
    return 0;
}

static json_ref gsm_dump()
{
    return state_dump(the_state, gsm_fields());
}

static constexpr const char *gsm_markers[] = {"cellmodem_is_sierra", "cellmodem_is_gsm", nullptr};

const sim_family gsm_family = {
    .name = "gsm",
    .summary = "UMTS/GSM modem behind the SDK's server /bin/swisdk",
    .markers = gsm_markers,
    .start = gsm_start,
    .stop = swi_modem_stop,
    .merge_state = gsm_merge,
    .dump_state = gsm_dump,
    .act = swi_modem_act,
};

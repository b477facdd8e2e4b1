#include "sim/cdma.h"

#include "sim/ppp_interfaces.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>

static constexpr uint32_t mip_profiles = 6;
static constexpr size_t bands_max = 8;

// The one modem of this process.
static cdma_modem the_modem;
static cdma_state &the_state = the_modem.state;
static sim_services *the_services;
static sim_timer the_call_timer;
static std::string the_interface; // name and address of the one that is up, or empty

static cdma_state &state()
{
    return the_state;
}

// ---- notifications

static constexpr swi_reported<cdma_view> reported_values[] = {
    {swi_notify_call_status, &cdma_view::call_status, &swi_notification::first},
    {swi_notify_call_privacy, &cdma_view::call_privacy, &swi_notification::first},
    {swi_notify_hdr_state, &cdma_view::hdr_state, &swi_notification::hdr_state},
};

static swi_reporter<cdma_view> the_reporter(reported_values);

static void note_failure(const char *what)
{
    the_services->log.note(std::string(what) + ": " + strerror(errno));
}

static void take_interface_down()
{
    const std::string name = the_interface.substr(0, the_interface.find(' '));
    if (!name.empty() && ppp_interface_down(the_services->root, name) != 0)
        note_failure("interface");
    the_interface.clear();
}

static void follow_interface(bool up)
{
    const std::string wanted = up ? the_state.ppp_name + " " + the_state.ppp_address : "";
    if (wanted == the_interface)
        return;
    take_interface_down();
    the_services->log.note("interface " + (up ? wanted + " up" : the_state.ppp_name + " down"));
    if (up && ppp_interface_up(the_services->root, the_state.ppp_name, the_state.ppp_address) != 0)
        note_failure("interface");
    the_interface = wanted;
}

static void notify_caller()
{
    swi_notification values;
    values.type = swi_notify_caller_id;
    swi_put_text(values.caller_id, the_state.caller_id);
    if (swi_server *server = swi_modem_listeners())
        server->notify(values);
}

// Whoever hears that a call is connected finds its interface there.
static void report_changes()
{
    static std::string call_before;
    cdma_settle(the_state);
    const cdma_view view = cdma_look(the_state);
    follow_interface(view.interface_up);
    the_reporter.changes(view);
    if (std::exchange(call_before, view.call) != view.call && view.call == "incoming")
        notify_caller();
}

static void report(uint32_t id)
{
    the_reporter.one(id);
}

// ---- calls

static void notify_call_error()
{
    swi_notification values;
    values.type = swi_notify_call_error;
    values.first = static_cast<uint32_t>(the_state.call_error);
    if (swi_server *server = swi_modem_listeners())
        server->notify(values);
}

static void set_call(const char *call)
{
    the_state.call = call;
    report_changes();
}

static void finish_connecting()
{
    if (the_state.call != "connecting")
        return;
    if (the_state.call_error != 0)
        notify_call_error();
    set_call(the_state.call_error != 0 ? "none" : "connected");
}

static void set_call_timer(int64_t delay_ms, std::function<void()> due)
{
    the_services->loop.cancel(the_call_timer);
    the_call_timer = the_services->loop.after(delay_ms, std::move(due));
}

static swi_reply originate_call(const swi_call_request &request, swi_nothing &)
{
    if (!cdma_in_service(the_state))
        return swi_refuse("No service");
    if (!cdma_activated(the_state))
        return swi_refuse("Not activated");
    if (the_state.call != "none")
        return swi_refuse("There is a call already");
    if (!request.number[0])
        return swi_refuse("No number");
    the_state.call_type = request.call_type;
    the_state.call_number = request.number;
    set_call_timer(0, [] {
        set_call("connecting");
        set_call_timer(the_state.connect_ms, finish_connecting);
    });
    return {};
}

static swi_reply disconnect_call(const swi_nothing &, swi_nothing &)
{
    if (the_state.call == "none")
        return swi_refuse("There is no call");
    set_call_timer(the_state.disconnect_ms, [] { set_call("none"); });
    return {};
}

// ---- provisioning

static swi_reply unlock(const swi_number &msl, swi_nothing &)
{
    return cdma_unlock(the_modem, msl.value);
}

static swi_reply select_nam(const swi_nam &nam, swi_nothing &)
{
    return cdma_select_nam(the_modem, nam.nam);
}

static swi_reply write_mdn(const swi_nam_text &request, swi_nothing &)
{
    return cdma_write_mdn(the_modem, request.nam, request.text);
}

static swi_reply write_imsi(const swi_nam_text &request, swi_nothing &)
{
    return cdma_write_imsi(the_modem, request.nam, request.text);
}

static swi_reply read_home(const swi_nam &nam, swi_home_sid_nid &home)
{
    return cdma_read_home(the_modem, nam.nam, home);
}

static swi_reply write_home(const swi_home_sid_nid &home, swi_nothing &)
{
    return cdma_write_home(the_modem, home);
}

static swi_reply lock(const swi_number &flag, swi_lock_result &result)
{
    const swi_reply reply = cdma_lock(the_modem, flag.value, result);
    report_changes();
    return reply;
}

static swi_reply factory_reset(const swi_number &mode, swi_nothing &)
{
    const swi_reply reply = cdma_factory_reset(the_modem, mode.value);
    report_changes();
    return reply;
}

// ---- messages

static swi_reply count_messages(const swi_nothing &, swi_sms_status &status)
{
    return the_modem.messages.count(status);
}

static swi_reply read_message(const swi_sms_read_request &request, swi_sms_message &message)
{
    swi_reply reply = the_modem.messages.read_next(request, message);
    if (the_state.sms_more >= 0)
        message.more = static_cast<uint8_t>(the_state.sms_more);
    if (the_state.sms_result >= 0)
        reply = {swi_status_ok, static_cast<uint32_t>(the_state.sms_result), {}};
    return reply;
}

static swi_reply store_message(const swi_sms_submit &message, swi_nothing &)
{
    return the_modem.messages.store(message);
}

static swi_reply send_message(const swi_nothing &, swi_nothing &)
{
    const std::optional<swi_sms_submit> &message = the_modem.messages.stored();
    if (!message)
        return swi_refuse("Nothing to send");
    if (!cdma_in_service(the_state))
        return swi_refuse("No service");
    const auto *text = reinterpret_cast<const char *>(message->text);
    the_state.sent_count++;
    the_state.sent_reference = message->reference;
    the_state.sent_from = json_presentable(message->own_number);
    the_state.sent_number = message->destination;
    the_state.sent_text = json_presentable({text, message->text_bytes});
    the_modem.messages.drop_stored();
    return {};
}

// ---- records

static swi_reply get_phone_number(const swi_nothing &, swi_text &text)
{
    swi_put_text(text.text,
                 the_state.phone_number.empty() ? the_state.mdn : the_state.phone_number);
    return {};
}

template <uint32_t cdma_view::*Member>
static swi_reply get_seen(const swi_nothing &, swi_number &number)
{
    number.value = cdma_look(the_state).*Member;
    return {};
}

template <int64_t cdma_state::*Member>
static swi_reply get_signed(const swi_nothing &, swi_signed_number &number)
{
    number.value = static_cast<int32_t>(the_state.*Member);
    return {};
}

static uint32_t host_address(const std::string &text)
{
    in_addr address = {};
    (void)inet_pton(AF_INET, text.c_str(), &address);
    return ntohl(address.s_addr);
}

// Only the active profile has anything in it.
static swi_reply get_mip_profile(const swi_number &index, swi_mip_profile &profile)
{
    if (index.value >= mip_profiles)
        return swi_refuse("No such profile");
    if (index.value != the_state.mip_profile)
        return {};
    swi_put_text(profile.nai, the_state.mip_nai);
    profile.home_address = host_address(the_state.mip_home_ip);
    profile.primary_agent = host_address(the_state.mip_ha_ip_1);
    profile.secondary_agent = host_address(the_state.mip_ha_ip_2);
    return {};
}

static swi_reply get_signal(const swi_nothing &, swi_rssi_ecio &signal)
{
    signal.rssi = static_cast<uint16_t>(the_state.rssi);
    signal.ecio = static_cast<uint16_t>(the_state.ecio);
    signal.hdr_rssi = static_cast<uint16_t>(the_state.hdr_rssi);
    signal.hdr_ecio = static_cast<uint16_t>(the_state.hdr_ecio);
    return {};
}

static swi_reply get_frames(const swi_nothing &, swi_frames &frames)
{
    frames.total = static_cast<uint32_t>(the_state.total_frames);
    frames.bad = static_cast<uint32_t>(the_state.bad_frames);
    return {};
}

static swi_reply get_byte_counter(const swi_nothing &, swi_byte_counter &counter)
{
    counter.sent = static_cast<uint32_t>(the_state.tx_bytes);
    counter.received = static_cast<uint32_t>(the_state.rx_bytes);
    return {};
}

static swi_reply get_base_station(const swi_nothing &, swi_base_station &station)
{
    station.longitude = static_cast<int32_t>(the_state.longitude);
    station.latitude = static_cast<int32_t>(the_state.latitude);
    return {};
}

static swi_reply get_roaming(const swi_nothing &, swi_roaming &roaming)
{
    roaming.status = cdma_look(the_state).roaming;
    roaming.indicator = static_cast<uint32_t>(the_state.roaming_indicator);
    return {};
}

static swi_reply get_radio_bands(const swi_nothing &, swi_radio_bands &bands)
{
    swi_each_part(the_state.radio_bands, ',', [&](std::string_view band) {
        const size_t colon = std::min(band.find(':'), band.size());
        const std::string_view technology = band.substr(std::min(colon + 1, band.size()));
        if (bands.count < bands_max)
            bands.bands[bands.count++] = {swi_list_number(band.substr(0, colon)),
                                          static_cast<uint8_t>(swi_list_number(technology))};
    });
    return {};
}

// ---- the table

// clang-format off
static constexpr std::array own_handlers = {
    swi_handle<swi_op_reset_cdma, swi_modem_reset>(),
    swi_handle<swi_op_get_esn, swi_reply_number<state, &cdma_state::esn>>(),
    swi_handle<swi_op_get_current_radio_band, get_radio_bands>(),
    swi_handle<swi_op_set_call_originate, originate_call>(),
    swi_handle<swi_op_set_call_disconnect, disconnect_call>(),
    swi_handle<swi_op_pst_unlock, unlock>(),
    swi_handle<swi_op_pst_set_current_nam, select_nam>(),
    swi_handle<swi_op_set_mobile_dir_num, write_mdn>(),
    swi_handle<swi_op_set_imsi, write_imsi>(),
    swi_handle<swi_op_pst_get_home_sid_nid, read_home>(),
    swi_handle<swi_op_pst_set_home_sid_nid, write_home>(),
    swi_handle<swi_op_pst_lock, lock>(),
    swi_handle<swi_op_factory_reset, factory_reset>(),
    swi_handle<swi_op_get_sms_status, count_messages>(),
    swi_handle<swi_op_read_sms, read_message>(),
    swi_handle<swi_op_store_sms, store_message>(),
    swi_handle<swi_op_send_sms, send_message>(),
    swi_handle<swi_op_get_active_mip_profile, swi_reply_number<state, &cdma_state::mip_profile>>(),
    swi_handle<swi_op_get_mip_profile, get_mip_profile>(),
    swi_handle<swi_op_get_mip_behavior, swi_reply_number<state, &cdma_state::mip_behavior>>(),
    swi_handle<swi_op_get_carrier_id, swi_reply_number<state, &cdma_state::carrier_id>>(),
    swi_handle<swi_op_get_prl_version, swi_reply_number<state, &cdma_state::prl_version>>(),
    swi_handle<swi_op_get_nam_calid_status, get_seen<&cdma_view::nam_status>>(),
    swi_handle<swi_op_get_phone_number, get_phone_number>(),
    swi_handle<swi_op_get_mobile_dir_number, swi_reply_text<state, &cdma_state::mdn>>(),
    swi_handle<swi_op_get_cdma_imsi, swi_reply_text<state, &cdma_state::imsi>>(),
    swi_handle<swi_op_get_tech_sid, swi_reply_number<state, &cdma_state::sid>>(),
    swi_handle<swi_op_get_tech_nid, swi_reply_number<state, &cdma_state::nid>>(),
    swi_handle<swi_op_get_tech_hdr_mac_index, swi_reply_number<state, &cdma_state::hdr_mac_index>>(),
    swi_handle<swi_op_get_packet_zone, swi_reply_number<state, &cdma_state::packet_zone>>(),
    swi_handle<swi_op_get_tech_band_class, swi_reply_number<state, &cdma_state::band_class>>(),
    swi_handle<swi_op_get_rssi_ecio, get_signal>(),
    swi_handle<swi_op_get_tech_frame, get_frames>(),
    swi_handle<swi_op_get_byte_counter, get_byte_counter>(),
    swi_handle<swi_op_get_tech_powersave_mode, swi_reply_number<state, &cdma_state::powersave_mode>>(),
    swi_handle<swi_op_get_transmit_power, get_signed<&cdma_state::transmit_power>>(),
    swi_handle<swi_op_get_temperature, get_signed<&cdma_state::temperature>>(),
    swi_handle<swi_op_get_channel_number, swi_reply_number<state, &cdma_state::channel>>(),
    swi_handle<swi_op_get_tech_bs_info, get_base_station>(),
    swi_handle<swi_op_get_authentication_status, swi_reply_number<state, &cdma_state::authentication>>(),
    swi_handle<swi_op_get_service_indication, get_seen<&cdma_view::service>>(),
    swi_handle<swi_op_get_hdr_srv_state, get_seen<&cdma_view::evdo_service>>(),
    swi_handle<swi_op_get_call_connection_state, get_seen<&cdma_view::call_status>>(),
    swi_handle<swi_op_get_roaming_status, get_roaming>(),
};
// clang-format on

static constexpr auto cdma_handlers =
    table_join(swi_modem_handlers<state, swi_cdma_modems>, own_handlers);

// ---- the family

// A boot takes as long as a real one, on the clock of the programs that wait for it.
static int64_t scaled_ms(int64_t ms)
{
    const char *text = getenv("TESSERA_TIME_SCALE");
    char *end = nullptr;
    const double scale = text ? strtod(text, &end) : 1.0;
    if (!text || end == text || *end != '\0' || !(scale >= 0.001) || !(scale <= 1.0))
        return ms;
    return std::llround(static_cast<double>(ms) * scale);
}

static int64_t power_up()
{
    the_services->loop.cancel(the_call_timer);
    return scaled_ms(cdma_power_up(the_modem));
}

static constexpr swi_modem_slots cdma_slots = {
    .state = &the_state,
    .handlers = cdma_handlers,
    .power_up = power_up,
    .settle = report_changes,
    .report = report,
};

static int cdma_start(sim_services &services, std::string &reason)
{
    the_services = &services;
    // One that a killed simulator left up.
    if (ppp_interface_down(services.root, the_state.ppp_name) != 0) {
        reason = "Could not write the list of interfaces: " + std::string(strerror(errno));
        return -1;
    }
    return swi_modem_start(services, cdma_slots, reason);
}

static void cdma_stop()
{
    take_interface_down();
    swi_modem_stop();
}

static int cdma_merge(json_t *state, json_refusal &refusal)
{
    if (cdma_merge_state(the_modem, state, refusal) != 0)
        return -1;
    swi_modem_merged();
    return 0;
}

static json_ref cdma_dump()
{
    return cdma_dump_state(the_modem);
}

static constexpr const char *cdma_markers[] = {"cellmodem_is_sierra", "cellmodem_is_cdma", nullptr};

const sim_family cdma_family = {
    .name = "cdma",
    .summary = "CDMA modem behind the SDK's server /bin/swisdk",
    .markers = cdma_markers,
    .start = cdma_start,
    .stop = cdma_stop,
    .merge_state = cdma_merge,
    .dump_state = cdma_dump,
    .act = swi_modem_act,
};

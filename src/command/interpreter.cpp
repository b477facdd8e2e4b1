#include "command/interpreter.h"

#include "cellmodem/cellmodem.h"
#include "cellmodem/markers.h"
#include "command/request.h"
#include "command/simslot.h"
#include "platform/log.h"

constexpr const char *default_unlock_password = "K594";
constexpr int gps_accuracy_m = 100;

// What an action works on.
struct action_context {
    cellmodem &modem;
    request &wanted;
    FILE *out;
    bool &reconfigure_requested;
};

static const char *text_or_null(const std::optional<std::string> &text)
{
    return text ? text->c_str() : nullptr;
}

template <class T>
static const T *value_or_null(const std::optional<T> &value)
{
    return value ? &*value : nullptr;
}

static void fail(action_context &context)
{
    context.wanted.result = 1;
}

// For an argument that an action cannot do without.
static bool missing(action_context &context, const std::optional<std::string> &argument,
                    const char *name)
{
    if (argument)
        return false;
    log_message(log_error, "%s was not provided", name);
    fail(context);
    return true;
}

// ---- the actions; each tests its slot first: what the modem lacks is skipped without a word

static void show_records(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (wanted.format == output_xml && (wanted.info || wanted.status))
        fputs("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n", out);
    if (wanted.info && modem.slots.info && modem.slots.info(modem, out, wanted.format) != 0)
        log_message(log_error, "Failed to get cellmodem info");
    if (wanted.status && modem.slots.status && modem.slots.status(modem, out, wanted.format) != 0)
        log_message(log_error, "Failed to get cellmodem status");
}

static void list_messages(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.getsms || !modem.slots.getsms)
        return;
    log_message(log_debug, "Getting SMS messages");
    if (modem.slots.getsms(modem, out, wanted.format) != 0) {
        log_message(log_error, "Failed to get cellmodem SMS list");
        fail(context);
    }
}

static void set_preferences(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    const bool given =
        wanted.mode_mask || wanted.band_mask || wanted.lte_band_mask || wanted.acquisition_order;
    if (!given || !modem.slots.setsysselect)
        return;
    if (modem.slots.setsysselect(
            modem, value_or_null(wanted.mode_mask), value_or_null(wanted.band_mask),
            value_or_null(wanted.lte_band_mask), text_or_null(wanted.acquisition_order)) != 0) {
        log_message(log_error, "Could not set system preference masks");
        fail(context);
    }
}

static void connect_call(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (wanted.dial_string && modem.slots.connect &&
        modem.slots.connect(modem, wanted.dial_string->c_str(), wanted.voice) != 0)
        fail(context);
}

static void connect_packet_data(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.dip_connect || !modem.slots.lte_connect || missing(context, wanted.apn, "APN"))
        return;
    if (modem.slots.lte_connect(modem, wanted.apn->c_str(), text_or_null(wanted.apn_type),
                                wanted.auth, text_or_null(wanted.username),
                                text_or_null(wanted.password)) != 0)
        fail(context);
}

static void disconnect(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.disconnect || !modem.slots.disconnect || modem.slots.disconnect(modem) == 0)
        return;
    if (wanted.force) {
        log_message(log_info, "Forcing modem reset");
        wanted.reset = true;
    }
    fail(context);
}

static void unblock_sim(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.simunblock || !modem.slots.unblocksim || missing(context, wanted.puk, "SIM PUK"))
        return;
    if (modem.slots.unblocksim(modem, wanted.puk->c_str(), text_or_null(wanted.pin)) != 0)
        fail(context);
}

static void unlock_sim(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.simunlock || !modem.slots.unlocksim || missing(context, wanted.pin, "SIM PIN"))
        return;
    if (modem.slots.unlocksim(modem, wanted.pin->c_str()) != 0)
        fail(context);
}

static void activate(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.activate || !modem.slots.activate)
        return;
    if (modem.slots.activate(modem, text_or_null(wanted.msl), text_or_null(wanted.mdn),
                             text_or_null(wanted.msid)) == 0)
        log_message(log_debug, "Modem was successfully activated");
    else
        fail(context);
}

static void set_radio(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (wanted.radio && modem.slots.radio && modem.slots.radio(modem, *wanted.radio) != 0)
        fail(context);
}

// A modem that was told to reset must be recovered whatever it answered.
static void reset(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.reset || !modem.slots.reset)
        return;
    if (wanted.sim && !simslot_reset_wanted(*wanted.sim))
        return;
    if (modem.slots.reset(modem) == 0)
        log_message(log_info, "Modem was successfully reset");
    else
        log_message(log_error, "Failed to reset modem");
    reconfigure = true;
}

static void select_sim(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    bool restarted = false;
    if (wanted.sim && simslot_select(modem, *wanted.sim, &restarted) != 0)
        fail(context);
    if (restarted)
        reconfigure = true; // nothing else would attach the modem again
}

static void switch_gps(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (wanted.gps_start && modem.slots.enablegps &&
        modem.slots.enablegps(modem, wanted.fix_interval_s, gps_accuracy_m) != 0)
        fail(context);
    if (wanted.gps_stop && modem.slots.disablegps && modem.slots.disablegps(modem) != 0)
        fail(context);
}

static void set_rat(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (wanted.rat && modem.slots.setrat && modem.slots.setrat(modem, *wanted.rat) != 0)
        fail(context);
}

static void set_region(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (wanted.region && modem.slots.setregion &&
        modem.slots.setregion(modem, *wanted.region, wanted.unlock_password->c_str()) != 0)
        fail(context);
}

static void return_to_network(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.rtn || !modem.slots.rtn || missing(context, wanted.msl, "MSL"))
        return;
    if (modem.slots.rtn(modem, wanted.msl->c_str()) == 0) {
        log_message(log_info, "Modem successfully factory reset");
    } else {
        log_message(log_error, "Modem RTN failed");
        fail(context);
    }
}

static void check_connection(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (wanted.connstatus && modem.slots.data_up && modem.slots.data_up(modem) != 0)
        fail(context);
}

static void ping(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (wanted.ping && modem.slots.ping && modem.slots.ping(modem) != 0)
        fail(context);
}

static void send_message(action_context &context)
{
    auto &[modem, wanted, out, reconfigure] = context;
    if (!wanted.sms_file || !modem.slots.sendsms)
        return;
    log_message(log_info, "Sending text from file %s", wanted.sms_file->c_str());
    if (modem.slots.sendsms(modem, wanted.sms_file->c_str(), text_or_null(wanted.smsc)) != 0)
        fail(context);
}

// The one order of the actions: what is shown is the state before the changes, data calls come
// before the radio, and a reset before the choice of a SIM.
constexpr void (*actions[])(action_context &) = {
    show_records,
    list_messages,
    set_preferences,
    connect_call,
    connect_packet_data,
    disconnect,
    unblock_sim,
    unlock_sim,
    activate,
    set_radio,
    reset,
    select_sim,
    switch_gps,
    set_rat,
    set_region,
    return_to_network,
    check_connection,
    ping,
    send_message,
};

int tessera_command(cellmodem *modem, int argc, char **argv, FILE *out, bool *reconfigure_requested,
                    bool *)
{
    request wanted;
    if (request_parse(wanted, argc, argv, out) != 0)
        return 1;
    if (!wanted.unlock_password)
        wanted.unlock_password = default_unlock_password;
    if (!modem || !modem->attached) {
        fputs("Modem is not attached to tessera service\n", out);
        return 1;
    }
    if (holding_present()) {
        fprintf(out, "External app is blocking modem access: %s\n", holding_path);
        return 1;
    }
    action_context context = {*modem, wanted, out, *reconfigure_requested};
    for (const auto action : actions)
        action(context);
    return wanted.result;
}

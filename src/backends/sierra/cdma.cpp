#include "backends/sierra/cdma.h"

#include "backends/sierra/cdma_family.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/slot.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/text.h"
#include "publish/state.h"
#include "swi/calls.h"

constexpr int attach_rounds = 5;
constexpr int attach_round_ms = 1000;

cdma_family cdma;

// ---- notifications

static void on_connecting(cellmodem &, const swi_notification &)
{
    log_message(log_debug, "Sierra Wireless CDMA data call connecting");
    cdma_call_connecting();
}

static void on_connected(cellmodem &modem, const swi_notification &)
{
    log_message(log_debug, "Sierra Wireless CDMA data call connected");
    cdma_call_connected(modem);
}

static void on_incoming(cellmodem &, const swi_notification &)
{
    log_message(log_debug, "Incoming call detected");
}

static void on_caller_id(cellmodem &, const swi_notification &notification)
{
    log_message(log_info, "Caller ID detected: %s",
                text_from_bytes(notification.caller_id).c_str());
}

static void on_disconnected(cellmodem &modem, const swi_notification &)
{
    log_message(log_debug, "Sierra Wireless CDMA data call disconnected");
    cdma_call_disconnected(modem);
}

static void on_call_error(cellmodem &, const swi_notification &notification)
{
    log_message(log_error, "Call Error: %d", static_cast<int>(notification.first));
}

static void on_hdr_state(cellmodem &, const swi_notification &notification)
{
    log_message(log_info, "HDR Session status: %d", notification.hdr_state);
    cdma.hdr_session_state = static_cast<uint8_t>(notification.hdr_state & 0xFF);
}

constexpr sierra_notification_handler notification_handlers[] = {
    {swi_notify_call_connecting, on_connecting},
    {swi_notify_call_connected, on_connected},
    {swi_notify_call_incoming, on_incoming},
    {swi_notify_caller_id, on_caller_id},
    {swi_notify_call_disconnected, on_disconnected},
    {swi_notify_call_error, on_call_error},
    {swi_notify_hdr_state, on_hdr_state},
};

// Runs on the notification thread.
static void sierra_cdma_notification_callback(const swi_notification &notification, void *context)
{
    log_message(log_debug, "sierra_cdma_notification_callback(%p): %d",
                static_cast<const void *>(&notification), static_cast<int>(notification.type));
    if (!sierra_cns_dispatch(notification_handlers, *static_cast<cellmodem *>(context),
                             notification))
        log_message(log_debug, "Unhandled notification: %d", static_cast<int>(notification.type));
}

static int register_callback(cellmodem &modem)
{
    const int result = swi_register_callback(sierra_cdma_notification_callback, &modem, -1, 0);
    if (result == swi_ok)
        return 0;
    log_message(log_error, "Failed to register Sierra Wireless CDMA callback: %d", result);
    return -1;
}

static void forget_notifications()
{
    cdma.notified = false;
    sierra_cns_forget_notifications();
}

// Whether a modem that gave this result may give another one later.
static bool worth_repeating(int result)
{
    return result == swi_modem_timeout || result == swi_busy || result == swi_no_response;
}

static int enable_hdr_state()
{
    log_message(log_debug, "Enabling modem status notifications");
    if (sierra_cns_await_thread() != 0)
        return -1;
    const int result = swi_enable_notification(swi_notify_hdr_state, sierra_timeout_ms);
    cdma.notified = !worth_repeating(result); // a modem without HDR is not asked for ever
    if (result == swi_ok)
        return 0;
    log_message(log_fatal, "Cant register HDR State Notifications");
    return -1;
}

// ---- attach and detach

// All rounds are run: a modem that has just come up forgets what it is told too early.
static int set_up_notifications()
{
    for (int round = 0; round < attach_rounds && !clock_stopped(); round++) {
        int result;
        if (!sierra_cns_answers(result)) {
            log_message(log_debug, "Sierra Wireless modem is not ready.");
            clock_sleep_ms(attach_round_ms);
        }
        log_message(log_debug, "Sierra Wireless modem is ready.");
        log_message(log_debug, "Setting up Sierra Wireless notifications");
        if (enable_hdr_state() != 0) {
            log_message(log_fatal, "Failed to setup CDMA event notification");
            return -1;
        }
    }
    return clock_stopped() ? -1 : 0;
}

static void identify(cellmodem &modem)
{
    modem.aux_buffer = cdma_product();
    if (!modem.aux_buffer)
        log_message(log_error, "Failed to retrieve Sierra Wireless CDMA product");
    modem.aux_word = cdma.identity.type_code;
}

// The session was never given up, but its server may have died under it, and the record may have
// been filled anew.
static int attach_again(cellmodem &modem)
{
    if (sierra_cns_restore(cdma.identity) > 0)
        forget_notifications(); // the next ping that is answered enables them
    identify(modem);
    (void)register_callback(modem);
    log_message(log_info, "Sierra Wireless CDMA cannot be fully detached, faking re-attach....");
    (void)publish_attached(modem, true);
    return 0;
}

static int start_session()
{
    cdma.started = true;
    const int started = sierra_cns_start(cdma.identity);
    if (started < 0) {
        log_message(log_fatal, "Failed to start swisdk.");
        cdma.started = false; // or every later attach would fake one to a session that is not there
        return -1;
    }
    if (started > 0)
        forget_notifications();
    return 0;
}

int sierra_cdma_attach(cellmodem &modem)
{
    modem.aux_buffer.reset();
    if (cdma.started)
        return attach_again(modem);
    if (start_session() != 0)
        return -1;
    identify(modem);
    if (register_callback(modem) != 0 || set_up_notifications() != 0)
        return -1;
    if (publish_attached(modem, true) != 0)
        log_message(log_error, "Failed to change cellmodem attached state");
    log_message(log_debug, "Force update of Sierra Wireless CDMA modem device-state");
    if (sierra_cns_ping(modem) != 0)
        log_message(log_error, "Failed to check Sierra Wireless CDMA modem device-state");
    log_message(log_debug, "Force update of Sierra Wireless CDMA modem sesion-state");
    cdma_follow_call(modem);
    return 0; // an unreachable infod keeps nobody from the modem
}

static int sierra_cdma_detach(cellmodem &modem)
{
    log_message(log_info, "Sierra Wireless CDMA modem cannot be fully detached, faking it...");
    (void)publish_attached(modem, false);
    return 0;
}

// What a modem was not told or asked while it did not answer.
static void catch_up(cellmodem &modem)
{
    (void)enable_hdr_state();
    cdma_follow_call(modem);
    if (!modem.aux_buffer)
        identify(modem);
}

// A modem that did not answer may have rebooted, and then remembers no notifications.
int sierra_cdma_ping(cellmodem &modem)
{
    if (sierra_cns_ping(modem) != 0) {
        forget_notifications();
        return -1;
    }
    if (!cdma.notified)
        catch_up(modem);
    (void)sierra_cns_renew_call_notifications();
    return 0;
}

int sierra_cdma_reset(cellmodem &)
{
    log_message(log_debug, "sierra_cdma_reset()");
    if (swi_reset_cdma(sierra_timeout_ms) != swi_ok) {
        log_message(log_error, "Failed to reset Sierra Wireless CDMA modem");
        return -1;
    }
    log_message(log_debug, "Modem successfully reset");
    forget_notifications();
    return 0;
}

// The record goes away, but the notification thread stays.
static void let_go(cellmodem &)
{
    (void)swi_deregister_callback();
}

// ---- the family

constexpr cellmodem_slots cdma_slots = {
    .attach = slot<sierra_cdma_attach>,
    .detach = slot<sierra_cdma_detach>,
    .ping = slot<sierra_cdma_ping>,
    .info = slot<sierra_cdma_info>,
    .status = slot<sierra_cdma_status>,
    .getsms = slot<sierra_cdma_getsms>,
    .connect = slot<sierra_cdma_connect>,
    .disconnect = slot<sierra_cdma_disconnect>,
    .reset = slot<sierra_cdma_reset>,
    .activate = slot<sierra_cdma_activate>,
    .rtn = slot<sierra_cdma_rtn>,
    .sendsms = slot<sierra_cdma_sendsms>,
};

int sierra_cdma_init(cellmodem &modem)
{
    modem.slots = cdma_slots;
    modem.release = let_go;
    modem.type = type_sierra_cdma;
    modem.technology = technology_cdma;
    modem.aux_buffer.reset();
    modem.aux_word = 0;
    modem.attached = false;
    modem.session_state = session_unknown;
    modem.device_path = "/dev/cellcommand01";
    return 0;
}

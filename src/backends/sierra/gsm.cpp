#include "backends/sierra/gsm.h"

#include "backends/sierra/gsm_family.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/slot.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/text.h"
#include "publish/state.h"
#include "swi/calls.h"

#include <string>

gsm_family gsm;

// ---- notifications

static const void *address_of(const swi_notification &notification)
{
    return &notification;
}

static void on_sim_status(cellmodem &, const swi_notification &notification)
{
    log_message(log_debug, "GSM SIM lock status notification: %p", address_of(notification));
    gsm.sim_status = notification.first;
}

static void on_network_status(cellmodem &, const swi_notification &notification)
{
    log_message(log_debug, "Network status notification: %p", address_of(notification));
    gsm.network_status = notification.first;
    if (notification.first == 0)
        log_message(log_debug, "Network status is normal: %d",
                    static_cast<int>(notification.first));
    else
        log_message(log_debug, "Network status is_NOT_ normal: %d",
                    static_cast<int>(notification.first));
}

static void on_system_status(cellmodem &, const swi_notification &notification)
{
    log_message(log_debug, "GSM system status notification: %p", address_of(notification));
    gsm.system_mode = notification.system_mode;
}

static void on_modem_disabled(cellmodem &modem, const swi_notification &notification)
{
    log_message(log_debug, "GSM modem radio disabled: %d", static_cast<int>(notification.first));
    modem.state_b = notification.first != 0 ? gsm_radio_on : gsm_radio_off;
}

static void follow_packet_session(cellmodem &modem, uint32_t active)
{
    (void)publish_session_state(modem, active != 0 ? session_connected : session_disconnected);
}

static void on_service_icon(cellmodem &modem, const swi_notification &notification)
{
    log_message(log_debug, "Service Icon notification: %p bPktSessionActive: %d",
                address_of(notification), static_cast<int>(notification.packet_session_active));
    follow_packet_session(modem, notification.packet_session_active);
}

static void on_packet_session(cellmodem &modem, const swi_notification &notification)
{
    log_message(log_debug, "Packet session notification: %p", address_of(notification));
    follow_packet_session(modem, notification.packet_session_active);
}

static void on_connecting(cellmodem &modem, const swi_notification &)
{
    (void)publish_session_state(modem, session_connecting);
}

static void on_connected(cellmodem &modem, const swi_notification &)
{
    (void)publish_session_state(modem, session_connected);
}

static void on_disconnected(cellmodem &modem, const swi_notification &)
{
    (void)publish_session_state(modem, session_disconnected);
}

static void ignore(cellmodem &, const swi_notification &) {}

constexpr sierra_notification_handler notification_handlers[] = {
    {swi_notify_sim_status, on_sim_status},
    {swi_notify_network_status, on_network_status},
    {swi_notify_gsm_system_status, on_system_status},
    {swi_notify_modem_disabled, on_modem_disabled},
    {swi_notify_service_icon, on_service_icon},
    {swi_notify_packet_session, on_packet_session},
    {swi_notify_call_connecting, on_connecting},
    {swi_notify_call_connected, on_connected},
    {swi_notify_call_disconnected, on_disconnected},
    {swi_notify_rssi, ignore},
    {swi_notify_sim_ready, ignore},
};

// Runs on the notification thread.
static void sierra_gsm_notification_callback(const swi_notification &notification, void *context)
{
    log_message(log_debug, "sierra_gsm_notification_callback(%p): %d", address_of(notification),
                static_cast<int>(notification.type));
    if (!sierra_cns_dispatch(notification_handlers, *static_cast<cellmodem *>(context),
                             notification))
        log_message(log_debug, "Unknown notification: %d", static_cast<int>(notification.type));
}

struct wanted_notification {
    uint32_t id;
    const char *what;
    const char *name;
};

constexpr wanted_notification wanted_notifications[] = {
    {swi_notify_modem_disabled, "modem disabled", "ModemDisabled"},
    {swi_notify_sim_status, "SIM status", "SimStatusExp"},
    {swi_notify_radio_temp_state, "temperature", "RadioTempState"},
    {swi_notify_network_status, "Network status", "NetworkStatus"},
    {swi_notify_gsm_system_status, "GSM system status", "GsmSystemStatus"},
    {swi_notify_service_icon, "service icon", "ServiceIcon"},
    {swi_notify_packet_session, "packet session", "PktSessionCall"},
    {swi_notify_rssi, "RSSI", "Rssi"},
};

void gsm_forget_notifications()
{
    gsm.notified = false;
    sierra_cns_forget_notifications();
}

// 0, or -1 with the first that failed; those of calls are renewed with them.
static int enable_notifications()
{
    gsm.notified = false;
    log_message(log_debug, "Enabling radio status notifications");
    if (sierra_cns_await_thread() != 0)
        return -1;
    for (const wanted_notification &row : wanted_notifications) {
        log_message(log_debug, "Enabling %s notifications", row.what);
        const int result = swi_enable_notification(row.id, sierra_timeout_ms);
        if (result != swi_ok) {
            log_message(log_error, "SWI_NOTIFY_%s failed: %d", row.name, result);
            return -1;
        }
    }
    gsm.notified = true;
    (void)sierra_cns_renew_call_notifications();
    return 0;
}

// ---- attach and detach

static int attach(cellmodem &modem)
{
    const int started = sierra_cns_start(gsm.identity);
    if (started < 0) {
        if (!clock_stopped())
            log_message(log_fatal, "Failed to start swisdk.");
        return -1;
    }
    if (started > 0)
        gsm_forget_notifications();
    modem.aux_buffer = text_from_bytes(gsm.identity.product);
    modem.aux_word = gsm.identity.type_code;
    if (swi_register_callback(sierra_gsm_notification_callback, &modem, -1, 0) != swi_ok) {
        log_message(log_error, "Failed to register Sierra Wireless callback");
        return -1;
    }
    if (enable_notifications() != 0) {
        log_message(log_error, "Failed to setup GSM event notification");
        // A recovery that meets a modem still booting attaches all the same: only an attached modem
        // is pinged. Pings that go on failing bring the next recovery; the first that succeeds
        // enables what failed here.
        if (!gsm.was_attached)
            return -1;
        log_message(log_warning, "Attaching to the Sierra Wireless GSM modem all the same");
    }
    gsm.was_attached = true;
    (void)publish_attached(modem, true); // an unreachable infod keeps nobody from the modem
    return 0;
}

static int sierra_gsm_attach(cellmodem &modem)
{
    if (gsm.attached) {
        log_message(log_info, "Sierra Wireless GSM modem can not be reattached");
        return 0;
    }
    gsm.attached = true;
    const int result = attach(modem);
    if (result != 0)
        gsm.attached = false; // or no later attempt would get beyond the first line
    return result;
}

static int sierra_gsm_detach(cellmodem &modem)
{
    log_message(log_info, "Sierra Wireless GSM modem can not be detached");
    gsm.attached = false;
    (void)publish_attached(modem, false);
    return 0;
}

// A modem that did not answer may have rebooted, and then remembers no notifications.
static int sierra_gsm_ping(cellmodem &modem)
{
    if (sierra_cns_ping(modem) != 0) {
        gsm_forget_notifications();
        return -1;
    }
    if (gsm.notified)
        (void)sierra_cns_renew_call_notifications();
    else
        (void)enable_notifications();
    return 0;
}

// The record goes away, but the notification thread stays.
static void let_go(cellmodem &)
{
    (void)swi_deregister_callback();
}

// ---- data calls

static int sierra_gsm_connect(cellmodem &, const char *dial_string, bool voice)
{
    log_message(log_debug, "sierra_gsm_connect(%s, voice = %d)", dial_string, voice);
    return -1;
}

// Somebody wants to see the end of a call, so it is listened for; the call itself is not ours.
static int sierra_gsm_disconnect(cellmodem &)
{
    (void)sierra_cns_enable_call_notifications();
    return -1;
}

// ---- the family

constexpr cellmodem_slots gsm_slots = {
    .attach = slot<sierra_gsm_attach>,
    .detach = slot<sierra_gsm_detach>,
    .ping = slot<sierra_gsm_ping>,
    .info = slot<sierra_gsm_info>,
    .status = slot<sierra_gsm_status>,
    .connect = slot<sierra_gsm_connect>,
    .disconnect = slot<sierra_gsm_disconnect>,
    .radio = slot<sierra_gsm_radio>,
    .reset = slot<sierra_gsm_reset>,
    .simispresent = slot<sierra_gsm_simispresent, 1>,
    .unlocksim = slot<sierra_gsm_unlocksim>,
    .unblocksim = slot<sierra_gsm_unblocksim>,
    .enablegps = slot<sierra_gsm_enablegps>,
    .disablegps = slot<sierra_gsm_disablegps>,
    .setrat = slot<sierra_gsm_setrat>,
    .setregion = slot<sierra_gsm_setregion>,
};

int sierra_gsm_init(cellmodem &modem)
{
    log_message(log_debug, "Sierra Wireless modem is ready.");
    modem.slots = gsm_slots;
    modem.release = let_go;
    modem.type = type_sierra_gsm;
    modem.technology = technology_gsm;
    modem.attached = false;
    modem.session_state = session_unknown;
    modem.state_b = gsm_radio_unknown;
    modem.device_path = "/dev/cellcommand01";
    return 0;
}

// What can be switched on a UMTS/GSM modem: radio, reset, GPS, radio access technology, region.

#include "backends/sierra/gsm_family.h"
#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "swi/calls.h"

#include <cstdio>
#include <cstring>

constexpr int radio_rounds = 5;
constexpr int radio_round_ms = 1000;
constexpr int result_not_built_in = 65535; // from here on the modem's firmware lacks the request

// ---- radio and reset

// The modem confirms a change by a notification.
static void await_radio(const cellmodem &modem, int target)
{
    for (int round = 0; round < radio_rounds && modem.state_b != target; round++)
        clock_sleep_ms(radio_round_ms);
}

int sierra_gsm_radio(cellmodem &modem, bool on)
{
    log_message(log_debug, "sierra_gsm_radio(%d)", on);
    swi_number enabled;
    int result = swi_get_modem_enable(enabled, sierra_timeout_ms);
    if (result != swi_ok) {
        fprintf(stderr, "Failed to detect the radio status: %d", result);
        return -1;
    }
    log_message(log_debug, "Radio currently disabled: %d", enabled.value == 0 ? 1 : 0);
    modem.state_b = enabled.value != 0 ? gsm_radio_on : gsm_radio_off;

    log_message(log_debug, "SwiSetModemDisable(%d)", on);
    result = swi_set_modem_disable(on, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_error, "Failed to enabled radio: %d", result);
        return -1;
    }
    const int target = on ? gsm_radio_on : gsm_radio_off;
    await_radio(modem, target);
    const int reached = modem.state_b;
    log_message(log_debug, "Radio status is: %d", reached);
    if (reached != target) {
        log_message(log_error, "Timed out waiting for radio to turn %s", on ? "on" : "off");
        return -1;
    }
    log_message(log_info, "Radio is now %s", on ? "on" : "off");
    return 0;
}

int sierra_gsm_reset(cellmodem &)
{
    log_message(log_debug, "sierra_gsm_reset()");
    if (swi_reset_gsm(sierra_timeout_ms) != swi_ok) {
        log_message(log_error, "Failed to reset Sierra Wireless modem");
        return -1;
    }
    log_message(log_debug, "Modem successfully reset");
    gsm_forget_notifications();
    return 0;
}

// ---- GPS

int sierra_gsm_enablegps(cellmodem &, int fix_interval_s, int accuracy_m)
{
    log_message(log_debug, "sierra_gsm_enablegps(%d, %d)", fix_interval_s, accuracy_m);
    if (fix_interval_s < 0) {
        log_message(log_error, "The time between fixes is negative: %d", fix_interval_s);
        return -1;
    }
    swi_track_request request;
    request.accuracy_m = static_cast<uint32_t>(accuracy_m);
    request.fix_interval_s = static_cast<uint32_t>(fix_interval_s);
    const int result = swi_set_lbs_pd_track(request, sierra_timeout_ms);
    if (result == swi_tracking_on) {
        log_message(log_debug, "SwiSetLbsPdTrack failed: GPS already enabled");
        return 0;
    }
    if (result != swi_ok) {
        log_message(log_error, "SwiSetLbsPdTrack failed: %d\n", result);
        return -1;
    }
    return 0;
}

int sierra_gsm_disablegps(cellmodem &)
{
    log_message(log_debug, "sierra_gsm_disablegps()");
    const int result = swi_set_lbs_end_session({}, sierra_timeout_ms);
    if (result == swi_tracking_off) {
        log_message(log_debug, "SwiSetLbsPdTrack failed: GPS already disabled");
        return 0;
    }
    if (result != swi_ok) {
        log_message(log_error, "SwiSetLbsEndSession failed: %d\n", result);
        return -1;
    }
    return 0;
}

// ---- radio access technology

struct rat_code {
    int rat; // the command's number
    uint32_t code;
};

constexpr rat_code rat_codes[] = {{1, 1}, {2, 2}, {5, 3}, {19, 4}};
constexpr uint32_t rat_automatic = 0;

int sierra_gsm_setrat(cellmodem &, int rat)
{
    log_message(log_debug, "sierra_gsm_setrat(%d)", rat);
    swi_rat_request request;
    request.rat = rat_automatic;
    for (const rat_code &row : rat_codes)
        if (row.rat == rat)
            request.rat = row.code;
    const int result = swi_set_rat(request, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_error, "SwiSetRat failed: %d\n", result);
        return -1;
    }
    return 0;
}

// ---- region

static bool region_reads(uint8_t region)
{
    swi_number present;
    return swi_get_prl_region(present, sierra_timeout_ms) == swi_ok && present.value == region;
}

static void log_region_failure(int result)
{
    if (result == swi_modem_timeout) {
        log_message(log_error, "SwiSetPrlRegion timed out");
        return;
    }
    if (result >= result_not_built_in) {
        log_message(log_error, "SwiSetPrlRegion has been commented out");
        return;
    }
    log_message(log_error, "SwiSetPrlRegion is rejected: %d", result);
    if (result == swi_cns_error) {
        char text[swi_error_text_max] = "";
        (void)swi_last_error_text(text, sizeof(text));
        log_message(log_error, "Mdm reports CnS Error: %s", text);
    }
}

// Whether the modem has the region now; a failure is logged.
static bool change_region(uint8_t region, const char *unlock_text)
{
    swi_set_region request;
    request.region = region;
    if (swi_set_text(request.unlock_text, unlock_text) != 0) {
        log_message(log_error, "The unlock text has more than %zu characters",
                    sizeof(request.unlock_text) - 1);
        return false;
    }
    swi_number status;
    const int result = swi_set_prl_region(request, status, sierra_timeout_ms);
    if (result != swi_ok) {
        log_region_failure(result);
        return false;
    }
    if (status.value != 0) {
        log_message(log_error, "SwiSetPrlRegion failed with status %d",
                    static_cast<int>(status.value));
        return false;
    }
    log_message(log_debug, "SwiSetPrlRegion successfully set to %d", region);
    return region_reads(region);
}

int sierra_gsm_setregion(cellmodem &, uint8_t region, const char *unlock_text)
{
    log_message(log_debug, "sierra_gsm_setregion(%d, %s)", region, unlock_text);
    if (change_region(region, unlock_text)) {
        log_message(log_debug, "Changed region: %d", region);
        return 0;
    }
    log_message(log_error, "Failed to change region to: %d", region);
    return -1;
}

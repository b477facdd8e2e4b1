#include "command/simslot.h"

#include "cellmodem/cellmodem.h"
#include "cellmodem/dualsim.h"
#include "cellmodem/gps.h"
#include "cellmodem/markers.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/process.h"

#include <cstdio>
#include <cstring>

constexpr int restart_wait_s = 30;

// Only where the GPS port is in use does the port manager have it open and must let go of it.
static void reopen_gps_port()
{
    gps_settings settings;
    if (gps_read_settings(settings) == 0 && settings.enabled)
        process_shell("killall -HUP lineherd");
}

static void restart_modem(cellmodem &modem)
{
    log_message(log_info, "Halting client communication while resetting modem...");
    (void)holding_create();
    log_message(log_info, "Detaching from modem...");
    if (modem.slots.detach && modem.slots.detach(modem) != 0)
        log_message(log_error, "Could not detach from modem");
    log_message(log_info, "Waiting %d seconds...", restart_wait_s);
    clock_sleep_ms(restart_wait_s * 1000);
    reopen_gps_port();
    log_message(log_info, "Resuming client communication...");
    holding_remove();
}

static int select_automatic(cellmodem &modem, int mode, bool *restarted)
{
    int result = 0;
    if (mode == sim_mode_manual) {
        log_message(log_info, "Resetting autodetect SIM slot check...");
        if (dualsim_reset_index() != 0) {
            log_message(log_error, "Failed to reset the SIM index");
            result = -1;
        }
        log_message(log_info, "Setting selected SIM to AUTOMATIC");
        *restarted = dualsim_set_next_index(1) == 0;
        if (!*restarted)
            log_message(log_info, "No more SIM slots for autodetect to check");
    }
    log_message(log_info, "Setting SIM autodetect mode to AUTOMATIC...");
    if (dualsim_set_mode(sim_mode_automatic) != 0)
        log_message(log_info, "Failed to switch SIM mode to AUTO");
    if (*restarted)
        restart_modem(modem);
    return result;
}

static int select_manual(cellmodem &modem, int requested, int current, bool *restarted)
{
    log_message(log_info, "Setting SIM autodetect mode to MANUAL...");
    if (dualsim_set_mode(sim_mode_manual) != 0)
        log_message(log_info, "Failed to switch SIM mode to MANUAL");
    if (current == requested) {
        log_message(log_info, "SIM slot is already: %d, nothing to do", requested);
        return 0;
    }
    log_message(log_info, "Manually selecting SIM slot: %d", requested);
    if (dualsim_set_index(requested, 1) != 0)
        return -1;
    *restarted = true;
    restart_modem(modem);
    return 0;
}

int simslot_select(cellmodem &modem, int requested, bool *restarted)
{
    *restarted = false;
    if (!dualsim_supported()) {
        log_message(log_debug, "Device is not multi-sim capable, do nothing.");
        return 0;
    }
    int current = sim_index_unknown;
    if (dualsim_get_index(&current) != 0)
        log_message(log_error, "Failed to determine current SIM slot");
    int mode = sim_mode_unread;
    if (dualsim_get_mode(&mode) != 0)
        log_message(log_error, "Failed to determine current SIM selection mode");
    return requested == sim_index_automatic ? select_automatic(modem, mode, restarted)
                                            : select_manual(modem, requested, current, restarted);
}

bool simslot_reset_wanted(int requested)
{
    if (!dualsim_supported()) {
        log_message(log_info, "Device is not dual-sim, canceling reset.");
        return false;
    }
    int current = sim_index_unknown;
    if (dualsim_get_index(&current) == 0 && current == requested) {
        log_message(log_info, "Selected SIM is already %d, nothing to do", requested);
        return false;
    }
    return true;
}

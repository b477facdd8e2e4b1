#include "backends/select.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/dualsim.h"
#include "daemon/daemon.h"
#include "daemon/signals.h"
#include "platform/clock.h"
#include "platform/log.h"

#include <cerrno>
#include <cstring>

daemon_state tesserad;

constexpr int wait_counter_max = 63; // counts of about a second
constexpr int attach_retry_s = 4;
constexpr int reset_wait_s = 30;

// What a stage of the sequence decides.
enum class next_stage { done, detect_again, failed };

static int detach_modem(cellmodem &modem)
{
    if (!modem.attached || !modem.slots.detach)
        return 0;
    log_message(log_debug, "Detaching from modem...");
    if (modem.slots.detach(modem) == 0)
        return 0;
    log_message(log_fatal, "Failed to detach from modem");
    return -1;
}

// Attaches and pings until the modem answers or the time is over; a modem that does neither is no
// failure, it may come up later. Without a ping there is nothing to end the wait.
static void wait_for_modem(cellmodem &modem)
{
    for (int counter = 0; counter <= wait_counter_max && !clock_stopped(); counter++) {
        if (!modem.attached && modem.slots.attach && modem.slots.attach(modem) != 0) {
            log_message(log_warning, "Unable to attach to modem waiting...");
            clock_sleep_ms(attach_retry_s * 1000);
            counter += attach_retry_s;
        }
        if (modem.attached && modem.slots.ping) {
            if (modem.slots.ping(modem) == 0) {
                log_message(log_info, "modem is responding, continuing startup...");
                return;
            }
            log_message(log_debug, "modem is not responding yet: %d...", counter);
        }
        clock_sleep_ms(1000);
    }
}

static next_stage detect()
{
    if (detach_modem(*tesserad.modem) != 0)
        return next_stage::failed;
    log_message(log_info, "Detecting modem ...");
    if (cellmodem_select(*tesserad.modem) != 0) {
        log_message(log_error, "No modem detected");
        cellmodem_destroy(&tesserad.modem);
        return next_stage::failed;
    }
    wait_for_modem(*tesserad.modem);
    return next_stage::done;
}

static void reset_for_next_slot(cellmodem &modem)
{
    if (!modem.slots.reset)
        return;
    if (modem.slots.reset(modem) != 0) {
        log_message(log_error, "Failed to reset modem");
        return;
    }
    log_message(log_info, "Modem was successfully reset");
    log_message(log_info, "Waiting for modem to reset...");
    for (int second = 0; second < reset_wait_s && !clock_stopped(); second++)
        clock_sleep_ms(1000);
}

// In automatic mode an empty holder makes the sequence go on to the next one.
static next_stage check_sim(cellmodem &modem)
{
    if (!dualsim_supported()) {
        log_message(log_info, "Only one SIM slot available, done");
        return next_stage::done;
    }
    int mode = sim_mode_unread;
    if (dualsim_get_mode(&mode) != 0) {
        log_message(log_info, "Unable to determine current SIM selection mode");
        return next_stage::done;
    }
    if (mode != sim_mode_automatic) {
        log_message(log_info, "Manual SIM selection, continuing");
        return next_stage::done;
    }
    log_message(log_info, "Detecting SIM...");
    if (!modem.slots.simispresent) {
        log_message(log_info, "No SIM is required for this cellmodem");
        return next_stage::done;
    }
    if (modem.slots.simispresent(modem) != 0) {
        log_message(log_info, "SIM detected in current slot");
        return next_stage::done;
    }
    log_message(log_info, "Attempting to autodetect SIM in next slot...");
    if (dualsim_set_next_index(1) != 0) {
        log_message(log_info, "Finished checking SIM slots");
        return next_stage::done;
    }
    log_message(log_info, "Incremented autodetect SIM slot check");
    reset_for_next_slot(modem);
    return next_stage::detect_again;
}

int tesserad_startup()
{
    if (!tesserad.modem && cellmodem_create(&tesserad.modem) != 0) {
        log_message(log_fatal, "Failed creating cellmodem");
        return -1;
    }
    next_stage stage;
    do {
        stage = detect();
        if (stage == next_stage::done && !clock_stopped())
            stage = check_sim(*tesserad.modem);
        signals_report();
    } while (stage == next_stage::detect_again && !clock_stopped());
    return stage == next_stage::failed || clock_stopped() ? -1 : 0;
}

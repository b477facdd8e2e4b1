// tesserad, the daemon: owns the modem and serves the clients until it is told to end.

#include "carrier/db.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/gps.h"
#include "cellmodem/markers.h"
#include "daemon/daemon.h"
#include "daemon/signals.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/tarnwick.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

constexpr const char *service_name = "tesserad";
constexpr const char *carrier_script = "/etc/scripts/cell-carrier";
constexpr int gps_accuracy_m = 100;

void tesserad_cleanup()
{
    log_message(log_debug, "Cleaning up tesserad");
    carrier_db_free();
    tarnwick_pidfile_clear(service_name);
    tarnwick_lockfile_clear(service_name);
}

// One instance only: whoever has the lock owns the modem. 0 or -1.
static int take_ownership()
{
    if (tarnwick_lockfile_create(service_name) != 0) {
        log_message(log_error, "Failed creating lock file: %s", strerror(errno));
        return -1;
    }
    if (tarnwick_pidfile_create(service_name) != 0) {
        log_message(log_error, "Failed creating: pid file: %s", strerror(errno));
        return -1;
    }
    holding_remove_stale();
    if (holding_present()) {
        printf("External app is blocking modem access: %s\n", holding_path);
        return -1;
    }
    return 0;
}

static void enable_radio(cellmodem &modem)
{
    if (modem.slots.radio && modem.slots.radio(modem, true) != 0)
        log_message(log_error, "Could not enable modem");
}

static void enable_gps(cellmodem &modem)
{
    gps_settings settings;
    if (gps_read_settings(settings) != 0 || !settings.enabled || !modem.slots.enablegps)
        return;
    if (modem.slots.enablegps(modem, settings.fix_interval_s, gps_accuracy_m) != 0)
        log_message(log_error, "Could not enable GPS");
}

// The first records: their lines go nowhere, their values to infod.
static void publish_first_records(cellmodem &modem, FILE *null_stream)
{
    if (modem.slots.info && modem.slots.info(modem, null_stream, output_lines) != 0)
        log_message(log_error, "Failed to send cellmodem info to infod");
    if (modem.slots.status && modem.slots.status(modem, null_stream, output_lines) != 0)
        log_message(log_error, "Failed to send cellmodem status to infod");
}

static void detect_carrier()
{
    const char *const argv[] = {carrier_script, nullptr};
    int exit_status = -1;
    const int ran = tarnwick_proc_exec(carrier_script, argv, &exit_status, 0);
    if ((ran != 0 || exit_status != 0) && !clock_stopped())
        log_message(log_error, "Failed to detect cellular carrier: %d", exit_status);
}

// The stages between a successful start-up and the main loop; each looks whether termination was
// requested in the one before it.
static int serve(cellmodem &modem)
{
    if (!clock_stopped())
        enable_radio(modem);
    if (!clock_stopped())
        enable_gps(modem);
    if (carrier_db_create() != 0) {
        log_message(log_fatal, "Failed creating carrier database");
        return EXIT_FAILURE;
    }
    {
        const std::unique_ptr<FILE, int (*)(FILE *)> null_stream(fopen("/dev/null", "w+e"), fclose);
        if (!null_stream) {
            log_message(log_error, "Failed to open /dev/null: %d: %s", errno, strerror(errno));
            return EXIT_FAILURE;
        }
        if (!clock_stopped())
            publish_first_records(modem, null_stream.get());
        if (!clock_stopped())
            detect_carrier();
    }
    const int result = tesserad_main_loop();
    if (result != 0)
        log_message(log_error, "Failed to run infod service, exit: %d", result);
    return result;
}

static void shut_down()
{
    cellmodem *modem = tesserad.modem;
    if (modem && modem->slots.detach) {
        log_message(log_info, "Detaching from modem...");
        if (modem->slots.detach(*modem) != 0)
            log_message(log_error, "Unable to detach from modem");
    }
    log_message(log_info, "Service is exiting...");
    cellmodem_destroy(&tesserad.modem);
}

int main(int, char **argv)
{
    if (std::atexit(tesserad_cleanup) != 0) {
        log_message(log_error, "Failed to register cleanup function");
        return EXIT_FAILURE;
    }
    (void)log_open(argv[0] ? argv[0] : service_name);
    if (paths_check() != 0) {
        fputs("tesserad: TESSERA_ROOT must be an absolute path\n", stderr);
        return EXIT_FAILURE;
    }
    // Without their pipes waits are not cut short; without handlers the main loop refuses to run.
    (void)clock_init();
    (void)signals_install();
    if (take_ownership() != 0)
        return EXIT_FAILURE;

    int status = EXIT_FAILURE;
    if (tesserad_startup() == 0)
        status = serve(*tesserad.modem);
    else if (!signals_killed())
        return EXIT_FAILURE;
    signals_report();
    shut_down();
    return signals_killed() ? -1 : status;
}

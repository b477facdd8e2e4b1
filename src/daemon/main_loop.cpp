#include "cellmodem/cellmodem.h"
#include "cellmodem/markers.h"
#include "command/cmdsock.h"
#include "command/interpreter.h"
#include "daemon/daemon.h"
#include "daemon/signals.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/unique_fd.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

constexpr int round_ms = 10000;
constexpr int communication_errors_max = 3;

using owned_stream = std::unique_ptr<FILE, int (*)(FILE *)>;

struct loop_state {
    owned_stream null_stream{nullptr, fclose}; // where the records go whose readers are infod's
    unique_fd socket;
    unique_fd pause; // the pause file, held open while paused
    int communication_errors = 0;
    bool was_attached = false; // at some time
};

// ---- recovery

static void recover()
{
    log_message(log_info, "Reconfiguring tesserad modem...");
    log_message(log_info, "Halting client communication while resetting modem...");
    (void)holding_create();
    const int result = tesserad_startup();
    log_message(log_info, "Resuming client communication...");
    holding_remove();
    if (result == 0) {
        tesserad.reconfigure_requested = false;
        return;
    }
    if (!clock_stopped())
        log_message(log_fatal, "Failed to reconfigure modem, exiting...");
    tesserad.quit_requested = true;
}

// ---- pause and resume

static void pause_service(loop_state &loop)
{
    log_message(log_info, "Signal received, pausing modem comms");
    const std::string place = rooted(pause_path);
    loop.pause.reset(open(place.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NONBLOCK | O_CLOEXEC,
                          static_cast<mode_t>(-1)));
    if (!loop.pause) {
        if (errno == EEXIST) {
            log_message(log_info, "Service already paused...");
            return;
        }
        log_message(log_error, "Failed to create pause file: %s: %s", pause_path, strerror(errno));
        log_message(log_error, "Failed to pause service");
        return;
    }
    cellmodem *modem = tesserad.modem;
    if (modem && modem->slots.detach) {
        log_message(log_info, "Detaching from modem due to signal...");
        if (modem->slots.detach(*modem) != 0)
            log_message(log_error, "Failed to detach from modem");
    }
    log_message(log_info, "cellmodem comms suspended");
}

static void resume_service(loop_state &loop)
{
    log_message(log_info, "Signal received, resuming modem comms");
    log_message(log_info, "Resuming modem communications");
    cellmodem *modem = tesserad.modem;
    if (modem && modem->slots.attach) {
        log_message(log_info, "Attaching to the modem due to signal...");
        if (modem->slots.attach(*modem) != 0) {
            log_message(log_error, "Failed to attach to the modem");
            log_message(log_error, "Failed to resume service");
            return;
        }
    }
    if (loop.pause.reset() != 0) {
        log_message(log_error, "Failed to release pause file: %s: %s", pause_path, strerror(errno));
        log_message(log_error, "Failed to resume service");
        return;
    }
    if (file_exists(pause_path) && unlink(rooted(pause_path).c_str()) != 0) {
        log_message(log_error, "Failed to remove pause file: %s: %s", pause_path, strerror(errno));
        log_message(log_error, "Failed to resume service");
        return;
    }
    log_message(log_info, "cellmodem comms re-established");
}

// ---- a quiet interval

static void publish_records(cellmodem &modem, FILE *null_stream)
{
    if (modem.slots.info && modem.slots.info(modem, null_stream, output_lines) != 0)
        log_message(log_error, "Failed to send cellmodem info to infod");
    if (modem.slots.status && modem.slots.status(modem, null_stream, output_lines) != 0)
        log_message(log_error, "Failed to send cellmodem status to infod");
}

static void check_modem(loop_state &loop)
{
    cellmodem *modem = tesserad.modem;
    if (!modem || !modem->attached) {
        log_message(log_debug, "Modem is detached, unable to poll status");
        // Nobody asked for that: the back-end lost its modem, and could not attach to it again.
        if (modem && loop.was_attached && !loop.pause)
            tesserad.reconfigure_requested = true;
        return;
    }
    if (modem->slots.ping) {
        if (modem->slots.ping(*modem) != 0) {
            log_message(log_warning, "Failed to communicate with modem: %d times",
                        ++loop.communication_errors);
            if (loop.communication_errors >= communication_errors_max) {
                log_message(log_error, "Reached %d communcation errors, recovering modem...",
                            communication_errors_max);
                tesserad.reconfigure_requested = true;
                return;
            }
        } else {
            loop.communication_errors = 0;
        }
    }
    if (loop.null_stream)
        publish_records(*modem, loop.null_stream.get());
    if (modem->slots.data_up)
        log_message(log_debug, "%s",
                    modem->slots.data_up(*modem) != 0 ? "No data session is connected currently"
                                                      : "A data session is connected.");
}

// ---- a command

// The stream that a command writes to, and its text.
struct result_stream {
    char *text = nullptr;
    size_t length = 0;
    FILE *file = open_memstream(&text, &length);

    result_stream() = default;
    result_stream(const result_stream &) = delete;
    result_stream &operator=(const result_stream &) = delete;
    ~result_stream()
    {
        finish();
        free(text);
    }
    const char *finish()
    {
        if (file)
            fclose(file);
        file = nullptr;
        return text;
    }
};

static void serve_command(loop_state &loop)
{
    cmdsock_sender sender;
    argument_vector arguments;
    if (cmdsock_recv_request(loop.socket.get(), sender, arguments) != 0)
        return;
    result_stream results;
    if (!results.file)
        throw std::bad_alloc(); // nothing was done yet, and the loop says so
    const int ret_code =
        tessera_command(tesserad.modem, arguments.argc(), arguments.argv(), results.file,
                        &tesserad.reconfigure_requested, &tesserad.quit_requested);
    (void)cmdsock_send_reply(loop.socket.get(), sender, ret_code, results.finish());
}

// ---- the loop

static int set_up(loop_state &loop)
{
    loop.null_stream.reset(fopen("/dev/null", "we"));
    if (signals_install() != 0) {
        log_message(log_error, "Failed to register sig handler for TERM/INT");
        return -1;
    }
    loop.socket = cmdsock_server_open(cmdsock_path);
    if (!loop.socket) {
        log_message(log_error, "Failed to create server socket");
        return -1;
    }
    char text[26] = "";
    const time_t now = time(nullptr);
    ctime_r(&now, text);
    log_message(log_info, "start time: %s", text);
    return 0;
}

// Writes what the signal handlers noted; a termination ends the loop.
static void take_signals()
{
    signals_report();
    if (signals_killed())
        tesserad.quit_requested = true;
}

static void run_round(loop_state &loop)
{
    if (tesserad.reconfigure_requested)
        recover();
    take_signals();
    if (tesserad.quit_requested)
        return;
    if (signals_take_usr1())
        loop.pause ? resume_service(loop) : pause_service(loop);
    if (tesserad.modem && tesserad.modem->attached)
        loop.was_attached = true;

    pollfd waited = {loop.socket.get(), POLLIN, 0};
    const int ready = clock_poll(waited, clock_scaled_ms(round_ms));
    if (ready == 0) {
        check_modem(loop);
    } else if (ready > 0 && waited.revents == POLLIN) {
        try {
            serve_command(loop);
        } catch (const std::bad_alloc &) {
            log_message(log_error, "Out of memory, a command was dropped");
        }
    } else if (ready > 0) {
        log_message(log_error, "Unexpected poll result: %d", waited.revents);
    } else if (ready < -1) {
        log_message(log_error, "Error during poll: %s", strerror(errno));
        tesserad.quit_requested = true;
    }
    take_signals();
    if (tesserad.quit_requested && ready != 0)
        log_message(log_info, "service has been commanded to quit");
}

int tesserad_main_loop()
{
    loop_state loop;
    if (set_up(loop) != 0)
        return -1;
    while (!tesserad.quit_requested)
        run_round(loop);
    unlink(rooted(pause_path).c_str());
    return 0;
}

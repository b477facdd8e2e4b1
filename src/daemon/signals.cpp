#include "daemon/signals.h"

#include "platform/clock.h"
#include "platform/log.h"

#include <csignal>
#include <cstring>

// What a handler may write and the main thread reads: for each a flag that is set last.
static volatile sig_atomic_t usr1_pending = 0;
static volatile sig_atomic_t usr1_unreported = 0;
static volatile sig_atomic_t killed_by_signal = 0;
static volatile sig_atomic_t kill_unreported = 0;
static volatile sig_atomic_t kill_signal, kill_code, kill_pid;

static void on_term_signal(int signo, siginfo_t *info, void *)
{
    kill_signal = signo;
    kill_code = info->si_code;
    kill_pid = info->si_pid;
    killed_by_signal = 1;
    kill_unreported = 1;
    clock_stop();
}

static void on_usr1_signal(int)
{
    usr1_pending = 1;
    usr1_unreported = 1;
    clock_wake();
}

int signals_install()
{
    struct sigaction terminate = {};
    terminate.sa_sigaction = on_term_signal;
    terminate.sa_flags = SA_SIGINFO;
    struct sigaction toggle = {};
    toggle.sa_handler = on_usr1_signal;
    signal(SIGPIPE, SIG_IGN); // standard error may be a pipe whose reader is gone
    sigaction(SIGUSR1, &toggle, nullptr);
    return sigaction(SIGTERM, &terminate, nullptr) == 0 &&
                   sigaction(SIGINT, &terminate, nullptr) == 0
               ? 0
               : -1;
}

void signals_report()
{
    if (kill_unreported) {
        kill_unreported = 0;
        log_message(log_info, "Receieved %s signal, si_code %d, si_pid %d",
                    kill_signal == SIGTERM ? "TERM" : "INT", static_cast<int>(kill_code),
                    static_cast<int>(kill_pid));
    }
    if (usr1_unreported) {
        usr1_unreported = 0;
        log_message(log_debug, "Received USR1 signal");
    }
}

bool signals_killed()
{
    return killed_by_signal != 0;
}

bool signals_take_usr1()
{
    const bool pending = usr1_pending != 0;
    usr1_pending = 0;
    return pending;
}

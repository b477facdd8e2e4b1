// Signals. The handlers only note what happened and end the current wait; start-up and the main loop
// write the log lines and act.
#pragma once

// Installs the handlers for SIGTERM, SIGINT and SIGUSR1 and ignores SIGPIPE. 0, or -1 when those of
// SIGTERM and SIGINT could not be installed. May be called again.
[[nodiscard]] int signals_install();

// Writes the log lines of the signals that came since the last call.
void signals_report();

// Whether SIGTERM or SIGINT came.
[[nodiscard]] bool signals_killed();

// Whether SIGUSR1 came since the last call. Two before it count as one.
[[nodiscard]] bool signals_take_usr1();

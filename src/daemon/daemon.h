// The daemon's process-wide state, and the stages of its life: start-up, main loop, clean-up.
#pragma once

struct cellmodem;

struct daemon_state {
    cellmodem *modem = nullptr; // the one record; empty until the start-up sequence creates it
    // Set by the main loop after repeated communication errors, or by a command that reset the
    // modem: the next round runs the start-up sequence again.
    bool reconfigure_requested = false;
    bool quit_requested = false;
};

extern daemon_state tesserad;

// The start-up sequence: detects the modem, attaches, waits until it answers and chooses a SIM
// holder. 0, or -1 when there is no modem or termination was requested.
[[nodiscard]] int tesserad_startup();

// Serves commands and watches the modem until termination. 0 after an orderly end, -1 when the
// signal handlers or the command socket cannot be set up.
[[nodiscard]] int tesserad_main_loop();

// Runs at every exit: releases the carrier table and removes the pid and lock files that are this
// process's own.
void tesserad_cleanup();

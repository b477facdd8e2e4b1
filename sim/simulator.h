// One run of the simulator: makes the root, starts the family's modem, serves until it is told to
// end, and clears away what it made.
#pragma once

#include <string>

struct sim_family;

enum sim_exit {
    sim_exit_done = 0,
    sim_exit_failed = 1,  // could not start, or could not go on
    sim_exit_refused = 2, // the command line or the scenario is wrong
};

struct simulator_options {
    const sim_family *family = nullptr;
    std::string root;     // as given
    std::string scenario; // a file; empty: none
    bool qmi_proxy = false;
};

// Serves until SIGTERM or SIGINT. What went wrong is said on standard error.
sim_exit simulator_run(const simulator_options &options);

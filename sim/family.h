// A modem family is one row: its markers in the root, and what the simulator's frame asks of it. The
// frame owns the root, the loop, the journal, the faults and the control socket; the family owns
// its modem's state and its devices. There is one modem in a process, as there is one in the root.
#pragma once

#include "sim/fault.h"
#include "sim/journal.h"
#include "sim/json.h"
#include "sim/loop.h"

#include <span>
#include <string>
#include <string_view>

// What the frame lends to a family from start to stop.
struct sim_services {
    std::string root; // absolute, without a slash at its end
    sim_loop loop;
    journal log;
    fault_engine faults{loop, log};
    bool qmi_proxy = false; // also serve where the proxy of QMI tools would be
};

struct sim_family {
    const char *name = nullptr;
    const char *summary = nullptr;
    const char *const *markers = nullptr; // names in /var/run/.modem, null at the end

    // Puts the modem's devices into the root and serves them. 0, or -1 with the reason.
    int (*start)(sim_services &services, std::string &reason) = nullptr;

    // Takes the devices away again; also after a start that failed.
    void (*stop)() = nullptr;

    // Changes what `state`, an object, names and nothing else; changes nothing and returns -1 if
    // anything in it is wrong. What is merged before the start is the state the modem powers up in.
    int (*merge_state)(json_t *state, json_refusal &refusal) = nullptr;

    // The whole state, with the names that merge_state knows.
    json_ref (*dump_state)() = nullptr;

    // Plays a timed fault that needs no request.
    void (*act)(const fault &alone) = nullptr;

    bool has_qmi_proxy = false; // whether it knows what --qmi-proxy means
};

std::span<const sim_family *const> families();

// Null if there is none of that name.
const sim_family *family_find(std::string_view name);

// A scenario: what the modem's state is to be, what its root's shell answers, what goes wrong. The
// same object is read from a file at the start and from a datagram at any time after it.
#pragma once

#include "sim/fault.h"
#include "sim/json.h"
#include "sim/root.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the root's shell does with a command line that contains `match`.
struct shell_rule {
    std::string match;
    int64_t status = 0; // nonzero: nothing is played, the line fails with it
    int64_t delay_ms = 0;
};

struct scenario {
    json_ref state;                    // for the family; null: nothing
    std::vector<fault> faults;         // added to those there are
    bool clear_faults = false;         // those there are go first
    json_ref shell;                    // replaces the rules; null: they stay
    std::optional<root_config> config; // written if given
    std::string get;                   // "state" or empty; only in a datagram
};

enum class scenario_source { file, datagram };

// Checks everything except the values of the state, which the family knows. 0, or -1 with the
// refusal set.
int scenario_parse(json_t *object, scenario_source source, scenario &out, json_refusal &refusal);

// The same from text. What is wrong with the JSON itself is refused with a path to nowhere, and
// `line` says in every case where in the text to look, counted from 1.
int scenario_parse_text(std::string_view text, scenario_source source, scenario &out,
                        json_refusal &refusal, int &line);

// Reads an array of shell rules.
int shell_rules_parse(json_t *array, std::vector<shell_rule> &out, json_refusal &refusal);

// The command interpreter: turns a client's argument vector into operations of the modem and writes
// the answer. All options are read first; then the requested actions run in one fixed order that
// does not depend on the order of the options.
#pragma once

#include <cstdio>

struct cellmodem;

// Runs one command. `modem` may be null. *reconfigure_requested is set when the modem was reset and
// must be recovered; *quit_requested is left alone. Returns 0, or 1 after any failure. The argument
// vector may be permuted.
int tessera_command(cellmodem *modem, int argc, char **argv, FILE *out, bool *reconfigure_requested,
                    bool *quit_requested);

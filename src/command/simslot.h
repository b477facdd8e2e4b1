// SIM slot selection: carrying out --sim, and --reset together with --sim.
#pragma once

struct cellmodem;

// Selects holder 0 or 1, or automatic selection (-1). When the holder changes the modem is
// restarted: it is detached and its new SIM gets 30 seconds; *restarted then says that it must be
// attached again. 0, or -1 when a holder could not be selected.
int simslot_select(cellmodem &modem, int requested, bool *restarted);

// True when a reset that comes with --sim is to be done: on a device with a second holder whose
// selected holder is another one. Otherwise it is logged why not.
[[nodiscard]] bool simslot_reset_wanted(int requested);

// The choice of the back-end from the marker files that the hot-plug scripts leave.
#pragma once

struct cellmodem;

// Initialises the record for the first family whose markers are there, after the back-end that filled
// it before let go of it. 0, or -1 when none is or its
// initialisation failed (which is logged).
[[nodiscard]] int cellmodem_select(cellmodem &modem);

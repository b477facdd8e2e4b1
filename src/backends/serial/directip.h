// Sierra DirectIP LTE modems: control by AT commands on the command port, data on wwan0.
#pragma once

struct cellmodem;

// Fills the record; the modem itself is not touched before attach. Returns 0.
int sierra_directip_lte_init(cellmodem &modem);

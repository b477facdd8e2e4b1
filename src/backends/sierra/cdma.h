// Sierra Wireless CDMA modems (1xRTT and EVDO), through the SDK's server. The family places and ends
// calls; a data call is up while the appliance's PPP interface is.
#pragma once

struct cellmodem;

// Fills the record; the modem itself is not touched before attach. Returns 0.
int sierra_cdma_init(cellmodem &modem);

// Sierra Wireless UMTS/GSM modems, through the SDK's server. Data calls are the appliance's own
// business: this family follows their state, but neither places nor ends them.
#pragma once

struct cellmodem;

// Fills the record; the modem itself is not touched before attach. Returns 0.
int sierra_gsm_init(cellmodem &modem);

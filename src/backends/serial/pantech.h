// Pantech LTE modems: information, status and short messages by WMC commands on the command port.
#pragma once

struct cellmodem;

// Which message was spooled last, so that it is not spooled again: its identifier.
constexpr const char *pantech_last_sms_path = "/var/run/.modem/cellmodem_last_sms";

// Fills the record; the modem itself is touched by commands only. Returns 0.
int pantech_wmc_init(cellmodem &modem);

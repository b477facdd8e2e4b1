// What the files of the UMTS/GSM family share: the cached state and the operations.
#pragma once

#include "backends/sierra/cns.h"

#include <atomic>
#include <cstdint>
#include <cstdio>

struct cellmodem;

constexpr uint32_t gsm_unknown = 255; // a cached value before its first notification

enum gsm_radio_state { gsm_radio_unknown = 0, gsm_radio_on = 1, gsm_radio_off = 2 };

// The notification thread writes the three cached values.
struct gsm_family {
    bool attached = false;
    bool was_attached = false; // once, with all notifications enabled
    bool notified = false;     // as far as is known, the modem remembers what was enabled
    sierra_identity identity;
    std::atomic<uint32_t> sim_status = gsm_unknown;
    std::atomic<uint32_t> network_status = gsm_unknown;
    std::atomic<uint32_t> system_mode = gsm_unknown;
};

extern gsm_family gsm;

// gsm.cpp: the modem begins anew, or may have.
void gsm_forget_notifications();

// gsm_records.cpp
int sierra_gsm_info(cellmodem &modem, FILE *out, int mode);
int sierra_gsm_status(cellmodem &modem, FILE *out, int mode);

// gsm_sim.cpp
int sierra_gsm_simispresent(cellmodem &modem);
int sierra_gsm_unlocksim(cellmodem &modem, const char *pin);
int sierra_gsm_unblocksim(cellmodem &modem, const char *puk, const char *pin);

// gsm_settings.cpp
int sierra_gsm_radio(cellmodem &modem, bool on);
int sierra_gsm_reset(cellmodem &modem);
int sierra_gsm_enablegps(cellmodem &modem, int fix_interval_s, int accuracy_m);
int sierra_gsm_disablegps(cellmodem &modem);
int sierra_gsm_setrat(cellmodem &modem, int rat);
int sierra_gsm_setregion(cellmodem &modem, uint8_t region, const char *unlock_text);

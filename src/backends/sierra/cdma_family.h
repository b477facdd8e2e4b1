// What the files of the CDMA family share: its state and its operations.
#pragma once

#include "backends/sierra/cns.h"
#include "swi/records.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

struct cellmodem;

constexpr uint8_t hdr_unknown = 255; // the HDR session's state before its first notification

struct cdma_family {
    bool started = false;  // the session is there: an attach only refreshes what is known
    bool notified = false; // as far as is known, the modem remembers what was enabled
    sierra_identity identity;
    uint32_t sms_reference = 0;                           // of the next message that is sent
    std::atomic<uint8_t> hdr_session_state = hdr_unknown; // the notification thread's
};

extern cdma_family cdma;

// cdma.cpp
int sierra_cdma_attach(cellmodem &modem);
int sierra_cdma_ping(cellmodem &modem);
int sierra_cdma_reset(cellmodem &modem);

// cdma_product.cpp: the product's name, or nothing after logging why not.
std::optional<std::string> cdma_product();

// cdma_call.cpp
int sierra_cdma_connect(cellmodem &modem, const char *number, bool voice);
int sierra_cdma_disconnect(cellmodem &modem);
// Publishes whether the data call is up. Of both threads.
void cdma_follow_call(cellmodem &modem);
// What the notification thread hears of a call; the last two publish whether it is up. A call may be
// up, or over, before the command that placed it returns.
void cdma_call_connecting();
void cdma_call_connected(cellmodem &modem);
void cdma_call_disconnected(cellmodem &modem);

// cdma_provision.cpp
int sierra_cdma_activate(cellmodem &modem, const char *msl, const char *mdn, const char *msid);
int sierra_cdma_rtn(cellmodem &modem, const char *msl);

// cdma_messages.cpp
int sierra_cdma_getsms(cellmodem &modem, FILE *out, int mode);
int sierra_cdma_sendsms(cellmodem &modem, const char *path, const char *smsc);

// cdma_records.cpp
int sierra_cdma_info(cellmodem &modem, FILE *out, int mode);
int sierra_cdma_status(cellmodem &modem, FILE *out, int mode);
// The modem's own number; a failure is logged. A swi_result.
int cdma_phone_number(swi_text &number);

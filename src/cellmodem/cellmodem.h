// The modem as the daemon sees it: one record with a few state fields and a table of operations.
// The back-end of the fitted family fills the record; the core calls an operation only after
// testing that it is there, and takes an empty slot to mean that this modem cannot do that.
//
// The daemon owns the one record. Back-ends change `attached`, `device_state` and `session_state`
// only through the publishers of publish/state.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

struct cellmodem;

enum cellmodem_technology { technology_gsm = 1, technology_cdma = 2, technology_lte = 3 };

enum cellmodem_type {
    type_sierra_gsm = 1,
    type_sierra_cdma = 2,
    type_sierra_directip = 3,
    type_gobi = 4,
    type_modem_manager = 5, // has a name, but no back-end
    type_pantech = 6,
};

enum device_state_value { device_unknown = 0, device_responding = 1, device_unresponsive = 2 };

enum session_state_value {
    session_unknown = 0,
    session_connecting = 1,
    session_connected = 2,
    session_disconnected = 3,
    session_invalid = 4,
};

// Output modes of the operations that write a record or a list.
enum output_mode { output_xml = 1, output_lines = 2 };

// The operations, in the order of the table that documents them. Each returns 0 for success and -1
// for failure unless a remark says otherwise; none throws. A text argument may be null where a
// remark says so.
struct cellmodem_slots {
    int (*attach)(cellmodem &) = nullptr; // opens the modem
    int (*detach)(cellmodem &) = nullptr; // closes it; fine on a detached modem
    int (*ping)(cellmodem &) = nullptr;   // 0: the modem answers a trivial request
    int (*info)(cellmodem &, FILE *out, int mode) = nullptr;
    int (*status)(cellmodem &, FILE *out, int mode) = nullptr;
    int (*getsms)(cellmodem &, FILE *out, int mode) = nullptr;
    int (*connect)(cellmodem &, const char *dial_string, bool voice) = nullptr;
    // apn_type ("ipv4", "ipv6", "ipv4v6"), username and password may be null.
    int (*lte_connect)(cellmodem &, const char *apn, const char *apn_type, int auth,
                       const char *username, const char *password) = nullptr;
    int (*disconnect)(cellmodem &) = nullptr;
    int (*radio)(cellmodem &, bool on) = nullptr;
    int (*data_up)(cellmodem &) = nullptr; // 0: a data session is up
    int (*reset)(cellmodem &) = nullptr;
    int (*simispresent)(cellmodem &) = nullptr; // 1: a SIM is present, 0: none
    int (*unlocksim)(cellmodem &, const char *pin) = nullptr;
    int (*unblocksim)(cellmodem &, const char *puk,
                      const char *new_pin) = nullptr; // PIN may be null
    int (*activate)(cellmodem &, const char *msl, const char *mdn,
                    const char *msid) = nullptr; // each may be null
    int (*enablegps)(cellmodem &, int fix_interval_s, int accuracy_m) = nullptr;
    int (*disablegps)(cellmodem &) = nullptr;
    int (*setrat)(cellmodem &, int rat) = nullptr;
    int (*setregion)(cellmodem &, uint8_t region, const char *unlock_password) = nullptr;
    int (*rtn)(cellmodem &, const char *msl) = nullptr; // nonzero: the failed step's own number
    // A null argument leaves that preference as it is.
    int (*setsysselect)(cellmodem &, const uint32_t *mode_mask, const uint64_t *band_mask,
                        const uint64_t *lte_band_mask, const char *acquisition_order) = nullptr;
    // Sends the message file at that path, as the user gave it; smsc may be null.
    int (*sendsms)(cellmodem &, const char *path, const char *smsc) = nullptr;
};

struct cellmodem {
    std::optional<std::string> manufacturer_text; // as read at attach
    std::optional<std::string> aux_buffer;        // model or product text, as read at attach
    uint32_t aux_word = 0;                        // modem type code, as read at attach
    int technology = 0;                           // cellmodem_technology
    cellmodem_slots slots;
    std::atomic<bool> attached = false;
    std::atomic<int> device_state = device_unknown;
    std::atomic<int> session_state = session_unknown;
    std::atomic<int> state_b = 0; // the back-end's own; where it has one, its radio state
    int type = 0;                 // cellmodem_type
    std::string device_path;      // shown as "device"
    // Called before the record is destroyed or filled anew: a back-end whose thread knows the record
    // lets go of it.
    void (*release)(cellmodem &) = nullptr;
};

// A new, empty record. 0, or -1 with *modem null when there is no memory for it.
int cellmodem_create(cellmodem **modem);

// Destroys the record, if there is one, and stores null.
void cellmodem_destroy(cellmodem **modem);

// Copies the name of a type number into the buffer, at most size - 1 characters; callers pass a
// zeroed buffer. Returns the buffer.
char *cellmodem_type_name(int type, char *buffer, size_t size);

// The same name without a copy.
[[nodiscard]] const char *cellmodem_type_text(int type);

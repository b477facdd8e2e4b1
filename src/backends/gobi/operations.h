// What the files of the Gobi family share: the operations, each in the file that is named after its
// concern, and the one connection that all of them use. Operations log their failures themselves and
// return 0 or -1 unless a remark says otherwise.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

struct cellmodem;

constexpr const char *gobi_device = "/dev/qcqmi0";

// Texts that a modem tells and a user gives are handled up to these lengths.
constexpr size_t gobi_text_bytes_max = 255;
constexpr size_t gobi_argument_bytes_max = 256;

// ---- session.cpp: the connection, and the modem as a whole

// The handle of the connection, 0 while detached: requests then end with qmi_no_handle.
[[nodiscard]] uint32_t gobi_handle();

// True for modems of CDMA networks, by their marker.
[[nodiscard]] bool gobi_is_cdma();

// A text of the modem's as the program handles it: UTF-8, up to its first zero, bounded.
[[nodiscard]] std::string gobi_text(const std::string &bytes);

int gobi_attach(cellmodem &modem);
int gobi_detach(cellmodem &modem);
int gobi_ping(cellmodem &modem);
int gobi_radio(cellmodem &modem, bool on);
int gobi_reset(cellmodem &modem);

// ---- info.cpp and status.cpp: the records, from requests that travel together

int gobi_info(cellmodem &modem, FILE *out, int mode); // always 0
// -1 when no request was answered; the record is written all the same.
int gobi_status(cellmodem &modem, FILE *out, int mode);

// ---- data.cpp

int gobi_data_up(cellmodem &modem);
int gobi_connect(cellmodem &modem, const char *apn, const char *apn_type, int auth,
                 const char *username, const char *password);
int gobi_disconnect(cellmodem &modem); // the code of the stop request

// ---- sim.cpp

int gobi_simispresent(cellmodem &modem); // 1 or 0
int gobi_unlocksim(cellmodem &modem, const char *pin);
int gobi_unblocksim(cellmodem &modem, const char *puk, const char *new_pin);

// ---- gps.cpp

int gobi_enablegps(cellmodem &modem, int fix_interval_s, int accuracy_m);
int gobi_disablegps(cellmodem &modem);

// ---- preferences.cpp

int gobi_setrat(cellmodem &modem, int rat);
int gobi_setsysselect(cellmodem &modem, const uint32_t *mode_mask, const uint64_t *band_mask,
                      const uint64_t *lte_band_mask, const char *acquisition_order); // 0 or 1

// ---- sms.cpp

int gobi_getsms(cellmodem &modem, FILE *out, int mode);
int gobi_sendsms(cellmodem &modem, const char *path, const char *smsc);

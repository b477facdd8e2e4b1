// Marker and holding files under /var/run/.modem/. The appliance's hot-plug scripts leave a marker
// for what is fitted; a holding file keeps other programs (and this one) away from the modem.
#pragma once

constexpr const char *marker_is_sierra = "/var/run/.modem/cellmodem_is_sierra";
constexpr const char *marker_is_gsm = "/var/run/.modem/cellmodem_is_gsm";
constexpr const char *marker_is_cdma = "/var/run/.modem/cellmodem_is_cdma";
constexpr const char *marker_is_lte = "/var/run/.modem/cellmodem_is_lte";
constexpr const char *marker_is_sierra_directip = "/var/run/.modem/cellmodem_is_sierra_directip";
constexpr const char *marker_is_gobi = "/var/run/.modem/cellmodem_is_gobi";
constexpr const char *marker_is_cdma_gobi = "/var/run/.modem/cellmodem_is_cdma_gobi";
constexpr const char *marker_is_multicarrier = "/var/run/.modem/cellmodem_is_multicarrier";
constexpr const char *marker_is_pantech = "/var/run/.modem/cellmodem_is_pantech";
constexpr const char *marker_is_external = "/var/run/.modem/cellmodem_is_external";
constexpr const char *marker_has_gps = "/var/run/.modem/cellmodem_has_gps";

constexpr const char *holding_path = "/var/run/.modem/.tessera_wait";
constexpr const char *pause_path = "/var/run/.modem/.tessera_infod_paused";

[[nodiscard]] bool cellmodem_is_external();
[[nodiscard]] bool cellmodem_is_gsm();
[[nodiscard]] bool cellmodem_is_cdma();
[[nodiscard]] bool cellmodem_is_lte();

// Creates the holding file with this process's id in it. A failure is logged: 0 or -1.
int holding_create();

// Removes the holding file, whoever made it.
void holding_remove();

// Removes a holding file whose recorded owner is dead; one that names no process, or a living one,
// stays.
void holding_remove_stale();

// Whether some program holds the modem.
[[nodiscard]] bool holding_present();

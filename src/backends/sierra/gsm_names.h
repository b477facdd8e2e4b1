// What the UMTS/GSM modems' codes are called.
#pragma once

#include "backends/sierra/names.h"

extern const name_table gsm_sim_status_names;
extern const name_table gsm_sim_lock_names; // by the SIM status
extern const name_table gsm_network_status_names;
extern const name_table gsm_service_status_names;
extern const name_table gsm_system_mode_names;
extern const name_table gsm_modem_status_names;
extern const name_table gsm_service_type_names;
extern const name_table gsm_roaming_names;
extern const name_table gsm_band_type_names;
extern const name_table gsm_radio_band_names;
extern const name_table gsm_region_names;

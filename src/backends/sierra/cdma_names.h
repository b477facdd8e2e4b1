// What the CDMA modems' codes are called.
#pragma once

#include "backends/sierra/names.h"

extern const name_table cdma_hdr_state_names;
extern const name_table cdma_nam_status_names;
extern const name_table cdma_authentication_names;
extern const name_table cdma_service_names;
extern const name_table cdma_evdo_service_names;
extern const name_table cdma_roaming_names;
extern const name_table cdma_band_technology_names;
extern const name_table cdma_radio_band_names;
extern const name_table cdma_carrier_names;

// The names of all bits of a call status.
[[nodiscard]] std::string cdma_call_status_names(uint32_t mask);

#include "backends/sierra/gsm_names.h"

constexpr code_name sim_status_rows[] = {
    {0, "SIM is ready"},         {1, "SIM is not inserted"},
    {2, "SIM has been removed"}, {3, "SIM failed to initialize"},
    {4, "General SIM failure"},  {5, "SIM is locked"},
    {6, "PIN1 is blocked"},      {7, "PIN2 is blocked"},
    {8, "PIN1 is rejected"},     {9, "PIN2 is rejected"},
    {10, "MEP check failed"},    {11, "SIM is rejected by the network"},
};

constexpr code_name sim_lock_rows[] = {
    {0, "SIM_READY"},
    {5, "SIM_LOCK_PIN"},
    {6, "SIM_LOCK_PUK"},
    {7, "SIM_LOCK_PUK"},
};

// The notification's and the query's names of the same codes differ in a few rows. Programs that
// read either have always seen them so, the misspelt one included.
constexpr code_name network_status_rows[] = {
    {0, "Normal"},
    {1, "Emergency"},
    {2, "No Service"},
    {3, "Access Difficulty"},
    {4, "Formbidden PLMN"},
    {5, "Forbidden Area"},
    {6, "Forbidden Roaming"},
    {7, "Illegal Mobile Station"},
    {8, "Illegal Equipment"},
    {9, "Unknown IMSI"},
    {10, "Authentication Failure"},
    {11, "GPRS Failed"},
};

constexpr code_name service_status_rows[] = {
    {0, "Normal"},
    {1, "Emergency"},
    {2, "No Service"},
    {3, "Access Difficulty"},
    {4, "Forbidden PLMN"},
    {5, "Forbidden Area"},
    {6, "Forbidden Roaming"},
    {7, "Illegal Mobile Station"},
    {8, "Illegal Mobile Equipment"},
    {9, "Unknown IMSI"},
    {10, "Auth Failure"},
    {11, "PRS Failed"},
};

constexpr code_name system_mode_rows[] = {
    {0, "No Service"}, {1, "GPRS"},  {2, "EDGE"},          {3, "UMTS"},
    {4, "HSDPA"},      {5, "HSUPA"}, {6, "HSDPA + HSUPA"},
};

constexpr code_name modem_status_rows[] = {
    {0, "Offline"},
    {1, "Online"},
    {2, "Low Power Mode"},
};

constexpr code_name service_type_rows[] = {
    {0, "Circuit-switched only"},
    {1, "Packet-switched only"},
    {2, "Circuit and packet-switched"},
    {3, "Invalid Service"},
};

constexpr code_name roaming_rows[] = {
    {0, "Not Roaming"},
    {1, "Roaming"},
};

constexpr code_name band_type_rows[] = {
    {0, "None"},
    {1, "PGSM"},
    {2, "EGSM"},
    {3, "DCS"},
    {4, "PGSM_DCS"},
    {5, "EGSM_DCS"},
    {6, "PCS"},
    {7, "PGSM_PCS"},
    {8, "EGSM_PCS"},
    {9, "GSM850"},
    {10, "GSM850_PCS"},
    {11, "GSM_ALL"},
    {12, "WCDMA_EU"},
    {13, "WCDMA_NA"},
    {14, "WCDMA_GSM_NA"},
    {15, "WCDMA_GSM_EU"},
    {16, "WCDMA_ALL"},
    {17, "WCDMA_AU"},
    {18, "WCDMA_JAP"},
    {19, "WCDMA_GSM_AU"},
    {20, "WCDMA_GSM_AU_2"},
    {21, "WCDMA_GSM_AU_3"},
    {65535, "AUTO"},
};

constexpr code_name radio_band_rows[] = {
    {0, "CDMA Band Class 0"},   {1, "CDMA Band Class 1"},   {2, "CDMA Band Class 2"},
    {3, "CDMA Band Class 3"},   {4, "CDMA Band Class 4"},   {5, "CDMA Band Class 5"},
    {6, "CDMA Band Class 6"},   {7, "CDMA Band Class 7"},   {8, "CDMA Band Class 8"},
    {9, "CDMA Band Class 9"},   {10, "CDMA Band Class 10"}, {11, "CDMA Band Class 11"},
    {12, "CDMA Band Class 12"}, {40, "GSM 450 Band"},       {41, "GSM 480 Band"},
    {42, "GSM 750 Band"},       {43, "GSM 850 Band"},       {44, "GSM E-GSM 900 Band"},
    {45, "GSM P-GSM 900 Band"}, {46, "GSM R-GSM 900 Band"}, {47, "GSM DCS 1800 Band"},
    {48, "GSM PCS 1900 Band"},  {80, "WCDMA I IMT 2000"},   {81, "WCDMA II PCS 1900"},
    {82, "WCDMA III DCS 1800"}, {83, "WCDMA IV 1700"},      {84, "WCDMA V 850"},
    {85, "WCDMA VI 800"},       {86, "WCDMA VII 2600"},     {87, "WCDMA VIII 900"},
    {88, "WCDMA IX 1700"},      {255, "Invalid Band"},
};

constexpr code_name region_rows[] = {
    {0, "default (internal)"}, {1, "Europe"}, {2, "North America"}, {3, "Australia"}, {4, "Japan"},
    {5, "reserved"},           {6, "Italy"},
};

const name_table gsm_sim_status_names = {sim_status_rows, "Status Undefined"};
const name_table gsm_sim_lock_names = {sim_lock_rows, "SIM_ERROR"};
const name_table gsm_network_status_names = {network_status_rows, "Unknown"};
const name_table gsm_service_status_names = {service_status_rows, "Unknown"};
const name_table gsm_system_mode_names = {system_mode_rows, "Unknown"};
const name_table gsm_modem_status_names = {modem_status_rows, "Unknown"};
const name_table gsm_service_type_names = {service_type_rows, "Unknown"};
const name_table gsm_roaming_names = {roaming_rows, "Unknown: ", other_code::text_and_unsigned};
const name_table gsm_band_type_names = {band_type_rows, "Unknown: ", other_code::text_and_signed};
const name_table gsm_radio_band_names = {radio_band_rows, "Unknown Band"};
const name_table gsm_region_names = {region_rows, "unknown region: ", other_code::text_and_signed};

#include "backends/sierra/cdma_names.h"

constexpr code_name hdr_state_rows[] = {
    {0, "State close"},  {1, "Protocol setup"}, {2, "AT initiated"},
    {3, "AN initiated"}, {4, "State open"},
};

constexpr code_name nam_status_rows[] = {
    {0, "Incomplete, Service Required"},
    {1, "Complete"},
    {2, "Incomplete, exceptional Service Required"},
};

constexpr code_name authentication_rows[] = {
    {0, "Authenticated"},
    {1, "Not Authenticated"},
};

constexpr code_name service_rows[] = {
    {0, "No Service"},
    {1, "Analog"},
    {2, "Digital"},
};

constexpr code_name evdo_service_rows[] = {
    {0, "No Service"},
    {2, "Rev0"},
    {4, "RevA"},
};

constexpr code_name roaming_rows[] = {
    {0, "Not Roaming"},
    {1, "Roaming"},
    {2, "Non Preferred Roaming"},
};

constexpr code_name band_technology_rows[] = {
    {0, "1xRTT"},
    {1, "EVDO"},
    {2, "GSM/WCDMA"},
};

// Not the UMTS/GSM family's table: programs that read either know its own names of code 48, of an
// invalid and of an unknown band.
constexpr code_name radio_band_rows[] = {
    {0, "CDMA Band Class 0"},   {1, "CDMA Band Class 1"},   {2, "CDMA Band Class 2"},
    {3, "CDMA Band Class 3"},   {4, "CDMA Band Class 4"},   {5, "CDMA Band Class 5"},
    {6, "CDMA Band Class 6"},   {7, "CDMA Band Class 7"},   {8, "CDMA Band Class 8"},
    {9, "CDMA Band Class 9"},   {10, "CDMA Band Class 10"}, {11, "CDMA Band Class 11"},
    {12, "CDMA Band Class 12"}, {40, "GSM 450 Band"},       {41, "GSM 480 Band"},
    {42, "GSM 750 Band"},       {43, "GSM 850 Band"},       {44, "GSM E-GSM 900 Band"},
    {45, "GSM P-GSM 900 Band"}, {46, "GSM R-GSM 900 Band"}, {47, "GSM DCS 1800 Band"},
    {48, "GSM DCS 1900 Band"},  {80, "WCDMA I IMT 2000"},   {81, "WCDMA II PCS 1900"},
    {82, "WCDMA III DCS 1800"}, {83, "WCDMA IV 1700"},      {84, "WCDMA V 850"},
    {85, "WCDMA VI 800"},       {86, "WCDMA VII 2600"},     {87, "WCDMA VIII 900"},
    {88, "WCDMA IX 1700"},      {255, "Invalid band"},
};

constexpr code_name carrier_rows[] = {
    {0, "Reserved"},
    {1, "Generic"},
    {2, "Sprint"},
    {3, "Bell Mobility"},
    {4, "Telus"},
    {5, "Verizon Wireless"},
    {6, "Western Wireless"},
    {7, "SmartCom"},
    {8, "AllTel"},
    {9, "US Cellular"},
    {10, "(Thera) Sprint"},
    {11, "(Thera) Bell Mobility"},
    {12, "(Thera) Telus"},
    {13, "(Thera) Verizon Wireless"},
    {14, "China Unicom"},
    {15, "Hutchison Thailand"},
    {16, "MovilNet"},
    {17, "Iusacell Mexico"},
    {18, "Telecom NewZealand"},
    {19, "Reliance"},
    {20, "Telstra"},
    {21, "Mobility Canada"},
    {22, "Verizon Wireless Puerto Rico"},
    {23, "Pelephone"},
    {24, "Bell Canada"},
    {25, "Indosol"},
    {26, "MidWest Wireless"},
    {27, "South Chile"},
    {28, "South Panama"},
    {29, "Tata"},
};

// No bit stands for the first row, so a modem without a call has an empty text.
constexpr code_name call_status_rows[] = {
    {0x0, "No call"},
    {0x1, "Async Data call"},
    {0x2, "Voice call"},
    {0x4, "Packet 1xRTT call"},
    {0x10, "Async Data call (via AT cmds)"},
    {0x20, "Voice call (via AT cmds)"},
    {0x40, "Packet 1xRtt call (via AT cmds)"},
    {0x80, "Fax call"},
    {0x200, "SMS"},
    {0x400, "OTA"},
    {0x4000, "Data connection is in dormant state"},
    {0x8000, "An emergency (E911) call"},
};

const name_table cdma_hdr_state_names = {hdr_state_rows, "Unknown"};
const name_table cdma_nam_status_names = {nam_status_rows, "Unknown"};
const name_table cdma_authentication_names = {authentication_rows,
                                              "Unknown: ", other_code::text_and_signed};
const name_table cdma_service_names = {service_rows, "Unknown: ", other_code::text_and_unsigned};
const name_table cdma_evdo_service_names = {evdo_service_rows, "Unknown"};
const name_table cdma_roaming_names = {
    roaming_rows, "Service Provider Dependent: ", other_code::text_and_unsigned};
const name_table cdma_band_technology_names = {band_technology_rows,
                                               "Unknown type: ", other_code::text_and_signed};
const name_table cdma_radio_band_names = {radio_band_rows,
                                          "Unknown band: ", other_code::text_and_signed};
const name_table cdma_carrier_names = {carrier_rows,
                                       "Unknown Carrier: ", other_code::text_and_signed};

std::string cdma_call_status_names(uint32_t mask)
{
    return names_of_mask(call_status_rows, mask);
}

#include "backends/gobi/names.h"

#include <iterator>

constexpr const char *none = nullptr;

constexpr const char *technology_names[] = {
    none, "CDMA2000 1X", "CDMA2000 (1xEV-DO)", none, "GSM", "UMTS", none, none, "LTE", "TDS",
};

constexpr const char *interface_names[] = {
    "none", "cdma20001x", "cdma2000hrpd", "amps", "gsm", "umts", "none", "none", "lte", "tdcdma",
};

constexpr const char *mode_names[] = {
    "cdma2000 1X", "cdma2000 HRPD", "GSM", "UMTS", "LTE", "TD-SCDMA",
};

constexpr const char *rat_names[] = {
    "CDMA", "HRPD", "GSM", "UMTS", "LTE", "TD-SCDMA",
};

constexpr const char *band_names[] = {
    "Band Class 0, A-System",
    "Band Class 0, B-System, Band Class 0 AB, GSM 850 band",
    "Band Class 1, all blocks",
    "Band Class 2 placeholder",
    "Band Class 3, A-System",
    "Band Class 4, all blocks",
    "Band Class 5, all blocks",
    "GSM DCS 1800 band",
    "GSM Extended GSM (E-GSM) 900 band",
    "GSM Primary GSM (P-GSM) 900 band",
    "Band Class 6",
    "Band Class 7",
    "Band Class 8",
    "Band Class 9",
    "Band Class 10",
    "Band Class 11",
    "GSM 450 band",
    "GSM 480 band",
    "GSM 750 band",
    "GSM 850 band",
    "GSM Railways GSM 900 band",
    "GSM PCS 1900 band",
    "WCDMA Europe, Japan, and China IMT 2100 band",
    "WCDMA U.S. PCS 1900 band",
    "WCDMA Europe and China DCS 1800 band",
    "WCDMA U.S. 1700 band",
    "WCDMA U.S. 850 band",
    "WCDMA Japan 800 band",
    "Band Class 12",
    "Band Class 14",
    "Reserved",
    "Band Class 15",
};

constexpr size_t lte_bands = 32;

// These texts have always been one place off from what the modem means from 1 on, with the name of
// a band at the end. Those who read them go by it.
constexpr const char *pin_names[] = {
    "PIN is not initialized", "PIN is enabled, verified",   "PIN is disabled",
    "PIN is blocked",         "PIN is permanently blocked", "PIN is unblocked",
    "PIN is changed",         "CDMA Band Class 0",
};

constexpr const char *modem_status_names[] = {
    "Online",       "Low Power", "Factory Test",         "Offline",
    "Resetting",    "Shutdown",  "Persistent Low Power", "Mode Only",
    "Network Test",
};

constexpr const char *nam_status_names[] = {
    "Service Not Activated",        "Service Activated",
    "Activation Connecting",        "Activation In Progress",
    "OTASP Security Authenticated", "OTASP NAM Downloaded",
    "OTASP MDN Downloaded",         "OTASP IMSI Downloaded",
    "OTASP PRL Downloaded",         "OTASP SPC Downloaded",
    "OTASP Settings Committed",
};

constexpr const char *registration_names[] = {
    "Not Registered", "Registered", "Not Registered, Searching", "Registration Denied", "Unknown",
};

constexpr const char *bearer_names[] = {
    none,
    "CDMA 1xRTT",
    "CDMA 1xEVDO Rev 0",
    "GPRS",
    "WCDMA",
    "CDMA 1xEVDO Rev A",
    "EDGE",
    "HSDPA DL, WCDMA UL",
    "WCDMA DL HSUPA UL",
    "HSDPA DL HSUPA UL",
    "LTE",
    "CDMA 1xEVDO eHRPD",
    "HSDPA+ DL, WCDMA UL",
    "HSDPA+ DL, HSUPA UL",
    "DC HSDPA+ DL, WCDMA UL",
    "DC HSDPA+ DL, HSUPA UL",
};

constexpr const char *data_service_names[] = {
    none,         "GPRS",       "EDGE", "HSDPA",      "HSUPA", "WCDMA",  "CDMA",
    "EVDO Rev 0", "EVDO Rev A", "GSM",  "EVDO Rev B", "LTE",   "HSDPA+", "DC-HSDPA+",
};

const gobi_names gobi_technology_names = technology_names;
const gobi_names gobi_interface_names = interface_names;
const gobi_names gobi_mode_names = mode_names;
const gobi_names gobi_rat_names = rat_names;
const gobi_names gobi_band_names = band_names;
const gobi_names gobi_pin_names = pin_names;
const gobi_names gobi_modem_status_names = modem_status_names;
const gobi_names gobi_nam_status_names = nam_status_names;
const gobi_names gobi_registration_names = registration_names;
const gobi_names gobi_bearer_names = bearer_names;
const gobi_names gobi_data_service_names = data_service_names;

static_assert(std::size(band_names) == 32);
static_assert(std::size(bearer_names) == 16);
static_assert(std::size(data_service_names) == 14);

// ---- lists

const char *gobi_name(gobi_names names, size_t code)
{
    return code < names.size() ? names[code] : nullptr;
}

void gobi_list_add(std::string &list, std::string_view separator, std::string_view entry)
{
    if (!list.empty())
        list += separator;
    list += entry;
}

std::string gobi_name_list(gobi_names names, std::span<const uint8_t> codes,
                           std::string_view separator)
{
    std::string list;
    for (const uint8_t code : codes)
        if (const char *name = gobi_name(names, code))
            gobi_list_add(list, separator, name);
    return list;
}

static bool has_bit(uint64_t mask, size_t bit)
{
    return (mask >> bit & 1) != 0;
}

std::string gobi_bit_list(gobi_names names, uint64_t mask, std::string_view separator)
{
    std::string list;
    for (size_t bit = 0; bit < names.size(); bit++)
        if (has_bit(mask, bit))
            gobi_list_add(list, separator, names[bit]);
    return list;
}

static std::string lte_band_name(size_t number)
{
    return "E-UTRA Operating Band " + std::to_string(number);
}

std::string gobi_lte_band_list(uint64_t mask)
{
    std::string list;
    for (size_t bit = 0; bit < lte_bands; bit++)
        if (has_bit(mask, bit))
            gobi_list_add(list, ", ", lte_band_name(bit + 1));
    return list;
}

// ---- active bands

constexpr const char *gsm_bands[] = {
    "GSM 450 Band",       "GSM 480 Band",       "GSM 750 Band",
    "GSM 850 Band",       "GSM E-GSM 900 Band", "GSM P-GSM 900 Band",
    "GSM R-GSM 900 Band", "GSM DCS 1800 Band",  "GSM PCS 1900 Band",
};

constexpr const char *wcdma_bands[] = {
    "WCDMA I IMT 2000", "WCDMA II PCS 1900", "WCDMA III DCS 1800", "WCDMA IV 1700", "WCDMA V 850",
    "WCDMA VI 800",     "WCDMA VII 2600",    "WCDMA VIII 900",     "WCDMA IX 1700", none,
    "WCDMA XI 1500",    "WCDMA XIX 850",
};

constexpr const char *td_scdma_bands[] = {
    "TD-SCDMA Band A", "TD-SCDMA Band B", "TD-SCDMA Band C",
    "TD-SCDMA Band D", "TD-SCDMA Band E", "TD-SCDMA Band F",
};

// By what they are called in E-UTRA; the numbers were given out as bands came into use.
constexpr uint8_t e_utra_bands[] = {
    1,  2,   3,   4,   5,  6,  7,  8,  9,   10, 11, 12, 13, 14, 17, 33, 34,
    35, 36,  37,  38,  39, 40, 18, 19, 20,  21, 24, 25, 41, 42, 43, 23, 26,
    32, 125, 126, 127, 28, 29, 30, 66, 250, 46, 27, 31, 47, 48, 71,
};

constexpr size_t cdma_band_classes = 20;
constexpr size_t first_gsm_band = 40;
constexpr size_t first_wcdma_band = 80;
constexpr size_t first_e_utra_band = 120;
constexpr size_t first_td_scdma_band = 200;
static_assert(first_e_utra_band + std::size(e_utra_bands) == 169);

// Numbers below the first one wrap around to far behind the last one.
std::string gobi_active_band_name(uint16_t band)
{
    if (band < cdma_band_classes)
        return "CDMA Band Class " + std::to_string(band);
    if (band - first_e_utra_band < std::size(e_utra_bands))
        return lte_band_name(e_utra_bands[band - first_e_utra_band]);
    for (const char *name : {gobi_name(gsm_bands, band - first_gsm_band),
                             gobi_name(wcdma_bands, band - first_wcdma_band),
                             gobi_name(td_scdma_bands, band - first_td_scdma_band)})
        if (name)
            return name;
    return "Unknown Band";
}

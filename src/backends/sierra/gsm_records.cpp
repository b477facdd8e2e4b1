// The information and the status record of a UMTS/GSM modem, row by row.

#include "backends/sierra/gsm_family.h"
#include "backends/sierra/gsm_names.h"
#include "backends/sierra/record.h"
#include "cellmodem/cellmodem.h"
#include "platform/log.h"
#include "platform/text.h"
#include "publish/state.h"
#include "swi/calls.h"

#include <algorithm>
#include <cstdio>

constexpr size_t identity_max = 15; // characters of IMEI, serial and telephone number
constexpr size_t version_max = 31;
constexpr size_t imsi_max = 16;
constexpr size_t country_max = 3;
constexpr size_t carrier_max = 31;
constexpr size_t cells_text_max = 64;
constexpr size_t bands_text_max = 256;
constexpr uint32_t msisdn_book = 3;

// What the queries fill and the rows read.
struct gsm_record_data {
    const cellmodem &modem;
    swi_text text = {};
    swi_band_info band_info = {};
    swi_number region = {};
    swi_rssi_ber signal = {};
    swi_gsm_imsi imsi = {};
    swi_gsm_system_status system = {};
    swi_rscp_ecio cells = {};
    swi_radio_bands radio_bands = {};
    swi_radio_temperature temperature = {};
    std::string phone_number = {};
    // The notified values as they were when the record was begun: its rows agree with each other.
    uint32_t sim_status = gsm.sim_status;
    uint32_t network_status = gsm.network_status;
    uint32_t system_mode = gsm.system_mode;
};

// ---- queries

// A query that is one request.
template <auto Request, auto Member, record_failure Failure>
constexpr int (*ask)(gsm_record_data &) = record_ask<Request, Member, Failure, gsm_record_data>;

constexpr auto query_imei = ask<swi_get_imei, &gsm_record_data::text, "SwiGetImei() failed">;
constexpr auto query_serial =
    ask<swi_get_serial_number, &gsm_record_data::text, "SwiGetSerialNumber() failed">;
constexpr auto query_hardware =
    ask<swi_get_hardware_version, &gsm_record_data::text, "SwiGetHardwareVersion() failed">;
constexpr auto query_boot =
    ask<swi_get_boot_version, &gsm_record_data::text, "SwiGetBootVersion() failed">;
constexpr auto query_firmware =
    ask<swi_get_firmware_version, &gsm_record_data::text, "SwiGetFirmwareVersion() failed">;
constexpr auto query_region =
    ask<swi_get_prl_region, &gsm_record_data::region, "SwiGetPrlRegion failed">;
constexpr auto query_signal =
    ask<swi_get_rssi_ber, &gsm_record_data::signal, "SwiGetRssiBer failed">;
constexpr auto query_imsi = ask<swi_get_gsm_imsi, &gsm_record_data::imsi, "SwiGetGsmImsi() failed">;
constexpr auto query_system =
    ask<swi_get_gsm_system_status, &gsm_record_data::system, "SwiGetGsmSystemStatus() failed ">;
constexpr auto query_temperature =
    ask<swi_get_radio_temp_state, &gsm_record_data::temperature, "SwiGetRadioTempState failed">;

static int query_band_info(gsm_record_data &data)
{
    const int result = swi_get_band_info(data.band_info, sierra_timeout_ms);
    if (result == swi_ok)
        log_message(log_debug, "Band type: %d Valid bands: %d", data.band_info.current,
                    data.band_info.count);
    return record_answered(result, "SwiGetBandInfo() failed");
}

// A position that is no digit ends the number.
static std::string digits_text(const swi_phonebook_entry &entry)
{
    static constexpr char digits[] = "0123456789";
    std::string text;
    const size_t count = std::min<size_t>(entry.digit_count, std::size(entry.digits));
    for (size_t i = 0; i < count && entry.digits[i] <= 9; i++)
        text += digits[entry.digits[i]];
    return text;
}

static int query_phone_number(gsm_record_data &data)
{
    // The modem reads the book from the SIM only for somebody who listens.
    (void)swi_enable_notification(swi_notify_phonebook_ready, sierra_timeout_ms);
    (void)swi_enable_notification(swi_notify_phonebook_entry, sierra_timeout_ms);
    swi_phonebook_request request;
    request.book = msisdn_book;
    swi_phonebook_entry entry;
    const int result = swi_get_phonebook_entry(request, entry, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_debug, "SwiGetPhonebookEntryExp failed: %d\n", result);
        return query_failed;
    }
    if (entry.entries == 0) {
        log_message(log_debug, "No entries in MSISDN Phone book");
        return query_failed;
    }
    data.phone_number = digits_text(entry);
    return query_ok;
}

static int query_cells(gsm_record_data &data)
{
    const int result = swi_get_rscp_ecio(swi_cells_max, data.cells, sierra_timeout_ms);
    if (result != swi_ok)
        return record_answered(result, "SwiGetRscpEcIo() failed");
    log_message(log_debug, "Rscp/EcIo total cells: %d", data.cells.count);
    return data.cells.count > 0 ? query_ok : query_empty;
}

static int query_radio_bands(gsm_record_data &data)
{
    const int result = swi_get_current_radio_band(data.radio_bands, sierra_timeout_ms);
    if (result != swi_ok)
        return record_answered(result, "SwiGetCurrentRadioBand() failed");
    log_message(log_debug, "Number of current bands: %lu\n",
                static_cast<unsigned long>(data.radio_bands.count));
    return data.radio_bands.count > 0 ? query_ok : query_empty;
}

// ---- values

static record_value hex_digits(unsigned number)
{
    char text[16];
    snprintf(text, sizeof(text), "%x", number);
    return record_text(text);
}

template <size_t Max>
static record_value text_value(const gsm_record_data &data)
{
    return record_text(record_cut(data.text.text, Max));
}

// A cached code, or "Unknown" before its first notification.
static record_value cached(uint32_t code, const name_table &names)
{
    return code == gsm_unknown ? record_unknown() : record_text(name_of(names, code));
}

static record_value imsi_value(const gsm_record_data &data)
{
    char text[imsi_max + 16];
    snprintf(text, sizeof(text), "%03x%02x%s", data.imsi.mcc, data.imsi.mnc, data.imsi.msin);
    return record_text(record_cut(text, imsi_max));
}

static std::string sierra_gsm_rscpeciotostring(const swi_cell &cell)
{
    char text[16];
    log_message(log_debug, "sierra_gsm_rscpeciotostring(%u, %u, %u, %p, %u)", cell.rscp,
                cell.second, cell.ecio, static_cast<void *>(text),
                static_cast<unsigned>(sizeof(text)));
    snprintf(text, sizeof(text), "-%.2f", cell.ecio * 0.5);
    return text;
}

static record_value cells_value(const gsm_record_data &data)
{
    return record_list(std::span(data.cells.cells).first(data.cells.count), cells_text_max,
                       sierra_gsm_rscpeciotostring);
}

static record_value band_types_value(const gsm_record_data &data)
{
    return record_list(
        std::span(data.band_info.valid).first(data.band_info.count), bands_text_max,
        [](const swi_band_type &band) { return name_of(gsm_band_type_names, band.type); });
}

static record_value radio_bands_value(const gsm_record_data &data)
{
    return record_list(
        std::span(data.radio_bands.bands).first(data.radio_bands.count), bands_text_max,
        [](const swi_radio_band &band) { return name_of(gsm_radio_band_names, band.band); });
}

// ---- the records

using row = record_row<gsm_record_data>;

// clang-format off
constexpr row info_rows[] = {
    {"attached", nullptr, [](const gsm_record_data &d) { return record_text(d.modem.attached ? "yes" : "no"); }},
    {"driver", nullptr, [](const gsm_record_data &d) { return record_text(cellmodem_type_text(d.modem.type)); }},
    {"device", nullptr, [](const gsm_record_data &d) { return record_text(d.modem.device_path); }},
    {"product", nullptr, [](const gsm_record_data &d) { return d.modem.aux_buffer ? record_text(*d.modem.aux_buffer) : record_value(); }},
    {"technology", nullptr, [](const gsm_record_data &) { return record_text("GSM/UMTS"); }},
    {"type", nullptr, [](const gsm_record_data &d) { return record_number(d.modem.aux_word); }},
    {"imei", query_imei, text_value<identity_max>},
    {"serial", query_serial, text_value<identity_max>},
    {"hardware", query_hardware, text_value<version_max>},
    {"boot", query_boot, text_value<version_max>},
    {"firmware", query_firmware, text_value<version_max>},
    {"band", query_band_info, [](const gsm_record_data &d) { return record_text(name_of(gsm_band_type_names, d.band_info.current)); }},
    {"bands", query_band_info, band_types_value},
    {"region", query_region, [](const gsm_record_data &d) { return record_text(name_of(gsm_region_names, d.region.value)); }},
};

constexpr row status_rows[] = {
    {"device-state", nullptr, [](const gsm_record_data &d) { return record_text(device_state_name(d.modem.device_state)); }},
    {"rssi", query_signal, [](const gsm_record_data &d) { return record_number(d.signal.rssi); }},
    {"ber", query_signal, [](const gsm_record_data &d) { return record_number(d.signal.ber); }},
    {"sim-status-code", nullptr, [](const gsm_record_data &d) { return d.sim_status == gsm_unknown ? record_unknown() : record_number(d.sim_status); }},
    {"sim-status", nullptr, [](const gsm_record_data &d) { return cached(d.sim_status, gsm_sim_status_names); }},
    {"sim-lock", nullptr, [](const gsm_record_data &d) { return record_text(name_of(gsm_sim_lock_names, d.sim_status)); }},
    {"sim-msin", query_imsi, [](const gsm_record_data &d) { return record_text(text_from_bytes(d.imsi.msin)); }},
    {"sim-mcc", query_imsi, [](const gsm_record_data &d) { return hex_digits(d.imsi.mcc); }},
    {"sim-mnc", query_imsi, [](const gsm_record_data &d) { return hex_digits(d.imsi.mnc); }},
    {"sim-imsi", query_imsi, imsi_value},
    {"phone-number1", query_phone_number, [](const gsm_record_data &d) { return record_text(record_cut(d.phone_number.c_str(), identity_max)); }},
    {"modem-status", query_system, [](const gsm_record_data &d) { return record_text(name_of(gsm_modem_status_names, d.system.modem_status)); }},
    {"service-status", query_system, [](const gsm_record_data &d) { return record_text(name_of(gsm_service_status_names, d.system.service_status)); }},
    {"service-type", query_system, [](const gsm_record_data &d) { return record_text(name_of(gsm_service_type_names, d.system.service_type)); }},
    {"roaming-status", query_system, [](const gsm_record_data &d) { return record_text(name_of(gsm_roaming_names, d.system.roaming_status)); }},
    {"country", query_system, [](const gsm_record_data &d) { return record_text(record_cut(d.system.country, country_max)); }},
    {"carrier", query_system, [](const gsm_record_data &d) { return record_text(record_cut(d.system.carrier, carrier_max)); }},
    {"ecio", query_cells, cells_value},
    {"current-bands", query_radio_bands, radio_bands_value},
    {"temperature", query_temperature, [](const gsm_record_data &d) { return record_number(d.temperature.celsius); }},
    {"network-status", nullptr, [](const gsm_record_data &d) { return cached(d.network_status, gsm_network_status_names); }},
    {"system-mode", nullptr, [](const gsm_record_data &d) { return cached(d.system_mode, gsm_system_mode_names); }},
};
// clang-format on

int sierra_gsm_info(cellmodem &modem, FILE *out, int mode)
{
    return record_write_info<gsm_record_data>(info_rows, {.modem = modem}, out, mode);
}

int sierra_gsm_status(cellmodem &modem, FILE *out, int mode)
{
    return record_write_status<gsm_record_data>(status_rows, {.modem = modem}, out, mode);
}

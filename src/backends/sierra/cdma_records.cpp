// The information and the status record of a CDMA modem, row by row.

#include "backends/sierra/cdma_family.h"
#include "backends/sierra/cdma_names.h"
#include "backends/sierra/record.h"
#include "cellmodem/cellmodem.h"
#include "platform/log.h"
#include "publish/state.h"
#include "swi/calls.h"

#include <algorithm>

#include <arpa/inet.h>

constexpr size_t identity_max = 15; // characters of the telephone numbers and the MSID
constexpr size_t version_max = 31;
constexpr size_t nai_max = 127;
constexpr size_t call_status_max = 63;
constexpr size_t bands_text_max = 1024;
constexpr size_t bands_max = 8;
constexpr uint32_t mip_profile_max = 5;
constexpr int mip_profile_timeout_ms = 120000;

// What the queries fill and the rows read.
struct cdma_record_data {
    const cellmodem &modem;
    swi_number number = {};
    swi_signed_number level = {};
    swi_text text = {};
    swi_number sid = {};
    swi_number nid = {};
    swi_mip_profile mip = {};
    swi_rssi_ecio signal = {};
    swi_frames frames = {};
    swi_byte_counter bytes = {};
    swi_base_station station = {};
    swi_radio_bands bands = {};
    swi_roaming roaming = {};
    uint8_t hdr_session_state = cdma.hdr_session_state;
};

using record = cdma_record_data;

// ---- queries

// A query that is one request.
template <auto Request, auto Member, record_failure Failure>
constexpr int (*ask)(record &) = record_ask<Request, Member, Failure, record>;

// A query for one number.
template <auto Request, record_failure Failure>
constexpr int (*ask_number)(record &) = ask<Request, &record::number, Failure>;

constexpr auto query_signal = ask<swi_get_rssi_ecio, &record::signal, "SwiGetRssiEcio failed">;
constexpr auto query_frames = ask<swi_get_tech_frame, &record::frames, "SwiGetTechFrame failed">;
constexpr auto query_bytes = ask<swi_get_byte_counter, &record::bytes, "SwiGetByteCounter failed">;
constexpr auto query_station =
    ask<swi_get_tech_bs_info, &record::station, "SwiGetTechBSInfo failed">;
constexpr auto query_bands =
    ask<swi_get_current_radio_band, &record::bands, "SwiGetCurrentRadioBand failed">;
constexpr auto query_roaming =
    ask<swi_get_roaming_status, &record::roaming, "SwiGetRoamingStatus failed">;

int cdma_phone_number(swi_text &number)
{
    const int result = swi_get_phone_number(number, sierra_timeout_ms);
    if (result != swi_ok)
        log_message(log_error, "SwiGetPhoneNumber failed with %d", result);
    return result;
}

static int query_phone_number(record &data)
{
    return cdma_phone_number(data.text) == swi_ok ? query_ok : query_failed;
}

// Neither number means anything without the other.
static int query_system(record &data)
{
    const int sid = record_ask<swi_get_tech_sid, &record::sid, "SwiGetTechSID() failed">(data);
    const int nid = record_ask<swi_get_tech_nid, &record::nid, "SwiGetTechNID() failed">(data);
    return std::min(sid, nid);
}

static int query_mip_profile(record &data)
{
    swi_number index;
    if (swi_get_active_mip_profile(index, sierra_timeout_ms) != swi_ok) {
        log_message(log_error, "Failed to determine active MIP profile");
        return query_failed;
    }
    log_message(log_debug, "Active MIP profile: %u", index.value);
    if (index.value > mip_profile_max) {
        log_message(log_error, "MIP Profile must be between 0 and 5");
        return query_failed;
    }
    return record_answered(swi_get_mip_profile(index.value, data.mip, mip_profile_timeout_ms),
                           "Failed to read the MIP profile");
}

// Nothing notified yet is no failure.
static int query_hdr_state(record &data)
{
    if (data.hdr_session_state != hdr_unknown)
        return query_ok;
    log_message(log_debug, "HDR Session State: %d", data.hdr_session_state);
    return query_empty;
}

// ---- values

static record_value number_value(const record &data)
{
    return record_number(data.number.value);
}

static record_value level_value(const record &data)
{
    return record_number(data.level.value);
}

template <size_t Max>
static record_value text_value(const record &data)
{
    return record_text(record_cut(data.text.text, Max));
}

// The name of the number that was asked for.
template <const name_table &Names>
static record_value name_value(const record &data)
{
    return record_text(name_of(Names, data.number.value));
}

// Strengths arrive without their sign.
template <auto Magnitude>
static record_value signal_value(const record &data)
{
    return record_number(-int64_t{data.signal.*Magnitude});
}

template <auto Address>
static record_value address_value(const record &data)
{
    const in_addr address = {htonl(data.mip.*Address)};
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return record_text(text);
}

static std::string band_text(const swi_radio_band &band)
{
    return name_of(cdma_radio_band_names, band.band) + " " +
           name_of(cdma_band_technology_names, band.technology);
}

static record_value bands_value(const record &data)
{
    return record_list(
        std::span(data.bands.bands).first(std::min<size_t>(data.bands.count, bands_max)),
        bands_text_max, band_text);
}

static record_value call_status_value(const record &data)
{
    return record_text(
        record_cut(cdma_call_status_names(data.number.value).c_str(), call_status_max));
}

// ---- the records

using row = record_row<record>;

// clang-format off
constexpr row info_rows[] = {
    {"attached", nullptr, [](const record &d) { return record_text(d.modem.attached ? "yes" : "no"); }},
    {"driver", nullptr, [](const record &d) { return record_text(cellmodem_type_text(d.modem.type)); }},
    {"device", nullptr, [](const record &d) { return record_text(d.modem.device_path); }},
    {"product", nullptr, [](const record &d) { return d.modem.aux_buffer ? record_text(*d.modem.aux_buffer) : record_value(); }},
    {"technology", nullptr, [](const record &) { return record_text("CDMA"); }},
    {"type", nullptr, [](const record &d) { return record_number(d.modem.aux_word); }},
    {"esn", ask_number<swi_get_esn, "SwiGetESN() failed">, number_value},
    {"manufacturer", nullptr, [](const record &) { return record_text("Sierra Wireless, Inc."); }},
    {"hardware", ask<swi_get_hardware_version, &record::text, "SwiGetHardwareVersion() failed">, text_value<version_max>},
    {"boot", ask<swi_get_boot_version, &record::text, "SwiGetBootVersion() failed">, text_value<version_max>},
    {"firmware", ask<swi_get_firmware_version, &record::text, "SwiGetFirmwareVersion() failed">, text_value<version_max>},
    {"prl-version", ask_number<swi_get_prl_version, "SwiGetPRLVersion() failed">, number_value},
    {"phone-number1", query_phone_number, text_value<identity_max>},
    {"mdn", ask<swi_get_mobile_dir_number, &record::text, "SwiGetMobileDirNumber() failed">, text_value<identity_max>},
    {"msid", ask<swi_get_cdma_imsi, &record::text, "SwiGetCdmaIMSI() failed">, text_value<identity_max>},
    {"nam-status", ask_number<swi_get_nam_calid_status, "SwiGetNamCalidStatus() failed">, name_value<cdma_nam_status_names>},
    {"sid", query_system, [](const record &d) { return record_number(d.sid.value); }},
    {"nid", query_system, [](const record &d) { return record_number(d.nid.value); }},
    {"hdr-mac-index", ask_number<swi_get_tech_hdr_mac_index, "SwiGetTechHdrMacIndex failed">, number_value},
    {"packet-zone", ask_number<swi_get_packet_zone, "SwiGetPacketZone() failed">, number_value},
    // Whoever watches the log for this text gets it for either key.
    {"mip-behavior", ask_number<swi_get_mip_behavior, "SwiGetPacketZone() failed">, number_value},
    {"mip-nai", query_mip_profile, [](const record &d) { return record_text(record_cut(d.mip.nai, nai_max)); }},
    {"mip-home-ip", query_mip_profile, address_value<&swi_mip_profile::home_address>},
    {"mip-ha-ip-1", query_mip_profile, address_value<&swi_mip_profile::primary_agent>},
    {"mip-ha-ip-2", query_mip_profile, address_value<&swi_mip_profile::secondary_agent>},
    {"band-class", ask_number<swi_get_tech_band_class, "SwiGetTechBandClass failed">, number_value},
};

constexpr row status_rows[] = {
    {"device-state", nullptr, [](const record &d) { return record_text(device_state_name(d.modem.device_state)); }},
    {"session-state", nullptr, [](const record &d) { return record_text(session_state_name(d.modem.session_state)); }},
    {"rssi", query_signal, signal_value<&swi_rssi_ecio::rssi>},
    {"ecio", query_signal, signal_value<&swi_rssi_ecio::ecio>},
    {"hdr-rssi", query_signal, signal_value<&swi_rssi_ecio::hdr_rssi>},
    {"hdr-ecio", query_signal, signal_value<&swi_rssi_ecio::hdr_ecio>},
    {"carrier", ask_number<swi_get_carrier_id, "SwiGetCarrierID failed">, name_value<cdma_carrier_names>},
    {"total-frames", query_frames, [](const record &d) { return record_number(d.frames.total); }},
    {"bad-frames", query_frames, [](const record &d) { return record_number(d.frames.bad); }},
    {"tx-bytes", query_bytes, [](const record &d) { return record_number(d.bytes.sent); }},
    {"rx-bytes", query_bytes, [](const record &d) { return record_number(d.bytes.received); }},
    {"powersave-mode", ask_number<swi_get_tech_powersave_mode, "SwiGetTechPowersaveMode failed">, number_value},
    {"transmit-power", ask<swi_get_transmit_power, &record::level, "SwiGetTransmitPower failed">, level_value},
    {"temperature", ask<swi_get_temperature, &record::level, "SwiGetTemperature failed">, level_value},
    {"channel", ask_number<swi_get_channel_number, "SwiGetChannelNumber failed">, number_value},
    {"longtitude", query_station, [](const record &d) { return record_number(d.station.longitude); }},
    {"latitude", query_station, [](const record &d) { return record_number(d.station.latitude); }},
    {"radio-bands", query_bands, bands_value},
    {"hdr-session-state", query_hdr_state, [](const record &d) { return record_text(name_of(cdma_hdr_state_names, d.hdr_session_state)); }},
    {"aaa-status", ask_number<swi_get_authentication_status, "SwiGetAuthenticationStatus failed">, name_value<cdma_authentication_names>},
    {"service", ask_number<swi_get_service_indication, "SwiGetServiceIndication failed">, name_value<cdma_service_names>},
    {"evdo-service", ask_number<swi_get_hdr_srv_state, "SwiGetHdrSrvState failed">, name_value<cdma_evdo_service_names>},
    {"call-status", ask_number<swi_get_call_connection_state, "SwiGetCallConnectionState failed">, call_status_value},
    {"roaming", query_roaming, [](const record &d) { return record_text(name_of(cdma_roaming_names, d.roaming.status)); }},
    {"roaming-indicator", query_roaming, [](const record &d) { return record_number(d.roaming.indicator); }},
};
// clang-format on

int sierra_cdma_info(cellmodem &modem, FILE *out, int mode)
{
    return record_write_info<record>(info_rows, {.modem = modem}, out, mode);
}

int sierra_cdma_status(cellmodem &modem, FILE *out, int mode)
{
    return record_write_status<record>(status_rows, {.modem = modem}, out, mode);
}

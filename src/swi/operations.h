// The operations of the SDK, one row each: what is asked for, how it is packed and what comes back.
// A new operation is a record, its layout in swi/wire.h, a row here, and a line in swi/calls.
#pragma once

#include "swi/wire.h"

// Which modems an operation is for. A modem's own family is one of the last two.
enum swi_selector : uint8_t {
    swi_gsm_modems = 1,
    swi_cdma_modems = 2,
    swi_any_modem = 3,
};

struct swi_operation {
    const char *name = nullptr; // as log lines give it
    swi_packet_kind_id kind = swi_kind_none;
    uint16_t object = swi_object_none;
    uint8_t operation = 0; // swi_object_operation
    uint8_t selector = swi_any_modem;
    const swi_layout *request = nullptr;
    const swi_layout *response = nullptr;
    bool own_result = false; // the response begins with a result code of the operation's own
};

// The rows' numbers.
enum swi_operation_id {
    swi_op_air_server,
    swi_op_modem_type,
    swi_op_reset_gsm,
    swi_op_reset_cdma,

    swi_op_get_esn,
    swi_op_get_firmware_version,
    swi_op_get_hardware_version,
    swi_op_get_boot_version,
    swi_op_get_imei,
    swi_op_get_serial_number,
    swi_op_get_gsm_imsi,
    swi_op_get_gsm_system_status,
    swi_op_get_rssi_ber,
    swi_op_get_rscp_ecio,
    swi_op_get_current_radio_band,
    swi_op_get_band_info,
    swi_op_get_radio_temp_state,
    swi_op_get_prl_region,
    swi_op_set_prl_region,
    swi_op_get_phonebook_entry,
    swi_op_get_modem_enable,
    swi_op_set_modem_disable,
    swi_op_set_sim_verify,
    swi_op_set_sim_lock,
    swi_op_set_rat,
    swi_op_set_lbs_pd_track,
    swi_op_set_lbs_end_session,

    swi_op_set_call_originate,
    swi_op_set_call_disconnect,
    swi_op_pst_unlock,
    swi_op_pst_set_current_nam,
    swi_op_set_mobile_dir_num,
    swi_op_set_imsi,
    swi_op_pst_get_home_sid_nid,
    swi_op_pst_set_home_sid_nid,
    swi_op_pst_lock,
    swi_op_factory_reset,
    swi_op_get_sms_status,
    swi_op_read_sms,
    swi_op_store_sms,
    swi_op_send_sms,
    swi_op_get_active_mip_profile,
    swi_op_get_mip_profile,
    swi_op_get_mip_behavior,
    swi_op_get_carrier_id,
    swi_op_get_prl_version,
    swi_op_get_nam_calid_status,
    swi_op_get_phone_number,
    swi_op_get_mobile_dir_number,
    swi_op_get_cdma_imsi,
    swi_op_get_tech_sid,
    swi_op_get_tech_nid,
    swi_op_get_tech_hdr_mac_index,
    swi_op_get_packet_zone,
    swi_op_get_tech_band_class,
    swi_op_get_rssi_ecio,
    swi_op_get_tech_frame,
    swi_op_get_byte_counter,
    swi_op_get_tech_powersave_mode,
    swi_op_get_transmit_power,
    swi_op_get_temperature,
    swi_op_get_channel_number,
    swi_op_get_tech_bs_info,
    swi_op_get_authentication_status,
    swi_op_get_service_indication,
    swi_op_get_hdr_srv_state,
    swi_op_get_call_connection_state,
    swi_op_get_roaming_status,

    swi_operation_count
};

template <class Request, class Response>
constexpr swi_operation swi_row(const char *name, swi_packet_kind_id kind, uint16_t object,
                                swi_object_operation operation, swi_selector selector,
                                bool own_result = false)
{
    return {name,
            kind,
            object,
            static_cast<uint8_t>(operation),
            selector,
            &swi_layout_of<Request>,
            &swi_layout_of<Response>,
            own_result};
}

template <class Response>
constexpr swi_operation swi_get(const char *name, uint16_t object, swi_selector selector)
{
    return swi_row<swi_nothing, Response>(name, swi_kind_object, object, swi_operation_get,
                                          selector);
}

template <class Request, class Response>
constexpr swi_operation swi_ask(const char *name, uint16_t object, swi_selector selector)
{
    return swi_row<Request, Response>(name, swi_kind_object, object, swi_operation_get, selector);
}

template <class Request>
constexpr swi_operation swi_set(const char *name, uint16_t object, swi_selector selector)
{
    return swi_row<Request, swi_nothing>(name, swi_kind_object, object, swi_operation_set,
                                         selector);
}

// A change whose response tells more than whether the modem took it.
template <class Request, class Response>
constexpr swi_operation swi_change(const char *name, uint16_t object, swi_selector selector)
{
    return swi_row<Request, Response>(name, swi_kind_object, object, swi_operation_set, selector,
                                      true);
}

// clang-format off
constexpr std::array<swi_operation, swi_operation_count> swi_operations = {{
    swi_row<swi_nothing, swi_air_server_status>("air-server availability", swi_kind_air_server, swi_object_none, swi_operation_get, swi_any_modem),
    swi_row<swi_nothing, swi_modem_type>("modem type", swi_kind_device_info, swi_object_none, swi_operation_get, swi_any_modem),
    swi_row<swi_nothing, swi_nothing>("modem reset (GSM)", swi_kind_reset, swi_object_none, swi_operation_set, swi_gsm_modems),
    swi_row<swi_nothing, swi_nothing>("modem reset (CDMA)", swi_kind_reset, swi_object_none, swi_operation_set, swi_cdma_modems),

    swi_get<swi_number>("SwiGetESN", swi_object_esn, swi_any_modem),
    swi_get<swi_text>("SwiGetFirmwareVersion", swi_object_firmware_version, swi_any_modem),
    swi_get<swi_text>("SwiGetHardwareVersion", swi_object_hardware_version, swi_any_modem),
    swi_get<swi_text>("SwiGetBootVersion", swi_object_boot_version, swi_any_modem),
    swi_get<swi_text>("SwiGetImei", swi_object_imei, swi_gsm_modems),
    swi_get<swi_text>("SwiGetSerialNumber", swi_object_serial_number, swi_gsm_modems),
    swi_get<swi_gsm_imsi>("SwiGetGsmImsi", swi_object_gsm_imsi, swi_gsm_modems),
    swi_get<swi_gsm_system_status>("SwiGetGsmSystemStatus", swi_object_gsm_system_status, swi_gsm_modems),
    swi_get<swi_rssi_ber>("SwiGetRssiBer", swi_object_rssi_ber, swi_gsm_modems),
    swi_ask<swi_number, swi_rscp_ecio>("SwiGetRscpEcIo", swi_object_rscp_ecio, swi_gsm_modems),
    swi_get<swi_radio_bands>("SwiGetCurrentRadioBand", swi_object_current_radio_band, swi_any_modem),
    swi_get<swi_band_info>("SwiGetBandInfo", swi_object_band_info, swi_gsm_modems),
    swi_get<swi_radio_temperature>("SwiGetRadioTempState", swi_object_radio_temp_state, swi_gsm_modems),
    swi_get<swi_number>("SwiGetPrlRegion", swi_object_prl_region, swi_gsm_modems),
    swi_change<swi_set_region, swi_number>("SwiSetPrlRegion", swi_object_prl_region, swi_gsm_modems),
    swi_ask<swi_phonebook_request, swi_phonebook_entry>("SwiGetPhonebookEntryExp", swi_object_phonebook_entry, swi_gsm_modems),
    swi_get<swi_number>("modem enable", swi_object_modem_enable, swi_gsm_modems),
    swi_set<swi_number>("SwiSetModemDisable", swi_object_modem_enable, swi_gsm_modems),
    swi_set<swi_sim_verify>("SwiSetSimVerify", swi_object_sim_verify, swi_gsm_modems),
    swi_set<swi_sim_lock>("SwiSetSimLock", swi_object_sim_lock, swi_gsm_modems),
    swi_set<swi_rat_request>("SwiSetRat", swi_object_rat, swi_gsm_modems),
    swi_change<swi_track_request, swi_nothing>("SwiSetLbsPdTrack", swi_object_lbs_pd_track, swi_gsm_modems),
    swi_change<swi_end_session_request, swi_nothing>("SwiSetLbsEndSession", swi_object_lbs_end_session, swi_gsm_modems),

    swi_set<swi_call_request>("SwiSetCallOriginateCmd", swi_object_call_originate, swi_cdma_modems),
    swi_set<swi_nothing>("SwiSetCallDisconnectCmd", swi_object_call_disconnect, swi_cdma_modems),
    swi_set<swi_number>("provisioning unlock", swi_object_pst_unlock, swi_cdma_modems),
    swi_set<swi_nam>("SwiPstSetCurrentNam", swi_object_pst_current_nam, swi_cdma_modems),
    swi_set<swi_nam_text>("SwiSetMobileDirNum", swi_object_mobile_dir_number, swi_cdma_modems),
    swi_set<swi_nam_text>("SwiSetIMSI", swi_object_cdma_imsi, swi_cdma_modems),
    swi_ask<swi_nam, swi_home_sid_nid>("SwiPstGetHomeSidNid", swi_object_pst_home_sid_nid, swi_cdma_modems),
    swi_set<swi_home_sid_nid>("SwiPstSetHomeSidNid", swi_object_pst_home_sid_nid, swi_cdma_modems),
    swi_row<swi_number, swi_lock_result>("SwiPstLock", swi_kind_object, swi_object_pst_lock, swi_operation_set, swi_cdma_modems),
    swi_set<swi_number>("factory reset", swi_object_factory_reset, swi_cdma_modems),
    swi_get<swi_sms_status>("SMS status", swi_object_sms_status, swi_cdma_modems),
    swi_row<swi_sms_read_request, swi_sms_message>("SMS read", swi_kind_object, swi_object_sms_read, swi_operation_get, swi_cdma_modems, true),
    swi_set<swi_sms_submit>("SMS store", swi_object_sms_store, swi_cdma_modems),
    swi_set<swi_nothing>("SMS send", swi_object_sms_send, swi_cdma_modems),
    swi_get<swi_number>("active MIP profile", swi_object_active_mip_profile, swi_cdma_modems),
    swi_ask<swi_number, swi_mip_profile>("MIP profile", swi_object_mip_profile, swi_cdma_modems),
    swi_get<swi_number>("MIP behaviour", swi_object_mip_behavior, swi_cdma_modems),
    swi_get<swi_number>("SwiGetCarrierID", swi_object_carrier_id, swi_cdma_modems),
    swi_get<swi_number>("SwiGetPRLVersion", swi_object_prl_version, swi_cdma_modems),
    swi_get<swi_number>("SwiGetNamCalidStatus", swi_object_nam_calid_status, swi_cdma_modems),
    swi_get<swi_text>("SwiGetPhoneNumber", swi_object_phone_number, swi_cdma_modems),
    swi_get<swi_text>("SwiGetMobileDirNumber", swi_object_mobile_dir_number, swi_cdma_modems),
    swi_get<swi_text>("SwiGetCdmaIMSI", swi_object_cdma_imsi, swi_cdma_modems),
    swi_get<swi_number>("SwiGetTechSID", swi_object_tech_sid, swi_cdma_modems),
    swi_get<swi_number>("SwiGetTechNID", swi_object_tech_nid, swi_cdma_modems),
    swi_get<swi_number>("SwiGetTechHdrMacIndex", swi_object_tech_hdr_mac_index, swi_cdma_modems),
    swi_get<swi_number>("SwiGetPacketZone", swi_object_packet_zone, swi_cdma_modems),
    swi_get<swi_number>("SwiGetTechBandClass", swi_object_tech_band_class, swi_cdma_modems),
    swi_get<swi_rssi_ecio>("SwiGetRssiEcio", swi_object_rssi_ecio, swi_cdma_modems),
    swi_get<swi_frames>("SwiGetTechFrame", swi_object_tech_frame, swi_cdma_modems),
    swi_get<swi_byte_counter>("SwiGetByteCounter", swi_object_byte_counter, swi_cdma_modems),
    swi_get<swi_number>("SwiGetTechPowersaveMode", swi_object_tech_powersave_mode, swi_cdma_modems),
    swi_get<swi_signed_number>("SwiGetTransmitPower", swi_object_transmit_power, swi_cdma_modems),
    swi_get<swi_signed_number>("SwiGetTemperature", swi_object_temperature, swi_cdma_modems),
    swi_get<swi_number>("SwiGetChannelNumber", swi_object_channel_number, swi_cdma_modems),
    swi_get<swi_base_station>("SwiGetTechBSInfo", swi_object_tech_bs_info, swi_cdma_modems),
    swi_get<swi_number>("SwiGetAuthenticationStatus", swi_object_authentication_status, swi_cdma_modems),
    swi_get<swi_number>("SwiGetServiceIndication", swi_object_service_indication, swi_cdma_modems),
    swi_get<swi_number>("SwiGetHdrSrvState", swi_object_hdr_srv_state, swi_cdma_modems),
    swi_get<swi_number>("SwiGetCallConnectionState", swi_object_call_connection_state, swi_cdma_modems),
    swi_get<swi_roaming>("SwiGetRoamingStatus", swi_object_roaming_status, swi_cdma_modems),
}};
// clang-format on

// Every row is filled, no two rows ask for the same, every request has one size, which its object
// header states before it is packed, and every packet fits into its buffer.
constexpr bool swi_operations_complete()
{
    constexpr size_t own_result_bytes = sizeof(uint32_t);
    for (size_t i = 0; i < swi_operations.size(); i++) {
        const swi_operation &row = swi_operations[i];
        const size_t front =
            swi_header_bytes + (row.kind == swi_kind_object ? swi_object_header_bytes : 0);
        const size_t longest = front + (row.own_result ? own_result_bytes : 0);
        if (!row.name || row.kind == swi_kind_none ||
            (row.kind == swi_kind_object) != (row.object != swi_object_none) ||
            row.request->wire_bytes_min != row.request->wire_bytes_max ||
            front + row.request->wire_bytes_max > swi_response_bytes_max ||
            longest + row.response->wire_bytes_max > swi_response_bytes_max)
            return false;
        for (size_t j = 0; j < i; j++)
            if (row.object != swi_object_none && swi_operations[j].object == row.object &&
                swi_operations[j].operation == row.operation)
                return false;
    }
    return true;
}
static_assert(swi_operations_complete());

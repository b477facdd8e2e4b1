#include "swi/calls.h"

// One operation of the table; the compiler checks that the records are the row's own.
template <swi_operation_id Id, class Request, class Response>
static int call(const Request &request, Response &response, int timeout_ms)
{
    static_assert(swi_operations[Id].request == &swi_layout_of<Request>);
    static_assert(swi_operations[Id].response == &swi_layout_of<Response>);
    return swi_request(swi_operations[Id], &request, &response, timeout_ms);
}

template <swi_operation_id Id, class Request>
static int call(const Request &request, int timeout_ms)
{
    swi_nothing nothing;
    return call<Id>(request, nothing, timeout_ms);
}

int swi_air_server_check(swi_air_server_status &status, int timeout_ms)
{
    status = {};
    const int result = call<swi_op_air_server>(swi_nothing{}, status, timeout_ms);
    return result == swi_ok && status.unavailable != 0 ? swi_busy : result;
}

int swi_get_modem_type(swi_modem_type &type, int timeout_ms)
{
    return call<swi_op_modem_type>(swi_nothing{}, type, timeout_ms);
}

int swi_reset_gsm(int timeout_ms)
{
    return call<swi_op_reset_gsm>(swi_nothing{}, timeout_ms);
}

int swi_reset_cdma(int timeout_ms)
{
    return call<swi_op_reset_cdma>(swi_nothing{}, timeout_ms);
}

int swi_get_esn(swi_number &esn, int timeout_ms)
{
    return call<swi_op_get_esn>(swi_nothing{}, esn, timeout_ms);
}

int swi_get_firmware_version(swi_text &version, int timeout_ms)
{
    return call<swi_op_get_firmware_version>(swi_nothing{}, version, timeout_ms);
}

int swi_get_hardware_version(swi_text &version, int timeout_ms)
{
    return call<swi_op_get_hardware_version>(swi_nothing{}, version, timeout_ms);
}

int swi_get_boot_version(swi_text &version, int timeout_ms)
{
    return call<swi_op_get_boot_version>(swi_nothing{}, version, timeout_ms);
}

int swi_get_current_radio_band(swi_radio_bands &bands, int timeout_ms)
{
    return call<swi_op_get_current_radio_band>(swi_nothing{}, bands, timeout_ms);
}

int swi_get_imei(swi_text &imei, int timeout_ms)
{
    return call<swi_op_get_imei>(swi_nothing{}, imei, timeout_ms);
}

int swi_get_serial_number(swi_text &serial, int timeout_ms)
{
    return call<swi_op_get_serial_number>(swi_nothing{}, serial, timeout_ms);
}

int swi_get_gsm_imsi(swi_gsm_imsi &imsi, int timeout_ms)
{
    return call<swi_op_get_gsm_imsi>(swi_nothing{}, imsi, timeout_ms);
}

int swi_get_gsm_system_status(swi_gsm_system_status &status, int timeout_ms)
{
    return call<swi_op_get_gsm_system_status>(swi_nothing{}, status, timeout_ms);
}

int swi_get_rssi_ber(swi_rssi_ber &signal, int timeout_ms)
{
    return call<swi_op_get_rssi_ber>(swi_nothing{}, signal, timeout_ms);
}

int swi_get_rscp_ecio(uint32_t cells_max, swi_rscp_ecio &cells, int timeout_ms)
{
    return call<swi_op_get_rscp_ecio>(swi_number{cells_max}, cells, timeout_ms);
}

int swi_get_band_info(swi_band_info &bands, int timeout_ms)
{
    return call<swi_op_get_band_info>(swi_nothing{}, bands, timeout_ms);
}

int swi_get_radio_temp_state(swi_radio_temperature &temperature, int timeout_ms)
{
    return call<swi_op_get_radio_temp_state>(swi_nothing{}, temperature, timeout_ms);
}

int swi_get_prl_region(swi_number &region, int timeout_ms)
{
    return call<swi_op_get_prl_region>(swi_nothing{}, region, timeout_ms);
}

int swi_set_prl_region(const swi_set_region &request, swi_number &status, int timeout_ms)
{
    return call<swi_op_set_prl_region>(request, status, timeout_ms);
}

int swi_get_phonebook_entry(const swi_phonebook_request &request, swi_phonebook_entry &entry,
                            int timeout_ms)
{
    return call<swi_op_get_phonebook_entry>(request, entry, timeout_ms);
}

int swi_get_modem_enable(swi_number &enabled, int timeout_ms)
{
    return call<swi_op_get_modem_enable>(swi_nothing{}, enabled, timeout_ms);
}

int swi_set_modem_disable(uint32_t enable, int timeout_ms)
{
    return call<swi_op_set_modem_disable>(swi_number{enable}, timeout_ms);
}

int swi_set_sim_verify(const swi_sim_verify &request, int timeout_ms)
{
    return call<swi_op_set_sim_verify>(request, timeout_ms);
}

int swi_set_sim_lock(const swi_sim_lock &request, int timeout_ms)
{
    return call<swi_op_set_sim_lock>(request, timeout_ms);
}

int swi_set_rat(const swi_rat_request &request, int timeout_ms)
{
    return call<swi_op_set_rat>(request, timeout_ms);
}

int swi_set_lbs_pd_track(const swi_track_request &request, int timeout_ms)
{
    return call<swi_op_set_lbs_pd_track>(request, timeout_ms);
}

int swi_set_lbs_end_session(const swi_end_session_request &request, int timeout_ms)
{
    return call<swi_op_set_lbs_end_session>(request, timeout_ms);
}

int swi_set_call_originate(const swi_call_request &request, int timeout_ms)
{
    return call<swi_op_set_call_originate>(request, timeout_ms);
}

int swi_set_call_disconnect(int timeout_ms)
{
    return call<swi_op_set_call_disconnect>(swi_nothing{}, timeout_ms);
}

int swi_pst_unlock(uint32_t msl, int timeout_ms)
{
    return call<swi_op_pst_unlock>(swi_number{msl}, timeout_ms);
}

int swi_pst_set_current_nam(uint8_t nam, int timeout_ms)
{
    return call<swi_op_pst_set_current_nam>(swi_nam{nam}, timeout_ms);
}

int swi_set_mobile_dir_num(const swi_nam_text &number, int timeout_ms)
{
    return call<swi_op_set_mobile_dir_num>(number, timeout_ms);
}

int swi_set_imsi(const swi_nam_text &imsi, int timeout_ms)
{
    return call<swi_op_set_imsi>(imsi, timeout_ms);
}

int swi_pst_get_home_sid_nid(uint8_t nam, swi_home_sid_nid &home, int timeout_ms)
{
    return call<swi_op_pst_get_home_sid_nid>(swi_nam{nam}, home, timeout_ms);
}

int swi_pst_set_home_sid_nid(const swi_home_sid_nid &home, int timeout_ms)
{
    return call<swi_op_pst_set_home_sid_nid>(home, timeout_ms);
}

int swi_pst_lock(uint32_t lock, swi_lock_result &result, int timeout_ms)
{
    return call<swi_op_pst_lock>(swi_number{lock}, result, timeout_ms);
}

int swi_factory_reset(uint32_t mode, int timeout_ms)
{
    return call<swi_op_factory_reset>(swi_number{mode}, timeout_ms);
}

int swi_get_sms_status(swi_sms_status &status, int timeout_ms)
{
    return call<swi_op_get_sms_status>(swi_nothing{}, status, timeout_ms);
}

int swi_read_sms(const swi_sms_read_request &request, swi_sms_message &message, int timeout_ms)
{
    return call<swi_op_read_sms>(request, message, timeout_ms);
}

int swi_store_sms(const swi_sms_submit &message, int timeout_ms)
{
    return call<swi_op_store_sms>(message, timeout_ms);
}

int swi_send_sms(int timeout_ms)
{
    return call<swi_op_send_sms>(swi_nothing{}, timeout_ms);
}

int swi_get_active_mip_profile(swi_number &index, int timeout_ms)
{
    return call<swi_op_get_active_mip_profile>(swi_nothing{}, index, timeout_ms);
}

int swi_get_mip_profile(uint32_t index, swi_mip_profile &profile, int timeout_ms)
{
    return call<swi_op_get_mip_profile>(swi_number{index}, profile, timeout_ms);
}

int swi_get_mip_behavior(swi_number &behavior, int timeout_ms)
{
    return call<swi_op_get_mip_behavior>(swi_nothing{}, behavior, timeout_ms);
}

int swi_get_carrier_id(swi_number &id, int timeout_ms)
{
    return call<swi_op_get_carrier_id>(swi_nothing{}, id, timeout_ms);
}

int swi_get_prl_version(swi_number &version, int timeout_ms)
{
    return call<swi_op_get_prl_version>(swi_nothing{}, version, timeout_ms);
}

int swi_get_nam_calid_status(swi_number &status, int timeout_ms)
{
    return call<swi_op_get_nam_calid_status>(swi_nothing{}, status, timeout_ms);
}

int swi_get_phone_number(swi_text &number, int timeout_ms)
{
    return call<swi_op_get_phone_number>(swi_nothing{}, number, timeout_ms);
}

int swi_get_mobile_dir_number(swi_text &number, int timeout_ms)
{
    return call<swi_op_get_mobile_dir_number>(swi_nothing{}, number, timeout_ms);
}

int swi_get_cdma_imsi(swi_text &imsi, int timeout_ms)
{
    return call<swi_op_get_cdma_imsi>(swi_nothing{}, imsi, timeout_ms);
}

int swi_get_tech_sid(swi_number &sid, int timeout_ms)
{
    return call<swi_op_get_tech_sid>(swi_nothing{}, sid, timeout_ms);
}

int swi_get_tech_nid(swi_number &nid, int timeout_ms)
{
    return call<swi_op_get_tech_nid>(swi_nothing{}, nid, timeout_ms);
}

int swi_get_tech_hdr_mac_index(swi_number &index, int timeout_ms)
{
    return call<swi_op_get_tech_hdr_mac_index>(swi_nothing{}, index, timeout_ms);
}

int swi_get_packet_zone(swi_number &zone, int timeout_ms)
{
    return call<swi_op_get_packet_zone>(swi_nothing{}, zone, timeout_ms);
}

int swi_get_tech_band_class(swi_number &band_class, int timeout_ms)
{
    return call<swi_op_get_tech_band_class>(swi_nothing{}, band_class, timeout_ms);
}

int swi_get_rssi_ecio(swi_rssi_ecio &signal, int timeout_ms)
{
    return call<swi_op_get_rssi_ecio>(swi_nothing{}, signal, timeout_ms);
}

int swi_get_tech_frame(swi_frames &frames, int timeout_ms)
{
    return call<swi_op_get_tech_frame>(swi_nothing{}, frames, timeout_ms);
}

int swi_get_byte_counter(swi_byte_counter &counter, int timeout_ms)
{
    return call<swi_op_get_byte_counter>(swi_nothing{}, counter, timeout_ms);
}

int swi_get_tech_powersave_mode(swi_number &mode, int timeout_ms)
{
    return call<swi_op_get_tech_powersave_mode>(swi_nothing{}, mode, timeout_ms);
}

int swi_get_transmit_power(swi_signed_number &power, int timeout_ms)
{
    return call<swi_op_get_transmit_power>(swi_nothing{}, power, timeout_ms);
}

int swi_get_temperature(swi_signed_number &temperature, int timeout_ms)
{
    return call<swi_op_get_temperature>(swi_nothing{}, temperature, timeout_ms);
}

int swi_get_channel_number(swi_number &channel, int timeout_ms)
{
    return call<swi_op_get_channel_number>(swi_nothing{}, channel, timeout_ms);
}

int swi_get_tech_bs_info(swi_base_station &station, int timeout_ms)
{
    return call<swi_op_get_tech_bs_info>(swi_nothing{}, station, timeout_ms);
}

int swi_get_authentication_status(swi_number &status, int timeout_ms)
{
    return call<swi_op_get_authentication_status>(swi_nothing{}, status, timeout_ms);
}

int swi_get_service_indication(swi_number &service, int timeout_ms)
{
    return call<swi_op_get_service_indication>(swi_nothing{}, service, timeout_ms);
}

int swi_get_hdr_srv_state(swi_number &state, int timeout_ms)
{
    return call<swi_op_get_hdr_srv_state>(swi_nothing{}, state, timeout_ms);
}

int swi_get_call_connection_state(swi_number &mask, int timeout_ms)
{
    return call<swi_op_get_call_connection_state>(swi_nothing{}, mask, timeout_ms);
}

int swi_get_roaming_status(swi_roaming &roaming, int timeout_ms)
{
    return call<swi_op_get_roaming_status>(swi_nothing{}, roaming, timeout_ms);
}

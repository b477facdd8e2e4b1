// The Gobi modem's position service.

#include "sim/gobi.h"
#include "sim/qmi_tlvs.h"

#include <array>

static uint16_t get_service(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const bool tracking = modem.state.gps && modem.state.gps_tracking;
    tlv_add(answer, 0x01, uint8_t{modem.state.gps}, uint8_t{tracking ? uint8_t{2} : uint8_t{1}});
    return qmi_error_none;
}

static uint16_t set_service(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint8_t on = 0;
    (void)fields.number(on);
    if (on > 1)
        return qmi_error_invalid_argument;
    if (on == 0 && !modem.state.gps)
        return u16(modem.state.gps_already_error);
    modem.state.gps = on == 1;
    return qmi_error_none;
}

static uint16_t get_tracking(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, uint8_t{modem.state.gps_tracking});
    return qmi_error_none;
}

static uint16_t set_tracking(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint8_t on = 0;
    (void)fields.number(on);
    if (on > 1)
        return qmi_error_invalid_argument;
    modem.state.gps_tracking = on == 1;
    return qmi_error_none;
}

static uint16_t get_session(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    tlv_add(answer, 0x01, u8(state.gps_mode), u8(state.gps_timeout_s), u32(state.gps_interval_s),
            u32(state.gps_accuracy_m));
    return qmi_error_none;
}

static uint16_t set_session(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint8_t mode = 0;
    uint8_t timeout_s = 0;
    uint32_t interval_s = 0;
    uint32_t accuracy_m = 0;
    (void)(fields.number(mode) && fields.number(timeout_s) && fields.number(interval_s) &&
           fields.number(accuracy_m));
    if (mode > 2)
        return qmi_error_invalid_argument;
    modem.state.gps_mode = mode;
    modem.state.gps_timeout_s = timeout_s;
    modem.state.gps_interval_s = interval_s;
    modem.state.gps_accuracy_m = accuracy_m;
    return qmi_error_none;
}

static constexpr std::array rows = {
    gobi_row{0x0000, {"Reset"}, gobi_reset_client},
    gobi_row{0x0001, {"Set event report"}, gobi_set_event_report},
    gobi_row{0x0020, {"Get GPS service state"}, get_service},
    gobi_row{0x0021, {"Set GPS service state", 1}, set_service},
    gobi_row{0x0029, {"Get default tracking session"}, get_session},
    gobi_row{0x002A, {"Set default tracking session", 10}, set_session},
    gobi_row{0x0030, {"Get auto tracking state"}, get_tracking},
    gobi_row{0x0031, {"Set auto tracking state", 1}, set_tracking},
    gobi_row{0x0060, {"GPS ready"}, nullptr}, // an indication only
};

std::span<const gobi_row> gobi_pds_rows()
{
    return rows;
}

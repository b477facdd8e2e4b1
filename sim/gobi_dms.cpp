// The Gobi modem's device management: identity, operating mode, SIM.

#include "sim/gobi.h"
#include "sim/qmi_tlvs.h"

#include <array>

// ---- texts

template <std::string gobi_state::*Text>
static uint16_t get_text(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add_text(answer, 0x01, modem.state.*Text);
    return qmi_error_none;
}

// Beyond the first TLV there is no public layout; boot and PRI versions as texts in TLVs 0x10 and
// 0x11 are this project's own.
static uint16_t get_revision(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add_text(answer, 0x01, modem.state.revision);
    if (!modem.state.boot_version.empty())
        tlv_add_text(answer, 0x10, modem.state.boot_version);
    if (!modem.state.pri_version.empty())
        tlv_add_text(answer, 0x11, modem.state.pri_version);
    return qmi_error_none;
}

static bool sim_ready(const gobi_state &state)
{
    return gobi_uim_state(state) == 0;
}

static uint16_t get_msisdn(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    if (!sim_ready(modem.state))
        return qmi_error_uim_uninitialized;
    tlv_add_text(answer, 0x01, modem.state.msisdn);
    if (!modem.state.min.empty())
        tlv_add_text(answer, 0x10, modem.state.min);
    tlv_add_text(answer, 0x11, modem.state.imsi);
    return qmi_error_none;
}

static uint16_t get_iccid(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    if (modem.state.sim != "present")
        return qmi_error_uim_uninitialized;
    tlv_add_text(answer, 0x01, modem.state.iccid);
    return qmi_error_none;
}

static uint16_t get_imsi(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    if (!sim_ready(modem.state))
        return qmi_error_uim_uninitialized;
    tlv_add_text(answer, 0x01, modem.state.imsi);
    return qmi_error_none;
}

static uint16_t get_serial_numbers(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    struct number {
        uint8_t type;
        const std::string &text;
    };
    const gobi_state &state = modem.state;
    const number numbers[] = {
        {0x10, state.esn}, {0x11, state.imei}, {0x12, state.meid}, {0x13, state.imei_sv}};
    for (const number &one : numbers)
        if (!one.text.empty())
            tlv_add_text(answer, one.type, one.text);
    return qmi_error_none;
}

// ---- capabilities

static uint16_t get_capabilities(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    std::vector<uint8_t> radios;
    (void)gobi_radios(modem.state.radios, radios);
    const uint8_t data_service = 3; // voice and data at the same time
    const uint8_t sim_supported = 2;
    tlv_add(answer, 0x01, u32(modem.state.max_tx_rate), u32(modem.state.max_rx_rate), data_service,
            sim_supported, static_cast<uint8_t>(radios.size()));
    for (const uint8_t radio : radios)
        answer.number(radio);
    return qmi_error_none;
}

static uint16_t get_band_capabilities(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, u64(modem.state.band_capability));
    if (modem.state.lte_band_capability != 0)
        tlv_add(answer, 0x10, u64(modem.state.lte_band_capability));
    return qmi_error_none;
}

static uint16_t get_power_state(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const bool battery = modem.state.battery > 0;
    tlv_add(answer, 0x01, u8((modem.state.external_power ? 1 : 0) | (battery ? 2 : 0)),
            u8(modem.state.battery));
    return qmi_error_none;
}

static uint16_t get_prl_version(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    if (modem.state.prl_version < 0)
        return qmi_error_not_provisioned;
    tlv_add(answer, 0x01, u16(modem.state.prl_version));
    tlv_add(answer, 0x10, uint8_t{modem.state.prl_only});
    return qmi_error_none;
}

static uint16_t get_activation(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, u16(modem.state.activation));
    return qmi_error_none;
}

// ---- firmware

static constexpr size_t image_id_bytes = 16;

static void write_image(tlv_writer &out, uint8_t type, const std::string &id,
                        const std::string &build)
{
    std::string padded = id.substr(0, image_id_bytes);
    padded.resize(image_id_bytes, '\0');
    out.number(type);
    out.text(padded);
    out.counted_text<uint8_t>(build);
}

static uint16_t get_firmware_preference(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    const bool firmware = !state.firmware_build.empty();
    const bool carrier = !state.carrier_build.empty();
    tlv_add(answer, 0x01, u8((firmware ? 1 : 0) + (carrier ? 1 : 0)));
    if (firmware)
        write_image(answer, 0, state.firmware_id, state.firmware_build);
    if (carrier)
        write_image(answer, 1, state.carrier_id, state.carrier_build);
    return qmi_error_none;
}

static uint16_t get_image_info(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    tlv_fields fields = *call.find(0x01);
    uint8_t type = 0;
    (void)fields.number(type);
    const gobi_state &state = modem.state;
    if (type > 1 || (type == 0 ? state.firmware_build : state.carrier_build).empty())
        return qmi_error_no_entry;
    if (type == 0) {
        tlv_add(answer, 0x10, uint16_t{1}, uint16_t{0});
        return qmi_error_none;
    }
    std::string info = state.pri_version.substr(0, 32);
    info.resize(32, '\0');
    tlv_add(answer, 0x11, uint32_t{1});
    answer.text(info);
    return qmi_error_none;
}

// ---- operating mode

enum operating_mode : int64_t {
    mode_online = 0,
    mode_offline = 3,
    mode_reset = 4,
    mode_shutting_down = 5,
    mode_only_low_power = 7,
};

static uint16_t get_mode(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, u8(modem.state.mode));
    if (modem.state.mode == mode_offline)
        tlv_add(answer, 0x10, uint16_t{0});
    tlv_add(answer, 0x11, uint8_t{modem.state.wireless_disabled});
    return qmi_error_none;
}

// Out of offline only a reset or a shut-down leads, and to a reset only offline.
static uint16_t set_mode(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint8_t mode = 0;
    (void)fields.number(mode);
    const bool offline = modem.state.mode == mode_offline;
    if (mode >= mode_only_low_power)
        return qmi_error_invalid_argument;
    if ((mode == mode_reset && !offline) ||
        (offline && mode != mode_offline && mode != mode_reset && mode != mode_shutting_down))
        return qmi_error_invalid_transition;
    if (mode == mode_reset)
        modem.restart = true;
    else
        modem.state.mode = mode;
    return qmi_error_none;
}

// ---- SIM

// Where the state keeps one of the two PINs.
struct pin_fields {
    bool gobi_state::*enabled;
    bool gobi_state::*verified;
    std::string gobi_state::*pin;
    std::string gobi_state::*puk;
    int64_t gobi_state::*retries;
    int64_t gobi_state::*unblocks;
};

static constexpr std::array pins = {
    pin_fields{&gobi_state::pin1_enabled, &gobi_state::pin1_verified, &gobi_state::pin1,
               &gobi_state::puk1, &gobi_state::pin1_retries, &gobi_state::puk1_retries},
    pin_fields{&gobi_state::pin2_enabled, &gobi_state::pin2_verified, &gobi_state::pin2,
               &gobi_state::puk2, &gobi_state::pin2_retries, &gobi_state::puk2_retries},
};

static constexpr int64_t pin_retries = 3;
static constexpr int64_t puk_retries = 10;
static constexpr size_t pin_digits_min = 4;
static constexpr size_t pin_digits_max = 8;

static uint16_t check_digits(const std::string &pin)
{
    if (pin.size() > pin_digits_max)
        return qmi_error_argument_too_long;
    return pin.size() < pin_digits_min ? qmi_error_invalid_argument : qmi_error_none;
}

static uint16_t find_pin(const gobi_modem &modem, uint8_t number, const pin_fields *&fields)
{
    if (number < 1 || number > pins.size())
        return qmi_error_invalid_pin_id;
    fields = &pins[number - 1U];
    return modem.state.sim == "present" ? qmi_error_none : qmi_error_uim_uninitialized;
}

static uint16_t with_retries(const gobi_state &state, const pin_fields &fields, uint16_t error,
                             tlv_writer &answer)
{
    if (error != qmi_error_none)
        tlv_add(answer, 0x10, u8(state.*fields.retries), u8(state.*fields.unblocks));
    return error;
}

// Tries a PIN: a wrong one costs a retry.
static uint16_t try_pin(gobi_state &state, const pin_fields &fields, const std::string &pin)
{
    if (const uint16_t error = check_digits(pin))
        return error;
    if (state.*fields.unblocks == 0)
        return qmi_error_pin_always_blocked;
    if (state.*fields.retries == 0)
        return qmi_error_pin_blocked;
    if (pin != state.*fields.pin) {
        state.*fields.retries -= 1;
        return state.*fields.retries == 0 ? qmi_error_pin_blocked : qmi_error_incorrect_pin;
    }
    state.*fields.retries = pin_retries;
    state.*fields.verified = true;
    return qmi_error_none;
}

static uint16_t set_pin_protection(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    tlv_fields given = *call.find(0x01);
    uint8_t number = 0;
    uint8_t enable = 0;
    std::string pin;
    if (!given.number(number) || !given.number(enable) || !given.counted_text<uint8_t>(pin))
        return qmi_error_malformed;
    const pin_fields *fields = nullptr;
    if (const uint16_t error = find_pin(modem, number, fields))
        return error;
    gobi_state &state = modem.state;
    const uint16_t error = try_pin(state, *fields, pin);
    if (error == qmi_error_none)
        state.*fields->enabled = enable != 0;
    return with_retries(state, *fields, error, answer);
}

static uint16_t verify_pin(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    tlv_fields given = *call.find(0x01);
    uint8_t number = 0;
    std::string pin;
    if (!given.number(number) || !given.counted_text<uint8_t>(pin))
        return qmi_error_malformed;
    const pin_fields *fields = nullptr;
    if (const uint16_t error = find_pin(modem, number, fields))
        return error;
    gobi_state &state = modem.state;
    if (!(state.*fields->enabled))
        return qmi_error_no_effect;
    return with_retries(state, *fields, try_pin(state, *fields, pin), answer);
}

static uint16_t unblock_pin(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    tlv_fields given = *call.find(0x01);
    uint8_t number = 0;
    std::string puk;
    std::string pin;
    if (!given.number(number) || !given.counted_text<uint8_t>(puk) ||
        !given.counted_text<uint8_t>(pin))
        return qmi_error_malformed;
    const pin_fields *fields = nullptr;
    if (const uint16_t error = find_pin(modem, number, fields))
        return error;
    gobi_state &state = modem.state;
    uint16_t error = check_digits(pin);
    if (error == qmi_error_none && state.*fields->unblocks == 0)
        error = qmi_error_pin_always_blocked;
    if (error == qmi_error_none && puk != state.*fields->puk) {
        state.*fields->unblocks -= 1;
        error =
            state.*fields->unblocks == 0 ? qmi_error_pin_always_blocked : qmi_error_incorrect_pin;
    }
    if (error == qmi_error_none) {
        state.*fields->pin = pin;
        state.*fields->retries = pin_retries;
        state.*fields->unblocks = puk_retries;
        state.*fields->enabled = true;
        state.*fields->verified = true;
    }
    return with_retries(state, *fields, error, answer);
}

static uint16_t change_pin(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    tlv_fields given = *call.find(0x01);
    uint8_t number = 0;
    std::string old_pin;
    std::string new_pin;
    if (!given.number(number) || !given.counted_text<uint8_t>(old_pin) ||
        !given.counted_text<uint8_t>(new_pin))
        return qmi_error_malformed;
    const pin_fields *fields = nullptr;
    if (const uint16_t error = find_pin(modem, number, fields))
        return error;
    gobi_state &state = modem.state;
    uint16_t error = state.*fields->enabled ? check_digits(new_pin) : uint16_t{qmi_error_no_effect};
    if (error == qmi_error_none)
        error = try_pin(state, *fields, old_pin);
    if (error == qmi_error_none)
        state.*fields->pin = new_pin;
    return with_retries(state, *fields, error, answer);
}

static uint16_t get_pin_status(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    if (state.sim == "absent")
        return qmi_error_uim_uninitialized;
    for (const uint8_t number : {uint8_t{1}, uint8_t{2}}) {
        const pin_fields &fields = pins[number - 1U];
        tlv_add(answer, static_cast<uint8_t>(0x10 + number), gobi_pin_status(state, number),
                u8(state.*fields.retries), u8(state.*fields.unblocks));
    }
    return qmi_error_none;
}

static uint16_t get_uim_state(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, gobi_uim_state(modem.state));
    return qmi_error_none;
}

static constexpr std::array rows = {
    gobi_row{0x0000, {"Reset"}, gobi_reset_client},
    gobi_row{0x0001, {"Set event report"}, gobi_set_event_report},
    gobi_row{0x0020, {"Get device capabilities"}, get_capabilities},
    gobi_row{0x0021, {"Get manufacturer"}, get_text<&gobi_state::manufacturer>},
    gobi_row{0x0022, {"Get model"}, get_text<&gobi_state::model>},
    gobi_row{0x0023, {"Get firmware revision"}, get_revision},
    gobi_row{0x0024, {"Get voice number"}, get_msisdn},
    gobi_row{0x0025, {"Get serial numbers"}, get_serial_numbers},
    gobi_row{0x0026, {"Get power state"}, get_power_state},
    gobi_row{0x0027, {"Set PIN protection", 3}, set_pin_protection},
    gobi_row{0x0028, {"Verify PIN", 2}, verify_pin},
    gobi_row{0x0029, {"Unblock PIN", 3}, unblock_pin},
    gobi_row{0x002A, {"Change PIN", 3}, change_pin},
    gobi_row{0x002B, {"Get PIN status"}, get_pin_status},
    gobi_row{0x002C, {"Get hardware revision"}, get_text<&gobi_state::hardware>},
    gobi_row{0x002D, {"Get operating mode"}, get_mode},
    gobi_row{0x002E, {"Set operating mode", 1}, set_mode},
    gobi_row{0x0030, {"Get PRL version"}, get_prl_version},
    gobi_row{0x0031, {"Get activation state"}, get_activation},
    gobi_row{0x003C, {"Get ICCID"}, get_iccid},
    gobi_row{0x0043, {"Get IMSI"}, get_imsi},
    gobi_row{0x0044, {"Get UIM state"}, get_uim_state},
    gobi_row{0x0045, {"Get band capabilities"}, get_band_capabilities},
    gobi_row{0x0046, {"Get factory SKU"}, get_text<&gobi_state::sku>},
    gobi_row{0x0047, {"Get firmware preference"}, get_firmware_preference},
    gobi_row{0x004C, {"Get stored image info", 18}, get_image_info},
    gobi_row{0x0051, {"Get software version"}, get_text<&gobi_state::software_version>},
};

std::span<const gobi_row> gobi_dms_rows()
{
    return rows;
}

#include "qmi/questions.h"

#include "platform/log.h"
#include "qmi/messages.h"
#include "qmi/qmux.h"

// ---- reading an answer

template <class value_type>
static bool read_single(std::span<const uint8_t> tlvs, bool success, void *answer)
{
    if (!success)
        return true;
    tlv_fields fields{tlv_find(tlvs, 0x01).value_or(std::span<const uint8_t>{})};
    const bool there = tlv_find(tlvs, 0x01).has_value();
    value_type value{};
    if (!there || !qmi_read(fields, value))
        return false;
    *static_cast<value_type *>(answer) = std::move(value);
    return true;
}

// Into a fresh record: an answer that cannot be read leaves the given one alone.
template <const auto &rows, class record>
static bool read_record(std::span<const uint8_t> tlvs, bool success, void *answer)
{
    record values;
    if (!qmi_read_tlvs(std::span<const qmi_read_row<record>>(rows), tlvs, success, values))
        return false;
    *static_cast<record *>(answer) = std::move(values);
    return true;
}

template <class value_type>
static qmi_question ask_single(const qmi_request &request, value_type &value)
{
    return {.request = request, .tlvs = {}, .read = read_single<value_type>, .answer = &value};
}

template <const auto &rows, class record>
static qmi_question ask_record(const qmi_request &request, record &values)
{
    return {.request = request, .tlvs = {}, .read = read_record<rows, record>, .answer = &values};
}

static uint32_t finish(const qmi_question &question, uint32_t code,
                       std::span<const uint8_t> response)
{
    if (code != qmi_ok && code < qmi_modem_error)
        return code; // there is no answer
    if (question.read(response, code == qmi_ok, question.answer) || code != qmi_ok)
        return code;
    log_message(log_debug, "%s: something is missing in the answer", question.request.name);
    return qmi_modem_error;
}

uint32_t qmi_ask(uint32_t handle, const qmi_question &question)
{
    std::vector<uint8_t> response;
    const uint32_t code = qmi_send_wait(handle, question.request, question.tlvs, response);
    return finish(question, code, response);
}

void qmi_ask_all(uint32_t handle, std::span<qmi_question> questions)
{
    std::vector<qmi_exchange> exchanges;
    exchanges.reserve(questions.size());
    for (const qmi_question &each : questions)
        exchanges.push_back({.request = each.request, .tlvs = each.tlvs, .response = {}});
    qmi_send_wait_all(handle, exchanges);
    for (size_t i = 0; i < questions.size(); i++)
        questions[i].code = finish(questions[i], exchanges[i].code, exchanges[i].response);
}

// ---- WDS

constexpr uint32_t settings_wanted = 1 << 8 | 1 << 9; // addresses; gateways and subnet

constexpr qmi_read_row<qmi_runtime_settings> runtime_settings_get[] = {
    qmi_get<&qmi_runtime_settings::ipv4_address>(0x1E, qmi_optional),
    qmi_get<&qmi_runtime_settings::ipv4_gateway>(0x20, qmi_optional),
    qmi_get<&qmi_runtime_settings::ipv4_subnet>(0x21, qmi_optional),
    qmi_get<&qmi_runtime_settings::ipv6_address>(0x25, qmi_optional),
    qmi_get<&qmi_runtime_settings::ipv6_gateway>(0x26, qmi_optional),
};

constexpr qmi_read_row<qmi_mip_profile> mip_profile_get[] = {
    qmi_get<&qmi_mip_profile::enabled>(0x10, qmi_optional),
    qmi_get<&qmi_mip_profile::nai>(0x15, qmi_mandatory),
};

// One TLV that holds one number.
template <class number>
static std::vector<uint8_t> number_tlv(uint8_t type, number value)
{
    tlv_writer tlvs;
    tlvs.begin(type);
    tlvs.number(value);
    (void)tlvs.end();
    return std::move(tlvs.bytes);
}

qmi_question qmi_wds_packet_status(uint8_t &packet_state)
{
    return ask_single({"WDS Get Packet Service Status", qmi_wds, 0x22}, packet_state);
}

qmi_question qmi_wds_runtime_settings(qmi_runtime_settings &settings)
{
    qmi_question question =
        ask_record<runtime_settings_get>({"WDS Get Runtime Settings", qmi_wds, 0x2D}, settings);
    question.tlvs = number_tlv(0x10, settings_wanted);
    return question;
}

qmi_question qmi_wds_data_bearer(int8_t &bearer)
{
    return ask_single({"WDS Get Data Bearer Technology", qmi_wds, 0x37}, bearer);
}

qmi_question qmi_wds_active_mip_profile(uint8_t &index)
{
    return ask_single({"WDS Get Active Mobile IP Profile", qmi_wds, 0x3C}, index);
}

qmi_question qmi_wds_mip_profile(uint8_t index, qmi_mip_profile &profile)
{
    qmi_question question =
        ask_record<mip_profile_get>({"WDS Get Mobile IP Profile", qmi_wds, 0x3E}, profile);
    question.tlvs = number_tlv(0x01, index);
    return question;
}

// ---- DMS

constexpr qmi_read_row<qmi_capabilities> capabilities_get[] = {
    qmi_get<&qmi_capabilities::send_bits_max, &qmi_capabilities::receive_bits_max,
            &qmi_capabilities::data_service, &qmi_capabilities::sim_supported,
            &qmi_capabilities::radios>(0x01, qmi_mandatory),
};

constexpr qmi_read_row<qmi_firmware_revisions> firmware_revisions_get[] = {
    qmi_get<&qmi_firmware_revisions::amss>(0x01, qmi_mandatory),
    qmi_get<&qmi_firmware_revisions::boot>(0x10, qmi_optional),
    qmi_get<&qmi_firmware_revisions::pri>(0x11, qmi_optional),
};

constexpr qmi_read_row<qmi_voice_numbers> voice_numbers_get[] = {
    qmi_get<&qmi_voice_numbers::voice>(0x01, qmi_mandatory),
    qmi_get<&qmi_voice_numbers::identification>(0x10, qmi_optional),
};

constexpr qmi_read_row<qmi_serial_numbers> serial_numbers_get[] = {
    qmi_get<&qmi_serial_numbers::esn>(0x10, qmi_optional),
    qmi_get<&qmi_serial_numbers::imei>(0x11, qmi_optional),
    qmi_get<&qmi_serial_numbers::meid>(0x12, qmi_optional),
};

constexpr qmi_read_row<qmi_pin_states> pin_status_get[] = {
    qmi_get<&qmi_pin_states::pin1>(0x11, qmi_optional),
    qmi_get<&qmi_pin_states::pin2>(0x12, qmi_optional),
};

constexpr qmi_read_row<qmi_images> firmware_preference_get[] = {
    qmi_get<&qmi_images::preferred>(0x01, qmi_mandatory),
};

qmi_question qmi_dms_capabilities(qmi_capabilities &capabilities)
{
    return ask_record<capabilities_get>({"DMS Get Capabilities", qmi_dms, 0x20}, capabilities);
}

qmi_question qmi_dms_manufacturer(std::string &text)
{
    return ask_single({"DMS Get Manufacturer", qmi_dms, 0x21}, text);
}

qmi_question qmi_dms_model(std::string &text)
{
    return ask_single({"DMS Get Model", qmi_dms, 0x22}, text);
}

qmi_question qmi_dms_firmware_revisions(qmi_firmware_revisions &revisions)
{
    return ask_record<firmware_revisions_get>({"DMS Get Firmware Revisions", qmi_dms, 0x23},
                                              revisions);
}

qmi_question qmi_dms_voice_numbers(qmi_voice_numbers &numbers)
{
    return ask_record<voice_numbers_get>({"DMS Get Voice Numbers", qmi_dms, 0x24}, numbers);
}

qmi_question qmi_dms_serial_numbers(qmi_serial_numbers &numbers)
{
    return ask_record<serial_numbers_get>({"DMS Get Serial Numbers", qmi_dms, 0x25}, numbers);
}

qmi_question qmi_dms_pin_status(qmi_pin_states &states)
{
    return ask_record<pin_status_get>({"DMS Get PIN Status", qmi_dms, 0x2B}, states);
}

qmi_question qmi_dms_hardware_revision(std::string &text)
{
    return ask_single({"DMS Get Hardware Revision", qmi_dms, 0x2C}, text);
}

qmi_question qmi_dms_operating_mode(uint8_t &mode)
{
    return ask_single({"DMS Get Operating Mode", qmi_dms, 0x2D}, mode);
}

qmi_question qmi_dms_prl_version(uint16_t &version)
{
    return ask_single({"DMS Get PRL Version", qmi_dms, 0x30}, version);
}

qmi_question qmi_dms_activation_state(uint16_t &activation)
{
    return ask_single({"DMS Get Activation State", qmi_dms, 0x31}, activation);
}

qmi_question qmi_dms_iccid(std::string &digits)
{
    return ask_single({"DMS Get ICCID", qmi_dms, 0x3C}, digits);
}

qmi_question qmi_dms_imsi(std::string &digits)
{
    return ask_single({"DMS Get IMSI", qmi_dms, 0x43}, digits);
}

qmi_question qmi_dms_uim_state(uint8_t &uim_state)
{
    return ask_single({"DMS Get UIM State", qmi_dms, 0x44}, uim_state);
}

qmi_question qmi_dms_firmware_preference(qmi_images &images)
{
    return ask_record<firmware_preference_get>({"DMS Get Firmware Preference", qmi_dms, 0x47},
                                               images);
}

// ---- NAS

constexpr qmi_read_row<qmi_serving_system> serving_system_get[] = {
    qmi_get<&qmi_serving_system::registration, &qmi_serving_system::circuit_attach,
            &qmi_serving_system::packet_attach, &qmi_serving_system::network,
            &qmi_serving_system::radios>(0x01, qmi_mandatory),
    qmi_get<&qmi_serving_system::roaming>(0x10, qmi_optional),
    qmi_get<&qmi_serving_system::data_services>(0x11, qmi_optional),
    qmi_get<&qmi_serving_system::plmn>(0x12, qmi_optional),
    qmi_get<&qmi_serving_system::cdma>(0x13, qmi_optional),
    qmi_get<&qmi_serving_system::default_roaming>(0x16, qmi_optional),
};

constexpr qmi_read_row<qmi_active_bands> active_bands_get[] = {
    qmi_get<&qmi_active_bands::bands>(0x01, qmi_mandatory),
};

// The order is in another TLV than in the request that sets it.
constexpr qmi_read_row<qmi_system_selection> system_selection_get[] = {
    qmi_get<&qmi_system_selection::mode_mask>(0x11, qmi_optional),
    qmi_get<&qmi_system_selection::band_mask>(0x12, qmi_optional),
    qmi_get<&qmi_system_selection::lte_band_mask>(0x15, qmi_optional),
    qmi_get<&qmi_system_selection::acquisition_order>(0x1C, qmi_optional),
};

constexpr qmi_read_row<qmi_signal_info> signal_info_get[] = {
    qmi_get<&qmi_signal_info::cdma>(0x10, qmi_optional),
    qmi_get<&qmi_signal_info::hdr>(0x11, qmi_optional),
    qmi_get<&qmi_signal_info::gsm_rssi>(0x12, qmi_optional),
    qmi_get<&qmi_signal_info::wcdma>(0x13, qmi_optional),
    qmi_get<&qmi_signal_info::lte>(0x14, qmi_optional),
};

qmi_question qmi_nas_serving_system(qmi_serving_system &system)
{
    return ask_record<serving_system_get>({"NAS Get Serving System", qmi_nas, 0x24}, system);
}

qmi_question qmi_nas_active_bands(qmi_active_bands &bands)
{
    return ask_record<active_bands_get>({"NAS Get RF Band Information", qmi_nas, 0x31}, bands);
}

qmi_question qmi_nas_system_selection(qmi_system_selection &selection)
{
    return ask_record<system_selection_get>({"NAS Get System Selection", qmi_nas, 0x34}, selection);
}

qmi_question qmi_nas_signal_info(qmi_signal_info &signal)
{
    return ask_record<signal_info_get>({"NAS Get Signal Information", qmi_nas, 0x4F}, signal);
}

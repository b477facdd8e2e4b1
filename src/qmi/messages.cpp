#include "qmi/messages.h"

#include "platform/log.h"
#include "qmi/qmux.h"
#include "qmi/questions.h"

constexpr int start_network_timeout_ms = 90000;

struct nothing {
};

template <class value_type>
struct single {
    value_type value{};
};

template <class value_type>
constexpr qmi_write_row<single<value_type>> put_single[] = {
    qmi_put<&single<value_type>::value>(0x01),
};

template <class value_type>
constexpr qmi_read_row<single<value_type>> get_single[] = {
    qmi_get<&single<value_type>::value>(0x01, qmi_mandatory),
};

// ---- the one way of every message

template <class wanted_record, class answer_record>
static uint32_t call(uint32_t handle, const qmi_request &request,
                     std::span<const qmi_write_row<wanted_record>> put, const wanted_record &wanted,
                     std::span<const qmi_read_row<answer_record>> get, answer_record &answer)
{
    tlv_writer tlvs;
    if (const uint32_t code = qmi_write_tlvs(put, wanted, tlvs); code != qmi_ok)
        return code;
    std::vector<uint8_t> response;
    const uint32_t code = qmi_send_wait(handle, request, tlvs.bytes, response);
    if (qmi_read_tlvs(get, response, code == qmi_ok, answer) || code != qmi_ok)
        return code;
    log_message(log_debug, "%s: something is missing in the answer", request.name);
    return qmi_modem_error;
}

template <class wanted_record>
static uint32_t tell(uint32_t handle, const qmi_request &request,
                     std::span<const qmi_write_row<wanted_record>> put, const wanted_record &wanted)
{
    nothing answer;
    return call(handle, request, put, wanted, std::span<const qmi_read_row<nothing>>{}, answer);
}

template <class value_type>
static uint32_t tell_single(uint32_t handle, const qmi_request &request, value_type value)
{
    return tell<single<value_type>>(handle, request, put_single<value_type>, {value});
}

// ---- WDS

constexpr qmi_write_row<qmi_start_network> start_network_put[] = {
    qmi_put<&qmi_start_network::profile>(0x31),  qmi_put<&qmi_start_network::authentication>(0x16),
    qmi_put<&qmi_start_network::apn>(0x14),      qmi_put<&qmi_start_network::username>(0x17),
    qmi_put<&qmi_start_network::password>(0x18),
};

constexpr qmi_read_row<qmi_started_network> start_network_get[] = {
    qmi_get<&qmi_started_network::session>(0x01, qmi_mandatory),
    qmi_get<&qmi_started_network::end_reason>(0x10, qmi_on_error),
};

constexpr qmi_write_row<qmi_profile> modify_profile_put[] = {
    qmi_put<&qmi_profile::id>(0x01),
    qmi_put<&qmi_profile::name>(0x10),
    qmi_put<&qmi_profile::pdp_type>(0x11),
    qmi_put<&qmi_profile::apn>(0x14),
    qmi_put<&qmi_profile::authentication>(0x1D),
    qmi_put<&qmi_profile::username>(0x1B),
    qmi_put<&qmi_profile::password>(0x1C),
};

constexpr qmi_write_row<qmi_profile_id> reset_profile_put[] = {
    qmi_put<&qmi_profile_id::type, &qmi_profile_id::index>(0x01),
};

uint32_t qmi_wds_reset(uint32_t handle)
{
    return tell<nothing>(handle, {"WDS Reset", qmi_wds, 0x00}, {}, {});
}

uint32_t qmi_wds_start_network(uint32_t handle, const qmi_start_network &wanted,
                               qmi_started_network &started)
{
    return call<qmi_start_network, qmi_started_network>(
        handle, {"WDS Start Network", qmi_wds, 0x20, start_network_timeout_ms}, start_network_put,
        wanted, start_network_get, started);
}

uint32_t qmi_wds_stop_network(uint32_t handle, uint32_t session)
{
    return tell_single(handle, {"WDS Stop Network", qmi_wds, 0x21}, session);
}

uint32_t qmi_wds_get_packet_status(uint32_t handle, uint8_t &packet_state)
{
    return qmi_ask(handle, qmi_wds_packet_status(packet_state));
}

uint32_t qmi_wds_modify_profile(uint32_t handle, const qmi_profile &profile)
{
    return tell<qmi_profile>(handle, {"WDS Modify Profile", qmi_wds, 0x28}, modify_profile_put,
                             profile);
}

uint32_t qmi_wds_reset_profile(uint32_t handle, const qmi_profile_id &profile)
{
    return tell<qmi_profile_id>(handle, {"WDS Reset Profile", qmi_wds, 0x4B}, reset_profile_put,
                                profile);
}

// ---- DMS

constexpr qmi_write_row<qmi_pin_protection> pin_protection_put[] = {
    qmi_put<&qmi_pin_protection::pin_id, &qmi_pin_protection::enabled, &qmi_pin_protection::pin>(
        0x01),
};

constexpr qmi_write_row<qmi_pin_unblock> unblock_pin_put[] = {
    qmi_put<&qmi_pin_unblock::pin_id, &qmi_pin_unblock::puk, &qmi_pin_unblock::new_pin>(0x01),
};

static bool is_pin_id(uint8_t pin_id)
{
    return pin_id == 1 || pin_id == 2;
}

uint32_t qmi_dms_get_manufacturer(uint32_t handle, std::string &text)
{
    return qmi_ask(handle, qmi_dms_manufacturer(text));
}

uint32_t qmi_dms_get_model(uint32_t handle, std::string &text)
{
    return qmi_ask(handle, qmi_dms_model(text));
}

uint32_t qmi_dms_set_pin_protection(uint32_t handle, const qmi_pin_protection &wanted)
{
    if (!is_pin_id(wanted.pin_id) || wanted.pin.text.empty())
        return qmi_bad_argument;
    return tell<qmi_pin_protection>(handle, {"DMS Set PIN Protection", qmi_dms, 0x27},
                                    pin_protection_put, wanted);
}

uint32_t qmi_dms_unblock_pin(uint32_t handle, const qmi_pin_unblock &wanted)
{
    if (!is_pin_id(wanted.pin_id) || wanted.puk.text.empty() || wanted.new_pin.text.empty())
        return qmi_bad_argument;
    return tell<qmi_pin_unblock>(handle, {"DMS Unblock PIN", qmi_dms, 0x29}, unblock_pin_put,
                                 wanted);
}

uint32_t qmi_dms_get_pin_status(uint32_t handle, qmi_pin_states &states)
{
    return qmi_ask(handle, qmi_dms_pin_status(states));
}

uint32_t qmi_dms_set_operating_mode(uint32_t handle, qmi_operating_mode mode)
{
    qmi_request request = {"DMS Set Operating Mode", qmi_dms, 0x2E};
    if (mode == qmi_mode_reset)
        request.silence_code = qmi_no_reset_answer;
    return tell_single(handle, request, static_cast<uint8_t>(mode));
}

uint32_t qmi_dms_get_uim_state(uint32_t handle, uint8_t &uim_state)
{
    return qmi_ask(handle, qmi_dms_uim_state(uim_state));
}

// ---- NAS

constexpr qmi_write_row<qmi_system_selection> system_selection_put[] = {
    qmi_put<&qmi_system_selection::mode_mask>(0x11),
    qmi_put<&qmi_system_selection::band_mask>(0x12),
    qmi_put<&qmi_system_selection::lte_band_mask>(0x15),
    qmi_put<&qmi_system_selection::acquisition_order>(0x1E),
};

uint32_t qmi_nas_get_serving_system(uint32_t handle, qmi_serving_system &system)
{
    return qmi_ask(handle, qmi_nas_serving_system(system));
}

uint32_t qmi_nas_set_system_selection(uint32_t handle, const qmi_system_selection &wanted)
{
    return tell<qmi_system_selection>(handle, {"NAS Set System Selection", qmi_nas, 0x33},
                                      system_selection_put, wanted);
}

// ---- WMS

constexpr qmi_write_row<qmi_sms> send_put[] = {
    qmi_put<&qmi_sms::format, &qmi_sms::pdu>(0x01),
};

constexpr qmi_write_row<qmi_sms_place> read_put[] = {
    qmi_put<&qmi_sms_place::storage, &qmi_sms_place::index>(0x01),
    qmi_put<&qmi_sms_place::mode>(0x10),
};

constexpr qmi_read_row<qmi_stored_sms> read_get[] = {
    qmi_get<&qmi_stored_sms::tag, &qmi_stored_sms::format, &qmi_stored_sms::pdu>(0x01,
                                                                                 qmi_mandatory),
};

constexpr qmi_write_row<qmi_sms_place> delete_put[] = {
    qmi_put<&qmi_sms_place::storage>(0x01),
    qmi_put<&qmi_sms_place::index>(0x10),
    qmi_put<&qmi_sms_place::mode>(0x12),
};

constexpr qmi_write_row<qmi_sms_storage_of> list_put[] = {
    qmi_put<&qmi_sms_storage_of::storage>(0x01),
    qmi_put<&qmi_sms_storage_of::mode>(0x12),
};

using sms_list = single<qmi_list<uint32_t, qmi_listed_sms>>;

uint32_t qmi_wms_send(uint32_t handle, const qmi_sms &message)
{
    return tell<qmi_sms>(handle, {"WMS Raw Send", qmi_wms, 0x20}, send_put, message);
}

uint32_t qmi_wms_read(uint32_t handle, const qmi_sms_place &place, qmi_stored_sms &message)
{
    return call<qmi_sms_place, qmi_stored_sms>(handle, {"WMS Raw Read", qmi_wms, 0x22}, read_put,
                                               place, read_get, message);
}

uint32_t qmi_wms_delete(uint32_t handle, const qmi_sms_place &place)
{
    return tell<qmi_sms_place>(handle, {"WMS Delete", qmi_wms, 0x24}, delete_put, place);
}

uint32_t qmi_wms_list(uint32_t handle, const qmi_sms_storage_of &storage,
                      std::vector<qmi_listed_sms> &messages)
{
    sms_list answer;
    const uint32_t code = call<qmi_sms_storage_of, sms_list>(
        handle, {"WMS List Messages", qmi_wms, 0x31}, list_put, storage,
        get_single<qmi_list<uint32_t, qmi_listed_sms>>, answer);
    messages = std::move(answer.value.items);
    return code;
}

// ---- PDS

uint32_t qmi_pds_set_service(uint32_t handle, bool on)
{
    return tell_single(handle, {"PDS Set GPS Service", qmi_pds, 0x21}, static_cast<uint8_t>(on));
}

uint32_t qmi_pds_set_auto_tracking(uint32_t handle, bool on)
{
    return tell_single(handle, {"PDS Set Auto Tracking", qmi_pds, 0x31}, static_cast<uint8_t>(on));
}

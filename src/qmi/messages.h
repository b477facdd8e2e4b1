// The messages that the Gobi family sends alone, one function each: it sends the request, waits for
// its answer and returns a qmi_code (link.h). Those that only ask are questions, too (questions.h).
// Records are filled only as far as the answer has them, and texts are as the modem sent them, in no
// known encoding.
//
// Facts: the public QMI message descriptions (libqmi). WDS Reset Profile is not among them; its
// request is taken over from the profile messages beside it, and its answer has nothing to read.
#pragma once

#include "qmi/layout.h"

// ---- WDS: data sessions

constexpr uint8_t qmi_packet_connected = 2;
constexpr uint32_t qmi_no_session = 0xFFFFFFFF;

struct qmi_start_network {
    std::optional<uint8_t> profile; // 3GPP
    std::optional<uint8_t> authentication;
    std::optional<std::string> apn, username, password;
};

struct qmi_started_network {
    uint32_t session = qmi_no_session;
    std::optional<uint16_t> end_reason; // why it was not started
};

enum qmi_profile_type : uint8_t { qmi_profile_3gpp = 0 };

struct qmi_profile_id {
    uint8_t type = qmi_profile_3gpp;
    uint8_t index = 0;
};
template <>
inline constexpr auto qmi_fields<qmi_profile_id> =
    std::tuple{&qmi_profile_id::type, &qmi_profile_id::index};

struct qmi_profile {
    qmi_profile_id id;
    std::string name;
    uint8_t pdp_type = 0;
    std::optional<std::string> apn;
    uint8_t authentication = 0;
    std::optional<std::string> username, password;
};

// Drops what the modem keeps for this client.
[[nodiscard]] uint32_t qmi_wds_reset(uint32_t handle);
// The answer comes when the call is up or has failed.
[[nodiscard]] uint32_t qmi_wds_start_network(uint32_t handle, const qmi_start_network &wanted,
                                             qmi_started_network &started);
[[nodiscard]] uint32_t qmi_wds_stop_network(uint32_t handle, uint32_t session);
[[nodiscard]] uint32_t qmi_wds_get_packet_status(uint32_t handle, uint8_t &packet_state);
[[nodiscard]] uint32_t qmi_wds_modify_profile(uint32_t handle, const qmi_profile &profile);
[[nodiscard]] uint32_t qmi_wds_reset_profile(uint32_t handle, const qmi_profile_id &profile);

// ---- DMS: the device and its SIM

enum qmi_operating_mode : uint8_t {
    qmi_mode_online = 0,
    qmi_mode_low_power = 1,
    qmi_mode_offline = 3,
    qmi_mode_reset = 4,
};

enum qmi_uim_state : uint8_t { qmi_uim_locked = 1, qmi_uim_absent = 2 };

enum qmi_pin_state : uint8_t { qmi_pin_blocked = 4, qmi_pin_permanently_blocked = 5 };

struct qmi_pin_status {
    uint8_t status = 0;
    uint8_t verify_left = 0;
    uint8_t unblock_left = 0;
};
template <>
inline constexpr auto qmi_fields<qmi_pin_status> = std::tuple{
    &qmi_pin_status::status, &qmi_pin_status::verify_left, &qmi_pin_status::unblock_left};

struct qmi_pin_states {
    std::optional<qmi_pin_status> pin1, pin2;
};

// PIN 1 or 2. An empty PIN or PUK, or another id, is a bad argument; more than 255 characters are
// too long.
struct qmi_pin_protection {
    uint8_t pin_id = 1;
    uint8_t enabled = 0;
    qmi_short_text pin;
};

struct qmi_pin_unblock {
    uint8_t pin_id = 1;
    qmi_short_text puk, new_pin;
};

[[nodiscard]] uint32_t qmi_dms_get_manufacturer(uint32_t handle, std::string &text);
[[nodiscard]] uint32_t qmi_dms_get_model(uint32_t handle, std::string &text);
[[nodiscard]] uint32_t qmi_dms_set_pin_protection(uint32_t handle,
                                                  const qmi_pin_protection &wanted);
[[nodiscard]] uint32_t qmi_dms_unblock_pin(uint32_t handle, const qmi_pin_unblock &wanted);
[[nodiscard]] uint32_t qmi_dms_get_pin_status(uint32_t handle, qmi_pin_states &states);
// A modem that is told to reset may go before it answers: qmi_no_reset_answer then.
[[nodiscard]] uint32_t qmi_dms_set_operating_mode(uint32_t handle, qmi_operating_mode mode);
[[nodiscard]] uint32_t qmi_dms_get_uim_state(uint32_t handle, uint8_t &uim_state);

// ---- NAS: the network

struct qmi_plmn {
    uint16_t mcc = 0;
    uint16_t mnc = 0;
    qmi_short_text name;
};
template <>
inline constexpr auto qmi_fields<qmi_plmn> =
    std::tuple{&qmi_plmn::mcc, &qmi_plmn::mnc, &qmi_plmn::name};

struct qmi_cdma_system {
    uint16_t sid = 0;
    uint16_t nid = 0;
};
template <>
inline constexpr auto qmi_fields<qmi_cdma_system> =
    std::tuple{&qmi_cdma_system::sid, &qmi_cdma_system::nid};

struct qmi_serving_system {
    uint8_t registration = 0;
    uint8_t circuit_attach = 0;
    uint8_t packet_attach = 0;
    uint8_t network = 0;
    qmi_list<uint8_t, int8_t> radios;
    std::optional<uint8_t> roaming;
    std::optional<uint8_t> default_roaming;
    std::optional<qmi_list<uint8_t, uint8_t>> data_services;
    std::optional<qmi_plmn> plmn;
    std::optional<qmi_cdma_system> cdma;
};

constexpr uint8_t qmi_registration_unknown = 4;

// What is left out of a request stays as it is.
struct qmi_system_selection {
    std::optional<uint16_t> mode_mask;
    std::optional<uint64_t> band_mask;
    std::optional<uint64_t> lte_band_mask;
    std::optional<qmi_list<uint8_t, uint8_t>> acquisition_order;
};

[[nodiscard]] uint32_t qmi_nas_get_serving_system(uint32_t handle, qmi_serving_system &system);
[[nodiscard]] uint32_t qmi_nas_set_system_selection(uint32_t handle,
                                                    const qmi_system_selection &wanted);

// ---- WMS: short messages

enum qmi_sms_storage : uint8_t { qmi_storage_uim = 0, qmi_storage_nv = 1 };
enum qmi_sms_mode : uint8_t { qmi_sms_cdma = 0, qmi_sms_gsm = 1 };
enum qmi_sms_format : uint8_t { qmi_format_cdma = 0, qmi_format_gsm = 6 };
enum qmi_sms_tag : uint8_t { qmi_tag_read = 0, qmi_tag_unread = 1 }; // of received messages

using qmi_octets = qmi_list<uint16_t, uint8_t>;

struct qmi_sms {
    uint8_t format = qmi_format_gsm;
    qmi_octets pdu;
};

struct qmi_stored_sms {
    uint8_t tag = 0;
    uint8_t format = 0;
    qmi_octets pdu;
};

struct qmi_listed_sms {
    uint32_t index = 0;
    uint8_t tag = 0;
};
template <>
inline constexpr auto qmi_fields<qmi_listed_sms> =
    std::tuple{&qmi_listed_sms::index, &qmi_listed_sms::tag};

struct qmi_sms_storage_of {
    uint8_t storage = qmi_storage_uim;
    uint8_t mode = qmi_sms_gsm;
};

struct qmi_sms_place {
    uint8_t storage = qmi_storage_uim;
    uint32_t index = 0;
    uint8_t mode = qmi_sms_gsm;
};

[[nodiscard]] uint32_t qmi_wms_send(uint32_t handle, const qmi_sms &message);
[[nodiscard]] uint32_t qmi_wms_read(uint32_t handle, const qmi_sms_place &place,
                                    qmi_stored_sms &message);
[[nodiscard]] uint32_t qmi_wms_delete(uint32_t handle, const qmi_sms_place &place);
[[nodiscard]] uint32_t qmi_wms_list(uint32_t handle, const qmi_sms_storage_of &storage,
                                    std::vector<qmi_listed_sms> &messages);

// ---- PDS: position

[[nodiscard]] uint32_t qmi_pds_set_service(uint32_t handle, bool on);
[[nodiscard]] uint32_t qmi_pds_set_auto_tracking(uint32_t handle, bool on);

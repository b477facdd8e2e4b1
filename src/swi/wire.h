// The byte layouts of the SDK channels: packet header, packet kinds, object ids, the layout of every
// record, and which object a notification comes from. They are this project's own, version 1, all
// little-endian; docs/swi-wire.md shows them byte by byte. A site with the vendor's documents
// replaces this header: whatever is sent or received is made from these tables.
#pragma once

#include "swi/layout.h"
#include "swi/records.h"

#include <array>
#include <cstddef>
#include <cstdint>

// ---- channels

#define SWI_SERVER_SOCKET_PATTERN "/tmp/SWI_SDK_%s_SOCKET_%u"
#define SWI_CLIENT_SOCKET_PATTERN "/tmp/SWI_API_%s_SOCKET_%u"

constexpr const char *swi_socket_mutex_path = "/tmp/SWI_SDK_SOCKET_MUTEX";
constexpr unsigned swi_socket_number = 0; // one server on a machine

struct swi_channel_pair {
    const char *request;
    const char *notification;
};

constexpr std::array<swi_channel_pair, 5> swi_channel_pairs = {{
    {"CNRR1", "NOTIF1"},
    {"CNRR2", "NOTIF2"},
    {"CNRR3", "NOTIF3"},
    {"CNRR4", "NOTIF4"},
    {"CNRR5", "NOTIF5"},
}};

// ---- the packet header

constexpr uint16_t swi_mark = 0x4D41; // "AM"
constexpr uint8_t swi_version = 1;

enum swi_message_type {
    swi_message_greeting = 0, // the server's first packet on a new connection
    swi_message_request = 1,
    swi_message_response = 2,
    swi_message_notification = 3,
    swi_message_rejected = 4,
};

struct swi_header {
    uint16_t mark = swi_mark;
    uint8_t version = swi_version;
    uint8_t message = 0;    // swi_message_type
    uint16_t kind = 0;      // swi_packet_kind_id
    uint16_t parameter = 0; // notifications: swi_parameter_type
    uint32_t sequence = 0;  // a response has its request's
    uint16_t payload_bytes = 0;
    uint16_t reserved = 0;
};

constexpr size_t swi_header_bytes = 2 + 1 + 1 + 2 + 2 + 4 + 2 + 2;
constexpr size_t swi_response_bytes_max = 1024;
constexpr size_t swi_notification_bytes_max = 4096;

// A greeting's payload: whether this connection is served.
struct swi_greeting {
    uint32_t busy = 0; // nonzero: the pair has a client already
};

// In front of the parameters of the first kind of packet.
struct swi_object_header {
    uint16_t object = 0;
    uint8_t operation = 0; // swi_object_operation
    uint8_t reserved = 0;
    uint32_t status = 0; // responses: swi_object_status
    uint16_t parameter_bytes = 0;
    uint16_t reserved2 = 0;
};

constexpr size_t swi_object_header_bytes = 2 + 1 + 1 + 4 + 2 + 2;

enum swi_object_operation {
    swi_operation_get = 1,
    swi_operation_set = 2,
    swi_operation_notify_enable = 3,
    swi_operation_notify = 4,
};

// What the modem says about a request. A number that is not here counts as a failure.
enum swi_object_status : uint32_t {
    swi_status_ok = 0,
    swi_status_timeout = 1,
    swi_status_not_initialised = 2,
    swi_status_error = 3, // the parameters are the error's text
    swi_status_not_supported = 4,
    swi_status_error_text = 6, // as swi_status_error
    swi_status_busy = 7,
    swi_status_failed = 8,
};

// In front of the parameters of the other kinds' responses, which have no object header.
struct swi_plain_response {
    uint32_t status = 0; // swi_object_status
};

// Which kind of notification a packet carries.
enum swi_parameter_type {
    swi_parameter_object = 0,
    swi_parameter_air_server = 1,
    swi_parameter_firmware = 2,
};

// ---- packet kinds

enum swi_packet_kind_id : uint16_t {
    swi_kind_none = 0,
    swi_kind_object = 1,
    swi_kind_air_server = 2,
    swi_kind_firmware = 3,
    swi_kind_reset = 4,
    swi_kind_port_name = 5,
    swi_kind_device_info = 6,
};

// For each direction the bytes in front of the parameters, and of the longest whole packet. A kind
// without notifications has 0 there.
struct swi_packet_sizes {
    uint16_t bytes = 0;
    uint16_t total = 0;
};

struct swi_packet_kind {
    swi_packet_kind_id id = swi_kind_none;
    const char *name = nullptr;
    swi_packet_sizes request;
    swi_packet_sizes response;
    swi_packet_sizes notification;
};

constexpr std::array<swi_packet_kind, 6> swi_packet_kinds = {{
    {swi_kind_object, "AMCNS", {28, 1024}, {28, 1024}, {28, 4096}},
    {swi_kind_air_server, "AMAIRSRV", {16, 1024}, {16, 1024}, {16, 4096}},
    {swi_kind_firmware, "AMFWDWN", {16, 1024}, {20, 1024}, {16, 4096}},
    {swi_kind_reset, "AMRESETMDM", {16, 1024}, {20, 1024}, {}},
    {swi_kind_port_name, "AMPORTNAME", {16, 1024}, {20, 1024}, {}},
    {swi_kind_device_info, "AMDEVINFO", {16, 1024}, {20, 1024}, {}},
}};

// ---- layouts

template <class Record>
inline constexpr swi_layout swi_layout_of = [] {
    static_assert(std::is_same_v<Record, swi_nothing>, "this record has no layout");
    return swi_layout{};
}();

// The macro's rows are the record's fields in wire order.
#define SWI_LAYOUT(record, ...)                                                                    \
    inline constexpr swi_field record##_fields[] = {__VA_ARGS__};                                  \
    template <>                                                                                    \
    inline constexpr swi_layout swi_layout_of<record> = swi_make_layout(record##_fields)

// clang-format off
SWI_LAYOUT(swi_header,
    SWI_FIELD(swi_header, mark), SWI_FIELD(swi_header, version), SWI_FIELD(swi_header, message),
    SWI_FIELD(swi_header, kind), SWI_FIELD(swi_header, parameter), SWI_FIELD(swi_header, sequence),
    SWI_FIELD(swi_header, payload_bytes), SWI_FIELD(swi_header, reserved));
SWI_LAYOUT(swi_object_header,
    SWI_FIELD(swi_object_header, object), SWI_FIELD(swi_object_header, operation),
    SWI_FIELD(swi_object_header, reserved), SWI_FIELD(swi_object_header, status),
    SWI_FIELD(swi_object_header, parameter_bytes), SWI_FIELD(swi_object_header, reserved2));
SWI_LAYOUT(swi_greeting, SWI_FIELD(swi_greeting, busy));
SWI_LAYOUT(swi_plain_response, SWI_FIELD(swi_plain_response, status));

SWI_LAYOUT(swi_number, SWI_FIELD(swi_number, value));
SWI_LAYOUT(swi_signed_number, SWI_FIELD(swi_signed_number, value));
SWI_LAYOUT(swi_text, SWI_FIELD(swi_text, text));
SWI_LAYOUT(swi_air_server_status,
    SWI_FIELD(swi_air_server_status, unavailable), SWI_FIELD(swi_air_server_status, other));
SWI_LAYOUT(swi_modem_type,
    SWI_FIELD(swi_modem_type, type_code), SWI_FIELD(swi_modem_type, technology),
    SWI_FIELD(swi_modem_type, product));
SWI_LAYOUT(swi_error_text, SWI_FIELD(swi_error_text, text));

SWI_LAYOUT(swi_gsm_imsi,
    SWI_FIELD(swi_gsm_imsi, mcc), SWI_FIELD(swi_gsm_imsi, mnc), SWI_FIELD(swi_gsm_imsi, msin));
SWI_LAYOUT(swi_gsm_system_status,
    SWI_FIELD(swi_gsm_system_status, modem_status),
    SWI_FIELD(swi_gsm_system_status, service_status),
    SWI_FIELD(swi_gsm_system_status, service_type),
    SWI_FIELD(swi_gsm_system_status, roaming_status),
    SWI_FIELD(swi_gsm_system_status, country), SWI_FIELD(swi_gsm_system_status, carrier));
SWI_LAYOUT(swi_rssi_ber, SWI_FIELD(swi_rssi_ber, rssi), SWI_FIELD(swi_rssi_ber, ber));
SWI_LAYOUT(swi_cell,
    SWI_FIELD(swi_cell, rscp), SWI_FIELD(swi_cell, second), SWI_FIELD(swi_cell, ecio));
SWI_LAYOUT(swi_rscp_ecio, SWI_LIST(swi_rscp_ecio, cells, count, swi_layout_of<swi_cell>));
SWI_LAYOUT(swi_radio_band,
    SWI_FIELD(swi_radio_band, band), SWI_FIELD(swi_radio_band, technology));
SWI_LAYOUT(swi_radio_bands,
    SWI_LIST(swi_radio_bands, bands, count, swi_layout_of<swi_radio_band>));
SWI_LAYOUT(swi_band_type, SWI_FIELD(swi_band_type, type));
SWI_LAYOUT(swi_band_info,
    SWI_FIELD(swi_band_info, current),
    SWI_LIST(swi_band_info, valid, count, swi_layout_of<swi_band_type>));
SWI_LAYOUT(swi_radio_temperature,
    SWI_FIELD(swi_radio_temperature, state), SWI_FIELD(swi_radio_temperature, celsius));
SWI_LAYOUT(swi_set_region,
    SWI_FIELD(swi_set_region, region), SWI_FIELD(swi_set_region, unlock_text), swi_padding(1));
SWI_LAYOUT(swi_phonebook_request,
    SWI_FIELD(swi_phonebook_request, size), SWI_FIELD(swi_phonebook_request, book),
    SWI_FIELD(swi_phonebook_request, index), swi_padding(192));
SWI_LAYOUT(swi_phonebook_entry,
    SWI_FIELD(swi_phonebook_entry, entries), SWI_FIELD(swi_phonebook_entry, digit_count),
    SWI_FIELD(swi_phonebook_entry, digits), SWI_FIELD(swi_phonebook_entry, name));
SWI_LAYOUT(swi_sim_verify,
    SWI_FIELD(swi_sim_verify, size), SWI_FIELD(swi_sim_verify, type),
    SWI_FIELD(swi_sim_verify, pin), SWI_FIELD(swi_sim_verify, puk), swi_padding(2));
SWI_LAYOUT(swi_sim_lock,
    SWI_FIELD(swi_sim_lock, size), SWI_FIELD(swi_sim_lock, lock),
    SWI_FIELD(swi_sim_lock, pin), swi_padding(3));
SWI_LAYOUT(swi_rat_request,
    SWI_FIELD(swi_rat_request, size), SWI_FIELD(swi_rat_request, rat), swi_padding(4));
SWI_LAYOUT(swi_track_request,
    SWI_FIELD(swi_track_request, size), SWI_FIELD(swi_track_request, mode),
    SWI_FIELD(swi_track_request, fixes), SWI_FIELD(swi_track_request, accuracy_m),
    SWI_FIELD(swi_track_request, fix_timeout), SWI_FIELD(swi_track_request, fix_interval_s));
SWI_LAYOUT(swi_end_session_request,
    SWI_FIELD(swi_end_session_request, size), SWI_FIELD(swi_end_session_request, session));

SWI_LAYOUT(swi_call_request,
    SWI_FIELD(swi_call_request, call_type), SWI_FIELD(swi_call_request, number));
SWI_LAYOUT(swi_nam_text, SWI_FIELD(swi_nam_text, nam), SWI_FIELD(swi_nam_text, text));
SWI_LAYOUT(swi_nam, SWI_FIELD(swi_nam, nam));
SWI_LAYOUT(swi_home_sid_nid,
    SWI_FIELD(swi_home_sid_nid, nam), SWI_FIELD(swi_home_sid_nid, sid),
    SWI_FIELD(swi_home_sid_nid, nid));
SWI_LAYOUT(swi_lock_result,
    SWI_FIELD(swi_lock_result, result), SWI_FIELD(swi_lock_result, missing));
SWI_LAYOUT(swi_sms_status,
    SWI_FIELD(swi_sms_status, stored), SWI_FIELD(swi_sms_status, pending), swi_padding(8));
SWI_LAYOUT(swi_sms_read_request, SWI_FIELD(swi_sms_read_request, buffer_bytes));
SWI_LAYOUT(swi_sms_message,
    SWI_FIELD(swi_sms_message, id), SWI_FIELD(swi_sms_message, status),
    SWI_FIELD(swi_sms_message, encoding), SWI_FIELD(swi_sms_message, format),
    SWI_FIELD(swi_sms_message, more), SWI_FIELD(swi_sms_message, text_bytes),
    SWI_FIELD(swi_sms_message, sender), SWI_FIELD(swi_sms_message, text));
SWI_LAYOUT(swi_sms_submit,
    SWI_FIELD(swi_sms_submit, reference), SWI_FIELD(swi_sms_submit, own_number),
    SWI_FIELD(swi_sms_submit, destination), SWI_FIELD(swi_sms_submit, destination_length),
    swi_padding(3), SWI_FIELD(swi_sms_submit, text_bytes), SWI_FIELD(swi_sms_submit, text));
SWI_LAYOUT(swi_mip_profile,
    SWI_FIELD(swi_mip_profile, nai), SWI_FIELD(swi_mip_profile, home_address),
    SWI_FIELD(swi_mip_profile, primary_agent), SWI_FIELD(swi_mip_profile, secondary_agent));
SWI_LAYOUT(swi_rssi_ecio,
    SWI_FIELD(swi_rssi_ecio, rssi), SWI_FIELD(swi_rssi_ecio, ecio),
    SWI_FIELD(swi_rssi_ecio, hdr_rssi), SWI_FIELD(swi_rssi_ecio, hdr_ecio));
SWI_LAYOUT(swi_frames, SWI_FIELD(swi_frames, total), SWI_FIELD(swi_frames, bad));
SWI_LAYOUT(swi_byte_counter,
    SWI_FIELD(swi_byte_counter, sent), SWI_FIELD(swi_byte_counter, received));
SWI_LAYOUT(swi_base_station,
    SWI_FIELD(swi_base_station, longitude), SWI_FIELD(swi_base_station, latitude));
SWI_LAYOUT(swi_roaming, SWI_FIELD(swi_roaming, status), SWI_FIELD(swi_roaming, indicator));
// clang-format on

// ---- object ids: one for each operation and notification that the first kind of packet carries

enum swi_object_id : uint16_t {
    swi_object_none = 0,

    swi_object_esn = 0x1000,
    swi_object_firmware_version = 0x1001,
    swi_object_hardware_version = 0x1002,
    swi_object_boot_version = 0x1003,
    swi_object_imei = 0x1004,
    swi_object_serial_number = 0x1005,
    swi_object_gsm_imsi = 0x1006,
    swi_object_gsm_system_status = 0x1007,
    swi_object_rssi_ber = 0x1008,
    swi_object_rscp_ecio = 0x1009,
    swi_object_current_radio_band = 0x100A,
    swi_object_band_info = 0x100B,
    swi_object_radio_temp_state = 0x100C,
    swi_object_prl_region = 0x100D,
    swi_object_phonebook_entry = 0x100E,
    swi_object_modem_enable = 0x100F,
    swi_object_sim_verify = 0x1010,
    swi_object_sim_lock = 0x1011,
    swi_object_rat = 0x1012,
    swi_object_lbs_pd_track = 0x1013,
    swi_object_lbs_end_session = 0x1014,

    swi_object_call_originate = 0x2000,
    swi_object_call_disconnect = 0x2001,
    swi_object_pst_unlock = 0x2002,
    swi_object_pst_current_nam = 0x2003,
    swi_object_mobile_dir_number = 0x2004,
    swi_object_cdma_imsi = 0x2005,
    swi_object_pst_home_sid_nid = 0x2006,
    swi_object_pst_lock = 0x2007,
    swi_object_factory_reset = 0x2008,
    swi_object_sms_status = 0x2009,
    swi_object_sms_read = 0x200A,
    swi_object_sms_store = 0x200B,
    swi_object_sms_send = 0x200C,
    swi_object_active_mip_profile = 0x200D,
    swi_object_mip_profile = 0x200E,
    swi_object_mip_behavior = 0x200F,
    swi_object_carrier_id = 0x2010,
    swi_object_prl_version = 0x2011,
    swi_object_nam_calid_status = 0x2012,
    swi_object_phone_number = 0x2013,
    swi_object_tech_sid = 0x2014,
    swi_object_tech_nid = 0x2015,
    swi_object_tech_hdr_mac_index = 0x2016,
    swi_object_packet_zone = 0x2017,
    swi_object_tech_band_class = 0x2018,
    swi_object_rssi_ecio = 0x2019,
    swi_object_tech_frame = 0x201A,
    swi_object_byte_counter = 0x201B,
    swi_object_tech_powersave_mode = 0x201C,
    swi_object_transmit_power = 0x201D,
    swi_object_temperature = 0x201E,
    swi_object_channel_number = 0x201F,
    swi_object_tech_bs_info = 0x2020,
    swi_object_authentication_status = 0x2021,
    swi_object_service_indication = 0x2022,
    swi_object_hdr_srv_state = 0x2023,
    swi_object_call_connection_state = 0x2024,
    swi_object_roaming_status = 0x2025,

    // A notification's object is this and the notification's id.
    swi_object_notification = 0x4000,
};

// ---- notifications

// clang-format off
inline constexpr swi_field swi_first_word_fields[] = {SWI_FIELD(swi_notification, first)};
inline constexpr swi_field swi_system_mode_fields[] = {
    swi_padding(16), SWI_FIELD(swi_notification, system_mode)}; // behind the four status words
inline constexpr swi_field swi_service_icon_fields[] = {
    SWI_FIELD(swi_notification, first), swi_padding(4),
    SWI_FIELD(swi_notification, packet_session_active)};
inline constexpr swi_field swi_packet_session_fields[] = {
    SWI_FIELD(swi_notification, packet_session_active)};
inline constexpr swi_field swi_hdr_state_fields[] = {SWI_FIELD(swi_notification, hdr_state)};
inline constexpr swi_field swi_caller_id_fields[] = {SWI_FIELD(swi_notification, caller_id)};
// clang-format on

inline constexpr swi_layout swi_no_parameters = {};
inline constexpr swi_layout swi_first_word = swi_make_layout(swi_first_word_fields);
inline constexpr swi_layout swi_system_mode = swi_make_layout(swi_system_mode_fields);
inline constexpr swi_layout swi_service_icon = swi_make_layout(swi_service_icon_fields);
inline constexpr swi_layout swi_packet_session = swi_make_layout(swi_packet_session_fields);
inline constexpr swi_layout swi_hdr_state = swi_make_layout(swi_hdr_state_fields);
inline constexpr swi_layout swi_caller_id = swi_make_layout(swi_caller_id_fields);

// The ids are the callers'; some are only enabled (a call's events have ids of their own), some
// only arrive.
enum swi_notification_id : uint32_t {
    swi_notify_rssi = 103,
    swi_notify_radio_temp_state = 112,
    swi_notify_call_connecting = 1007,
    swi_notify_call_connected = 1008,
    swi_notify_call_incoming = 1009,
    swi_notify_caller_id = 1010,
    swi_notify_call_disconnected = 1012,
    swi_notify_call_error = 1013,
    swi_notify_call_status = 1027,
    swi_notify_call_privacy = 1029,
    swi_notify_hdr_state = 1051,
    swi_notify_network_status = 2000,
    swi_notify_sim_status = 2008,
    swi_notify_sim_ready = 2012,
    swi_notify_phonebook_ready = 2013,
    swi_notify_phonebook_entry = 2014,
    swi_notify_modem_disabled = 2017,
    swi_notify_service_icon = 2026,
    swi_notify_packet_session = 2028,
    swi_notify_gsm_system_status = 2031,
    // Not a modem's: what the server says about itself, by packet kind.
    swi_notify_air_server = 1,
    swi_notify_firmware = 108,
};

// These two are always on.
constexpr std::array<uint32_t, 2> swi_notifications_always_on = {swi_notify_air_server,
                                                                 swi_notify_firmware};

struct swi_notification_row {
    uint32_t id;
    const swi_layout *layout; // of the parameters, into a swi_notification

    [[nodiscard]] constexpr uint16_t object() const
    {
        return static_cast<uint16_t>(swi_object_notification + id);
    }
};

constexpr std::array<swi_notification_row, 20> swi_notifications = {{
    {swi_notify_rssi, &swi_first_word},
    {swi_notify_radio_temp_state, &swi_first_word},
    {swi_notify_call_connecting, &swi_no_parameters},
    {swi_notify_call_connected, &swi_no_parameters},
    {swi_notify_call_incoming, &swi_no_parameters},
    {swi_notify_caller_id, &swi_caller_id},
    {swi_notify_call_disconnected, &swi_no_parameters},
    {swi_notify_call_error, &swi_first_word},
    {swi_notify_call_status, &swi_first_word},
    {swi_notify_call_privacy, &swi_first_word},
    {swi_notify_hdr_state, &swi_hdr_state},
    {swi_notify_network_status, &swi_first_word},
    {swi_notify_sim_status, &swi_first_word},
    {swi_notify_sim_ready, &swi_first_word},
    {swi_notify_phonebook_ready, &swi_first_word},
    {swi_notify_phonebook_entry, &swi_first_word},
    {swi_notify_modem_disabled, &swi_first_word},
    {swi_notify_service_icon, &swi_service_icon},
    {swi_notify_packet_session, &swi_packet_session},
    {swi_notify_gsm_system_status, &swi_system_mode},
}};

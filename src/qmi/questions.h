// The messages that only ask, as data: what is sent, and where its answer goes. One question can be
// asked alone, and several that do not depend on each other together. The record that a question
// fills must outlive it; it is filled only as far as the answer has it, and not at all by an answer
// that cannot be read. Texts are as the modem sent them, in no known encoding.
//
// Facts: the public QMI message descriptions (libqmi). Boot and PRI version in DMS Get Firmware
// Revisions and the two messages of mobile IP have no public layout; docs/qmi-link.md has ours.
#pragma once

#include "qmi/layout.h"
#include "qmi/link.h"

#include <array>

struct qmi_pin_states;
struct qmi_serving_system;
struct qmi_system_selection;

// ---- records that are answers

struct qmi_capabilities {
    uint32_t send_bits_max = 0; // bits a second
    uint32_t receive_bits_max = 0;
    uint8_t data_service = 0;
    uint8_t sim_supported = 0;
    qmi_list<uint8_t, uint8_t> radios;
};

struct qmi_firmware_revisions {
    std::string amss;
    std::optional<std::string> boot, pri;
};

struct qmi_serial_numbers {
    std::optional<std::string> esn, imei, meid;
};

struct qmi_voice_numbers {
    std::string voice;
    std::optional<std::string> identification; // the mobile identification number of CDMA
};

enum qmi_image_type : uint8_t { qmi_image_modem = 0, qmi_image_carrier = 1 };

struct qmi_image {
    uint8_t type = 0;
    std::array<uint8_t, 16> unique_id{};
    qmi_short_text build_id;
};
template <>
inline constexpr auto qmi_fields<qmi_image> =
    std::tuple{&qmi_image::type, &qmi_image::unique_id, &qmi_image::build_id};

struct qmi_images {
    qmi_list<uint8_t, qmi_image> preferred;
};

// Strengths in dBm, Ec/Io in units of -0.5 dB.
struct qmi_code_signal {
    int8_t rssi = 0;
    int16_t ecio = 0;
};
template <>
inline constexpr auto qmi_fields<qmi_code_signal> =
    std::tuple{&qmi_code_signal::rssi, &qmi_code_signal::ecio};

struct qmi_hdr_signal {
    int8_t rssi = 0;
    int16_t ecio = 0;
    uint8_t sinr = 0; // a level from 0 to 8
    int32_t io = 0;   // dBm
};
template <>
inline constexpr auto qmi_fields<qmi_hdr_signal> = std::tuple{
    &qmi_hdr_signal::rssi, &qmi_hdr_signal::ecio, &qmi_hdr_signal::sinr, &qmi_hdr_signal::io};

struct qmi_lte_signal {
    int8_t rssi = 0;
    int8_t rsrq = 0;  // dB
    int16_t rsrp = 0; // dBm
    int16_t snr = 0;  // tenths of a dB
};
template <>
inline constexpr auto qmi_fields<qmi_lte_signal> = std::tuple{
    &qmi_lte_signal::rssi, &qmi_lte_signal::rsrq, &qmi_lte_signal::rsrp, &qmi_lte_signal::snr};

// Of the networks that the modem hears.
struct qmi_signal_info {
    std::optional<qmi_code_signal> cdma;
    std::optional<qmi_hdr_signal> hdr;
    std::optional<int8_t> gsm_rssi;
    std::optional<qmi_code_signal> wcdma;
    std::optional<qmi_lte_signal> lte;
};

struct qmi_active_band {
    int8_t radio = 0;
    uint16_t band = 0;
    uint16_t channel = 0;
};
template <>
inline constexpr auto qmi_fields<qmi_active_band> =
    std::tuple{&qmi_active_band::radio, &qmi_active_band::band, &qmi_active_band::channel};

struct qmi_active_bands {
    qmi_list<uint8_t, qmi_active_band> bands;
};

// IPv4 addresses are numbers with the first part of the dotted form in the highest byte.
struct qmi_ipv6_prefix {
    std::array<uint8_t, 16> address{}; // in network order
    uint8_t length = 0;
};
template <>
inline constexpr auto qmi_fields<qmi_ipv6_prefix> =
    std::tuple{&qmi_ipv6_prefix::address, &qmi_ipv6_prefix::length};

struct qmi_runtime_settings {
    std::optional<uint32_t> ipv4_address, ipv4_gateway, ipv4_subnet;
    std::optional<qmi_ipv6_prefix> ipv6_address, ipv6_gateway;
};

struct qmi_mip_profile {
    std::optional<uint8_t> enabled;
    std::string nai; // network access identifier
};

// ---- questions

struct qmi_question {
    qmi_request request;
    std::vector<uint8_t> tlvs; // of the request
    // Reads the answer's TLVs, those of a success or of a failure. False when it cannot be read.
    bool (*read)(std::span<const uint8_t> tlvs, bool success, void *answer) = nullptr;
    void *answer = nullptr;
    uint32_t code = qmi_not_sent; // what came of it, for those that are asked together
};

// Asks and waits: a qmi_code.
[[nodiscard]] uint32_t qmi_ask(uint32_t handle, const qmi_question &question);

// Asks all, several at a time, and stores their codes.
void qmi_ask_all(uint32_t handle, std::span<qmi_question> questions);

[[nodiscard]] qmi_question qmi_wds_packet_status(uint8_t &packet_state);
[[nodiscard]] qmi_question qmi_wds_runtime_settings(qmi_runtime_settings &settings);
[[nodiscard]] qmi_question qmi_wds_data_bearer(int8_t &bearer);
[[nodiscard]] qmi_question qmi_wds_active_mip_profile(uint8_t &index);
[[nodiscard]] qmi_question qmi_wds_mip_profile(uint8_t index, qmi_mip_profile &profile);

[[nodiscard]] qmi_question qmi_dms_capabilities(qmi_capabilities &capabilities);
[[nodiscard]] qmi_question qmi_dms_manufacturer(std::string &text);
[[nodiscard]] qmi_question qmi_dms_model(std::string &text);
[[nodiscard]] qmi_question qmi_dms_firmware_revisions(qmi_firmware_revisions &revisions);
[[nodiscard]] qmi_question qmi_dms_voice_numbers(qmi_voice_numbers &numbers);
[[nodiscard]] qmi_question qmi_dms_serial_numbers(qmi_serial_numbers &numbers);
[[nodiscard]] qmi_question qmi_dms_pin_status(qmi_pin_states &states);
[[nodiscard]] qmi_question qmi_dms_hardware_revision(std::string &text);
[[nodiscard]] qmi_question qmi_dms_operating_mode(uint8_t &mode);
[[nodiscard]] qmi_question qmi_dms_prl_version(uint16_t &version);
[[nodiscard]] qmi_question qmi_dms_activation_state(uint16_t &activation);
[[nodiscard]] qmi_question qmi_dms_iccid(std::string &digits);
[[nodiscard]] qmi_question qmi_dms_imsi(std::string &digits);
[[nodiscard]] qmi_question qmi_dms_uim_state(uint8_t &uim_state);
[[nodiscard]] qmi_question qmi_dms_firmware_preference(qmi_images &images);

[[nodiscard]] qmi_question qmi_nas_serving_system(qmi_serving_system &system);
[[nodiscard]] qmi_question qmi_nas_active_bands(qmi_active_bands &bands);
[[nodiscard]] qmi_question qmi_nas_system_selection(qmi_system_selection &selection);
[[nodiscard]] qmi_question qmi_nas_signal_info(qmi_signal_info &signal);

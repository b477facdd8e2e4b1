// QMI messages in QMUX frames: the fixed part of the protocol, without any knowledge of what a
// message means. Numbers on the wire have their low byte first and no alignment.
//
//     marker 01 | length (2, of all that follows the marker) | sender | service | client id
//     kind | transaction (1 byte for the control service, else 2) | message id (2)
//     length of the TLVs (2) | TLVs
//
// Facts: the public QMI message descriptions (libqmi).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

enum qmi_service : uint8_t {
    qmi_ctl = 0,
    qmi_wds = 1, // wireless data
    qmi_dms = 2, // device management
    qmi_nas = 3, // network access
    qmi_wms = 5, // messaging
    qmi_pds = 6, // position
    qmi_uim = 11,
};

enum qmux_kind { qmux_request, qmux_response, qmux_indication };

constexpr uint8_t qmux_marker = 0x01;
constexpr uint8_t qmux_client_broadcast = 0xFF; // an indication for every client of the service
constexpr size_t qmux_header_bytes = 1 + 2 + 1 + 1 + 1;
constexpr size_t qmux_ctl_header_bytes = 1 + 1 + 2 + 2;
constexpr size_t qmux_service_header_bytes = 1 + 2 + 2 + 2;
constexpr size_t qmux_frame_bytes_max = 1 + 0xFFFF;

// One message. The TLVs belong to the caller; after decoding they lie in the frame.
struct qmux_message {
    bool from_modem = false;
    uint8_t service = qmi_ctl;
    uint8_t client_id = 0;
    qmux_kind kind = qmux_request;
    uint16_t transaction = 0; // 1 to 255 for the control service
    uint16_t id = 0;
    std::span<const uint8_t> tlvs = {};
};

// The size of the frame that begins the bytes, as its header tells; 0 while there are too few bytes
// to tell. 0, or -1 when no frame can begin like this: the stream has lost its framing.
[[nodiscard]] int qmux_frame_size(std::span<const uint8_t> bytes, size_t &size);

// Decodes one whole frame. 0, or -1 when it is cut, its lengths disagree or its kind is none. The
// TLVs as such are not looked at: with tlv_check a reader can tell whose message has broken ones.
[[nodiscard]] int qmux_decode(std::span<const uint8_t> frame, qmux_message &message);

// Encodes a frame. 0, or -1 when the TLVs do not fit or the transaction is too large for the
// control service; `frame` is then empty.
[[nodiscard]] int qmux_encode(const qmux_message &message, std::vector<uint8_t> &frame);

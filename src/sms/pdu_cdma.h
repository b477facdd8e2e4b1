// Short messages of CDMA networks as PDUs: the transport layer's message and inside it the bearer
// data with their subparameters, from (deliver) and to (submit) the message centre.
//
// Facts: 3GPP2 C.S0015 (both layers), C.R1001 (encodings, service identifiers).
#pragma once

#include "sms/pdu.h"

// Transport type, service identifiers, address, reply sequence, cause, bearer data.
constexpr size_t pdu_cdma_octets_max = 1 + 2 * 4 + (2 + 255) + 3 + 4 + (2 + 255);

enum pdu_cdma_kind { pdu_cdma_deliver, pdu_cdma_submit };

enum pdu_cdma_transport : uint8_t {
    pdu_cdma_point_to_point = 0,
    pdu_cdma_broadcast = 1,
    pdu_cdma_acknowledge = 2,
};

enum pdu_cdma_teleservice : uint16_t {
    pdu_cdma_paging = 4097,
    pdu_cdma_messaging = 4098,
    pdu_cdma_voice_mail = 4099,
    pdu_cdma_wap = 4100,
    pdu_cdma_enhanced_messaging = 4101, // the one whose user data may have a header
};

// Numbers of bearer_message_type; others are acknowledgements and reports.
enum pdu_cdma_bearer_type : uint8_t {
    pdu_cdma_bearer_deliver = 1,
    pdu_cdma_bearer_submit = 2,
};

// What the transport layer answers with.
struct pdu_cdma_cause {
    uint8_t reply_seq = 0;
    uint8_t error_class = 0; // 0 none, 2 temporary, 3 permanent
    uint8_t code = 0;        // of an error
};

// A message. Fields without a value are those that the message does not have, or has in a form too
// short to hold one.
struct pdu_cdma {
    pdu_cdma_transport transport = pdu_cdma_point_to_point;
    pdu_cdma_kind kind = pdu_cdma_submit; // by the address: the destination's makes it a submit
    // Encoding takes none as messaging, or enhanced messaging when the user data have a header.
    std::optional<uint16_t> teleservice_id;
    std::optional<uint16_t> service_category;
    sms_address number; // originator or destination
    std::optional<uint8_t> bearer_reply_seq;
    std::optional<pdu_cdma_cause> cause;

    // Nothing: there are no bearer data; encoding takes that as deliver or submit.
    std::optional<uint8_t> bearer_message_type;
    uint16_t message_id = 0;
    sms_body body;

    std::optional<sms_time> sent; // message centre's clock, which has no zone
    std::optional<sms_time> validity_time, deferred_time;
    std::optional<uint8_t> validity_relative, deferred_relative; // coded as in the standard
    std::optional<uint8_t> user_response_code;
    std::optional<uint8_t> priority;     // 0 normal, 1 interactive, 2 urgent, 3 emergency
    std::optional<uint8_t> privacy;      // 0 none, 1 restricted, 2 confidential, 3 secret
    std::optional<uint8_t> reply_option; // 8 user, 4 delivery, 2 read acknowledgement, 1 report
    std::optional<uint8_t> number_of_messages; // 0 to 99
    std::optional<uint8_t> alert;
    std::optional<uint8_t> language;
    std::optional<uint8_t> display_mode;
    std::optional<uint16_t> deposit_index;
    std::optional<uint8_t> message_status; // error class in the two high bits, then the status
    std::optional<uint8_t> failure_cause;
    std::optional<sms_address> callback;
};

// Decodes a whole PDU. 0, or -1 when a length reaches beyond what holds it, a digit is not possible,
// the header is malformed, or a mandatory parameter is missing: `message` is then unspecified.
// Unknown parameters and subparameters are skipped; a time that is none has no value.
[[nodiscard]] int pdu_cdma_decode(std::span<const uint8_t> pdu, pdu_cdma &message);

// Encodes a whole PDU: parameters and subparameters in order of their numbers. 0, or -1 when a
// number or time has no coding, the text has a character that the encoding lacks, or something does
// not fit its length octet.
[[nodiscard]] int pdu_cdma_encode(const pdu_cdma &message, std::vector<uint8_t> &pdu);

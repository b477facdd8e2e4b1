// Short messages of GSM, UMTS and LTE as PDUs: SMS-DELIVER, SMS-SUBMIT and SMS-STATUS-REPORT, each
// with the service centre's address in front, as modems store, deliver and take them.
//
// Facts: 3GPP TS 23.040 (the TPDUs), TS 23.038 (data coding scheme), TS 27.005 and TS 24.011 (the
// address in front).
#pragma once

#include "sms/pdu.h"

constexpr size_t pdu_3gpp_octets_max = 176; // service centre 12, fields 24, user data 140

enum pdu_3gpp_kind { pdu_3gpp_deliver, pdu_3gpp_submit, pdu_3gpp_status_report };

// A message. The comment behind a field names the kinds that have it: d, s, r; the others leave it
// alone. Fields that are set by decoding only are said to be so.
struct pdu_3gpp {
    pdu_3gpp_kind kind = pdu_3gpp_submit;
    std::optional<sms_address> smsc; // nothing: the modem's own setting
    sms_address number;              // d: originator, s: destination, r: recipient

    bool more_messages = false;     // d r: more are waiting in the service centre
    bool loop_prevention = false;   // d r
    bool reject_duplicates = false; // s
    bool status_report = false;     // d: will be returned, s: requested, r: answers a command
    bool reply_path = false;        // d s

    std::optional<uint8_t> pid; // nothing in a report without one; encoding takes that as 0
    // The data coding scheme. When encoding, nothing means: made from the encoding and the class;
    // one that stands for another encoding than the body's is refused.
    std::optional<uint8_t> dcs;
    std::optional<uint8_t> message_class; // 0 to 3
    std::optional<sms_waiting> waiting;   // decoded only

    uint8_t message_reference = 0;      // s r
    uint8_t status = 0;                 // r: TP-ST
    std::optional<sms_time> sent;       // d r: service centre time stamp; nothing: unreadable
    std::optional<sms_time> discharged; // r

    // s: at most one of the two when encoding. Relative ones become the smallest TP-VP that lasts
    // at least as long.
    std::optional<uint32_t> validity_s;
    std::optional<sms_time> validity_time;
    std::optional<uint8_t> tp_vp; // decoded only

    sms_body body;
};

// What a data coding scheme says.
struct pdu_3gpp_coding {
    sms_encoding encoding = sms_encoding_gsm7;
    std::optional<uint8_t> message_class;
    std::optional<sms_waiting> waiting;
};

// Reserved schemes count as the GSM 7-bit default alphabet; a compressed text as octets.
[[nodiscard]] pdu_3gpp_coding pdu_3gpp_read_dcs(uint8_t dcs);

// Decodes a whole PDU; its kind is found by the message type bits. 0, or -1 when a field reaches
// beyond the octets, digits or lengths are not possible, the header is malformed or the message
// type is reserved: `message` is then unspecified. Octets behind the user data are ignored.
[[nodiscard]] int pdu_3gpp_decode(std::span<const uint8_t> pdu, pdu_3gpp &message);

// Encodes a whole PDU. 0, or -1 when a number, time, class or validity has no coding, the text has a
// character that the encoding lacks, or the user data do not fit one message.
[[nodiscard]] int pdu_3gpp_encode(const pdu_3gpp &message, std::vector<uint8_t> &pdu);

// Where the TPDU begins, behind the service centre's address: modems count a PDU's length from
// there. The PDU must not be empty.
[[nodiscard]] size_t pdu_3gpp_tpdu_offset(std::span<const uint8_t> pdu);

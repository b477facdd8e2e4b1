// What the short messages of both standards have in common: numbers, time stamps, user data with
// its header. Plain values that own what they hold.
//
// Facts: 3GPP TS 23.040 (user data header, its information elements, TP-SCTS).
#pragma once

#include "sms/charset.h"

constexpr size_t sms_user_data_octets_max = 140;  // with the header
constexpr size_t sms_user_data_septets_max = 160; // likewise
constexpr size_t sms_parts_max = 255;

enum sms_number_type {
    sms_number_unknown, // and every type without a name of its own here
    sms_number_international,
    sms_number_national,
    sms_number_alphanumeric, // a name, or an electronic mail address
};

struct sms_address {
    std::string number; // digits, also *#abc; '+' in front when international; or a name
    sms_number_type type = sms_number_unknown;
    // 1, type of number, numbering plan as TS 23.040 has them in one octet. Decoding sets it (0 for
    // the 4-bit digits of 3GPP2, which have none); encoding derives it from the type when it is 0.
    uint8_t toa = 0;
};

struct sms_time {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0; // month and day from 1
    std::optional<int> zone_minutes; // local time's lead on UTC; nothing: not stated

    bool operator==(const sms_time &) const = default;
};

// This part's place in a long message.
struct sms_concat {
    uint16_t ref = 0;
    uint8_t total = 1;
    uint8_t seq = 1;   // from 1 to total
    bool wide = false; // the reference has 16 bits

    bool operator==(const sms_concat &) const = default;
};

struct sms_ports {
    uint16_t destination = 0, source = 0;
};

// User data. For encoding, a text is encoded when there is one, otherwise `data` is.
struct sms_body {
    sms_encoding encoding = sms_encoding_none;
    std::optional<std::string> text; // nothing: binary data or no user data
    // The code units behind the header: octets, or a septet a byte. Joining parts needs them, as
    // some senders cut between the halves of a pair.
    std::vector<uint8_t> data;
    // The user data header as received, its length octet included; empty: none. When encoding, the
    // header is the concatenation of `concat` and then every other element of this one.
    std::vector<uint8_t> header;
    std::optional<sms_concat> concat;
    gsm7_shift shift; // national tables that the header names
};

enum sms_waiting_kind : uint8_t {
    sms_waiting_voice = 0,
    sms_waiting_fax = 1,
    sms_waiting_mail = 2,
    sms_waiting_other = 3,
};

// Message waiting, from the coding scheme or the header.
struct sms_waiting {
    sms_waiting_kind kind = sms_waiting_voice;
    bool active = false;
    bool store = true;            // false: the text may be discarded
    std::optional<uint8_t> count; // how many are waiting, when stated
};

enum sms_element_id : uint8_t { // information elements of the user data header
    sms_element_concat8 = 0x00,
    sms_element_waiting = 0x01,
    sms_element_ports8 = 0x04,
    sms_element_ports16 = 0x05,
    sms_element_concat16 = 0x08,
    sms_element_single_shift = 0x24,
    sms_element_locking_shift = 0x25,
};

// A number as a user writes it: '+' in front makes it international, otherwise its type is unknown.
[[nodiscard]] sms_address sms_address_from_text(std::string_view number);

// False for a month 13, a 30th of February and the like.
[[nodiscard]] bool sms_time_valid(const sms_time &time);

// Seconds since the epoch; a time without a zone counts as UTC. The time must be valid.
[[nodiscard]] int64_t sms_time_epoch(const sms_time &time);

// "2011-02-28T11:50:50-05:00", without the zone when there is none.
[[nodiscard]] std::string sms_time_text(const sms_time &time);

// The contents of the last header element with this id; nothing when there is none.
[[nodiscard]] std::optional<std::span<const uint8_t>> sms_header_element(const sms_body &body,
                                                                         sms_element_id id);

// The application ports that the header names.
[[nodiscard]] std::optional<sms_ports> sms_body_ports(const sms_body &body);

// Decodes user data into a body whose encoding is set: `count` code units, or octets where a unit
// is one or two octets, with the header (if any) counted in. 0, or -1 when the octets do not hold
// them or the header is malformed: the body is then unspecified but for its encoding.
[[nodiscard]] int sms_body_decode(sms_body &body, std::span<const uint8_t> octets, size_t count,
                                  bool has_header);

// Encodes a body; `count` counts as above. 0, or -1 when the text has a character that the encoding
// lacks, the concatenation is impossible, or the header is malformed or longer than its length
// octet can say. The caller checks the size that its message allows.
[[nodiscard]] int sms_body_encode(const sms_body &body, std::vector<uint8_t> &octets,
                                  size_t &count);

// The alphabets of short messages. A text travels as code units: septets of a 7-bit alphabet, or
// octets (UTF-16 as two octets a unit, high one first). Here one byte holds one septet or one octet;
// packing puts them into the octets of a PDU. Inside the program texts are UTF-8.
//
// Facts: 3GPP TS 23.038 (GSM 7-bit default alphabet, its extension table, national language tables,
// packing), 3GPP2 C.R1001 (the encodings of 3GPP2 messages).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

enum sms_encoding {
    sms_encoding_none, // there is no user data
    sms_encoding_gsm7,
    sms_encoding_octets, // binary data, no text
    sms_encoding_utf16,  // UCS-2 in 3GPP, where pairs of surrogates are found in practice too
    sms_encoding_latin1,
    sms_encoding_ascii7,
    sms_encoding_ia5,
    sms_encoding_other, // an alphabet that is not decoded; its octets are kept
};

// National language identifiers of TS 23.038. One without a table here (Spanish has no locking
// table, the Indian languages have none here) leaves the default table in force.
enum gsm7_language : uint8_t {
    gsm7_language_default = 0,
    gsm7_language_turkish = 1,
    gsm7_language_spanish = 2,
    gsm7_language_portuguese = 3,
};

// Which tables a 7-bit text was written with; `locking` replaces the main one, `single` the one
// behind the escape.
struct gsm7_shift {
    uint8_t locking = gsm7_language_default;
    uint8_t single = gsm7_language_default;

    bool operator==(const gsm7_shift &) const = default;
};

// True for encodings whose code units are septets.
[[nodiscard]] bool charset_is_7bit(sms_encoding encoding);

// The code units of a UTF-8 text. 0, or -1 when the text is not UTF-8, has a character that the
// alphabet lacks, or the encoding is none for texts.
[[nodiscard]] int charset_encode(sms_encoding encoding, std::string_view text,
                                 std::vector<uint8_t> &units);

// The UTF-8 text of code units; nothing for encodings that are none for texts. It never fails on
// its input: a lone surrogate becomes U+FFFD, half a UTF-16 unit at the end is dropped, an escape
// at the end (or a doubled one) becomes a blank, and an escape before a septet that the table lacks
// leaves that septet's main character.
[[nodiscard]] std::optional<std::string>
charset_decode(sms_encoding encoding, std::span<const uint8_t> units, gsm7_shift shift = {});

// How many GSM 7-bit code units this character takes: 1, 2 (escape pair), or 0 if it has none.
[[nodiscard]] size_t charset_gsm7_width(char32_t character);

// The character at `position` of a well-formed UTF-8 text; moves the position behind it.
[[nodiscard]] char32_t charset_next(std::string_view text, size_t &position);

// Appends code units to octets that may already begin with a header: the first unit is placed at
// index `first_unit` counted from the beginning of `octets`, which is grown to what is needed.
// GSM septets are packed from the low bit of an octet up, those of ASCII and IA5 from the high bit
// down; bits in between (fill bits) are 0.
void charset_pack(sms_encoding encoding, std::span<const uint8_t> units, size_t first_unit,
                  std::vector<uint8_t> &octets);

// The reverse: `count` units from index `first_unit` on. 0, or -1 when the octets end before them.
[[nodiscard]] int charset_unpack(sms_encoding encoding, std::span<const uint8_t> octets,
                                 size_t first_unit, size_t count, std::vector<uint8_t> &units);

// The user data subparameters of 3GPP2 messages: fields of any width, high bit first.
//
// Facts: 3GPP2 C.S0015 (user data, multiple encoding user data), C.R1001 (encodings).
#pragma once

#include "sms/pdu.h"

// Reads user data. Text in an encoding without a decoder here becomes sms_encoding_other with the
// octets of its fields. 0, or -1 when there are fewer fields than announced or the header (if the
// message has one) is malformed.
[[nodiscard]] int user_data_cdma_read(std::span<const uint8_t> octets, bool has_header,
                                      sms_body &body);

// Reads user data in pieces of different encodings as one text, whose encoding is then UTF-16 unless
// all pieces have the same. Pieces that hold no text make it sms_encoding_other as a whole. 0 or -1.
[[nodiscard]] int user_data_cdma_read_multiple(std::span<const uint8_t> octets, sms_body &body);

// Writes user data. 0, or -1 when the body cannot be encoded or has more than 255 fields.
[[nodiscard]] int user_data_cdma_write(const sms_body &body, std::vector<uint8_t> &octets);

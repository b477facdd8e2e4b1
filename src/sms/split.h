// Messages out of a text of any length: chooses the encoding, cuts what does not fit one message
// into concatenated parts, and encodes each part. Nothing is divided that the receiver could not put
// together: no escape pair of the 7-bit alphabet, no surrogate pair.
#pragma once

#include "sms/pdu_3gpp.h"
#include "sms/pdu_cdma.h"

// Which reference the parts of one message carry. A narrow one has 8 bits and leaves one character
// more for the text.
struct sms_split_reference {
    uint16_t ref = 0;
    bool wide = false;
};

enum sms_standard { sms_3gpp, sms_3gpp2 };

// The bodies to send: one without a header when the text fits, otherwise up to 255 parts. A message
// is in a 7-bit alphabet when every character of the text is in it, else in UTF-16. In 3GPP2 a short
// text is in ASCII or UTF-16, which every receiver reads, and the GSM alphabet carries longer ones.
// 0, or -1 when the text is not UTF-8 or needs more than 255 parts, or a narrow reference has more
// than 8 bits.
[[nodiscard]] int sms_split(std::string_view text, sms_standard standard,
                            sms_split_reference reference, std::vector<sms_body> &bodies);

// How many parts sms_split makes; 0 when it refuses.
[[nodiscard]] size_t sms_part_count(std::string_view text, sms_standard standard,
                                    bool wide_reference = false);

// The PDUs that carry a text, in order. `form` says everything else: number, service centre, class,
// validity and so on; its body is not looked at. 0, or -1 when the text cannot be split or a part not
// be encoded; then there are no PDUs.
[[nodiscard]] int sms_encode_3gpp(const pdu_3gpp &form, std::string_view text,
                                  sms_split_reference reference,
                                  std::vector<std::vector<uint8_t>> &pdus);
[[nodiscard]] int sms_encode_cdma(const pdu_cdma &form, std::string_view text,
                                  sms_split_reference reference,
                                  std::vector<std::vector<uint8_t>> &pdus);

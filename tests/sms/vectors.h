// Messages as files of vectors have them, one JSON object a line, and the coder's view of the same
// message in the same terms. Both files are in tests/data: messages from the field
// and from other projects' tests, and our own for what those do not cover.
#pragma once

#include "sms/pdu_3gpp.h"
#include "sms/pdu_cdma.h"

#include <memory>

#include <jansson.h>

struct json_release {
    void operator()(json_t *value) const { json_decref(value); }
};
using json_owner = std::unique_ptr<json_t, json_release>;

// All lines of both files. A file that is missing or holds fewer lines than it should fails the
// test that asks.
std::vector<json_owner> load_vectors();

bool is_3gpp(const json_t *vector);
std::string string_of(const json_t *object, const char *key);
std::vector<uint8_t> octets_of(const json_t *vector);
std::string hex_of(std::span<const uint8_t> octets);

// What was decoded, every key that a vector or its "extra" may have.
json_owner describe(const pdu_3gpp &message);
json_owner describe(const pdu_cdma &message);

// The message that a vector describes for encoding.
pdu_3gpp message_3gpp(const json_t *vector);
pdu_cdma message_cdma(const json_t *vector);

#include "platform/text.h"
#include "sms/split.h"
#include "sms/vectors.h"

#include <map>
#include <set>

#include <gtest/gtest.h>

// Keys of a vector that say nothing about the message.
static const std::set<std::string> remarks = {
    "id",        "direction", "pdu_hex",           "error",      "source",
    "note",      "extra",     "text_alternatives", "asserted",   "group",
    "full_text", "why",       "smsc_toa",          "tpdu_offset"};

static std::string dump(const json_t *value)
{
    char *text = json_dumps(value, JSON_ENCODE_ANY | JSON_COMPACT);
    const std::string copy = text ? text : "(absent)";
    free(text);
    return copy;
}

static bool is_alternative(const json_t *vector, const json_t *text)
{
    size_t i;
    json_t *alternative;
    json_array_foreach(json_object_get(vector, "text_alternatives"), i, alternative)
    {
        if (json_equal(alternative, text))
            return true;
    }
    return false;
}

static void expect_fields(const json_t *expected, const json_t *actual, const json_t *vector)
{
    const char *key;
    json_t *value;
    json_object_foreach(const_cast<json_t *>(expected), key, value)
    {
        const json_t *found = json_object_get(actual, key);
        if (remarks.contains(key) || json_equal(value, found))
            continue;
        if (std::string(key) == "text" && is_alternative(vector, found))
            continue;
        // A period that was asked for becomes the next longer one that there is.
        if (std::string(key) == "validity_minutes" && string_of(vector, "direction") == "encode")
            continue;
        ADD_FAILURE() << key << " is " << dump(found) << " instead of " << dump(value);
    }
}

// What holds for anything that was decoded: its texts are UTF-8, and what can be encoded again is
// then decoded to the same.
template <typename message>
static void expect_sound(const message &decoded, int (*decode)(std::span<const uint8_t>, message &),
                         int (*encode)(const message &, std::vector<uint8_t> &))
{
    ASSERT_TRUE(text_is_utf8(decoded.number.number));
    ASSERT_TRUE(text_is_utf8(decoded.body.text.value_or("")));
    std::vector<uint8_t> pdu;
    if (encode(decoded, pdu) != 0)
        return;
    message again;
    ASSERT_EQ(decode(pdu, again), 0) << "own encoding " << hex_of(pdu);
    ASSERT_EQ(again.number.number, decoded.number.number);
    ASSERT_EQ(again.body.text, decoded.body.text);
    ASSERT_EQ(again.body.concat, decoded.body.concat);
    ASSERT_EQ(again.sent, decoded.sent);
}

template <typename message>
static void expect_decoded(const json_t *vector, int (*decode)(std::span<const uint8_t>, message &),
                           int (*encode)(const message &, std::vector<uint8_t> &))
{
    message decoded;
    const std::vector<uint8_t> pdu = octets_of(vector);
    const int result = decode(pdu, decoded);
    if (json_is_true(json_object_get(vector, "error"))) {
        EXPECT_EQ(result, -1) << "not refused";
        return;
    }
    ASSERT_EQ(result, 0) << "refused";
    const json_owner actual = describe(decoded);
    expect_fields(vector, actual.get(), vector);
    expect_fields(json_object_get(vector, "extra"), actual.get(), vector);
    expect_sound(decoded, decode, encode);
}

TEST(sms_vectors, are_decoded)
{
    for (const json_owner &vector : load_vectors()) {
        SCOPED_TRACE(string_of(vector.get(), "id"));
        if (is_3gpp(vector.get()))
            expect_decoded(vector.get(), pdu_3gpp_decode, pdu_3gpp_encode);
        else
            expect_decoded(vector.get(), pdu_cdma_decode, pdu_cdma_encode);
    }
}

TEST(sms_vectors, are_encoded)
{
    for (const json_owner &owner : load_vectors()) {
        const json_t *vector = owner.get();
        if (string_of(vector, "direction") != "encode")
            continue;
        SCOPED_TRACE(string_of(vector, "id"));
        std::vector<uint8_t> pdu;
        if (is_3gpp(vector)) {
            ASSERT_EQ(pdu_3gpp_encode(message_3gpp(vector), pdu), 0);
            const json_t *offset = json_object_get(json_object_get(vector, "extra"), "tpdu_offset");
            if (offset) {
                EXPECT_EQ(pdu_3gpp_tpdu_offset(pdu),
                          static_cast<size_t>(json_integer_value(offset)));
            }
        } else {
            ASSERT_EQ(pdu_cdma_encode(message_cdma(vector), pdu), 0);
        }
        EXPECT_EQ(hex_of(pdu), string_of(vector, "pdu_hex"));
    }
}

TEST(sms_vectors, are_split_where_their_parts_are)
{
    std::map<std::string, std::vector<json_owner>> groups;
    for (json_owner &vector : load_vectors()) {
        const json_t *extra = json_object_get(vector.get(), "extra");
        if (json_object_get(extra, "full_text"))
            groups[string_of(extra, "group")].push_back(std::move(vector));
    }
    ASSERT_GE(groups.size(), 5u);
    for (const auto &[name, vectors] : groups) {
        SCOPED_TRACE(name);
        std::vector<std::vector<uint8_t>> pdus;
        const pdu_3gpp form = message_3gpp(vectors.front().get());
        const std::string text =
            string_of(json_object_get(vectors.front().get(), "extra"), "full_text");
        ASSERT_EQ(
            sms_encode_3gpp(form, text, {form.body.concat->ref, form.body.concat->wide}, pdus), 0);
        ASSERT_EQ(pdus.size(), vectors.size());
        for (size_t i = 0; i < pdus.size(); i++)
            EXPECT_EQ(hex_of(pdus[i]), string_of(vectors[i].get(), "pdu_hex"));
    }
}

template <typename message>
static void damage(const json_t *vector, int (*decode)(std::span<const uint8_t>, message &),
                   int (*encode)(const message &, std::vector<uint8_t> &))
{
    std::vector<uint8_t> pdu = octets_of(vector);
    message decoded;
    // Copies without spare room, so that a sanitizer sees a read behind the end.
    for (auto end = pdu.begin(); end != pdu.end(); end++) {
        if (decode(std::vector<uint8_t>(pdu.begin(), end), decoded) == 0)
            expect_sound(decoded, decode, encode);
    }
    for (uint8_t &octet : pdu) {
        const uint8_t whole = octet;
        for (unsigned flip : {0x01u, 0x02u, 0x04u, 0x08u, 0x10u, 0x20u, 0x40u, 0x80u, 0xFFu}) {
            octet = static_cast<uint8_t>(whole ^ flip);
            if (decode(pdu, decoded) == 0)
                expect_sound(decoded, decode, encode);
        }
        octet = whole;
    }
}

TEST(sms_vectors, damaged_3gpp_messages_are_refused_or_read_soundly)
{
    for (const json_owner &vector : load_vectors()) {
        SCOPED_TRACE(string_of(vector.get(), "id"));
        if (is_3gpp(vector.get()))
            damage(vector.get(), pdu_3gpp_decode, pdu_3gpp_encode);
        if (HasFatalFailure())
            return;
    }
}

TEST(sms_vectors, damaged_cdma_messages_are_refused_or_read_soundly)
{
    for (const json_owner &vector : load_vectors()) {
        SCOPED_TRACE(string_of(vector.get(), "id"));
        if (!is_3gpp(vector.get()))
            damage(vector.get(), pdu_cdma_decode, pdu_cdma_encode);
        if (HasFatalFailure())
            return;
    }
}

// What is cut off a message is missed, unless it stood behind the user data.
TEST(sms_vectors, a_3gpp_message_cut_anywhere_is_refused)
{
    size_t refused = 0;
    for (const json_owner &vector : load_vectors()) {
        const std::string kind = string_of(vector.get(), "kind");
        if (json_is_true(json_object_get(vector.get(), "error")) ||
            (kind != "3gpp-deliver" && kind != "3gpp-submit"))
            continue;
        const std::vector<uint8_t> pdu = octets_of(vector.get());
        pdu_3gpp whole, cut;
        ASSERT_EQ(pdu_3gpp_decode(pdu, whole), 0) << string_of(vector.get(), "id");
        for (size_t size = 0; size < pdu.size(); size++) {
            if (pdu_3gpp_decode(std::span(pdu).first(size), cut) != 0)
                refused++;
            else
                EXPECT_TRUE(json_equal(describe(cut).get(), describe(whole).get()))
                    << string_of(vector.get(), "id") << " cut to " << size;
        }
    }
    EXPECT_GT(refused, 5000u);
}

TEST(sms_vectors, messages_with_every_field_come_back_octet_by_octet)
{
    std::set<std::string> ids;
    for (const char *id : {"ac-monolithic-1", "cdma-cause", "mm-cdma-latin-2", "of-alnum-11",
                           "report-all-parameters", "mwi-header", "first-octet-flags",
                           "gm-abs-validity-decode", "mm-udhi"})
        ids.insert(id);
    for (const json_owner &vector : load_vectors()) {
        if (ids.erase(string_of(vector.get(), "id")) == 0)
            continue;
        const std::vector<uint8_t> pdu = octets_of(vector.get());
        std::vector<uint8_t> again;
        if (is_3gpp(vector.get())) {
            pdu_3gpp message;
            ASSERT_EQ(pdu_3gpp_decode(pdu, message), 0);
            ASSERT_EQ(pdu_3gpp_encode(message, again), 0);
        } else {
            pdu_cdma message;
            ASSERT_EQ(pdu_cdma_decode(pdu, message), 0);
            ASSERT_EQ(pdu_cdma_encode(message, again), 0);
        }
        EXPECT_EQ(hex_of(again), hex_of(pdu)) << string_of(vector.get(), "id");
    }
    EXPECT_TRUE(ids.empty()) << *ids.begin() << " is not among the vectors";
}

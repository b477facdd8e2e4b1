#include "sms/parts.h"
#include "sms/split.h"

#include <random>

#include <gtest/gtest.h>

// A long text of characters drawn from `alphabet`.
static std::string random_text(const std::vector<std::string> &alphabet, size_t characters)
{
    std::mt19937 random(static_cast<unsigned>(characters));
    std::string text;
    for (size_t i = 0; i < characters; i++)
        text += alphabet[random() % alphabet.size()];
    return text;
}

// Encodes a text, decodes the parts and joins them again from the last to the first.
static std::string there_and_back(std::string_view text, bool wide, size_t &count)
{
    pdu_3gpp form;
    form.number = sms_address_from_text("+27821234567");
    form.smsc = sms_address_from_text("+15551234");
    std::vector<std::vector<uint8_t>> pdus;
    EXPECT_EQ(sms_encode_3gpp(form, text, {7, wide}, pdus), 0);
    count = pdus.size();
    std::vector<sms_part> parts;
    for (const auto &pdu : pdus) {
        pdu_3gpp decoded;
        EXPECT_EQ(pdu_3gpp_decode(pdu, decoded), 0);
        EXPECT_EQ(decoded.smsc.value_or(sms_address{}).number, "+15551234");
        parts.insert(parts.begin(), {parts.size(), decoded.number, decoded.sent, decoded.body});
    }
    const std::vector<sms_joined> joined = sms_join(parts, 0);
    EXPECT_EQ(joined.size(), 1u);
    EXPECT_EQ(joined[0].state, sms_joined_complete);
    return joined[0].body.text.value_or("(none)");
}

TEST(sms_split, a_text_of_any_length_comes_back_whole)
{
    const std::vector<std::string> alphabets[] = {
        {"a", "b", "{", "€"}, {"a", "b", "c", "d", "é"}, {"ж", "a", "€"}, {"😀", "a"}, {"😀"}};
    for (const std::vector<std::string> &alphabet : alphabets) {
        for (size_t characters : {0, 1, 33, 35, 66, 70, 71, 79, 80, 81, 153, 160, 161, 400, 2000}) {
            for (bool wide : {false, true}) {
                const std::string text = random_text(alphabet, characters);
                size_t count;
                ASSERT_EQ(there_and_back(text, wide, count), text);
                ASSERT_EQ(count, sms_part_count(text, sms_3gpp, wide));
            }
        }
    }
}

// How many code units fit, and that a pair which does not fit moves as a whole.
TEST(sms_split, parts_are_as_full_as_they_can_be)
{
    struct {
        std::string text;
        bool wide;
        std::vector<size_t> bytes; // of each piece
    } const cases[] = {
        {std::string(160, 'a'), false, {160}},
        {std::string(161, 'a'), false, {153, 8}},
        {std::string(161, 'a'), true, {152, 9}},
        {std::string(306, 'a'), false, {153, 153}},
        {std::string(152, 'a') + "{" + std::string(152, 'a'), false, {152, 152, 1}},
        {std::string(151, 'a') + "{" + std::string(100, 'a'), false, {152, 100}},
        {"ж" + std::string(69, 'a'), false, {71}},
        {"ж" + std::string(70, 'a'), false, {68, 4}},
        {"ж" + std::string(70, 'a'), true, {67, 5}},
        {"ж" + std::string(65, 'a') + "😀" + std::string(65, 'a'), false, {67, 69}},
        {"ж" + std::string(64, 'a') + "😀" + std::string(65, 'a'), false, {66 + 4, 65}},
    };
    for (const auto &c : cases) {
        std::vector<sms_body> bodies;
        std::vector<size_t> bytes;
        ASSERT_EQ(sms_split(c.text, sms_3gpp, {1, c.wide}, bodies), 0);
        for (const sms_body &body : bodies)
            bytes.push_back(body.text->size());
        EXPECT_EQ(bytes, c.bytes) << c.text << (c.wide ? " wide" : "");
    }
}

TEST(sms_split, what_cannot_be_sent_is_refused)
{
    std::vector<sms_body> bodies;
    EXPECT_EQ(sms_split(std::string(size_t{255} * 153, 'a'), sms_3gpp, {}, bodies), 0);
    EXPECT_EQ(bodies.size(), 255u);
    EXPECT_EQ(sms_split(std::string(size_t{255} * 153 + 1, 'a'), sms_3gpp, {}, bodies), -1);
    EXPECT_EQ(sms_part_count(std::string(size_t{255} * 152 + 1, 'a'), sms_3gpp, true), 0u);
    EXPECT_EQ(sms_part_count("ж" + std::string(size_t{255} * 67 - 1, 'a'), sms_3gpp), 255u);
    EXPECT_EQ(sms_part_count("ж" + std::string(size_t{255} * 67, 'a'), sms_3gpp), 0u);
    EXPECT_EQ(sms_split("\xC3", sms_3gpp, {}, bodies), -1);
    EXPECT_EQ(sms_split("\xED\xA0\x80", sms_3gpp, {}, bodies), -1) << "a surrogate is no character";
    EXPECT_EQ(sms_split("hi", sms_3gpp, {256, false}, bodies), -1);

    std::vector<std::vector<uint8_t>> pdus = {{1}};
    EXPECT_EQ(sms_encode_3gpp({}, "hi", {}, pdus), -1) << "nobody to send to";
    EXPECT_TRUE(pdus.empty());
}

TEST(sms_split, cdma_takes_what_every_receiver_reads)
{
    struct {
        std::string text;
        sms_encoding encoding;
        size_t parts;
    } const cases[] = {
        {"plain `ASCII`", sms_encoding_ascii7, 1},
        {std::string(160, 'a'), sms_encoding_ascii7, 1},
        {std::string(161, 'a'), sms_encoding_gsm7, 2},
        {std::string(161, '`'), sms_encoding_utf16, 3},
        {"é", sms_encoding_utf16, 1},
        {"é" + std::string(100, 'a'), sms_encoding_gsm7, 1},
        {"ж" + std::string(70, 'a'), sms_encoding_utf16, 2},
    };
    pdu_cdma form;
    form.number = sms_address_from_text("911");
    for (const auto &c : cases) {
        std::vector<std::vector<uint8_t>> pdus;
        std::string text;
        ASSERT_EQ(sms_encode_cdma(form, c.text, {3}, pdus), 0);
        ASSERT_EQ(pdus.size(), c.parts) << c.text;
        EXPECT_EQ(sms_part_count(c.text, sms_3gpp2), c.parts);
        for (const auto &pdu : pdus) {
            pdu_cdma decoded;
            ASSERT_EQ(pdu_cdma_decode(pdu, decoded), 0);
            EXPECT_EQ(decoded.body.encoding, c.encoding) << c.text;
            text += decoded.body.text.value_or("");
        }
        EXPECT_EQ(text, c.text);
    }
}

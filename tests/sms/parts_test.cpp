#include "sms/parts.h"

#include <algorithm>
#include <random>
#include <set>

#include <gtest/gtest.h>

using texts = std::vector<std::string>;

constexpr int64_t day_s = 24 * 60 * 60;
static const sms_time noon = {2024, 6, 1, 12, 0, 0, 0};

static int64_t days_after_noon(int days)
{
    return sms_time_epoch(noon) + days * day_s;
}

static sms_time noon_of_day(int day)
{
    sms_time time = noon;
    time.day = day;
    return time;
}

static sms_part part(size_t id, uint8_t seq, uint8_t total, std::string text,
                     std::optional<sms_time> sent = noon)
{
    sms_part part;
    part.id = id;
    part.sender = sms_address_from_text("+27821234567");
    part.sent = sent;
    part.body.encoding = sms_encoding_gsm7;
    part.body.concat = sms_concat{42, total, seq, false};
    EXPECT_EQ(charset_encode(part.body.encoding, text, part.body.data), 0);
    part.body.text = std::move(text);
    return part;
}

static sms_part with_units(sms_part part, sms_encoding encoding, std::vector<uint8_t> units)
{
    part.body.encoding = encoding;
    part.body.data = std::move(units);
    part.body.text = charset_decode(encoding, part.body.data);
    return part;
}

// What the parts make: "complete 0,1: text", "waiting 0 without 2: text".
static texts joined(std::span<const sms_part> parts, int64_t now = 0)
{
    static constexpr const char *states[] = {"complete", "waiting", "expired"};
    texts all;
    for (const sms_joined &one : sms_join(parts, now)) {
        std::string text = states[one.state];
        for (size_t i = 0; i < one.members.size(); i++)
            text += (i == 0 ? " " : ",") + std::to_string(one.members[i]);
        for (const uint8_t seq : one.missing)
            text += " without " + std::to_string(seq);
        all.push_back(text + ": " + one.body.text.value_or("(none)"));
    }
    return all;
}

TEST(sms_join, three_parts_make_one_text_in_any_order)
{
    std::vector<sms_part> parts = {part(0, 1, 3, "one "), part(1, 2, 3, "two "),
                                   part(2, 3, 3, "three")};
    do {
        EXPECT_EQ(joined(parts), texts{"complete 0,1,2: one two three"});
    } while (
        std::next_permutation(parts.begin(), parts.end(),
                              [](const sms_part &a, const sms_part &b) { return a.id < b.id; }));
    EXPECT_FALSE(sms_join(parts, 0).at(0).body.concat);
}

TEST(sms_join, a_missing_part_is_waited_for_seven_days)
{
    const std::vector<sms_part> parts = {part(0, 3, 3, "three"), part(1, 1, 3, "one ")};
    EXPECT_EQ(joined(parts, days_after_noon(7) - 1), texts{"waiting 1,0 without 2: one three"});
    EXPECT_EQ(joined(parts, days_after_noon(7)),
              (texts{"expired 1 without 2: one ", "expired 0 without 2: three"}));
}

TEST(sms_join, the_youngest_part_decides_and_zones_count)
{
    sms_time late = noon_of_day(6);
    late.zone_minutes = -60; // an hour later than it looks
    const std::vector<sms_part> parts = {part(0, 1, 3, "one "), part(1, 2, 3, "two ", late)};
    const int64_t due = sms_time_epoch(late) + 7 * day_s;
    EXPECT_EQ(sms_join(parts, due - 1).at(0).state, sms_joined_waiting);
    EXPECT_EQ(sms_join(parts, due).at(0).state, sms_joined_expired);
    EXPECT_EQ(sms_join(parts, 0).at(0).state, sms_joined_waiting) << "a clock that was never set";
}

TEST(sms_join, duplicates_are_members_but_not_text)
{
    const std::vector<sms_part> parts = {part(0, 1, 2, "one "), part(1, 1, 2, "one "),
                                         part(2, 2, 2, "two"), part(3, 2, 2, "two")};
    EXPECT_EQ(joined(parts), texts{"complete 0,2,1,3: one two"});
    EXPECT_EQ(joined(std::span(parts).first(2), days_after_noon(8)),
              texts{"expired 0,1 without 2: one "})
        << "an expired part and its duplicate go out once";
}

TEST(sms_join, references_come_round_again)
{
    // Another text in the same place, and the same reference eight days later.
    const std::vector<sms_part> parts = {part(0, 1, 2, "one "), part(1, 1, 2, "uno "),
                                         part(2, 2, 2, "two"),
                                         part(3, 2, 2, "due", noon_of_day(9))};
    EXPECT_EQ(
        joined(parts, days_after_noon(8)),
        (texts{"complete 0,2: one two", "expired 1 without 2: uno ", "waiting 3 without 1: due"}));
}

TEST(sms_join, the_same_words_at_another_time_are_another_message)
{
    sms_time later = noon;
    later.hour++;
    const std::vector<sms_part> parts = {part(0, 1, 2, "alarm "), part(1, 2, 2, "again"),
                                         part(2, 1, 2, "alarm ", later),
                                         part(3, 2, 2, "again", later)};
    EXPECT_EQ(joined(parts), (texts{"complete 0,1: alarm again", "complete 2,3: alarm again"}));
}

TEST(sms_join, only_what_belongs_together_is_joined)
{
    std::vector<sms_part> parts = {part(0, 1, 2, "one "), part(1, 2, 2, "two"),
                                   part(2, 2, 2, "two"), part(3, 2, 2, "two"),
                                   part(4, 2, 3, "two")};
    parts[1].sender = sms_address_from_text("27821234567");
    parts[2].body.concat->wide = true;
    parts[3].body.concat->ref = 43;
    const auto messages = sms_join(parts, 0);
    ASSERT_EQ(messages.size(), 5u);
    for (const sms_joined &one : messages)
        EXPECT_EQ(one.state, sms_joined_waiting);
}

TEST(sms_join, parts_without_a_time_are_due_unless_complete)
{
    std::vector<sms_part> parts = {part(0, 2, 2, "two", std::nullopt)};
    EXPECT_EQ(joined(parts), texts{"expired 0 without 1: two"});
    parts.push_back(part(1, 1, 2, "one "));
    EXPECT_EQ(joined(parts), texts{"complete 1,0: one two"});
}

TEST(sms_join, characters_cut_in_two_are_put_together)
{
    std::vector<sms_part> parts = {
        with_units(part(0, 1, 2, ""), sms_encoding_utf16, {0x00, 0x61, 0xD8, 0x3D}),
        with_units(part(1, 2, 2, ""), sms_encoding_utf16, {0xDE, 0x00, 0x00, 0x62})};
    EXPECT_EQ(joined(parts), texts{"complete 0,1: a😀b"});

    parts = {with_units(part(0, 1, 2, ""), sms_encoding_gsm7, {0x61, 0x1B}),
             with_units(part(1, 2, 2, ""), sms_encoding_gsm7, {0x65, 0x62})};
    EXPECT_EQ(joined(parts), texts{"complete 0,1: a€b"});
}

TEST(sms_join, encodings_may_change_between_parts)
{
    std::vector<sms_part> parts = {part(0, 1, 2, "{a} "),
                                   with_units(part(1, 2, 2, ""), sms_encoding_utf16, {0x04, 0x36})};
    EXPECT_EQ(joined(parts), texts{"complete 0,1: {a} ж"});
    EXPECT_EQ(sms_join(parts, 0).at(0).body.encoding, sms_encoding_utf16);

    // Data and text do not mix.
    parts[1] = with_units(parts[1], sms_encoding_octets, {0xFF});
    EXPECT_EQ(sms_join(parts, 0).size(), 2u);
    parts[0] = with_units(parts[0], sms_encoding_octets, {0x01, 0x02});
    EXPECT_EQ(joined(parts), texts{"complete 0,1: (none)"});
    EXPECT_EQ(sms_join(parts, 0).at(0).body.data, (std::vector<uint8_t>{0x01, 0x02, 0xFF}));
}

TEST(sms_join, whole_messages_keep_their_place)
{
    sms_part whole = part(1, 1, 1, "whole");
    whole.body.concat.reset();
    const std::vector<sms_part> parts = {part(0, 2, 2, "two"), whole, part(2, 1, 2, "one ")};
    EXPECT_EQ(joined(parts), (texts{"complete 2,0: one two", "complete 1: whole"}));
}

// Whatever the modem holds, each message is in exactly one result: none is lost or shown twice.
TEST(sms_join, every_message_is_a_member_exactly_once)
{
    std::mt19937 random(1);
    for (int round = 0; round < 200; round++) {
        std::vector<sms_part> parts;
        for (size_t id = 0; id < 40; id++) {
            const auto total = static_cast<uint8_t>(1 + random() % 4);
            const auto seq = static_cast<uint8_t>(1 + random() % total);
            std::optional<sms_time> sent;
            if (random() % 8)
                sent = noon_of_day(1 + static_cast<int>(random() % 20));
            parts.push_back(part(id, seq, total, random() % 3 ? "a" : "b", sent));
            if (random() % 5 == 0)
                parts.back().body.concat.reset();
        }
        std::multiset<size_t> seen;
        for (const sms_joined &one : sms_join(parts, days_after_noon(round % 30))) {
            seen.insert(one.members.begin(), one.members.end());
            ASSERT_EQ(one.state == sms_joined_complete, one.missing.empty());
        }
        ASSERT_EQ(seen.size(), parts.size());
        for (size_t id = 0; id < parts.size(); id++)
            ASSERT_EQ(seen.count(id), 1u);
    }
}

// What the coder refuses to write, and the small things that vectors do not reach.

#include "sms/pdu_3gpp.h"
#include "sms/pdu_cdma.h"

#include <functional>

#include <gtest/gtest.h>

static const sms_time leap_day = {2024, 2, 29, 23, 59, 58, 345};

static pdu_3gpp good_3gpp(pdu_3gpp_kind kind)
{
    pdu_3gpp message;
    message.kind = kind;
    message.number = sms_address_from_text("+27821234567");
    message.sent = message.discharged = leap_day;
    message.body.encoding = sms_encoding_gsm7;
    message.body.text = "hi";
    return message;
}

static pdu_cdma good_cdma()
{
    pdu_cdma message;
    message.number = sms_address_from_text("911");
    message.body.encoding = sms_encoding_ascii7;
    message.body.text = "hi";
    return message;
}

static sms_address name(const char *text)
{
    return {text, sms_number_alphanumeric, 0};
}

template <typename message>
static void number_part(message &m, uint16_t ref, uint8_t total, uint8_t seq)
{
    m.body.concat = sms_concat{ref, total, seq, false};
}

template <typename message>
struct refusal {
    const char *why;
    std::function<void(message &)> spoil;
};

template <typename message>
static void expect_refused(std::span<const refusal<message>> refusals, const message &good,
                           int (*encode)(const message &, std::vector<uint8_t> &))
{
    std::vector<uint8_t> pdu;
    ASSERT_EQ(encode(good, pdu), 0);
    for (const auto &[why, spoil] : refusals) {
        message spoilt = good;
        spoil(spoilt);
        EXPECT_EQ(encode(spoilt, pdu), -1) << why;
    }
}

TEST(pdu_3gpp, what_has_no_coding_is_refused)
{
    const refusal<pdu_3gpp> refusals[] = {
        {"no destination", [](auto &m) { m.number.number.clear(); }},
        {"blank in the number", [](auto &m) { m.number.number = "0123 456"; }},
        {"plus inside", [](auto &m) { m.number.number = "01+23"; }},
        {"21 digits", [](auto &m) { m.number.number = "+123456789012345678901"; }},
        {"name of 12 septets", [](auto &m) { m.number = name("abcdefghijkl"); }},
        {"name beyond the alphabet", [](auto &m) { m.number = name("Жук"); }},
        {"SMSC that is no number", [](auto &m) { m.smsc = sms_address_from_text("smsc"); }},
        {"class 4", [](auto &m) { m.message_class = 4; }},
        {"DCS of another alphabet", [](auto &m) { m.dcs = 0x08; }},
        {"encoding of the other standard", [](auto &m) { m.body.encoding = sms_encoding_ascii7; }},
        {"character beyond the alphabet", [](auto &m) { m.body.text = "hi `"; }},
        {"not UTF-8", [](auto &m) { m.body.text = "hi\xFF"; }},
        {"text as binary data", [](auto &m) { m.body.encoding = sms_encoding_octets; }},
        {"data that are no septets",
         [](auto &m) {
             m.body.text.reset();
             m.body.data = {0x80};
         }},
        {"161 septets", [](auto &m) { m.body.text = std::string(161, 'a'); }},
        {"154 behind a header",
         [](auto &m) {
             m.body.text = std::string(154, 'a');
             m.body.concat = sms_concat{1, 2, 1, false};
         }},
        {"a third of two", [](auto &m) { number_part(m, 1, 2, 3); }},
        {"a zeroth of two", [](auto &m) { number_part(m, 1, 2, 0); }},
        {"narrow reference 256", [](auto &m) { number_part(m, 256, 2, 1); }},
        {"malformed header",
         [](auto &m) {
             m.body.header.assign({0x02, 0x70, 0x05});
         }},
        {"validity beyond 63 weeks", [](auto &m) { m.validity_s = 64u * 7 * 24 * 3600; }},
        {"two validities",
         [](auto &m) {
             m.validity_s = 300;
             m.validity_time = leap_day;
         }},
        {"validity on no day",
         [](auto &m) { m.validity_time = sms_time{2023, 2, 29, 0, 0, 0, 0}; }},
        {"validity in 2100", [](auto &m) { m.validity_time = sms_time{2100, 1, 1, 0, 0, 0, 0}; }},
        {"zone of seven minutes",
         [](auto &m) { m.validity_time = sms_time{2024, 1, 1, 0, 0, 0, 7}; }},
        {"zone beyond two digits",
         [](auto &m) { m.validity_time = sms_time{2024, 1, 1, 0, 0, 0, 1200}; }},
    };
    expect_refused<pdu_3gpp>(refusals, good_3gpp(pdu_3gpp_submit), pdu_3gpp_encode);
}

TEST(pdu_3gpp, received_kinds_need_their_times)
{
    std::vector<uint8_t> pdu;
    for (pdu_3gpp_kind kind : {pdu_3gpp_deliver, pdu_3gpp_status_report}) {
        pdu_3gpp message = good_3gpp(kind);
        EXPECT_EQ(pdu_3gpp_encode(message, pdu), 0);
        message.sent.reset();
        EXPECT_EQ(pdu_3gpp_encode(message, pdu), -1);
    }
}

TEST(pdu_3gpp, the_largest_message_is_within_the_limit)
{
    pdu_3gpp message = good_3gpp(pdu_3gpp_submit), decoded;
    std::vector<uint8_t> pdu;
    message.smsc = message.number = sms_address_from_text("+12345678901234567890");
    message.validity_time = leap_day;
    message.body.text = std::string(160, 'a');
    ASSERT_EQ(pdu_3gpp_encode(message, pdu), 0);
    EXPECT_EQ(pdu.size(), pdu_3gpp_octets_max);
    ASSERT_EQ(pdu_3gpp_decode(pdu, decoded), 0);
    EXPECT_EQ(decoded.smsc->number, message.smsc->number);
}

TEST(pdu_3gpp, other_header_elements_go_out_behind_the_concatenation)
{
    pdu_3gpp message = good_3gpp(pdu_3gpp_submit), decoded;
    std::vector<uint8_t> pdu;
    // A concatenation in the old header gives way to the new one.
    message.body.header = {0x0B, 0x00, 0x03, 0x09, 0x05, 0x05, 0x05, 0x04, 0x0B, 0x84, 0x23, 0xF0};
    message.body.concat = sms_concat{0x1234, 3, 2, true};
    ASSERT_EQ(pdu_3gpp_encode(message, pdu), 0);
    ASSERT_EQ(pdu_3gpp_decode(pdu, decoded), 0);
    EXPECT_EQ(decoded.body.concat, message.body.concat);
    EXPECT_EQ(decoded.body.header, (std::vector<uint8_t>{0x0C, 0x08, 0x04, 0x12, 0x34, 0x03, 0x02,
                                                         0x05, 0x04, 0x0B, 0x84, 0x23, 0xF0}));
    EXPECT_EQ(decoded.body.text, "hi");
    const auto ports = sms_body_ports(decoded.body);
    ASSERT_TRUE(ports);
    EXPECT_EQ(ports->destination, 2948);
}

TEST(pdu_cdma, what_has_no_coding_is_refused)
{
    const refusal<pdu_cdma> refusals[] = {
        {"no destination", [](auto &m) { m.number.number.clear(); }},
        {"letter in the number", [](auto &m) { m.number.number = "55a"; }},
        {"placeholder in the number", [](auto &m) { m.number.number = "55?"; }},
        {"letter in an international number",
         [](auto &m) { m.number = sms_address_from_text("+1x"); }},
        {"name", [](auto &m) { m.number = name("name"); }},
        {"256 digits", [](auto &m) { m.number.number = std::string(256, '1'); }},
        {"beyond ASCII", [](auto &m) { m.body.text = "é"; }},
        {"beyond Latin-1",
         [](auto &m) {
             m.body.text = "Ж";
             m.body.encoding = sms_encoding_latin1;
         }},
        {"an alphabet without an encoder", [](auto &m) { m.body.encoding = sms_encoding_other; }},
        {"256 fields", [](auto &m) { m.body.text = std::string(256, 'a'); }},
        {"bearer data beyond 255 octets",
         [](auto &m) {
             m.body.encoding = sms_encoding_latin1;
             m.body.text = std::string(250, 'a');
         }},
        {"a third of two", [](auto &m) { number_part(m, 1, 2, 3); }},
        {"priority 4", [](auto &m) { m.priority = 4; }},
        {"100 messages", [](auto &m) { m.number_of_messages = 100; }},
        {"reply sequence 64", [](auto &m) { m.bearer_reply_seq = 64; }},
        {"cause of class 4", [](auto &m) { m.cause.emplace().error_class = 4; }},
        {"call-back name", [](auto &m) { m.callback = sms_address_from_text("home"); }},
        {"time before 1996", [](auto &m) { m.sent = sms_time{1995, 12, 31, 0, 0, 0, {}}; }},
        {"time that is none", [](auto &m) { m.sent = sms_time{2024, 13, 1, 0, 0, 0, {}}; }},
    };
    expect_refused<pdu_cdma>(refusals, good_cdma(), pdu_cdma_encode);
}

TEST(pdu_cdma, a_header_makes_the_teleservice_enhanced_messaging)
{
    pdu_cdma message = good_cdma(), decoded;
    std::vector<uint8_t> pdu;
    ASSERT_EQ(pdu_cdma_encode(message, pdu), 0);
    ASSERT_EQ(pdu_cdma_decode(pdu, decoded), 0);
    EXPECT_EQ(decoded.teleservice_id, pdu_cdma_messaging);
    for (sms_encoding encoding : {sms_encoding_gsm7, sms_encoding_utf16, sms_encoding_latin1,
                                  sms_encoding_ascii7, sms_encoding_ia5}) {
        for (bool wide : {false, true}) {
            message.body.encoding = encoding;
            message.body.concat = sms_concat{0x77, 2, 1, wide};
            ASSERT_EQ(pdu_cdma_encode(message, pdu), 0);
            ASSERT_EQ(pdu_cdma_decode(pdu, decoded), 0);
            EXPECT_EQ(decoded.teleservice_id, pdu_cdma_enhanced_messaging);
            EXPECT_EQ(decoded.body.concat, message.body.concat);
            EXPECT_EQ(decoded.body.text, "hi") << encoding << (wide ? " wide" : " narrow");
        }
    }
}

TEST(sms_time, counts_seconds_in_every_zone)
{
    EXPECT_EQ(sms_time_epoch({1970, 1, 1, 0, 0, 0, {}}), 0);
    EXPECT_EQ(sms_time_epoch({2000, 3, 1, 0, 0, 0, 0}), 951868800);
    EXPECT_EQ(sms_time_epoch({2024, 2, 29, 23, 59, 58, 345}), 1709230498);
    EXPECT_EQ(sms_time_epoch({2038, 1, 19, 3, 14, 8, 0}), INT64_C(2147483648));
    EXPECT_EQ(sms_time_epoch({2024, 12, 31, 23, 59, 59, -570}), 1735723799);
    EXPECT_EQ(sms_time_text({2024, 2, 9, 3, 4, 5, -30}), "2024-02-09T03:04:05-00:30");
    EXPECT_EQ(sms_time_text({1999, 12, 31, 23, 59, 59, {}}), "1999-12-31T23:59:59");
}

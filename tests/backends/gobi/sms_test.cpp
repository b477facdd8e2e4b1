#include "backends/gobi/gobi_fixture.h"
#include "cellmodem/markers.h"
#include "sms/split.h"
#include "sms/spool.h"

#include <algorithm>
#include <ctime>

using octets = std::vector<uint8_t>;

// "Hi", from +18005551212.
constexpr const char *real_pdu =
    "07912143658709F1040B918100551512F20000111010214365000AE8329BFD4697D9EC37";

struct stored {
    octets pdu;
    uint8_t tag = 1;
    uint8_t format = 6;
};

static std::string number(uint32_t value, int bytes)
{
    octets all;
    for (int i = 0; i < bytes; i++)
        all.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return digits_of(all);
}

// What a network delivers, some seconds ago.
static std::vector<octets> delivered(const std::string &text,
                                     const std::string &sender = "+4915112", int64_t age_s = 60)
{
    const time_t when = time(nullptr) - static_cast<time_t>(age_s);
    tm parts{};
    gmtime_r(&when, &parts);
    pdu_3gpp form;
    form.kind = pdu_3gpp_deliver;
    form.number = sms_address_from_text(sender);
    form.sent = {parts.tm_year + 1900,
                 parts.tm_mon + 1,
                 parts.tm_mday,
                 parts.tm_hour,
                 parts.tm_min,
                 parts.tm_sec,
                 0};
    std::vector<octets> pdus;
    EXPECT_EQ(sms_encode_3gpp(form, text, {7, false}, pdus), 0);
    return pdus;
}

static octets delivered_by_cdma(const std::string &text)
{
    pdu_cdma form;
    form.kind = pdu_cdma_deliver;
    form.number = sms_address_from_text("5551212");
    form.sent = {2011, 2, 28, 11, 50, 5, std::nullopt};
    std::vector<octets> pdus;
    EXPECT_EQ(sms_encode_cdma(form, text, {}, pdus), 0);
    return pdus.at(0);
}

class gobi_sms : public gobi_fixture
{
protected:
    // The modem's storages for the next listing, and the reads that will follow.
    void hold(const std::vector<stored> &uim, const std::vector<stored> &nv = {})
    {
        for (const auto &storage : {uim, nv}) {
            std::string list = number(static_cast<uint32_t>(storage.size()), 4);
            for (uint32_t i = 0; i < storage.size(); i++)
                list += number(i + 1, 4) + number(storage[i].tag, 1);
            qmuxd.answer_next(qmi_wms, 0x31, tlv_of(list));
            for (const stored &message : storage)
                if (message.tag < 2)
                    qmuxd.answer_next(qmi_wms, 0x22,
                                      tlv_of(number(message.tag, 1) + number(message.format, 1) +
                                             number(static_cast<uint32_t>(message.pdu.size()), 2) +
                                             digits_of(message.pdu)));
        }
    }

    static std::string tlv_of(const std::string &digits)
    {
        return "01" + number(static_cast<uint32_t>(digits.size() / 2), 2) + digits;
    }

    std::string getsms(int mode = output_lines, int expected_result = 0)
    {
        const memory_stream out;
        EXPECT_EQ(modem.slots.getsms(modem, out.get(), mode), expected_result);
        return out.text();
    }

    [[nodiscard]] texts spool() const { return root.read_all(sms_spool_path); }

    // The storage and index of each message that was deleted since the last call.
    texts deleted()
    {
        texts all;
        for (const std::string &request : qmuxd.requests())
            if (request.starts_with("5 24"))
                all.push_back(request.substr(5 + 6, 2) + ":" + request.substr(5 + 14, 2));
        return all;
    }

    int send(const std::string &content, const char *smsc = nullptr)
    {
        root.write("/message", content);
        return modem.slots.sendsms(modem, root.place("/message").c_str(), smsc);
    }

    // The PDUs that were sent since the last call.
    std::vector<octets> sent(const std::string &format = "06")
    {
        std::vector<octets> pdus;
        for (const std::string &request : qmuxd.requests()) {
            const octets &pdu = pdus.emplace_back(octets_of(request.substr(5 + 12)));
            EXPECT_EQ(request,
                      "5 20 " + tlv_of(format + number(static_cast<uint32_t>(pdu.size()), 2) +
                                       digits_of(pdu)));
        }
        return pdus;
    }
};

TEST_F(gobi_sms, messages_of_both_storages_are_shown_spooled_and_deleted)
{
    attach();
    hold({{octets_of(real_pdu)}}, {{delivered("<Grüße> & 1€", "8888")[0], 0}});
    const std::string text = getsms(output_xml);
    EXPECT_EQ(text.substr(0, text.find("<sms2>")),
              "<sms-list>\n\t<sms-count>2</sms-count>\n"
              "<sms1>\n\t<sms-phone>+18005551212</sms-phone>\n"
              "\t<sms-timestamp>11/01/01 12:34:56 UTC</sms-timestamp>\n"
              "\t<sms-text>hellohello</sms-text>\n</sms1>\n");
    EXPECT_TRUE(text.ends_with("\t<sms-text>&lt;Grüße&gt; &amp; 1€</sms-text>\n</sms2>\n"
                               "</sms-list>\n"));
    EXPECT_EQ(spool(), (texts{"From: +18005551212\n\nhellohello", "From: 8888\n\n<Grüße> & 1€"}));
    EXPECT_EQ(log.count("700 Attempting to get UIM SMS 1"), 1);
    EXPECT_EQ(log.count("700 Attempting to get NV SMS 1"), 1);
    EXPECT_TRUE(log.has("SMS from +18005551212, type of number: International"));
    EXPECT_EQ(qmuxd.requests(), (texts{"5 31 0101000012010001", "5 22 010500000100000010010001",
                                       "5 31 0101000112010001", "5 22 010500010100000010010001",
                                       "5 24 01010000"
                                       "100400010000001201"
                                       "0001",
                                       "5 24 0101000110040001000000"
                                       "12010001"}));
    EXPECT_EQ(infod.pushed.size(), 1u) << "nothing but the attached state";
    EXPECT_EQ(getsms(), "sms-count 0\n");
    EXPECT_EQ(getsms(output_xml), "<sms-list>\n\t<sms-count>0</sms-count>\n</sms-list>\n");
}

TEST_F(gobi_sms, cdma_messages_have_their_own_mode_and_coding)
{
    root.write(marker_is_cdma_gobi, "");
    attach();
    octets pdu = delivered_by_cdma("hello");
    hold({}, {{pdu, 1, 0}});
    EXPECT_EQ(getsms(), "sms-count 1\nsms-phone 5551212\nsms-timestamp 11/02/28 11:50:05 UTC\n"
                        "sms-text hello\n");
    EXPECT_EQ(spool(), texts{"From: 5551212\n\nhello"});
    EXPECT_EQ(deleted(), texts{"01:01"});
    pdu.pop_back();
    hold({{pdu, 0, 0}});
    EXPECT_EQ(getsms().substr(0, 30), "sms-count 1\nsms-phone 5551212\n") << "also when it is cut";
}

TEST_F(gobi_sms, a_detached_modem_has_no_messages)
{
    EXPECT_EQ(getsms(output_xml, -1), "");
    EXPECT_EQ(log.count("400 Can not retrieve SMS while detached"), 1);
    EXPECT_EQ(send("To: 123\n\nhi"), -1);
    EXPECT_EQ(log.count("400 Can not send SMS while detached"), 1);
}

TEST_F(gobi_sms, one_storage_that_cannot_be_listed_does_not_hide_the_other)
{
    attach();
    hold({{octets_of(real_pdu)}});
    qmuxd.behave(qmi_wms, 0x31, {});
    qmuxd.behave(qmi_wms, 0x31, {qmuxd_reply::error, 1});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 1\n");
    EXPECT_EQ(log.count("400 Ensure the correct SIM is selected"), 1);
    (void)qmuxd.requests();
    qmuxd.behave(qmi_wms, 0x31, {qmuxd_reply::error, 102, 2});
    EXPECT_EQ(getsms(output_xml, -1), "");
    EXPECT_EQ(log.count("700 Failed to read messages: 1102"), 1);
    EXPECT_EQ(spool().size(), 1u);
}

TEST_F(gobi_sms, a_message_that_cannot_be_read_stays)
{
    attach();
    const octets pdu = octets_of(real_pdu);
    hold({{pdu}, {pdu}});
    qmuxd.behave(qmi_wms, 0x22, {qmuxd_reply::error, 50});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 1\n");
    EXPECT_EQ(log.count("400 WMS Raw Read Failed for UIM SMS: 1050"), 1);
    EXPECT_EQ(deleted(), texts{"00:02"});
}

TEST_F(gobi_sms, a_silent_modem_is_not_asked_for_every_message)
{
    attach();
    hold(std::vector<stored>(20, {octets_of(real_pdu)}));
    qmuxd.behave(qmi_wms, 0x22, {qmuxd_reply::silence, 0, 20});
    EXPECT_EQ(getsms(), "sms-count 0\n");
    EXPECT_EQ(log.count("400 WMS Raw Read Failed for UIM SMS: 12"), 3);
    EXPECT_EQ(deleted(), texts{});
}

TEST_F(gobi_sms, nothing_is_deleted_before_it_is_in_the_spool)
{
    attach();
    root.write("/var/spool/sms", "not a directory");
    hold({{octets_of(real_pdu)}});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 1\n") << "and shown all the same";
    EXPECT_EQ(log.count("300 Failed to write message"), 1);
    EXPECT_EQ(deleted(), texts{});
    std::filesystem::remove(root.place("/var/spool/sms"));
    hold({{octets_of(real_pdu)}});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 1\n");
    EXPECT_EQ(spool().size(), 1u);
    EXPECT_EQ(deleted(), texts{"00:01"});
}

TEST_F(gobi_sms, a_message_that_is_not_deleted_is_not_spooled_twice)
{
    attach();
    for (int i = 0; i < 2; i++) {
        hold({{octets_of(real_pdu)}});
        qmuxd.behave(qmi_wms, 0x24, {qmuxd_reply::error, 3});
        EXPECT_EQ(getsms().substr(0, 12), i == 0 ? "sms-count 1\n" : "sms-count 0\n");
    }
    EXPECT_EQ(log.count("400 WMS Delete UIM SMS failed: 1003"), 2);
    EXPECT_EQ(spool().size(), 1u);
    hold({{delivered("another one in the same place")[0]}});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 1\n");
    EXPECT_EQ(spool().size(), 2u);
    hold({{octets_of(real_pdu)}});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 1\n") << "the same text may come again";
    EXPECT_EQ(spool().size(), 3u);
}

TEST_F(gobi_sms, parts_are_joined_in_order_once_all_are_there)
{
    attach();
    std::string text;
    for (int i = 0; i < 40; i++)
        text += "part " + std::to_string(i) + " of it, ";
    const std::vector<octets> parts = delivered(text);
    ASSERT_EQ(parts.size(), 4u);
    hold({{parts[3]}, {parts[0]}, {parts[2]}});
    EXPECT_EQ(getsms(), "sms-count 0\n");
    EXPECT_EQ(log.count("700 SMS from +4915112 waits for 1 more parts"), 1);
    EXPECT_EQ(deleted(), texts{}) << "what waits, waits in the modem";
    hold({{parts[3]}, {parts[0]}, {parts[2]}}, {{parts[1]}});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 1\n");
    EXPECT_EQ(spool(), texts{"From: +4915112\n\n" + text});
    EXPECT_EQ(deleted(), (texts{"00:02", "01:01", "00:03", "00:01"}));
}

TEST_F(gobi_sms, parts_that_waited_for_seven_days_go_out_as_they_are)
{
    attach();
    const std::string text(200, 'a');
    const int64_t week_s = 7 * 24 * 3600;
    hold({{delivered(text, "123", week_s + 10)[1]}, {delivered(text, "456", week_s - 3600)[1]}});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 1\n");
    EXPECT_EQ(spool(), texts{"From: 123\n\n" + std::string(200 - 153, 'a')});
    EXPECT_EQ(deleted(), texts{"00:01"});
}

TEST_F(gobi_sms, what_is_no_text_is_kept_as_hexadecimal)
{
    attach();
    octets cut = octets_of(real_pdu);
    cut.resize(cut.size() - 3);
    const octets report =
        octets_of("07914356060013F1065A098136397339F7219011700463802190117004638030");
    const octets other = octets_of("DEADBEEF");
    const octets binary =
        octets_of("07912143658709F1040B918100551512F20004111010214365000401020304");
    hold({{cut}, {report}, {other}, {other, 1, 7}, {binary}, {other, 2}});
    EXPECT_EQ(getsms().substr(0, 12), "sms-count 5\n");
    const auto upper = [](const octets &pdu) {
        std::string digits = digits_of(pdu);
        std::transform(digits.begin(), digits.end(), digits.begin(),
                       [](char c) { return static_cast<char>(toupper(c)); });
        return digits;
    };
    texts expected = {"From: +18005551212\n\n" + upper(cut), "From: 639337937\n\n" + upper(report),
                      "From: \n\nDEADBEEF", "From: \n\nDEADBEEF", "From: +18005551212\n\n01020304"};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(spool(), expected);
    EXPECT_EQ(log.count("400 UIM SMS 1 is kept as its octets: it is no text that can be decoded"),
              1);
    EXPECT_EQ(deleted().size(), 5u) << "the user's own draft stays";
}

TEST_F(gobi_sms, a_short_text_is_sent_as_one_message)
{
    attach();
    EXPECT_EQ(send("To: +4915112345678\n\nGrüße\n", "+491710760000"), 0);
    const std::vector<octets> pdus = sent();
    ASSERT_EQ(pdus.size(), 1u);
    pdu_3gpp message;
    ASSERT_EQ(pdu_3gpp_decode(pdus[0], message), 0);
    EXPECT_EQ(message.kind, pdu_3gpp_submit);
    EXPECT_EQ(message.number.number, "+4915112345678");
    ASSERT_TRUE(message.smsc);
    EXPECT_EQ(message.smsc->number, "+491710760000");
    EXPECT_EQ(message.body.text, "Grüße");
    EXPECT_EQ(message.body.encoding, sms_encoding_gsm7);
    EXPECT_EQ(log.count("700 Sending raw 3GPP sms"), 1);
    EXPECT_EQ(send("To: 123\n\n日本"), 0);
    ASSERT_EQ(pdu_3gpp_decode(sent().at(0), message), 0);
    EXPECT_FALSE(message.smsc);
    EXPECT_EQ(message.body.encoding, sms_encoding_utf16);
    EXPECT_EQ(send("To: 123\n\nGr\xFC\xDF"), 0) << "a file in Latin-1";
    ASSERT_EQ(pdu_3gpp_decode(sent().at(0), message), 0);
    EXPECT_EQ(message.body.text, "Grüß");
}

TEST_F(gobi_sms, a_long_text_is_sent_in_parts)
{
    for (const bool cdma : {false, true}) {
        if (cdma)
            root.write(marker_is_cdma_gobi, "");
        attach();
        std::string text;
        for (int i = 0; i < 100; i++)
            text += "line " + std::to_string(i) + "\n";
        EXPECT_EQ(send("To: 5551212\n\n" + text + "end"), 0);
        const std::vector<octets> pdus = sent(cdma ? "00" : "06");
        EXPECT_GT(pdus.size(), 3u);
        std::string joined;
        for (size_t i = 0; i < pdus.size(); i++) {
            pdu_3gpp message;
            pdu_cdma cdma_message;
            ASSERT_EQ(cdma ? pdu_cdma_decode(pdus[i], cdma_message)
                           : pdu_3gpp_decode(pdus[i], message),
                      0);
            const sms_body &body = cdma ? cdma_message.body : message.body;
            ASSERT_TRUE(body.concat);
            EXPECT_EQ(body.concat->seq, i + 1);
            EXPECT_EQ(body.concat->total, pdus.size());
            joined += body.text.value_or("?");
        }
        EXPECT_EQ(joined, text + "end");
    }
    EXPECT_EQ(log.count("700 Sending raw 3GPP2 sms"), 1);
}

TEST_F(gobi_sms, what_cannot_be_sent_says_so)
{
    attach();
    EXPECT_EQ(modem.slots.sendsms(modem, root.place("/absent").c_str(), nullptr), -1);
    EXPECT_EQ(log.count("300 Failed to read SMS file: " + root.place("/absent")), 1);
    EXPECT_EQ(send("To: 12x4\n\nhi"), -1);
    EXPECT_EQ(send("To: 123\n\n" + std::string(39016, 'x')), -1) << "255 parts hold less";
    EXPECT_EQ(log.count("300 SMS Send failed - rv 4 - errorcode 0"), 2);
    EXPECT_EQ(sent().size(), 0u);
    qmuxd.behave(qmi_wms, 0x20, {qmuxd_reply::error, 54});
    EXPECT_EQ(send("To: 123\n\nhi"), -1);
    EXPECT_EQ(log.count("300 SMS Send failed - rv 1054 - errorcode 54"), 1);
    qmuxd.behave(qmi_wms, 0x20, {});
    qmuxd.behave(qmi_wms, 0x20, {qmuxd_reply::silence});
    (void)qmuxd.requests();
    EXPECT_EQ(send("To: 123\n\n" + std::string(500, 'x')), -1);
    EXPECT_EQ(log.count("300 SMS Send failed - rv 12 - errorcode 0"), 1);
    EXPECT_EQ(sent().size(), 2u) << "nothing behind the part that failed";
}

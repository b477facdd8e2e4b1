// Short messages of the CDMA family against a server that keeps a store of them.

#include "backends/sierra/cdma.h"
#include "backends/sierra/cdma_family.h"
#include "platform/text.h"
#include "support/sierra_fixture.h"

#include <algorithm>
#include <filesystem>

class cdma_messages : public sierra_fixture
{
protected:
    // What the modem says to one read.
    struct stored {
        swi_sms_message message;
        uint32_t result = 0; // the read's own
        uint32_t status = swi_status_ok;
    };

    cdma_messages() : sierra_fixture(sierra_cdma_init) {}

    void SetUp() override
    {
        sierra_fixture::SetUp();
        attach();
        answer_with(swi_op_get_sms_status, [this](const fake_request &request) {
            next_ = 0;
            const auto count = static_cast<uint32_t>(store_.size());
            return respond_with(request, swi_sms_status{count / 2, count - count / 2, {}});
        });
        answer_with(swi_op_read_sms, [this](const fake_request &request) {
            if (next_ >= store_.size())
                return respond(request, swi_status_failed);
            const stored &entry = store_[next_++];
            return entry.status == swi_status_ok
                       ? respond_with(request, entry.message, &entry.result)
                       : respond(request, entry.status);
        });
    }

    static stored message(std::string_view text, uint8_t encoding = 2, uint8_t status = 1,
                          uint8_t format = 0)
    {
        stored entry;
        entry.message.id = 7;
        entry.message.status = status;
        entry.message.encoding = encoding;
        entry.message.format = format;
        entry.message.text_bytes = static_cast<uint16_t>(text.size());
        EXPECT_EQ(swi_set_text(entry.message.sender, "5550100099"), 0);
        if (!text.empty())
            memcpy(entry.message.text, text.data(), text.size());
        return entry;
    }

    static stored failure(uint32_t result, bool more, uint16_t bytes = 0)
    {
        stored entry;
        entry.result = result;
        entry.message.more = more;
        entry.message.text_bytes = bytes;
        return entry;
    }

    // Stores these; each but the last says that there are more.
    void store(std::vector<stored> entries)
    {
        for (size_t i = 0; i < entries.size(); i++)
            if (entries[i].result == 0)
                entries[i].message.more = i + 1 < entries.size();
        store_ = std::move(entries);
    }

    std::string list(int mode = output_lines, int result = 0)
    {
        memory_stream out;
        EXPECT_EQ(modem->slots.getsms(*modem, out.get(), mode), result);
        return out.text();
    }

    [[nodiscard]] texts spooled() const { return root.read_all("/var/spool/sms/incoming"); }

    void empty_spool() const { std::filesystem::remove_all(root.place("/var/spool/sms/incoming")); }

    std::vector<stored> store_;
    size_t next_ = 0;
};

// ---- received messages

TEST_F(cdma_messages, are_listed_in_both_forms)
{
    EXPECT_EQ(list(output_xml), "<sms-list>\n\t<sms-count>0</sms-count>\n</sms-list>\n");
    EXPECT_TRUE(requests_of(swi_op_read_sms).empty());
    store({message("a < b & c")});
    EXPECT_EQ(list(), "sms-count 1\nsms1-id 7\nsms1-phone 5550100099\nsms1-text a < b & c\n");
    EXPECT_EQ(list(9), list()) << "any other form is lines";
    EXPECT_EQ(list(output_xml),
              "<sms-list>\n\t<sms-count>1</sms-count>\n"
              "<sms1>\n\t<sms1-id>7</sms1-id>\n\t<sms1-phone>5550100099</sms1-phone>\n"
              "\t<sms1-text>a &lt; b &amp; c</sms1-text>\n</sms1>\n</sms-list>\n");
    EXPECT_EQ(last_sent(swi_op_read_sms), (packet{240, 0, 0, 0}));
    refuse(swi_op_get_sms_status, swi_status_failed);
    EXPECT_EQ(list(output_xml, -1), "");
    EXPECT_TRUE(log.has("0 Failed to get message status: error 5"));
}

TEST_F(cdma_messages, of_some_statuses_are_left_out_but_counted)
{
    std::vector<stored> all;
    for (const uint8_t status : packet{0, 1, 2, 3, 4, 5, 6, 7, 8, 13, 255})
        all.push_back(message(std::to_string(status), 2, status));
    store(all);
    const std::string text = list();
    EXPECT_TRUE(text.starts_with("sms-count 11\n"));
    for (const char *line : {"sms1-text 0\n", "sms2-text 1\n", "sms6-text 5\n", "sms8-text 7\n"})
        EXPECT_NE(text.find(line), text.npos) << line;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 4 * 3);
    EXPECT_EQ(spooled().size(), 4u);
}

TEST_F(cdma_messages, become_utf8_whatever_their_encoding)
{
    using namespace std::string_view_literals;
    const struct {
        uint8_t encoding, format;
        std::string_view bytes;
        std::string text;
    } rows[] = {
        {2, 0, "plain", "plain"},
        {3, 0, "\xC3\xA9"sv, "\xC3\x83\xC2\xA9"},
        {0, 0, "caf\xC3\xA9", "caf\xC3\xA9"},
        {0, 0, "caf\xE9", "caf\xC3\xA9"},
        {5, 0, "ab\0cd"sv, "ab"},
        {4, 0, "\0H\0i"sv, "Hi"},
        {8, 0, "\0H\0i"sv, "Hi"},
        {0, 6, "\0H\0i"sv, "Hi"},
        {0, 0, "\0H\0i"sv, ""},
        {4, 0, "H\0i\0"sv, "Hi"}, // units in the other order already
        {4, 0, "\x04\x1F\x04\x40"sv, "\xD0\x9F\xD1\x80"},
        {4, 0, "\xD8\x3D\xDE\x42"sv, "\xF0\x9F\x99\x82"},
        {4, 0, "\xD8\x3D\0A"sv,
         "\xEF\xBF\xBD"
         "A"},                      // half of a pair
        {4, 0, "\0H\0i\0"sv, "Hi"}, // half of a unit
        {4, 0, "\0H\0\0\0i"sv, "H"},
        // The modem's rule takes a unit whose second byte is 0 for one in the other order.
        {4, 0, "\x20\0"sv, " "},
        {8, 0, "", ""},
    };
    for (const auto &row : rows) {
        empty_spool();
        store({message(row.bytes, row.encoding, 1, row.format)});
        const std::string text = list();
        EXPECT_NE(text.find("sms1-text " + row.text + "\n"), text.npos) << int{row.encoding} << "\n"
                                                                        << text;
        EXPECT_TRUE(text_is_utf8(text));
        EXPECT_EQ(spooled(), (texts{"From: 5550100099\n\n" + row.text}));
    }
    stored odd = message("x");
    odd.message.sender[0] = '\xE9';
    store({odd});
    EXPECT_NE(list().find("sms1-phone \xC3\xA9"
                          "550100099\n"),
              std::string::npos);
}

TEST_F(cdma_messages, that_fit_no_buffer_are_passed_over)
{
    stored liar = message("short");
    liar.message.text_bytes = 241;
    store({failure(2, true, 300), liar, failure(2, true, 65535), message("last")});
    EXPECT_EQ(list(), "sms-count 4\n"
                      "sms4-id 7\nsms4-phone 5550100099\nsms4-text last\n");
    EXPECT_EQ(log.count("300 Message size exceeds buffer limit: 300 bytes"), 1);
    EXPECT_EQ(log.count("300 Message size exceeds buffer limit: 241 bytes"), 1);
    EXPECT_EQ(log.count("300 Message size exceeds buffer limit: 65535 bytes"), 1);
}

TEST_F(cdma_messages, behind_an_error_are_read_as_long_as_there_are_more)
{
    store(
        {message("one"), failure(5, true), message("three"), failure(600, false), message("five")});
    EXPECT_EQ(list(), "sms-count 5\nsms1-id 7\nsms1-phone 5550100099\nsms1-text one\n"
                      "sms3-id 7\nsms3-phone 5550100099\nsms3-text three\n")
        << "the fourth said that it is the last";
    EXPECT_TRUE(log.has("300 Error reading messages from modem: 5"));
    EXPECT_TRUE(log.has("300 Error reading messages from modem: 600"));

    // A refusal says nothing of further ones, so what was said before holds.
    stored refused;
    refused.status = swi_status_error;
    store({refused, message("two")});
    store_[0].message.more = 1;
    EXPECT_NE(list().find("sms2-text two\n"), std::string::npos);
}

TEST_F(cdma_messages, of_a_modem_that_only_errs_are_given_up_after_the_announced_count)
{
    store(std::vector<stored>(7, failure(5, true)));
    EXPECT_EQ(list(), "sms-count 7\n");
    EXPECT_EQ(requests_of(swi_op_read_sms).size(), 7u);
    EXPECT_EQ(log.count("300 Error reading messages from modem: 5"), 7);
    EXPECT_EQ(log.count("300 Giving up on the modem's messages after 7 of them"), 1);

    // Refusals and success for ever end as well, and so does a count that nobody can store.
    answer_with(swi_op_get_sms_status, [](const fake_request &request) {
        return respond_with(request, swi_sms_status{UINT32_MAX, UINT32_MAX, {}});
    });
    refuse(swi_op_read_sms, swi_status_error);
    EXPECT_EQ(list(), "sms-count 8589934590\n");
    EXPECT_EQ(log.count("300 Giving up on the modem's messages after 1000 of them"), 1);
    stored endless = message("again", 2, 2);
    endless.message.more = 1;
    answer_with(swi_op_get_sms_status, [](const fake_request &request) {
        return respond_with(request, swi_sms_status{1, 2, {}});
    });
    answer_with(swi_op_read_sms, [&](const fake_request &request) {
        return respond_with(request, endless.message, &endless.result);
    });
    EXPECT_EQ(list(), "sms-count 3\n");
    EXPECT_EQ(log.count("300 Giving up on the modem's messages after 35 of them"), 1)
        << "a few may come while the list is read";
}

TEST_F(cdma_messages, behind_one_lost_answer_are_read_but_not_of_a_silent_modem)
{
    stored lost;
    lost.status = swi_status_timeout;
    store({message("one"), lost, message("three")});
    EXPECT_EQ(list(), "sms-count 3\nsms1-id 7\nsms1-phone 5550100099\nsms1-text one\n"
                      "sms3-id 7\nsms3-phone 5550100099\nsms3-text three\n");
    EXPECT_EQ(log.count("300 Error reading messages from modem: 7"), 1);
    store({message("one"), lost, message("three"), lost, message("five")});
    EXPECT_EQ(list().find("sms5"), std::string::npos);
    EXPECT_EQ(log.count("300 Giving up on the modem's messages after 4 of them"), 1);

    const size_t asked = requests_of(swi_op_read_sms).size();
    store(std::vector<stored>(5, message("x")));
    answer_with(swi_op_read_sms, [](const fake_request &) { return packet(); });
    EXPECT_EQ(list(output_xml), "<sms-list>\n\t<sms-count>5</sms-count>\n</sms-list>\n");
    EXPECT_EQ(requests_of(swi_op_read_sms).size(), asked + 2);
    EXPECT_EQ(log.count("300 Error reading messages from modem: 153"), 2);
    EXPECT_EQ(log.count("300 Giving up on the modem's messages after 2 of them"), 1);
}

TEST_F(cdma_messages, that_cannot_be_spooled_are_listed_all_the_same)
{
    root.write("/var/spool/sms/incoming", "no directory");
    store({message("one"), message("two")});
    EXPECT_NE(list().find("sms2-text two\n"), std::string::npos);
    EXPECT_EQ(log.count("300 Failed to write sms"), 2);
}

// ---- messages to be sent

TEST_F(cdma_messages, are_stored_and_then_sent)
{
    answer_record(swi_op_get_phone_number, swi_text{"5550100042"});
    root.write("/message", "To: 5550100077\n\nHello,\nyou\n");
    EXPECT_EQ(modem->slots.sendsms(*modem, root.place("/message").c_str(), nullptr), 0);
    packet expected = {0, 0, 0, 0};
    const auto field = [&](const std::string &text, size_t bytes) {
        expected.insert(expected.end(), text.begin(), text.end());
        expected.insert(expected.end(), bytes - text.size(), 0);
    };
    field("5550100042", 32);
    field("5550100077", 18);
    expected.push_back(10);
    field("", 3);
    expected.insert(expected.end(), {10, 0});
    field("Hello,\nyou", 240);
    EXPECT_EQ(last_sent(swi_op_store_sms), expected);
    EXPECT_TRUE(is_operation(server.requests().back(), swi_op_send_sms));
}

TEST_F(cdma_messages, of_every_length_are_sent_as_far_as_they_fit)
{
    const struct {
        std::string number;
        size_t length;
        size_t sent;
    } rows[] = {{"5550100077", 0, 0},
                {"5550100077", 160, 160},
                {"5550100077", 240, 240},
                {"5550100077", 500, 240},
                {"012345678901234567890", 1, 1}};
    const size_t text_at = 4 + 32 + 18 + 1 + 3 + 2;
    for (const auto &row : rows) {
        root.write("/message", "To: " + row.number + "\n\n" + std::string(row.length, 'x') + "\n");
        EXPECT_EQ(modem->slots.sendsms(*modem, root.place("/message").c_str(), "ignored"), 0);
        const packet sent = last_sent(swi_op_store_sms);
        ASSERT_EQ(sent.size(), text_at + 240);
        EXPECT_EQ(sent[54], std::min<size_t>(row.number.size(), 17));
        EXPECT_EQ(sent[58], row.sent);
        EXPECT_EQ(std::count(sent.begin() + text_at, sent.end(), 'x'), row.sent);
    }
}

TEST_F(cdma_messages, have_references_up_to_49)
{
    root.write("/message", "To: 1\n\nx");
    for (unsigned i = 0; i < 51; i++)
        EXPECT_EQ(modem->slots.sendsms(*modem, root.place("/message").c_str(), nullptr), 0);
    const auto sent = requests_of(swi_op_store_sms);
    EXPECT_EQ(sent[49].parameters[0], 49);
    EXPECT_EQ(sent[50].parameters[0], 0);
}

TEST_F(cdma_messages, that_fail_on_the_way_are_not_sent)
{
    const std::string path = root.place("/message");
    EXPECT_EQ(modem->slots.sendsms(*modem, path.c_str(), nullptr), -1);
    EXPECT_TRUE(log.has("300 No such file: " + path));
    EXPECT_TRUE(requests_of(swi_op_store_sms).empty());
    root.write("/message", "To: 1\n\nx");
    const struct {
        swi_operation_id id;
        int result;
        const char *line;
        size_t sent;
    } rows[] = {
        {swi_op_get_phone_number, 0, "300 SwiGetPhoneNumber failed with 5", 1},
        {swi_op_store_sms, -1, "0 Error storing message to modem - error 5", 1},
        {swi_op_send_sms, -1, "0 Could not send sms - error 5", 2},
    };
    for (const auto &row : rows) {
        refuse(row.id, swi_status_failed);
        EXPECT_EQ(modem->slots.sendsms(*modem, path.c_str(), nullptr), row.result);
        EXPECT_EQ(log.count(row.line), 1) << row.line;
        EXPECT_EQ(requests_of(swi_op_send_sms).size(), row.sent) << row.line;
        answer_as_before(row.id);
    }
}

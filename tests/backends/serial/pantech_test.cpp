#include "backends/serial/pantech.h"
#include "backends/serial/pantech_wire.h"
#include "cellmodem/cellmodem.h"
#include "platform/text.h"
#include "support/fake_infod.h"
#include "support/log_capture.h"
#include "support/memory_stream.h"
#include "support/pty_modem.h"
#include "support/temp_root.h"

#include <csignal>
#include <filesystem>
#include <memory>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

using operation = int (*)(cellmodem &, FILE *, int);

static const std::string memory = "/var/run/.modem/cellmodem_last_sms";
static const std::string spool = "/var/spool/sms/incoming";

constexpr uint8_t cmd_info = 0x06, cmd_ip = 0x0A, cmd_status = 0x0B, cmd_sms = 0x13, cmd_eps = 0x4D;

static std::string repeated(size_t count, const char *text)
{
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

// The reply with these bytes at an offset.
static std::string with(std::string reply, size_t offset, const std::string &bytes)
{
    return reply.replace(offset, bytes.size(), bytes);
}

// A pattern that tells offsets and widths, and the part of it that a field shows.
static std::string pattern(size_t offset, size_t width)
{
    std::string text;
    for (size_t i = offset; i < offset + width; i++)
        text += static_cast<char>('!' + i % 89);
    return text;
}

static std::string
message_reply(const std::string &number, const std::string &text,
              const std::string &id = "\x01\x02\x03\x04\x05\x06\x07\x08\x09\xFE\xFF")
{
    std::string reply = with(blank_reply(cmd_sms, 1536), 1041, number);
    reply = with(reply, 1113, id);
    reply[1165] = static_cast<char>(text.size());
    return with(reply, 1169, text);
}

static const std::string message_id = "01 02 03 04 05 06 07 08 09 fe ff";

class pantech : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(pantech_wmc_init(modem), 0);
        ASSERT_EQ(modem.slots.attach(modem), 0);
    }

    // What an operation writes while the modem gives these answers.
    std::string run(operation slot, const texts &answers, int expected_result = 0,
                    int mode = output_lines)
    {
        scripted = std::make_unique<pty_modem>(root, answers);
        const memory_stream out;
        EXPECT_EQ(slot(modem, out.get(), mode), expected_result);
        return out.text();
    }

    std::string info(const texts &answers) { return run(modem.slots.info, answers); }
    std::string status(const texts &answers) { return run(modem.slots.status, answers); }
    std::string getsms(const std::string &answer, int expected_result = 0, int mode = output_lines)
    {
        return run(modem.slots.getsms, {answer}, expected_result, mode);
    }

    [[nodiscard]] texts spooled() const { return root.read_all(spool); }

    const short_waits waits;
    temp_root root;
    fake_infod infod;
    log_capture log;
    cellmodem modem;
    std::unique_ptr<pty_modem> scripted;
};

// ---- information

TEST_F(pantech, attaching_only_says_so)
{
    EXPECT_EQ(modem.slots.attach(modem), 0);
    EXPECT_EQ(modem.slots.detach(modem), 0);
    EXPECT_EQ(modem.slots.detach(modem), 0);
    const std::string key = "long config.cellmodem.tessera.status.attached=";
    EXPECT_EQ(infod.pushed, (texts{key + "1", key + "0"}));
    infod.start_result = 1;
    EXPECT_EQ(modem.slots.attach(modem), 0) << "a missing infod holds nobody off";
    EXPECT_TRUE(modem.attached);
}

TEST_F(pantech, info_fields_lie_exactly_where_they_lie)
{
    const auto field = [](const char *key, size_t offset, size_t width) {
        return std::string(key) + " " + pattern(offset, width) + "\n";
    };
    EXPECT_EQ(info({with(blank_reply(cmd_info, 644), 2, pattern(2, 639)),
                    with(blank_reply(cmd_eps, 277), 2, pattern(2, 272))}),
              "attached yes\ndriver Pantech WMC\ndevice /dev/cellcommand01\n" +
                  field("manufacturer", 29, 63) + field("model", 93, 63) +
                  field("firmware", 157, 63) + field("hardware", 221, 63) + field("min", 413, 21) +
                  field("imei", 533, 21) + field("iccid", 571, 21) + field("meid", 513, 19) +
                  "home-sid " + std::to_string(pattern(435, 1)[0]) + "\nprefmode " +
                  std::to_string(pattern(529, 1)[0]) + "\nsim-mcc 0\nsim-mnc 0\napn " +
                  pattern(10, 264) + "00\n");
    EXPECT_EQ(modem.aux_buffer, pattern(93, 63));
}

TEST_F(pantech, info_texts_end_at_zero_and_become_utf8)
{
    std::string reply = with(blank_reply(cmd_info, 644), 29, "Pan\xE9\0hidden");
    reply = with(reply, 93, "\xC3\xA9t\xC3\xA9");
    reply[435] = '\xFF';
    modem.aux_buffer = "older";
    modem.attached = false;
    const std::string shown =
        info({reply, with(blank_reply(cmd_eps, 30), 10, std::string("net\0", 4))});
    EXPECT_EQ(shown.find("attached false\n"), 0u);
    EXPECT_NE(shown.find("manufacturer Pan\xC3\xA9\nmodel \xC3\xA9t\xC3\xA9\nfirmware \n"),
              std::string::npos);
    EXPECT_NE(shown.find("home-sid 255\n"), std::string::npos);
    EXPECT_NE(shown.find("apn net\n"), std::string::npos);
    EXPECT_EQ(modem.aux_buffer, "older") << "the first model stays";
    EXPECT_TRUE(info({reply, with(blank_reply(cmd_eps, 30), 10, pattern(10, 20))})
                    .ends_with("apn " + pattern(10, 20) + "\n"))
        << "a short reply is an APN to its end";
}

TEST_F(pantech, network_codes_are_decimal)
{
    const std::pair<const char *, int> rows[] = {
        {"310", 310},
        {"001", 1},
        {" 7x", 7},
        {"0000000000000042", 42}, // fills its field
        {"2147483646", 2147483646},
    };
    const auto shown = [&](const std::string &text) {
        return info({with(with(blank_reply(cmd_info, 644), 597, text), 613, text),
                     blank_reply(cmd_eps, 20)});
    };
    for (const auto &[text, value] : rows) {
        const std::string number = std::to_string(value);
        EXPECT_NE(shown(text).find("sim-mcc " + number + "\nsim-mnc " + number + "\n"),
                  std::string::npos)
            << text;
    }
    for (const char *none : {"", "x", "-5", "2147483647", "2147483648", "99999999999",
                             "9223372036854775", "-2147483648"})
        EXPECT_NE(shown(none).find("sim-mcc 0\nsim-mnc 0\n"), std::string::npos) << none;
}

// ---- status

TEST_F(pantech, status_tells_the_service_by_the_length)
{
    std::string lte = with(blank_reply(cmd_status, 154), 75, pattern(75, 68));
    lte[143] = 71;
    lte[26] = 99;
    const std::string addresses = with(blank_reply(cmd_ip, 93), 2, pattern(2, 88));
    EXPECT_EQ(status({lte, addresses}), "device-state UNKNOWN\nrssi -71\noperator-name " +
                                            pattern(75, 68) + "\ntechnology 4G LTE\nipv4 " +
                                            pattern(26, 15) + "\nipv6 " + pattern(50, 39) + "\n");
    std::string cdma = blank_reply(cmd_status, 153);
    cdma[26] = '\xC8';
    EXPECT_EQ(status({cdma, blank_reply(cmd_ip, 93)}),
              "device-state RESPONDING\nrssi -200\noperator-name \ntechnology 3G CDMA/HDR\n"
              "ipv4 \nipv6 \n");
    EXPECT_NE(
        status({blank_reply(cmd_status, 154), blank_reply(cmd_ip, 93)}).find("rssi No Service\n"),
        std::string::npos);
}

TEST_F(pantech, a_silent_modem_closes_its_records)
{
    EXPECT_EQ(run(modem.slots.info, {}, -1, output_xml),
              "<info>\n\t<attached>yes</attached>\n\t<driver>Pantech WMC</driver>\n"
              "\t<device>/dev/cellcommand01</device>\n</info>\n");
    EXPECT_EQ(run(modem.slots.status, {}, -1, output_xml),
              "<status>\n\t<device-state>UNRESPONSIVE</device-state>\n</status>\n");
}

// ---- received messages

TEST_F(pantech, a_message_is_shown_and_spooled_once)
{
    const std::string answer = message_reply("5550100099", "Water & fire");
    EXPECT_EQ(getsms(answer), "sms-count 1\nsms1-id " + message_id +
                                  "\nsms1-phone 5550100099\nsms1-text Water & fire\n");
    EXPECT_EQ(spooled(), texts{"From: 5550100099\n\nWater & fire"});
    EXPECT_EQ(root.read(memory), message_id);
    EXPECT_EQ(log.count("700 Got SMS: Phone: 5550100099 len: 12 Text: 'Water & fire'"), 1);
    EXPECT_EQ(log.count("700 Newset SMS is now: " + message_id), 1);

    EXPECT_EQ(getsms(answer, 0, output_xml),
              "<sms-list>\n\t<sms-count>1</sms-count>\n<sms1>\n\t<sms1-id>" + message_id +
                  "</sms1-id>\n\t<sms1-phone>5550100099</sms1-phone>\n"
                  "\t<sms1-text>Water &amp; fire</sms1-text>\n</sms1>\n</sms-list>\n");
    EXPECT_EQ(log.count("700 SMS " + message_id + " was previously received, skipping..."), 1);
    EXPECT_EQ(spooled().size(), 1u);

    getsms(message_reply("5550100099", "Water & fire", std::string(11, '\xAB')));
    EXPECT_EQ(spooled().size(), 2u) << "another identifier is another message";
    EXPECT_EQ(root.read(memory), "ab ab ab ab ab ab ab ab ab ab ab");
}

TEST_F(pantech, message_fields_lie_exactly_where_they_lie)
{
    std::string reply = with(blank_reply(cmd_sms, 1536), 2, pattern(2, 1531));
    EXPECT_EQ(getsms(reply), "sms-count 1\nsms1-id 4e 4f 50 51 52 53 54 55 56 57 58\nsms1-phone " +
                                 pattern(1041, 17) + "\nsms1-text " + pattern(1169, 160) + "\n");
}

TEST_F(pantech, a_full_field_divides_no_character)
{
    const std::string e_acute = "\xC3\xA9", smile = "\xF0\x9F\x98\x80";
    const struct {
        std::string bytes, shown;
    } rows[] = {
        {"\xC9t\xE9", "\xC3\x89t" + e_acute},
        {e_acute + std::string(157, 'x') + "\xC3", e_acute + std::string(157, 'x')},
        {e_acute + std::string(155, 'x') + smile.substr(0, 3), e_acute + std::string(155, 'x')},
        {std::string(156, 'x') + smile, std::string(156, 'x') + smile},
        {std::string(158, 'x') + e_acute, std::string(158, 'x') + e_acute},
        {"\xE9" + std::string(158, 'x') + "\xC3", e_acute + std::string(158, 'x') + "\xC3\x83"},
        {"not full \xC3", "not full \xC3\x83"},
        {std::string(160, '\xB0'), repeated(160, "\xC2\xB0")},
    };
    for (const auto &[bytes, shown] : rows)
        EXPECT_TRUE(getsms(message_reply("555", bytes)).ends_with("sms1-text " + shown + "\n"))
            << shown;
    EXPECT_EQ(spooled(), texts{"From: 555\n\n" + rows[0].shown}) << "the same as was shown";
}

TEST_F(pantech, without_a_message_the_count_is_1_all_the_same)
{
    EXPECT_EQ(getsms(blank_reply(cmd_sms, 1536)), "sms-count 1\n");
    EXPECT_EQ(getsms(blank_reply(cmd_sms, 1536), 0, output_xml),
              "<sms-list>\n\t<sms-count>1</sms-count>\n</sms-list>\n");
    EXPECT_EQ(getsms(blank_reply(cmd_sms, 9)), "sms-count 1\n")
        << "short, but closed like a whole reply";
    EXPECT_EQ(root.read(memory), "");
    EXPECT_EQ(getsms(message_reply("555", "")),
              "sms-count 1\nsms1-id " + message_id + "\nsms1-phone 555\nsms1-text \n");
    EXPECT_EQ(root.read(memory), message_id);
    EXPECT_EQ(spooled(), texts{}) << "nothing to spool";
}

// A reply of any length, from nothing to more than the whole one.
TEST_F(pantech, every_length_of_a_reply)
{
    const std::string message = message_reply("5550100099", pattern(0, 160));
    const struct {
        const char *name;
        operation slot;
        std::string reply;
        size_t accepted;           // from this length on
        std::string before, after; // the other replies of the record
        const char *wanted;        // what the output then holds
        const char *head, *tail;
        const char *unanswered, *unexpected;
    } rows[] = {
        {"info", modem.slots.info, blank_reply(cmd_info, 644), 644, "", blank_reply(cmd_eps, 277),
         "<model>", "<info>\n\t<attached>yes</attached>\n", "\t<apn></apn>\n</info>\n",
         "300 Failed to send get info command",
         "300 Unexpected response length: 643 expected: 644"},
        {"apn", modem.slots.info, blank_reply(cmd_eps, 277), 5, blank_reply(cmd_info, 644), "",
         "<apn>", "<info>\n", "</info>\n", "300 Failed to send get EPS command",
         "300 Receieved a short response: 4"},
        {"status", modem.slots.status, blank_reply(cmd_status, 154), 153, "",
         blank_reply(cmd_ip, 93), "<technology>", "<status>\n", "\t<ipv6></ipv6>\n</status>\n",
         "300 Failed to send get status command",
         "300 Unexpected response length: 152 expected: 154 or 153"},
        {"address", modem.slots.status, blank_reply(cmd_ip, 93), 93, blank_reply(cmd_status, 154),
         "", "<ipv4>", "<status>\n", "</status>\n", "300 Failed to send get IP config command",
         "300 Unexpected response length: 92 expected: 93"},
        {"message", modem.slots.getsms, message, 1169 + 160, "", "", "</sms-list>\n",
         "<sms-list>\n", "\n", "300 Failed to send get SMS command",
         "300 Response ends before the message: 1328 bytes"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        log.clear();
        texts answers;
        for (size_t bytes = 0; bytes <= row.reply.size() + 10; bytes++) {
            if (!row.before.empty())
                answers.push_back(row.before);
            answers.push_back(row.reply);
            answers.back().resize(bytes, 'x');
            if (!row.after.empty())
                answers.push_back(row.after);
        }
        scripted = std::make_unique<pty_modem>(root, answers);
        for (size_t bytes = 0; bytes <= row.reply.size() + 10; bytes++) {
            const memory_stream out;
            EXPECT_EQ(row.slot(modem, out.get(), output_xml), bytes >= row.accepted ? 0 : -1)
                << bytes;
            const std::string shown = out.text();
            EXPECT_EQ(shown.find(row.wanted) != shown.npos, bytes >= row.accepted) << bytes;
            EXPECT_TRUE(shown.starts_with(row.head) && shown.ends_with(row.tail)) << bytes;
        }
        EXPECT_EQ(log.count(row.unanswered), 5);
        EXPECT_EQ(log.count(row.unexpected), 1);
    }
    EXPECT_EQ(spooled(), texts{"From: 5550100099\n\n" + pattern(0, 160)});
}

TEST_F(pantech, an_empty_store_that_is_cut_off_is_an_error)
{
    EXPECT_EQ(getsms(blank_reply(cmd_sms, 1536).substr(0, 700), -1), "");
    std::string cut = message_reply("555", "text").substr(0, 1173) + "00~";
    EXPECT_EQ(getsms(cut, 0),
              "sms-count 1\nsms1-id " + message_id + "\nsms1-phone 555\nsms1-text text\n")
        << "short, but the text is all there";
    cut = message_reply("555", "text").substr(0, 1170) + "00~";
    EXPECT_EQ(getsms(cut, -1), "") << "the end of the reply is no text";
    EXPECT_EQ(getsms(blank_reply(cmd_sms, 1044)), "sms-count 1\n") << "nor is it a number";
    cut = message_reply("555", "text").substr(0, 1100) + "00~";
    EXPECT_EQ(getsms(cut, -1), "");
}

TEST_F(pantech, what_could_not_be_spooled_is_spooled_later)
{
    root.write(spool, "a file in the way");
    const std::string answer = message_reply("555", "text");
    const std::string shown = getsms(answer);
    EXPECT_NE(shown.find("sms1-text text\n"), std::string::npos) << "it is reported";
    EXPECT_EQ(log.count("300 Failed to write sms"), 1);
    EXPECT_FALSE(fs::exists(root.place(memory)));
    fs::remove(root.place(spool));
    EXPECT_EQ(getsms(answer), shown);
    EXPECT_EQ(spooled(), texts{"From: 555\n\ntext"});
    EXPECT_EQ(getsms(answer), shown);
    EXPECT_EQ(spooled().size(), 1u);
}

TEST_F(pantech, a_kill_while_spooling_loses_no_message)
{
    // The kernel ends the child where its file grows beyond the limit: the identifier is shorter
    // than that, the message is longer.
    const std::string text(100, 'x');
    const std::string answer = message_reply("5550100099", text);
    scripted = std::make_unique<pty_modem>(root, texts{answer});
    const pid_t child = fork();
    if (child == 0) {
        const rlimit no_core = {0, 0}, small = {50, 50};
        std::signal(SIGXFSZ, SIG_DFL);
        if (setrlimit(RLIMIT_CORE, &no_core) == 0 && setrlimit(RLIMIT_FSIZE, &small) == 0)
            (void)modem.slots.getsms(modem, memory_stream().get(), output_lines);
        _exit(0);
    }
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    ASSERT_TRUE(WIFSIGNALED(result) && WTERMSIG(result) == SIGXFSZ);
    EXPECT_EQ(spooled(), texts{});
    getsms(answer);
    EXPECT_EQ(spooled(), texts{"From: 5550100099\n\n" + text});
    EXPECT_EQ(root.read(memory), message_id);
}

TEST_F(pantech, a_memory_that_cannot_be_written_loses_no_message)
{
    fs::create_directories(root.place(memory));
    getsms(message_reply("555", "text"));
    EXPECT_EQ(log.count("300 Failed to write " + memory + ": Is a directory"), 1);
    EXPECT_EQ(spooled(), texts{"From: 555\n\ntext"});
    fs::remove(root.place(memory));
    root.write(memory, message_id + " and more\n");
    getsms(message_reply("555", "text"));
    EXPECT_EQ(spooled().size(), 1u) << "only the beginning of the line counts";
    root.write(memory, "\n" + message_id);
    getsms(message_reply("555", "text"));
    EXPECT_EQ(spooled().size(), 2u) << "only the first line counts";
}

TEST_F(pantech, random_replies_give_utf8_or_an_error)
{
    uint32_t seed = 1;
    const auto noise = [&](size_t bytes) {
        std::string text;
        while (text.size() < bytes)
            text += static_cast<char>((seed = seed * 1664525 + 1013904223) >> 24);
        return text;
    };
    for (int round = 0; round < 40; round++) {
        const std::pair<operation, size_t> slots[] = {{modem.slots.info, 644},
                                                      {modem.slots.status, 153 + round % 2},
                                                      {modem.slots.getsms, 1536}};
        for (const auto &[slot, bytes] : slots) {
            scripted = std::make_unique<pty_modem>(root, texts{noise(bytes), noise(93)});
            const memory_stream out;
            (void)slot(modem, out.get(), output_xml);
            EXPECT_TRUE(text_is_utf8(out.text()));
        }
    }
    EXPECT_GT(spooled().size(), 20u);
}

// ---- messages to be sent

static std::string zeros(size_t count)
{
    return repeated(count, "} ");
}

static const std::string sent_reply("\xC8\x56\0\0\0\0\x30\x30\x7E", 9);

class pantech_sending : public pantech
{
protected:
    int send(const texts &answers, const std::string &file = "To: 5550100077\n\nHello\n",
             const char *smsc = nullptr)
    {
        scripted.reset();
        scripted = std::make_unique<pty_modem>(root, answers);
        root.write("/message", file);
        const int result = modem.slots.sendsms(modem, root.place("/message").c_str(), smsc);
        scripted->vanish();
        return result;
    }
};

TEST_F(pantech_sending, the_frame_is_exact)
{
    const std::string head = "AT*WMC=\xC8\x56\x86}\"" + zeros(6);
    const auto frame = [](const char *number, const char *smsc, const std::string &text) {
        const pantech_message_frame bytes = pantech_make_message(number, smsc, text);
        return std::string(bytes.begin(), bytes.end());
    };
    EXPECT_EQ(frame("5550100077", "19037029920", "Hello"),
              head + "5550100077" + zeros(84) + "}$" + zeros(3) + "19037029920" + zeros(15) + "}%" +
                  zeros(3) + "Hello" + zeros(505) + "00\r" + std::string(5, '\0'));
    // A number with an odd count of digits leaves half an escape behind it, a service centre with
    // an even one moves the escapes around the length.
    const std::string longest(160, 'x');
    EXPECT_EQ(frame("15550100077", "+19037029920", longest),
              head + "15550100077" + " " + zeros(83) + "}$" + zeros(3) + "+19037029920" +
                  zeros(15) + "\x80 " + zeros(2) + "}" + longest + zeros(350) + "00\r" +
                  std::string(160, '\0'));
    EXPECT_EQ(frame("", "", ""), head + zeros(89) + "}$" + zeros(3) + zeros(21) + "  " + zeros(2) +
                                     "}" + zeros(510) + "00\r");
    const std::string nines(300, '9');
    EXPECT_EQ(
        frame(nines.c_str(), nines.c_str(), nines),
        frame(nines.substr(0, 18).c_str(), nines.substr(0, 15).c_str(), nines.substr(0, 160)));
}

TEST_F(pantech_sending, a_file_is_sent)
{
    EXPECT_EQ(send({sent_reply}), 0);
    ASSERT_EQ(scripted->commands().size(), 1u);
    const std::string line = scripted->commands()[0];
    EXPECT_EQ(line.size(), 1276u);
    EXPECT_EQ(line.substr(24, 10) + "|" + line.substr(210, 11) + "|" + line.substr(259, 5),
              "5550100077|19037029920|Hello");
    texts lines = log.lines();
    std::erase_if(lines, [](const std::string &text) { return text.find("buf: ") != text.npos; });
    const std::string pid = std::to_string(getpid());
    const auto first = std::find(lines.begin(), lines.end(),
                                 "700 Sending SMS command. Msg len: 5 Total len: 1277");
    EXPECT_EQ(
        texts(first, lines.end()),
        (texts{"700 Sending SMS command. Msg len: 5 Total len: 1277",
               "700 Process " + pid + " is locking the Pantech Modem",
               "700 Opening WMC Device for sending SMS", "700 pantech_wmc_openwmcdevice()",
               "700 Send 1282 bytes to /dev/cellcommand01",
               "700 Waiting for send SMS command response...",
               "700 Reading send SMS command reply...",
               "700 Got 9 bytes from /dev/cellcommand01 retries: 0", "700 Successfully sent SMS",
               "700 Closing WMC device", "700 pantech_wmc_closewmcdevice()",
               "700 Process " + pid + " is unlocking the Pantech Modem"}));
    EXPECT_EQ(send({sent_reply}, "To: 1\n\nx", "123"), 0);
    EXPECT_EQ(scripted->commands()[0].substr(210, 4), "123}");
}

TEST_F(pantech_sending, every_length_of_text_makes_one_line)
{
    for (size_t length = 0; length <= 165; length++) {
        ASSERT_EQ(send({sent_reply}, "To: 1\n\n" + std::string(length, 'x')), 0) << length;
        // 45 has no frame of its own: it would hold a carriage return.
        const size_t carried = length == 45 ? 46 : std::min<size_t>(length, 160);
        ASSERT_EQ(scripted->commands().size(), 1u) << length;
        EXPECT_EQ(scripted->commands()[0].size(), 1281 - carried) << length;
        EXPECT_EQ(scripted->commands()[0][252], static_cast<char>(carried ^ 0x20));
    }
    EXPECT_EQ(log.count("400 A text of 45 bytes cannot be sent, a blank was appended"), 1);
    EXPECT_FALSE(log.has("A text of 46"));
}

TEST_F(pantech_sending, only_the_right_reply_is_success)
{
    EXPECT_EQ(send({}), -1);
    EXPECT_EQ(log.count("700 Failed to receive WMC reply"), 3);
    EXPECT_EQ(log.count("700 Waiting for send SMS command response..."), 3);
    EXPECT_EQ(send({with(sent_reply, 2, "\x01")}), -1);
    EXPECT_EQ(send({sent_reply.substr(0, 8)}), -1);
    EXPECT_EQ(send({with(sent_reply, 0, "123456789") + sent_reply}), 0)
        << "something else may come first";
    EXPECT_EQ(modem.device_state, device_unknown);
}

TEST_F(pantech_sending, what_the_frame_cannot_carry_is_refused)
{
    const std::string control = "the control character 0x";
    const struct {
        const char *file, *smsc;
        std::string refused;
    } rows[] = {
        {"To: 1\n\nDOS\r\nlines\r\n", "1", "text holds " + control + "0d"},
        {"To: 1\n\nescape\x1B", "1", "text holds " + control + "1b"},
        {"To: 1\n\n\x7F", "1", "text holds " + control + "7f"},
        {"To: 1\n\n{x}", "1", "text holds '}'"},
        {"To: 1\r\n\nx", "1", "number holds " + control + "0d"},
        {"To: 1\t2\n\nx", "1", "number holds " + control + "09"},
        {"To: 1}\n\nx", "1", "number holds '}'"},
        {"To: 1\n\nx", "1\rAT+CFUN=0\r", "service centre holds " + control + "0d"},
        {"To: 1\n\nx", "1\n", "service centre holds " + control + "0a"},
        {"To: 1\n\nx", "1}", "service centre holds '}'"},
    };
    for (const auto &[file, smsc, refused] : rows) {
        log.clear();
        EXPECT_EQ(send({sent_reply}, file, smsc), -1) << refused;
        EXPECT_EQ(scripted->commands(), texts{}) << refused;
        EXPECT_EQ(log.count("300 Refused: " + refused), 1) << refused;
    }
    EXPECT_EQ(send({sent_reply}, "To: 1\n\ntwo\n\tlines, \xC3\xA9 | { ~", "1"), 0);
    EXPECT_EQ(scripted->commands()[0].substr(259, 20), "two\n\tlines, \xC3\xA9 | { ~");
}

TEST_F(pantech_sending, nothing_is_sent_without_file_port_or_lock)
{
    scripted = std::make_unique<pty_modem>(root, texts{sent_reply});
    EXPECT_EQ(modem.slots.sendsms(modem, "/nowhere", nullptr), -1);
    EXPECT_EQ(log.count("300 No such file: /nowhere"), 1);
    EXPECT_FALSE(log.has("locking"));
    root.write("/var/lock/tessera-pantech-wmc.lck", "1\n");
    EXPECT_EQ(send({sent_reply}), -1);
    EXPECT_EQ(scripted->commands(), texts{});
    fs::remove(root.place("/var/lock/tessera-pantech-wmc.lck"));
    fs::remove(root.place("/dev/cellcommand01"));
    EXPECT_EQ(modem.slots.sendsms(modem, root.place("/message").c_str(), nullptr), -1);
    EXPECT_EQ(log.count("300 Failed to open the WMC device"), 1);
    EXPECT_FALSE(fs::exists(root.place("/var/lock/tessera-pantech-wmc.lck")));
}

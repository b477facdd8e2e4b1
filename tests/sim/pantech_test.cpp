// The Pantech modem: which frames it takes, what is where in its replies, and that it understands
// the messages it is given.

#include "sim/pantech.h"
#include "sim/wmc.h"
#include "support/sim_state.h"

class pantech : public testing::Test
{
protected:
    // The answer's bytes; why a frame was refused is in refusal_.
    std::string ask(const std::string &line)
    {
        return at_format(pantech_execute(modem_, line, refusal_));
    }

    std::string merge(const char *state) { return merge_text(pantech_merge_state, modem_, state); }

    pantech_modem modem_;
    std::string refusal_;
};

static const std::string get_info = "AT*WMC=\xC8}&\xEBr";
static const std::string get_status = "AT*WMC=\xC8}+}.\xA9";
static const std::string get_addresses = "AT*WMC=\xC8}*\x87\xB8";
static const std::string get_message = "AT*WMC=\xC8}3}!} } } \x8E\x33";
static const std::string get_apn = "AT*WMC=\xC8M}\"} } } \x99}\"";
static const std::string error = "\r\nERROR\r\n";

TEST_F(pantech, takes_the_frames_in_use_and_no_other)
{
    const struct {
        std::string line, name;
        size_t reply_bytes;
    } rows[] = {
        {get_info, "WMC 0x06", 644},         {get_addresses, "WMC 0x0A", 93},
        {get_status, "WMC 0x0B", 154},       {"AT*WMC=\xC8}1}!} } }&%", "WMC 0x11", 9},
        {get_message, "WMC 0x13", 1536},     {get_apn, "WMC 0x4D", 22},
        {"AT*WMC=\xC8T|}#", "WMC 0x54", 11},
    };
    for (const auto &[line, name, reply_bytes] : rows) {
        EXPECT_EQ(name, wmc_request_name(line));
        const std::string reply = ask(line);
        EXPECT_EQ(reply_bytes, reply.size()) << name;
        EXPECT_TRUE(reply.starts_with('\xC8') && reply.ends_with("00~")) << name;
        for (size_t at = 7; at < line.size(); at++) {
            std::string flipped = line;
            flipped[at] = static_cast<char>(flipped[at] ^ 0x01);
            EXPECT_EQ(error, ask(flipped)) << name << " byte " << at;
        }
        EXPECT_EQ(error, ask(line.substr(0, line.size() - 1)));
    }
}

TEST_F(pantech, says_why_it_refuses_a_frame)
{
    const struct {
        const char *line, *why;
    } rows[] = {
        {"AT*WMC=", "no start byte"},
        {"AT*WMC=\xC8", "too short"},
        {"AT*WMC=\xC8}&\xEB}", "an escape is cut off"},
        {"AT*WMC=\xC8\x06\xEBr", "byte 06 is not escaped"},
        {"AT*WMC=\xC8}&\xEBs", "check value 73EB, expected 72EB"},
        {"AT*WMC=\xC8U\xF5}2", "unknown command"},
        {"AT*WMC=\xC8V\x86}\"00", "no message"},
    };
    for (const auto &[line, why] : rows) {
        EXPECT_EQ(error, ask(line));
        EXPECT_EQ(why, refusal_);
    }
    EXPECT_EQ("\r\nOK\r\n", ask("AT"));
    EXPECT_EQ(error, ask("AT+CFUN?"));
    EXPECT_NE(std::string::npos, ask("ATI").find("Model: Simulated LTE\r\n"));
    EXPECT_EQ("AT", wmc_request_name("AT"));
    EXPECT_EQ("WMC", wmc_request_name("AT*WMC=\xC8"));
}

TEST_F(pantech, replies_differ_by_network_and_without_a_message)
{
    EXPECT_EQ("", merge(R"({"service": "CDMA", "sms_number": ""})"));
    EXPECT_EQ(153u, ask(get_status).size());
    EXPECT_EQ(wmc_blank_reply(0x13, 1536), ask(get_message));
}

TEST_F(pantech, bends_replies_as_it_is_told)
{
    EXPECT_EQ("", merge(R"({"replies": {"0x0A": {"length": 100}, "0x0B": {"length": 2},
                                       "0x54": {"prefix_hex": "01 02", "at": 10,
                                                "data_hex": "FF FE"}}})"));
    const std::string longer = ask(get_addresses);
    EXPECT_EQ(100u, longer.size());
    EXPECT_TRUE(longer.ends_with("00~"));
    EXPECT_EQ("\xC8\x0B", ask(get_status));
    EXPECT_EQ(std::string("\x01\x02\0\0\0\0\0\0"
                          "00\xFF\xFE",
                          12),
              ask("AT*WMC=\xC8T|}#"));
    EXPECT_EQ("", merge(R"({"replies": {"0x0A": {}}})"));
    EXPECT_EQ(93u, ask(get_addresses).size());
    EXPECT_NE(std::string::npos,
              json_text(pantech_dump_state(modem_).get())
                  .find(R"("0x0B":{"prefix_hex":"","at":0,"data_hex":"","length":2})"));
}

TEST_F(pantech, refuses_a_wrong_state_as_a_whole)
{
    const struct {
        const char *json, *why;
    } rows[] = {
        {R"({"model": "X", "replies": 1})", "replies: must be an object"},
        {R"({"model": "X", "replies": {"0x77": {}}})", "replies.0x77: no command of the modem"},
        {R"({"model": "X", "replies": {"0x06": 3}})", "replies.0x06: must be an object"},
        {R"({"model": "X", "replies": {"0x06": {"prefix_hex": "C"}}})",
         "replies.0x06.prefix_hex: must be pairs of hexadecimal digits"},
        {R"({"model": "X", "replies": {"0x06": {"len": 1}}})", "replies.0x06.len: unknown key"},
        {R"({"model": "X", "sms_id": "00"})", "sms_id: must be 11 pairs of hexadecimal digits"},
    };
    for (const auto &[json, why] : rows) {
        EXPECT_EQ(why, merge(json));
        EXPECT_EQ("Simulated LTE", modem_.state.model);
        EXPECT_TRUE(modem_.overrides.empty());
    }
}

// ---- messages

static std::string zeros(size_t count)
{
    std::string text;
    while (count-- > 0)
        text += "} ";
    return text;
}

// The line of a message of 10 digits through a centre of 11, without the carriage return.
static std::string message_line(const std::string &text, size_t length)
{
    return "AT*WMC=\xC8V\x86}\"" + zeros(6) + "5550100077" + zeros(84) + "}$" + zeros(3) +
           "19037029920" + zeros(15) + "}" + static_cast<char>(length ^ 0x20) + zeros(3) + text +
           zeros(510 - text.size()) + "00";
}

TEST_F(pantech, takes_a_message)
{
    const std::string sent("\xC8V\0\0\0\0"
                           "00~",
                           9);
    EXPECT_EQ(sent, ask(message_line("", 0))) << refusal_;
    EXPECT_EQ(sent, ask(message_line("\xC9t\xE9", 3))) << refusal_;
    EXPECT_EQ("\\xC9t\\xE9", modem_.state.sent_text) << "shown, though it is no UTF-8";
    EXPECT_EQ(2, modem_.state.sent_count);
}

TEST_F(pantech, refuses_a_message_that_does_not_add_up)
{
    const std::string good = message_line("Hello", 5);
    std::string unmarked = good;
    unmarked[203] = '%';
    std::string open = good;
    open.back() = '1';
    for (const std::string &bad :
         {message_line("Hello", 6), good + "0", good.substr(1), unmarked, open})
        EXPECT_EQ(error, ask(bad)) << refusal_;
    EXPECT_EQ(0, modem_.state.sent_count);
    EXPECT_EQ("", merge(R"({"send_result": 3})"));
    EXPECT_EQ('\x03', ask(good)[2]);
    EXPECT_EQ(0, modem_.state.sent_count);
}

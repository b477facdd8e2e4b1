// The DirectIP modem: what arrives as lines, what it prints, and that what one command changes the
// next one shows.

#include "sim/directip.h"
#include "support/temp_root.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

static std::string lines_of(at_lines &lines, const std::string &bytes)
{
    std::string text;
    for (const at_line &line : lines.take(bytes))
        text += "[" + line.text + (line.overlong ? "...]" : "]");
    return text;
}

TEST(at_lines, are_complete_at_the_carriage_return)
{
    at_lines lines;
    EXPECT_EQ("", lines_of(lines, "AT"));
    EXPECT_EQ("", lines_of(lines, "I"));
    EXPECT_EQ("[ATI][AT]", lines_of(lines, "\r\nAT\rA"));
    lines.forget();
    EXPECT_EQ("[][x\n]", lines_of(lines, std::string("\r\0\0\nx\n\r", 7)));
}

TEST(at_lines, keep_the_beginning_of_an_overlong_one)
{
    at_lines lines;
    const std::string most(at_lines::line_bytes_max, 'x');
    EXPECT_EQ("[" + most + "]", lines_of(lines, most + "\r"));
    EXPECT_EQ("[" + most + "...][AT]", lines_of(lines, most + "yz\rAT\r"));
}

TEST(at_arguments, are_split_at_commas_outside_quotes)
{
    std::vector<std::string> given;
    ASSERT_EQ(0, at_arguments("1,\"IP\",\"a,b\",", given));
    EXPECT_EQ((std::vector<std::string>{"1", "IP", "a,b", ""}), given);
    EXPECT_EQ(-1, at_arguments("1,\"IP", given));
    EXPECT_EQ(-1, at_arguments("\"IP\"x,1", given));
}

class directip : public testing::Test
{
protected:
    void SetUp() override { modem_.booted_at_ms = sim_loop::now_ms(); }

    // The result code, and the information in front of it if there is any.
    std::string ask(const std::string &line)
    {
        const at_reply reply = directip_execute(modem_, line);
        return reply.information + (reply.information.empty() ? "" : " ") + reply.result;
    }

    directip_modem modem_;
};

TEST_F(directip, prints_the_layouts_of_real_modems)
{
    EXPECT_EQ(test_data("gstatus/lte.txt"),
              at_format(at_information(directip_gstatus(modem_.state))));
    modem_.state.mode = "WCDMA";
    modem_.state.uptime_s = 1350;
    modem_.state.bootup_s = 1;
    modem_.state.cell_id = 32883841;
    EXPECT_EQ(test_data("gstatus/wcdma.txt"),
              at_format(at_information(directip_gstatus(modem_.state))));
}

TEST_F(directip, has_a_session_only_where_the_network_knows_it)
{
    EXPECT_EQ("ERROR", ask("AT!SCACT=0,1"));
    EXPECT_EQ("OK", ask("AT!SCACT=1,1"));
    EXPECT_EQ("!SCACT: 1,1 OK", ask("AT!SCACT?"));
    EXPECT_EQ("OK", ask("AT+CFUN=0"));
    EXPECT_EQ("+CFUN: 0 OK", ask("at+cfun?"));
    EXPECT_EQ(std::string::npos, ask("AT!GSTATUS?").find("RSSI"));
    EXPECT_EQ("!SCACT: 1,0 OK", ask("AT!SCACT?"));
    EXPECT_EQ("+CME ERROR: 30", ask("AT!SCACT=1,1"));
    EXPECT_EQ("OK", ask("AT+CFUN=1"));
    EXPECT_EQ("!SCACT: 1,0 OK", ask("AT!SCACT?"));
    modem_.state.activate_ms = 60000;
    EXPECT_EQ("OK", ask("AT!SCACT=1,1"));
    EXPECT_EQ("!SCACT: 1,0 OK", ask("AT!SCACT?")) << "on its way";
    EXPECT_EQ("OK", ask("AT!SCACT=0,1"));
    modem_.state.registration = "denied";
    EXPECT_EQ("NO CARRIER", ask("AT!SCACT=1,1"));
    modem_.state.registration = "roaming";
    modem_.state.sim = "absent";
    EXPECT_EQ("+CME ERROR: 30", ask("AT!SCACT=1,1"));
    EXPECT_EQ("+CME ERROR: 10", ask("AT+CPIN?"));
}

TEST_F(directip, keeps_what_it_was_given_and_refuses_the_rest)
{
    EXPECT_EQ("OK", ask("AT+CGDCONT=1,\"IP\",\"a.b\""));
    EXPECT_EQ("OK", ask("AT$QCPDPP=1,2,\"me\",\"secret\""));
    EXPECT_EQ("a.b/2/me/secret", modem_.state.apn + "/" + std::to_string(modem_.state.auth_type) +
                                     "/" + modem_.state.user + "/" + modem_.state.password);
    for (const char *line : {"AT+CGDCONT=2,\"IP\",\"c\"", "AT+CGDCONT=1,\"PPP\",\"c\"",
                             "AT+CGDCONT=1", "AT$QCPDPP=1,2,\"me\"", "AT$QCPDPP=1,9,\"a\",\"b\"",
                             "AT!SCACT=1,2", "AT+CFUN=2", "AT!GSTATUS", "AT+WHAT?", "ATI5"})
        EXPECT_EQ("ERROR", ask(line)) << line;
    EXPECT_EQ("a.b", modem_.state.apn);
    EXPECT_EQ("OK", ask("AT$QCPDPP=1,0"));
    EXPECT_EQ("", modem_.state.user + modem_.state.password);
}

TEST_F(directip, a_reset_powers_up_anew_and_forgets_no_context)
{
    modem_.power_up.cfun = 0;
    ask("AT+CGDCONT=1,\"IP\",\"a.b\"");
    ask("ATE1");
    ask("AT!SCACT=1,1");
    modem_.state.reset_hangup_ms = 20;
    const at_reply reply = directip_execute(modem_, "AT!RESET");
    EXPECT_EQ("OK", reply.result);
    ASSERT_TRUE(reply.end);
    EXPECT_EQ(20, reply.end->return_ms);
    EXPECT_EQ("+CFUN: 0 OK", ask("AT+CFUN?"));
    EXPECT_FALSE(modem_.state.session);
    EXPECT_FALSE(modem_.state.echo);
    EXPECT_EQ("a.b", modem_.state.apn);
}

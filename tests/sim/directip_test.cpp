// The DirectIP modem: what arrives as lines, what it prints, and that what one command changes the
// next one shows.

#include "sim/directip.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

// An LTE modem in service, as it printed it.
static constexpr const char lte_answer[] =
    "\r\n!GSTATUS: \r\n"
    "Current Time:  1571\t\tTemperature: 32\r\n"
    "Bootup Time:   0\t\tMode:        ONLINE         \r\n"
    "System mode:   LTE        \tPS state:    Attached     \r\n"
    "LTE band:      B3     \t\tLTE bw:      20 MHz  \r\n"
    "LTE Rx chan:   1550\t\tLTE Tx chan: 19550\r\n"
    "EMM state:     Registered     \tNormal Service \r\n"
    "RRC state:     RRC Idle       \r\n"
    "IMS reg state: No Srv  \t\t\r\n"
    "\r\n"
    "RSSI (dBm):    -76\t\tTx Power:    0\r\n"
    "RSRP (dBm):    -107\t\tTAC:         4F3B (20283)\r\n"
    "RSRQ (dB):     -9\t\tCell ID:     004ED30C (5165836)\r\n"
    "SINR (dB):      9.6\r\n"
    "\r\n\r\nOK\r\n";

// The same maker's modem on 3G.
static constexpr const char wcdma_answer[] =
    "\r\n!GSTATUS: \r\n"
    "Current Time:  1350             Temperature: 32\r\n"
    "Bootup Time:   1                Mode:        ONLINE         \r\n"
    "System mode:   WCDMA            PS state:    Attached     \r\n"
    "WCDMA band:    WCDMA 2100 \r\n"
    "WCDMA channel: 10662\r\n"
    "GMM (PS) state:REGISTERED       NORMAL SERVICE \r\n"
    "MM (CS) state: IDLE             NORMAL SERVICE \r\n"
    "\r\n"
    "WCDMA L1 State:L1M_PCH_SLEEP    RRC State:   DISCONNECTED   \r\n"
    "RX level C0:   -68              LAC:         1389 (5001)\r\n"
    "RX level C1:   -106             Cell ID:     01F5C481 (32883841)\r\n"
    "\r\n\r\nOK\r\n";

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

    std::string status() { return at_format(directip_execute(modem_, "AT!GSTATUS?")); }

    directip_modem modem_;
};

TEST_F(directip, prints_the_layouts_of_real_modems)
{
    EXPECT_EQ(lte_answer, at_format(at_information(directip_gstatus(modem_.state))));
    modem_.state.mode = "WCDMA";
    modem_.state.uptime_s = 1350;
    modem_.state.bootup_s = 1;
    modem_.state.cell_id = 32883841;
    EXPECT_EQ(wcdma_answer, at_format(at_information(directip_gstatus(modem_.state))));
    modem_.state.mode = "GSM";
    EXPECT_NE(std::string::npos, status().find("RX level (dBm):-71 "));
}

TEST_F(directip, shows_no_signal_with_the_radio_off)
{
    EXPECT_EQ("OK", ask("AT+CFUN=0"));
    EXPECT_NE(std::string::npos, status().find("Mode:        LOW POWER MODE \r\n"));
    EXPECT_EQ(std::string::npos, status().find("RSSI"));
    EXPECT_EQ("+CFUN: 0 OK", ask("at+cfun?"));
    EXPECT_EQ("ERROR", ask("AT+CFUN=2"));
}

TEST_F(directip, has_a_session_only_where_the_network_knows_it)
{
    EXPECT_EQ("ERROR", ask("AT!SCACT=0,1"));
    EXPECT_EQ("OK", ask("AT!SCACT=1,1"));
    EXPECT_EQ("!SCACT: 1,1 OK", ask("AT!SCACT?"));
    EXPECT_EQ("OK", ask("AT+CFUN=0"));
    EXPECT_EQ("!SCACT: 1,0 OK", ask("AT!SCACT?"));
    EXPECT_EQ("+CME ERROR: 30", ask("AT!SCACT=1,1"));
    EXPECT_EQ("OK", ask("AT+CFUN=1"));
    EXPECT_EQ("!SCACT: 1,0 OK", ask("AT!SCACT?"));
    modem_.state.registration = "denied";
    EXPECT_EQ("NO CARRIER", ask("AT!SCACT=1,1"));
    modem_.state.registration = "roaming";
    modem_.state.sim = "absent";
    EXPECT_EQ("+CME ERROR: 30", ask("AT!SCACT=1,1"));
    EXPECT_EQ("+CME ERROR: 10", ask("AT+CPIN?"));
}

TEST_F(directip, takes_its_time_to_activate)
{
    modem_.state.activate_ms = 60000;
    EXPECT_EQ("OK", ask("AT!SCACT=1,1"));
    EXPECT_EQ("!SCACT: 1,0 OK", ask("AT!SCACT?"));
    directip_settle(modem_, sim_loop::now_ms() + 60000);
    EXPECT_EQ("!SCACT: 1,1 OK", ask("AT!SCACT?"));
    EXPECT_EQ("OK", ask("AT!SCACT=0,1"));
    EXPECT_EQ("!SCACT: 1,0 OK", ask("AT!SCACT?"));
}

TEST_F(directip, keeps_what_it_was_given_and_refuses_the_rest)
{
    EXPECT_EQ("OK", ask("AT+CGDCONT=1,\"IP\",\"a.b\""));
    EXPECT_EQ("OK", ask("AT$QCPDPP=1,2,\"me\",\"secret\""));
    EXPECT_EQ("a.b/2/me/secret", modem_.state.apn + "/" + std::to_string(modem_.state.auth_type) +
                                     "/" + modem_.state.user + "/" + modem_.state.password);
    for (const char *line : {"AT+CGDCONT=2,\"IP\",\"c\"", "AT+CGDCONT=1,\"PPP\",\"c\"",
                             "AT+CGDCONT=1", "AT$QCPDPP=1,2,\"me\"", "AT$QCPDPP=1,9,\"a\",\"b\"",
                             "AT!SCACT=1,2", "AT!GSTATUS", "AT+WHAT?", "ATI5"})
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

TEST_F(directip, merges_all_of_a_state_or_nothing)
{
    const json_ref wrong(json_loads(R"({"model": "X", "mode": "CDMA"})", 0, nullptr));
    const json_ref right(json_loads(R"({"model": "X", "sinr_db": -3})", 0, nullptr));
    const std::string model = modem_.state.model;
    json_refusal refusal;
    EXPECT_EQ(-1, state_merge(modem_.state, directip_fields(), wrong.get(), refusal));
    EXPECT_EQ("mode: 'CDMA' is none of LTE|WCDMA|GSM", json_refusal_text(refusal));
    EXPECT_EQ(model, modem_.state.model);
    EXPECT_EQ(0, state_merge(modem_.state, directip_fields(), right.get(), refusal));
    EXPECT_EQ("X", modem_.state.model);
    EXPECT_EQ("-3.0", state_print(modem_.state, directip_fields(), "sinr_db"));
}

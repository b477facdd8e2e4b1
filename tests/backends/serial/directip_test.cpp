#include "backends/serial/at.h"
#include "backends/serial/directip.h"
#include "backends/serial/port.h"
#include "cellmodem/cellmodem.h"
#include "support/fake_infod.h"
#include "support/log_capture.h"
#include "support/memory_stream.h"
#include "support/pty_modem.h"
#include "support/temp_root.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

using texts = std::vector<std::string>;

static const std::string ok = "\r\nOK\r\n";

static std::string transcript(const std::string &name)
{
    std::ostringstream text;
    text << std::ifstream(TESSERA_TEST_DATA "/gstatus/" + name, std::ios::binary).rdbuf();
    return text.str();
}

class directip : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TESSERA_TIME_SCALE", "0.001", 1);
        ASSERT_EQ(sierra_directip_lte_init(modem), 0);
    }
    void TearDown() override
    {
        modem.slots.detach(modem);
        unsetenv("TESSERA_TIME_SCALE");
    }

    // Attaches to a modem that gives these answers.
    void attach(const texts &answers)
    {
        scripted = std::make_unique<pty_modem>(root, answers);
        ASSERT_EQ(modem.slots.attach(modem), 0);
    }

    std::string status(const std::string &answer, int expected_result = 0)
    {
        attach({answer});
        const memory_stream out;
        EXPECT_EQ(modem.slots.status(modem, out.get(), output_lines), expected_result);
        modem.slots.detach(modem);
        return out.text();
    }

    temp_root root;
    fake_infod infod;
    log_capture log;
    cellmodem modem;
    std::unique_ptr<pty_modem> scripted;
};

TEST_F(directip, real_lte_status)
{
    EXPECT_EQ(status(transcript("lte.txt")), "mode ONLINE\n"
                                             "temp 32\n"
                                             "cell_id 004ED30C\n"
                                             "system-mode LTE\n"
                                             "band B3\n"
                                             "rssi-4g -76\n"
                                             "rsrp -107\n"
                                             "sinr 9.6\n");
}

TEST_F(directip, real_wcdma_status)
{
    EXPECT_EQ(status(transcript("wcdma.txt")), "mode ONLINE\n"
                                               "temp 32\n"
                                               "cell_id 01F5C481\n"
                                               "system-mode WCDMA\n"
                                               "band WCDMA 2100\n"
                                               "rx_c0 -68\n"
                                               "rx_c1 -106\n");
}

TEST_F(directip, gsm_status_takes_its_level_without_a_blank_only)
{
    EXPECT_EQ(status("Mode: ONLINE\r\nSystem mode: GSM\r\nGSM band: GSM900\r\n"
                     "RX level (dBm):-71\r\nOK\r\n"),
              "mode ONLINE\nsystem-mode GSM\nband GSM900\nrx_level -71\n");
    EXPECT_EQ(status("System mode: GSM\r\nRX level (dBm): -71\r\n" + std::string(200, ' ') + ok),
              "system-mode GSM\n");
}

TEST_F(directip, without_a_system_mode_the_last_value_decides)
{
    EXPECT_EQ(status("Mode: LTE_ONLY\r\nLTE band: B7\r\n" + std::string(300, ' ') + ok),
              "mode LTE_ONLY\nband B7\n");
    EXPECT_EQ(status("System mode: No\r\nLTE band: B7\r\n" + std::string(400, ' ') + ok),
              "system-mode No\n");
}

TEST_F(directip, a_value_that_is_not_utf8_is_latin1_and_bounded)
{
    const std::string text =
        status("System mode: LTE\r\nRSSI (dBm): \xE9" + std::string(300, 'x') + "\r\n" + ok);
    EXPECT_EQ(text, "system-mode LTE\nrssi-4g \xC3\xA9" + std::string(253, 'x') + "\n");
}

TEST_F(directip, info_writes_what_the_response_holds)
{
    attach({"\r\nManufacturer: Sierra Wireless, Incorporated\r\nModel: MC7700\r\n"
            "Revision: FW_DIP_03.05 r1 2013/01/04\r\nextra line\r\n"
            "IMEI: 012626000123456\r\nIMEI SV: 8\r\nFSN: CC3201\r\n+GCAP: +CGSM\r\n\r\nOK\r\n"});
    const memory_stream out;
    EXPECT_EQ(modem.slots.info(modem, out.get(), output_lines), 0);
    EXPECT_EQ(out.text(), "attached yes\n"
                          "driver Sierra Wireless Direct IP\n"
                          "device /dev/cellmodem01\n"
                          "product MC7700\n"
                          "technology GSM/UMTS/LTE\n"
                          "imei 012626000123456\n"
                          "serial CC3201\n"
                          "firmware FW_DIP_03.05 r1 2013/01/04\r\nextra line\r\n");
    const std::string prefix = "config.cellmodem.tessera.";
    EXPECT_EQ(infod.pushed,
              (texts{"long " + prefix + "status.attached=1", "text " + prefix + "info.attached=yes",
                     "text " + prefix + "info.driver=Sierra Wireless Direct IP",
                     "text " + prefix + "info.device=/dev/cellmodem01",
                     "text " + prefix + "info.product=MC7700",
                     "text " + prefix + "info.technology=GSM/UMTS/LTE",
                     "text " + prefix + "info.imei=012626000123456"}));
}

TEST_F(directip, a_refused_info_leaves_its_record_open)
{
    attach({"\r\nERROR\r\n"});
    const memory_stream out;
    EXPECT_EQ(modem.slots.info(modem, out.get(), output_xml), -1);
    EXPECT_EQ(out.text().find("</info>"), std::string::npos);
    EXPECT_EQ(log.count("0 Info get failed - \r\nERROR\r"), 1);
}

TEST_F(directip, a_status_that_fails_writes_nothing)
{
    EXPECT_EQ(status("\r\n+CME ERROR: 10\r\n", -1), "");
    EXPECT_TRUE(log.has("0 Info get failed - \r\n+CME ERROR: 10"));
    attach({});
    const memory_stream out;
    EXPECT_EQ(modem.slots.status(modem, out.get(), output_xml), -1);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(log.count("0 Did not get response from modem"), 1);
}

TEST_F(directip, attaching_and_detaching_twice)
{
    EXPECT_EQ(modem.slots.detach(modem), 0);
    EXPECT_EQ(log.count("600 Sierra DirectIP Modem is already detached"), 1);
    infod.start_result = 1;
    attach({});
    EXPECT_EQ(modem.slots.attach(modem), 0);
    EXPECT_EQ(log.count("600 Sierra DirectIP Modem is already attached"), 1);
    EXPECT_EQ(modem.slots.detach(modem), 0) << "a missing infod holds nobody off";
    EXPECT_FALSE(modem.attached);
    root.write("/dev/absent", "");
    scripted.reset();
    EXPECT_EQ(modem.slots.attach(modem), -1);
    EXPECT_FALSE(modem.attached);
}

TEST_F(directip, radio_and_reset)
{
    attach({ok, ok, ok});
    EXPECT_EQ(modem.slots.radio(modem, true), 0);
    EXPECT_EQ(modem.state_b, 1);
    EXPECT_EQ(modem.slots.radio(modem, false), 0);
    EXPECT_EQ(modem.state_b, 2);
    EXPECT_EQ(modem.slots.reset(modem), 0);
    scripted->vanish();
    EXPECT_EQ(scripted->commands(), (texts{"AT+CFUN=1", "AT+CFUN=0", "AT!RESET"}));
    EXPECT_EQ(modem.slots.radio(modem, true), -1);
    EXPECT_EQ(modem.slots.reset(modem), -1);
    EXPECT_EQ(modem.state_b, 2);
    EXPECT_EQ(log.count("0 Could not set radio mode to on"), 1);
    EXPECT_EQ(log.count("0 Could not reset radio"), 1);
}

TEST_F(directip, connect_sets_context_and_authentication_first)
{
    const std::string up = "\r\n!SCACT: 1,1\r\n\r\nOK\r\n";
    attach({ok, ok, ok, up});
    EXPECT_EQ(modem.slots.lte_connect(modem, "internet", "ipv6", 1, "me", nullptr), 0);
    scripted->vanish();
    EXPECT_EQ(scripted->commands(),
              (texts{"AT+CGDCONT=1,\"IP\",\"internet\"", "AT$QCPDPP=1,1,\"me\",\"\"",
                     "AT!SCACT=1,1", "AT!SCACT?"}));
    EXPECT_EQ(log.count("700 Connection Up"), 1);
}

TEST_F(directip, every_step_of_connect_can_fail)
{
    const std::string error = "\r\nERROR\r\n";
    const struct {
        texts answers;
        const char *line;
        int commands;
    } rows[] = {
        {{error}, "0 Set APN failed - \r\nERROR\r", 1},
        {{ok, "\r\nERROR\r\n\r\n"}, "0 Set auth settings failed - \r\nERROR\r\n\r", 2},
        {{ok, ok, error}, "0 PDP context activation failed - \r\nERROR\r", 3},
        {{ok, ok, ok, error, error}, "300 timed out waiting for data connection", 0},
        {{}, "0 Did not get response from modem", 1},
    };
    for (const auto &row : rows) {
        log.clear();
        attach(row.answers);
        EXPECT_EQ(modem.slots.lte_connect(modem, "a", nullptr, 0, nullptr, nullptr), -1);
        EXPECT_TRUE(log.has(row.line)) << row.line;
        modem.slots.detach(modem);
        scripted->vanish();
        if (row.commands != 0) {
            EXPECT_EQ(scripted->commands().size(), static_cast<size_t>(row.commands)) << row.line;
        }
    }
    EXPECT_EQ(scripted->commands()[0], "AT+CGDCONT=1,\"IP\",\"a\"");
}

TEST_F(directip, refusals_are_told)
{
    const std::string error = "\r\nERROR\r\n";
    attach({ok, error, ok, error, ok, error});
    EXPECT_EQ(modem.slots.radio(modem, true), 0);
    EXPECT_EQ(modem.slots.radio(modem, false), -1);
    EXPECT_EQ(modem.state_b, 1) << "as it was";
    EXPECT_TRUE(log.has("0 Set radio failed - \r\nERROR\r"));
    EXPECT_EQ(modem.slots.reset(modem), 0);
    EXPECT_EQ(modem.slots.reset(modem), -1);
    EXPECT_TRUE(log.has("0 Reset failed - \r\nERROR\r"));
    EXPECT_EQ(modem.slots.disconnect(modem), 0);
    EXPECT_EQ(modem.slots.disconnect(modem), -1);
    EXPECT_TRUE(log.has("0 PDP context deactivation failed - \r\nERROR\r"));
}

TEST_F(directip, a_port_that_is_hung_up_answers_nothing)
{
    attach({ok});
    EXPECT_EQ(modem.slots.radio(modem, true), 0);
    scripted->vanish();
    log.clear();
    EXPECT_EQ(modem.slots.disconnect(modem), -1) << "the older answer's OK is none";
    EXPECT_EQ(modem.slots.data_up(modem), -1);
    EXPECT_EQ(modem.slots.lte_connect(modem, "a", nullptr, 0, "", ""), -1);
    EXPECT_TRUE(log.has("0 Could not deactivate pdp context"));
    EXPECT_TRUE(log.has("0 Did not get response from modem"));
    EXPECT_TRUE(log.has("0 Could not query radio"));
    EXPECT_TRUE(log.has("0 Could not set APN to a"));
}

TEST_F(directip, a_port_that_cannot_be_closed_stays_attached)
{
    attach({});
    close(at_port().fd.get()); // behind its owner's back
    EXPECT_EQ(modem.slots.detach(modem), -1);
    EXPECT_EQ(log.count("300 Failed to close: /dev/cellcommand01"), 1);
    EXPECT_TRUE(modem.attached);
    EXPECT_EQ(modem.slots.detach(modem), 0) << "it is closed all the same";
    EXPECT_FALSE(modem.attached);
}

TEST_F(directip, a_late_answer_is_not_taken_for_the_next)
{
    attach({"\r\n!SCACT: 1,1\r\n\r\nOK\r\n", "\r\n!SCACT: 1,0\r\n\r\nOK\r\n"});
    ASSERT_EQ(at_write("AT!SCACT?\r"), 0); // whose answer nobody waits for
    int waiting = 0;
    while (waiting < 20)
        ASSERT_EQ(ioctl(at_port().fd.get(), FIONREAD, &waiting), 0);
    EXPECT_EQ(modem.slots.data_up(modem), -1);
}

TEST_F(directip, a_command_too_long_is_cut_and_still_ends)
{
    const std::string error = "\r\nERROR\r\n";
    attach({error, ok});
    EXPECT_EQ(modem.slots.lte_connect(modem, std::string(300, 'a').c_str(), nullptr, 0, "", ""),
              -1);
    EXPECT_EQ(modem.slots.reset(modem), 0);
    scripted->vanish();
    ASSERT_EQ(scripted->commands().size(), 2u);
    EXPECT_EQ(scripted->commands()[0].size(), at_command_max - 1);
    EXPECT_EQ(scripted->commands()[1], "AT!RESET");
}

TEST_F(directip, text_that_would_become_a_command_is_refused)
{
    attach({ok, ok, ok});
    for (const char *bad : {"a\"b", "a\rAT!RESET", "a\nb", "a\tb", "\x7F"}) {
        log.clear();
        EXPECT_EQ(modem.slots.lte_connect(modem, bad, nullptr, 1, "u", "p"), -1);
        EXPECT_EQ(modem.slots.lte_connect(modem, "a", nullptr, 1, bad, "p"), -1);
        EXPECT_EQ(modem.slots.lte_connect(modem, "a", nullptr, 0, "u", bad), -1);
        EXPECT_TRUE(log.has("300 Refused: APN holds"));
        EXPECT_TRUE(log.has("300 Refused: user name holds"));
        EXPECT_TRUE(log.has("300 Refused: password holds"));
    }
    scripted->vanish();
    EXPECT_EQ(scripted->commands(), texts{}) << "nothing was sent";
}

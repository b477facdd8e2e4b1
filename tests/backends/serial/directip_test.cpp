#include "backends/serial/at.h"
#include "backends/serial/directip.h"
#include "backends/serial/port.h"
#include "cellmodem/cellmodem.h"
#include "support/fake_infod.h"
#include "support/log_capture.h"
#include "support/memory_stream.h"
#include "support/pty_modem.h"
#include "support/temp_root.h"

#include <memory>

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

static const std::string ok = "\r\nOK\r\n";
static const std::string error = "\r\nERROR\r\n";

class directip : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(sierra_directip_lte_init(modem), 0); }
    void TearDown() override { modem.slots.detach(modem); }

    // Attaches to a modem that gives these answers.
    void attach(const texts &answers)
    {
        scripted = std::make_unique<pty_modem>(root, answers);
        ASSERT_EQ(modem.slots.attach(modem), 0);
    }

    std::string status(const std::string &answer, int expected_result = 0, int mode = output_lines)
    {
        attach({answer});
        const memory_stream out;
        EXPECT_EQ(modem.slots.status(modem, out.get(), mode), expected_result);
        modem.slots.detach(modem);
        return out.text();
    }

    int connect(const char *apn)
    {
        return modem.slots.lte_connect(modem, apn, nullptr, 0, nullptr, nullptr);
    }

    // The commands that the modem got; it is gone then.
    const texts &commands()
    {
        scripted->vanish();
        return scripted->commands();
    }

    const short_waits waits;
    temp_root root;
    fake_infod infod;
    log_capture log;
    cellmodem modem;
    std::unique_ptr<pty_modem> scripted;
};

TEST_F(directip, status_shows_what_the_response_holds)
{
    const struct {
        std::string response, shown;
    } rows[] = {
        // In this order each covers what the ones before leave in the buffer.
        {"Mode: ONLINE\r\nSystem mode: GSM\r\nGSM band: GSM900\r\nRX level (dBm):-71\r\nOK\r\n",
         "mode ONLINE\nsystem-mode GSM\nband GSM900\nrx_level -71\n"},
        // GSM's level is taken without a blank only.
        {"System mode: GSM\r\nRX level (dBm): -71\r\n" + std::string(200, ' ') + ok,
         "system-mode GSM\n"},
        // Without a system mode the last value decides.
        {"Mode: LTE_ONLY\r\nLTE band: B7\r\n" + std::string(300, ' ') + ok,
         "mode LTE_ONLY\nband B7\n"},
        {"System mode: No\r\nLTE band: B7\r\n" + std::string(400, ' ') + ok, "system-mode No\n"},
        // A value that is not UTF-8 is Latin-1, and bounded.
        {"System mode: LTE\r\nRSSI (dBm): \xE9" + std::string(300, 'x') + "\r\n" + ok,
         "system-mode LTE\nrssi-4g \xC3\xA9" + std::string(253, 'x') + "\n"},
        {test_data("gstatus/lte.txt"),
         "mode ONLINE\ntemp 32\ncell_id 004ED30C\nsystem-mode LTE\nband B3\n"
         "rssi-4g -76\nrsrp -107\nsinr 9.6\n"},
        {test_data("gstatus/wcdma.txt"),
         "mode ONLINE\ntemp 32\ncell_id 01F5C481\nsystem-mode WCDMA\nband WCDMA 2100\n"
         "rx_c0 -68\nrx_c1 -106\n"},
    };
    for (const auto &[response, shown] : rows)
        EXPECT_EQ(status(response), shown);
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
}

TEST_F(directip, a_refused_info_leaves_its_record_open)
{
    attach({error});
    const memory_stream out;
    EXPECT_EQ(modem.slots.info(modem, out.get(), output_xml), -1);
    EXPECT_EQ(out.text().find("</info>"), std::string::npos);
    EXPECT_EQ(log.count("0 Info get failed - \r\nERROR\r"), 1);
}

TEST_F(directip, a_status_that_fails_writes_nothing)
{
    EXPECT_EQ(status("\r\n+CME ERROR: 10\r\n", -1), "");
    EXPECT_TRUE(log.has("0 Info get failed - \r\n+CME ERROR: 10"));
    EXPECT_EQ(status("", -1, output_xml), "") << "not even the beginning of a record";
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

TEST_F(directip, connect_sets_context_and_authentication_first)
{
    attach({ok, ok, ok, "\r\n!SCACT: 1,1\r\n\r\nOK\r\n"});
    EXPECT_EQ(modem.slots.lte_connect(modem, "internet", "ipv6", 1, "me", nullptr), 0);
    EXPECT_EQ(commands(), (texts{"AT+CGDCONT=1,\"IP\",\"internet\"", "AT$QCPDPP=1,1,\"me\",\"\"",
                                 "AT!SCACT=1,1", "AT!SCACT?"}));
    EXPECT_EQ(log.count("700 Connection Up"), 1);
}

TEST_F(directip, every_step_of_connect_can_fail)
{
    const struct {
        texts answers;
        const char *line;
        size_t commands; // 0: as many as the time allows
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
        EXPECT_EQ(connect("a"), -1);
        EXPECT_TRUE(log.has(row.line)) << row.line;
        modem.slots.detach(modem);
        if (row.commands != 0) {
            EXPECT_EQ(commands().size(), row.commands) << row.line;
        }
    }
    EXPECT_EQ(commands()[0], "AT+CGDCONT=1,\"IP\",\"a\"");
}

TEST_F(directip, commands_are_answered_and_refused)
{
    attach({ok, ok, error, ok, error, ok, error});
    EXPECT_EQ(modem.slots.radio(modem, true), 0);
    EXPECT_EQ(modem.state_b, 1);
    EXPECT_EQ(modem.slots.radio(modem, false), 0);
    EXPECT_EQ(modem.slots.radio(modem, true), -1);
    EXPECT_EQ(modem.state_b, 2) << "as it was";
    EXPECT_TRUE(log.has("0 Set radio failed - \r\nERROR\r"));
    EXPECT_EQ(modem.slots.reset(modem), 0);
    EXPECT_EQ(modem.slots.reset(modem), -1);
    EXPECT_TRUE(log.has("0 Reset failed - \r\nERROR\r"));
    EXPECT_EQ(modem.slots.disconnect(modem), 0);
    EXPECT_EQ(modem.slots.disconnect(modem), -1);
    EXPECT_TRUE(log.has("0 PDP context deactivation failed - \r\nERROR\r"));
    EXPECT_EQ(texts(commands().begin(), commands().begin() + 4),
              (texts{"AT+CFUN=1", "AT+CFUN=0", "AT+CFUN=1", "AT!RESET"}));
}

TEST_F(directip, a_port_that_is_hung_up_answers_nothing)
{
    attach({ok});
    EXPECT_EQ(modem.slots.radio(modem, false), 0);
    scripted->vanish();
    EXPECT_EQ(modem.slots.radio(modem, true), -1) << "the older answer's OK is none";
    EXPECT_EQ(modem.state_b, 2);
    EXPECT_EQ(modem.slots.reset(modem), -1);
    EXPECT_EQ(modem.slots.disconnect(modem), -1);
    EXPECT_EQ(modem.slots.data_up(modem), -1);
    EXPECT_EQ(connect("a"), -1);
    for (const char *line :
         {"0 Could not set radio mode to on", "0 Could not reset radio",
          "0 Could not deactivate pdp context", "0 Did not get response from modem",
          "0 Could not query radio", "0 Could not set APN to a"})
        EXPECT_TRUE(log.has(line)) << line;
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
    attach({error, ok});
    EXPECT_EQ(connect(std::string(300, 'a').c_str()), -1);
    EXPECT_EQ(modem.slots.reset(modem), 0);
    ASSERT_EQ(commands().size(), 2u);
    EXPECT_EQ(commands()[0].size(), at_command_max - 1);
    EXPECT_EQ(commands()[1], "AT!RESET");
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
    EXPECT_EQ(commands(), texts{}) << "nothing was sent";
}

// A DirectIP modem from attach to reset, and everything that can go wrong on its line.

#include "support/appliance.h"

#include <csignal>

class directip_appliance : public appliance
{
protected:
    void bring_up(const std::string &scenario = "{}")
    {
        start_sim("directip", scenario);
        start_daemon();
    }

    // The commands that the modem was sent so far, a line each.
    [[nodiscard]] int sent(const std::string &command) const
    {
        return count(modem_log(), "> " + command);
    }
};

TEST_F(directip_appliance, a_modem_is_shown_connected_switched_and_reset)
{
    bring_up();
    const client_result info = tessera({"-i"});
    EXPECT_EQ(info.code, 0);
    EXPECT_EQ(info.out, golden("directip-info.txt"));
    EXPECT_EQ(tessera({"-s", "-x"}).out, golden("directip-status.xml"));

    EXPECT_EQ(tessera({"--connstatus"}).code, 1);
    EXPECT_EQ(tessera({"--dip_connect", "--apn=internet", "--auth=1", "--username=me",
                       "--password=secret"})
                  .code,
              0);
    EXPECT_EQ(sent("AT+CGDCONT=1,\"IP\",\"internet\"\\r"), 1);
    EXPECT_EQ(sent("AT$QCPDPP=1,1,\"me\",\"secret\"\\r"), 1);
    EXPECT_EQ(tessera({"--connstatus"}).code, 0);
    EXPECT_EQ(shell_log(), "0\t/sbin/ifconfig wwan0 up &> /dev/null\n"
                           "0\t/sbin/udhcpc -i wwan0 -p /var/run/udhcpc-wwan0.pid"
                           " -s /etc/scripts/wwan-up -t 8 -T 3 &> /dev/null\n");
    EXPECT_EQ(tessera({"--dip_connect", "--apn=internet"}).code, 0) << "the lease is renewed";
    EXPECT_EQ(sent("AT$QCPDPP=1,0\\r"), 1);
    EXPECT_EQ(count(shell_log(), "0\tkill -SIGUSR1 `cat /var/run/udhcpc-wwan0.pid`\n"), 1);
    wait_for("a renewal", [&] { return root.read("/var/run/udhcpc-wwan0.renewals") == "1\n"; });
    EXPECT_EQ(count(shell_log(), "/sbin/udhcpc"), 1);

    EXPECT_EQ(tessera({"-d"}).code, 0);
    const std::string down = "/sbin/ifconfig wwan0 down &> /dev/null\n"
                             "0\t/etc/scripts/wwan-down &> /dev/null\n"
                             "0\tkill `cat /var/run/udhcpc-wwan0.pid` &> /dev/null\n";
    EXPECT_EQ(count(shell_log(), down), 1);
    EXPECT_EQ(tessera({"--connstatus"}).code, 1);

    EXPECT_EQ(tessera({"--radio=off"}).code, 0);
    EXPECT_EQ(count(tessera({"-s"}).out, "mode LOW\n"), 1);
    EXPECT_EQ(tessera({"--dip_connect", "--apn=internet"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "timed out waiting for data connection"), 1);
    EXPECT_EQ(tessera({"--radio=on"}).code, 0);
    EXPECT_EQ(count(tessera({"-s"}).out, "mode ONLINE\n"), 1);

    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(count(tessera({"-s"}).out, "mode ONLINE\n"), 1) << "recovered";
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    EXPECT_EQ(count(daemon_log(), "Receieved TERM signal, si_code 0, si_pid "), 1);
    EXPECT_EQ(root.read("/var/run/tesserad.pid"), "");
}

TEST_F(directip_appliance, start_up_publishes_the_first_records)
{
    bring_up();
    const std::string info = "config.cellmodem.tessera.info.";
    const std::string status = "config.cellmodem.tessera.status.";
    EXPECT_EQ(run_program("infod-get", {"config.cellmodem"}).out,
              info + "attached yes\n" + info + "device /dev/cellmodem01\n" + info +
                  "driver Sierra Wireless Direct IP\n" + info + "imei 004999010640000\n" + info +
                  "product DIP7300\n" + info + "technology GSM/UMTS/LTE\n" + status +
                  "attached 1\n" + status + "mode ONLINE\n" + status + "rssi-4g -76\n" + status +
                  "temp 32\n");
    EXPECT_EQ(run_program("infod-get", {"--json", status + "attached"}).out,
              "{\n  \"" + status + "attached\": 1\n}\n");
    EXPECT_EQ(run_program("infod-get", {"nothing"}).code, 1);
    EXPECT_EQ(sent("AT+CFUN=1\\r"), 1) << "the radio is enabled";
    EXPECT_NE(root.read("/var/log/scripts.log").find("cell-carrier"), std::string::npos);
    // A quiet interval pushes again.
    tell_sim(R"({"state": {"rssi_dbm": -99}})");
    wait_for("a new figure", [&] {
        return run_program("infod-get", {status + "rssi-4g"}).out == status + "rssi-4g -99\n";
    });
}

TEST_F(directip_appliance, echo_changes_nothing)
{
    bring_up(R"({"state": {"echo": true}})");
    EXPECT_EQ(count(tessera({"-i"}).out, "product DIP7300\n"), 1);
    EXPECT_EQ(tessera({"--dip_connect", "--apn=x"}).code, 0);
}

TEST_F(directip_appliance, a_slow_activation_is_waited_for)
{
    bring_up(R"({"state": {"activate_ms": 60}})");
    EXPECT_EQ(tessera({"--dip_connect", "--apn=x"}).code, 0);
}

// ---- a bad line

// A fault on the status request: what the client gets and the daemon logs, and that the next
// request is served.
struct line_fault {
    const char *name;
    const char *fault; // what the scenario says beside its match
    bool answered;     // whether a status comes all the same
    const char *log;
};

void PrintTo(const line_fault &row, std::ostream *out)
{
    *out << row.name;
}

class bad_line : public directip_appliance, public testing::WithParamInterface<line_fault>
{
};

TEST_P(bad_line, costs_one_request)
{
    bring_up();
    tell_sim(std::string(R"({"faults": [{"match": "AT!GSTATUS?", "count": 0, )") +
             GetParam().fault + "}]}");
    const client_result result = tessera({"-s"});
    tell_sim(R"({"clear_faults": true})");
    EXPECT_EQ(result.code, 0) << "a record that fails is logged and no failure of the command";
    EXPECT_EQ(result.out.find("mode ONLINE") != std::string::npos, GetParam().answered)
        << result.out;
    EXPECT_NE(daemon_log().find(GetParam().log), std::string::npos);
    wait_for("the next status", [&] { return count(tessera({"-s"}).out, "mode ONLINE\n") == 1; });
}

static const std::string long_error =
    R"("do": "error", "text": "+CME ERROR: )" + std::string(900, 'x') + "\"";

INSTANTIATE_TEST_SUITE_P(
    directip, bad_line,
    testing::Values(
        line_fault{"silence", R"("do": "silence")", false, "Did not get response from modem"},
        line_fault{"late", R"("do": "late", "delay_ms": 700)", false,
                   "select() failed: /dev/cellcommand01 result: 0"},
        // Long enough to cover the older answers in the buffer, whose OK would count.
        line_fault{"long_error", long_error.c_str(), false, "Info get failed - "},
        line_fault{"garbage", R"("do": "garbage", "bytes": 900)", false, "Info get failed - "},
        line_fault{"pad_to_4096", R"("do": "pad", "bytes": 4096)", true, ""},
        line_fault{"pad_to_8192", R"("do": "pad", "bytes": 8192)", false, "Info get failed - "},
        line_fault{"twice", R"("do": "double")", true, ""},
        line_fault{"unsolicited", R"("do": "unsolicited", "text": "+CREG: 1")", true, ""},
        line_fault{"split", R"("do": "split", "delay_ms": 5, "bytes": 40)", true, ""}),
    [](const auto &row) { return row.param.name; });

TEST_F(directip_appliance, a_modem_that_vanishes_comes_back)
{
    bring_up();
    tell_sim(R"({"faults": [{"match": "AT!GSTATUS?", "do": "hangup", "bytes": 30,
                             "return_ms": 50}]})");
    EXPECT_EQ(tessera({"-s"}).code, 0);
    wait_for("the port", [&] { return count(modem_log(), "= port back") == 1; });
    // There is no ping that would notice: the operator resets, which recovers.
    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(count(tessera({"-i"}).out, "product DIP7300\n"), 1);
}

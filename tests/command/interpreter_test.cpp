#include "cellmodem/markers.h"
#include "command/cmdsock.h"
#include "command/interpreter.h"
#include "support/fake_dualsim.h"
#include "support/fake_modem.h"
#include "support/log_capture.h"
#include "support/memory_stream.h"
#include "support/temp_root.h"

#include <iomanip>
#include <sstream>

#include <gtest/gtest.h>

static texts operator+(texts left, const texts &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class interpreter : public testing::Test
{
protected:
    // Runs a command line of the client; the return code.
    int run(const std::string &line) { return run_on(&modem.record, line); }

    int run_on(cellmodem *record, const std::string &line)
    {
        modem.calls.clear();
        log.clear();
        reconfigure = false;
        if (reattach)
            modem.record.attached = true;
        const memory_stream out;
        argument_vector all;
        std::istringstream words("tessera " + line);
        for (std::string word; words >> std::quoted(word);)
            all.add(word.c_str());
        bool quit = false;
        const int code =
            tessera_command(record, all.argc(), all.argv(), out.get(), &reconfigure, &quit);
        EXPECT_FALSE(quit);
        output = out.text();
        return code;
    }

    temp_root root;
    fake_modem modem;
    log_capture log;
    std::string output;
    bool reconfigure = false;
    bool reattach = true; // what the recovery after a restart would do
};

TEST_F(interpreter, options_reach_their_operation_with_their_arguments)
{
    const struct {
        const char *line;
        texts calls;
    } rows[] = {
        {"", {}},
        {"-i -s", {"info(2)", "status(2)"}},
        {"--xml --get-sms --line", {"getsms(2)"}},
        {"--modemask=0x3f", {"setsysselect(63,-,-,-)"}},
        {"--modemask 0", {"setsysselect(0,-,-,-)"}},
        {"--bandmask=ffffffffffffffff --ltebandmask=8",
         {"setsysselect(-,18446744073709551615,8,-)"}},
        {"--ifacqorder=lte,umts", {"setsysselect(-,-,-,lte,umts)"}},
        {"-c *99# --voice", {"connect(*99#,1)"}},
        {"--dip_connect --apn=a.b", {"lte_connect(a.b,-,0,-,-)"}},
        {"--dip_connect --apn= --apn_type=ipv4v6 --auth=2 --username=u --password=",
         {"lte_connect(,ipv4v6,2,u,)"}},
        {"--simunblock --puk=12345678", {"unblocksim(12345678,-)"}},
        {"--activate --msl=1 --msid=2", {"activate(1,-,2)"}},
        {"-g on -t 30", {"enablegps(30,100)"}},
        {"-g On", {"disablegps()"}},
        {"-t x -g on -g off", {"enablegps(0,100)", "disablegps()"}},
        {"-u automatic", {"setrat(0)"}},
        {"-u gsm-preferred", {"setrat(19)"}},
        {"-u CDMA+HRPD+GSM+UMTS+LTE", {"setrat(8)"}},
        {"--region=6", {"setregion(6,K594)"}},
        {"--region=0 --unlock=A1", {"setregion(0,A1)"}},
        {"--send-sms=/m --smsc=+49", {"sendsms(/m,+49)"}},
        {"-v --infod-interval=5", {}},
        {"stray words --ping", {"ping()"}},
        {"--disc", {"disconnect()"}},
    };
    for (const auto &[line, calls] : rows) {
        EXPECT_EQ(run(line), 0) << line;
        EXPECT_EQ(modem.calls, calls) << line;
    }
}

TEST_F(interpreter, radio_words)
{
    for (const char *on : {"1", "on", "ON", "up", "True", "enable", "Enabled"}) {
        EXPECT_EQ(run(std::string("--radio=") + on), 0);
        EXPECT_EQ(modem.calls, texts{"radio(1)"}) << on;
    }
    for (const char *off : {"0", "off", "Down", "false", "disable", "DISABLED"}) {
        EXPECT_EQ(run(std::string("--radio=") + off), 0);
        EXPECT_EQ(modem.calls, texts{"radio(0)"}) << off;
    }
}

TEST_F(interpreter, a_mistake_stops_everything)
{
    const struct {
        const char *argument;
        const char *line;
    } rows[] = {
        {"--radio=maybe", "300 Invalid radio option"},
        {"--radio=", "300 Invalid radio option"},
        {"--sim=2", "300 Invalid sim setting: 2"},
        {"--sim=-2", "300 Invalid sim setting: -2"},
        {"--region=7", "300 Invalid region setting"},
        {"--region=-1", "300 Invalid region setting"},
        {"--region=Italy", "300 Invalid region setting"},
        {"--apn_type=IPV4", "300 IPV4: Invalid apn type"},
        {"--auth=3", "300 Invalid auth setting (0-2) : 3"},
        {"--auth=", "300 Invalid auth setting (0-2) : "},
        {"--modemask=12g", "300 Failed to parse arg: 12g"},
        {"--modemask=", "300 Failed to parse arg: "},
        {"--modemask=100000000", "300 Failed to parse arg: 100000000"},
        {"--bandmask=10000000000000000", "300 Failed to parse arg: 10000000000000000"},
        {"--ltebandmask=-1", "300 Failed to parse arg: -1"},
        {"--infod-interval=2147483647", "300 Failed to parse arg: 2147483647"},
        {"--infod-interval=-99999999999", "300 Failed to parse arg: -99999999999"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(run(std::string("--status ") + row.argument + " --ping"), 1);
        EXPECT_EQ(modem.calls, texts{}) << row.argument;
        EXPECT_EQ(log.lines(), texts{row.line});
        EXPECT_EQ(output, "");
    }
    // An unknown technology is wrong, but stops nothing.
    for (const std::string none : {"", "3", "5G", "GSM+", "GSM PREFERRED"}) {
        EXPECT_EQ(run("-u \"" + none + "\" --ping"), 1) << none;
        EXPECT_EQ(modem.calls, texts{"ping()"}) << none;
        EXPECT_EQ(log.lines(), texts{"300 Invalid RAT setting: " + none});
    }
}

TEST_F(interpreter, what_an_action_cannot_do_without)
{
    const struct {
        const char *line, *said;
    } rows[] = {{"--dip_connect", "300 APN was not provided"},
                {"--simunblock --pin=1", "300 SIM PUK was not provided"},
                {"--simunlock", "300 SIM PIN was not provided"},
                {"--rtn", "300 MSL was not provided"}};
    for (const auto &row : rows) {
        EXPECT_EQ(run(row.line), 1);
        EXPECT_EQ(modem.calls, texts{});
        EXPECT_EQ(log.lines(), texts{row.said});
    }
}

TEST_F(interpreter, the_order_of_actions_is_fixed)
{
    EXPECT_EQ(run("--send-sms=/m --ping --connstatus --rtn --msl=1 --region=1 -u LTE -g off -r "
                  "--radio=on --activate --simunlock --pin=1 --simunblock --puk=2 -d "
                  "--dip_connect --apn=a -c 1 --modemask=1 --get-sms -s -i -x"),
              0);
    EXPECT_EQ(modem.calls,
              (texts{"info(1)", "status(1)", "getsms(1)", "setsysselect(1,-,-,-)", "connect(1,0)",
                     "lte_connect(a,-,0,-,-)", "disconnect()", "unblocksim(2,1)", "unlocksim(1)",
                     "activate(1,-,-)", "radio(1)", "reset()", "disablegps()", "setrat(6)",
                     "setregion(1,K594)", "rtn(1)", "data_up()", "ping()", "sendsms(/m,-)"}));
    EXPECT_EQ(output, "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n"
                      "[info]\n[status]\n[getsms]\n");
    EXPECT_TRUE(reconfigure);
    EXPECT_EQ(run("-x --get-sms"), 0);
    EXPECT_EQ(output, "[getsms]\n") << "a list alone has no declaration";
}

TEST_F(interpreter, what_comes_of_an_action)
{
    const texts getting = {"700 Getting SMS messages"};
    const texts sending = {"600 Sending text from file /m"};
    const struct {
        const char *line, *slot;
        int code; // when the operation fails
        texts success, failure;
    } rows[] = {
        {"-i", "info", 0, {}, {"300 Failed to get cellmodem info"}},
        {"-s", "status", 0, {}, {"300 Failed to get cellmodem status"}},
        {"-r", "reset", 0, {"600 Modem was successfully reset"}, {"300 Failed to reset modem"}},
        {"--get-sms", "getsms", 1, getting,
         getting + texts{"300 Failed to get cellmodem SMS list"}},
        {"--modemask=1", "setsysselect", 1, {}, {"300 Could not set system preference masks"}},
        {"--activate", "activate", 1, {"700 Modem was successfully activated"}, {}},
        {"--rtn --msl=1",
         "rtn",
         1,
         {"600 Modem successfully factory reset"},
         {"300 Modem RTN failed"}},
        {"--send-sms=/m", "sendsms", 1, sending, sending},
        // The families themselves say why these failed.
        {"-c 1", "connect", 1, {}, {}},
        {"--dip_connect --apn=a", "lte_connect", 1, {}, {}},
        {"-d", "disconnect", 1, {}, {}},
        {"--simunblock --puk=1", "unblocksim", 1, {}, {}},
        {"--simunlock --pin=1", "unlocksim", 1, {}, {}},
        {"--radio=1", "radio", 1, {}, {}},
        {"-g on", "enablegps", 1, {}, {}},
        {"-g off", "disablegps", 1, {}, {}},
        {"-u LTE", "setrat", 1, {}, {}},
        {"--region=1", "setregion", 1, {}, {}},
        {"--connstatus", "ping", 1, {}, {}},
        {"--connstatus", "data_up", 1, {}, {}},
    };
    for (const auto &[line, slot, code, success, failure] : rows) {
        modem.results.clear();
        EXPECT_EQ(run(std::string("--ping ") + line), 0) << slot;
        EXPECT_EQ(log.lines(), success) << slot;
        modem.results = {{slot, -1}};
        EXPECT_EQ(run(std::string("--ping ") + line), code) << slot;
        EXPECT_EQ(log.lines(), failure) << slot;
        EXPECT_EQ(modem.calls.size(), 2u) << slot << ": a failure stops no other action";
        // A modem told to reset needs its recovery whatever it said.
        EXPECT_EQ(reconfigure, slot == std::string("reset")) << slot;
    }
}

TEST_F(interpreter, an_empty_slot_is_looked_at_before_its_arguments)
{
    modem.record.slots = {};
    EXPECT_EQ(run("-i -s --get-sms --modemask=1 -c 1 --dip_connect -d -f --simunblock --simunlock "
                  "--activate --radio=on -r -g on -u LTE --region=1 --rtn --connstatus --ping "
                  "--send-sms=/m"),
              0);
    EXPECT_EQ(log.lines(), texts{});
    EXPECT_FALSE(reconfigure) << "no reset, no recovery";
}

TEST_F(interpreter, a_forced_disconnect_that_fails_resets)
{
    modem.results = {{"disconnect", -1}};
    EXPECT_EQ(run("-d -f"), 1);
    EXPECT_EQ(modem.calls, (texts{"disconnect()", "reset()"}));
    EXPECT_EQ(log.lines(), (texts{"600 Forcing modem reset", "600 Modem was successfully reset"}));
    EXPECT_EQ(run("-d"), 1);
    EXPECT_EQ(modem.calls, (texts{"disconnect()"}));
}

TEST_F(interpreter, the_usage_is_printed_and_the_rest_still_runs)
{
    const std::string usage = golden("usage.txt");
    for (const std::string option : {"-h", "--help", "-E", "-D", "-Z", "--nonsense", "--apn", "-c",
                                     "--conn=*99#"}) { // the last one is ambiguous
        EXPECT_EQ(run("-s " + option), 1) << option;
        EXPECT_EQ(modem.calls, texts{"status(2)"}) << option;
        EXPECT_EQ(output, usage + "[status]\n") << option;
    }
    EXPECT_EQ(run("-o word"), 1);
    EXPECT_EQ(run("-h -Z"), 1);
    EXPECT_EQ(output, usage + usage) << "once for each";
}

TEST_F(interpreter, no_modem_no_actions)
{
    reattach = false;
    modem.record.attached = false;
    EXPECT_EQ(run("-i"), 1);
    EXPECT_EQ(output, "Modem is not attached to tessera service\n");
    EXPECT_EQ(run_on(nullptr, ""), 1);
    EXPECT_EQ(output, "Modem is not attached to tessera service\n");
    EXPECT_EQ(run_on(nullptr, "--radio=x"), 1);
    EXPECT_EQ(output, "") << "a mistake stops before the modem is looked at";
    modem.record.attached = true;
    root.write(holding_path, "");
    EXPECT_EQ(run("-i"), 1);
    EXPECT_EQ(output, "External app is blocking modem access: /var/run/.modem/.tessera_wait\n");
    EXPECT_EQ(modem.calls, texts{});
}

// ---- SIM slots

TEST_F(interpreter, sim_on_a_device_with_one_holder_does_nothing)
{
    EXPECT_EQ(run("--sim=1"), 0);
    EXPECT_EQ(log.count("700 Device is not multi-sim capable, do nothing."), 1);
    EXPECT_EQ(run("--sim=1 -r"), 0);
    EXPECT_EQ(log.count("600 Device is not dual-sim, canceling reset."), 1);
    EXPECT_EQ(modem.calls, texts{});
    EXPECT_FALSE(reconfigure);
}

class two_holders : public interpreter
{
protected:
    const short_waits waits;
    const texts restart_lines = {"600 Halting client communication while resetting modem...",
                                 "600 Detaching from modem...", "600 Waiting 30 seconds...",
                                 "600 Resuming client communication..."};
    fake_dualsim dualsim;
};

TEST_F(two_holders, a_holder_is_chosen_by_hand)
{
    const texts manual = {"600 Setting SIM autodetect mode to MANUAL...",
                          "600 Manually selecting SIM slot: 1"};
    const struct {
        const char *failing;
        texts lines;
        int code;
    } rows[] = {
        {"nothing", manual + restart_lines, 0},
        {"get_index", texts{"300 Failed to determine current SIM slot"} + manual + restart_lines,
         0},
        {"get_mode",
         texts{"300 Failed to determine current SIM selection mode"} + manual + restart_lines, 0},
        {"set_mode",
         texts{manual[0], "600 Failed to switch SIM mode to MANUAL", manual[1]} + restart_lines, 0},
        {"set_index", manual, 1},
    };
    for (const auto &[failing, lines, code] : rows) {
        dualsim.index = 0;
        dualsim.mode = 2;
        dualsim.failing = {failing};
        EXPECT_EQ(run("--sim=1"), code) << failing;
        EXPECT_EQ(log.lines(), lines);
        EXPECT_EQ(modem.calls, code == 0 ? texts{"detach()"} : texts{}) << failing;
        EXPECT_EQ(dualsim.index, code == 0 ? 1 : 0) << failing;
        EXPECT_EQ(dualsim.mode, failing == std::string("set_mode") ? 2 : 1) << failing;
        EXPECT_EQ(reconfigure, code == 0) << failing << ": somebody must attach again";
        EXPECT_FALSE(holding_present()) << failing;
    }
    dualsim.index = 0;
    dualsim.failing.clear();
    modem.results = {{"detach", -1}};
    EXPECT_EQ(run("--sim=1"), 0);
    EXPECT_EQ(log.count("300 Could not detach from modem"), 1);
    EXPECT_EQ(dualsim.index, 1);
    EXPECT_FALSE(holding_present());
}

TEST_F(two_holders, the_present_holder_needs_no_restart)
{
    EXPECT_EQ(run("--sim=0 -r"), 0);
    EXPECT_EQ(log.lines(), (texts{"600 Selected SIM is already 0, nothing to do",
                                  "600 Setting SIM autodetect mode to MANUAL...",
                                  "600 SIM slot is already: 0, nothing to do"}));
    EXPECT_EQ(modem.calls, texts{});
    EXPECT_FALSE(reconfigure);
}

TEST_F(two_holders, automatic_from_manual_starts_at_the_first_holder)
{
    const texts first = {"600 Resetting autodetect SIM slot check..."};
    const texts second = {"600 Setting selected SIM to AUTOMATIC"};
    const texts third = {"600 Setting SIM autodetect mode to AUTOMATIC..."};
    const struct {
        const char *failing;
        int from, to; // holders, -1 before the first
        texts lines;
        int code;
        bool restarted;
    } rows[] = {
        {"nothing", 1, 0, first + second + third + restart_lines, 0, true},
        {"reset_index", 0, 1,
         first + texts{"300 Failed to reset the SIM index"} + second + third + restart_lines, 1,
         true},
        {"set_next_index", 0, -1,
         first + second + texts{"600 No more SIM slots for autodetect to check"} + third, 0, false},
        {"set_mode", 0, 0,
         first + second + third + texts{"600 Failed to switch SIM mode to AUTO"} + restart_lines, 0,
         true},
    };
    for (const auto &row : rows) {
        dualsim.index = row.from;
        dualsim.mode = 1;
        dualsim.failing = {row.failing};
        EXPECT_EQ(run("--sim=-1"), row.code) << row.failing;
        EXPECT_EQ(log.lines(), row.lines);
        EXPECT_EQ(dualsim.index, row.to) << row.failing;
        EXPECT_EQ(reconfigure, row.restarted) << row.failing;
        EXPECT_EQ(modem.calls, row.restarted ? texts{"detach()"} : texts{}) << row.failing;
    }
    dualsim.failing = {"get_mode"};
    EXPECT_EQ(run("--sim=-1"), 0) << "nobody knows that it was manual";
    EXPECT_EQ(log.lines(), texts{"300 Failed to determine current SIM selection mode"} + third);
    EXPECT_EQ(dualsim.mode, 2);
    dualsim.failing.clear();
    EXPECT_EQ(run("--sim=-1"), 0) << "it is automatic already";
    EXPECT_EQ(log.lines(), third);
    EXPECT_EQ(dualsim.index, 0);
}

TEST_F(two_holders, a_reset_comes_before_the_choice)
{
    EXPECT_EQ(run("--sim=1 -r"), 0);
    EXPECT_EQ(modem.calls, (texts{"reset()", "detach()"}));
    EXPECT_TRUE(reconfigure);
}

TEST_F(two_holders, a_used_gps_port_is_opened_again)
{
    root.write(marker_has_gps, "");
    root.write("/etc/config/config.xml", "<config><ports><total>4</total><port4><nmea>"
                                         "<enabled>on</enabled></nmea></port4></ports></config>");
    EXPECT_EQ(run("--sim=1"), 0);
    EXPECT_TRUE(log.has("killall -HUP lineherd")) << "tried, though this root has no shell";
    root.write("/etc/config/config.xml", "broken");
    EXPECT_EQ(run("--sim=0"), 0);
    EXPECT_EQ(log.count("300 Error opening config database"), 1);
    EXPECT_FALSE(log.has("killall"));
}

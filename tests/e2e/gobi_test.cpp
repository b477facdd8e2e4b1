// A Gobi modem from attach to reset, and what can go wrong on its link.

#include "sms/split.h"
#include "sms/spool.h"
#include "support/appliance.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <filesystem>

#include <jansson.h>

class gobi_appliance : public appliance
{
protected:
    void bring_up(const std::string &scenario = "{}")
    {
        start_sim("gobi", scenario);
        start_daemon();
    }

    // A field of the modem's state, as JSON; texts without their quotes.
    std::string state(const std::string &key)
    {
        json_t *all = json_loads(tell_sim(R"({"get": "state"})").c_str(), 0, nullptr);
        const json_t *inner = json_object_get(all, "state");
        const json_t *value = json_object_get(inner ? inner : all, key.c_str());
        std::string text = "absent";
        if (json_is_string(value)) {
            text = json_string_value(value);
        } else if (value) {
            char *dumped = json_dumps(value, JSON_ENCODE_ANY | JSON_COMPACT);
            text = dumped;
            free(dumped);
        }
        json_decref(all);
        return text;
    }

    // What the modem was asked so far: the beginnings of the journal's lines.
    [[nodiscard]] int asked(const std::string &request) const
    {
        return count(modem_log(), "> " + request);
    }

    [[nodiscard]] texts spool() const { return root.read_all(sms_spool_path); }
};

TEST_F(gobi_appliance, a_session_is_started_shown_and_stopped)
{
    bring_up();
    EXPECT_EQ(asked("DMS 0x002E Set operating mode: 01=00"), 1) << "start-up enables the radio";
    EXPECT_EQ(tessera({"--ping"}).code, 0);
    EXPECT_EQ(tessera({"--connstatus"}).code, 0) << "registered is up";
    EXPECT_EQ(tessera({"--dip_connect", "--apn=internet", "--auth=1", "--username=me",
                       "--password=secret"})
                  .code,
              0);
    EXPECT_EQ(asked("WDS 0x004B Reset profile to default: 01=0001"), 1);
    EXPECT_EQ(asked("WDS 0x0020 Start network interface: "
                    "16=01 14=696E7465726E6574 17=6D65 18=736563726574"),
              1);
    EXPECT_EQ(state("session"), "true");
    EXPECT_EQ(state("session_apn"), "internet");
    EXPECT_EQ(shell_log(), "0\t/sbin/ifconfig wwan0 up &> /dev/null\n"
                           "0\t/sbin/udhcpc -i wwan0 -p /var/run/udhcpc-wwan0.pid"
                           " -s /etc/scripts/wwan-up -t 8 -T 3 &> /dev/null\n");
    EXPECT_EQ(tessera({"--dip_connect", "--apn=internet"}).code, 0);
    EXPECT_EQ(asked("WDS 0x0020"), 1) << "the session is there already";
    EXPECT_EQ(count(shell_log(), "0\tkill -SIGUSR1 `cat /var/run/udhcpc-wwan0.pid`\n"), 1);
    EXPECT_EQ(run_program("infod-get", {"config.cellmodem.tessera.status.session-state"}).out,
              "config.cellmodem.tessera.status.session-state CONNECTED\n");

    EXPECT_EQ(tessera({"-d"}).code, 0);
    EXPECT_EQ(state("session"), "false");
    EXPECT_EQ(count(shell_log(), "/sbin/ifconfig wwan0 down &> /dev/null\n"
                                 "0\t/etc/scripts/wwan-down wwan0 &> /dev/null\n"
                                 "0\tkill `cat /var/run/udhcpc-wwan0.pid` &> /dev/null\n"),
              1);
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    wait_for("the client ids to come back", [&] { return asked("CTL 0x0023") == 3; });
}

TEST_F(gobi_appliance, a_call_that_takes_its_time_is_waited_for)
{
    bring_up(R"({"state": {"connect_ms": 600}})");
    EXPECT_EQ(tessera({"--dip_connect", "--apn=slow"}).code, 0);
    EXPECT_EQ(state("session"), "true");
}

TEST_F(gobi_appliance, names_of_any_length_are_bounded)
{
    const auto digits = [](size_t length) {
        std::string all;
        for (size_t i = 0; i < length; i++)
            all += "6E";
        return all;
    };
    bring_up(R"({"state": {"model": "MC7304"}})");
    for (const size_t length : {1u, 100u, 255u, 256u, 257u, 10000u}) {
        const std::string text(length, 'n');
        EXPECT_EQ(
            tessera({"--dip_connect", "--apn=" + text, "--username=" + text, "--password=" + text})
                .code,
            0)
            << length << ": a profile that the modem does not take is no reason to stop";
        const std::string sent = digits(std::min<size_t>(length, 256));
        EXPECT_GE(count(modem_log(), " 14=" + sent + " 1D=01 1B=" + sent + " 1C=" + sent + " ["), 1)
            << length;
        EXPECT_EQ(tessera({"-d"}).code, 0);
    }
    EXPECT_EQ(count(modem_log(), digits(257)), 0);
    EXPECT_EQ(tessera({"--ping"}).code, 0);
}

TEST_F(gobi_appliance, a_locked_sim_is_unlocked_and_a_blocked_one_unblocked)
{
    bring_up(R"({"state": {"pin1_enabled": true, "pin1_verified": false}})");
    EXPECT_EQ(state("uim_state"), "-1");
    for (const char *pin : {"", "123"})
        EXPECT_EQ(tessera({"--simunlock", std::string("--pin=") + pin}).code, 1);
    EXPECT_EQ(tessera({"--simunlock", "--pin=" + std::string(200, '1')}).code, 1);
    EXPECT_EQ(state("pin1_enabled"), "true");
    EXPECT_EQ(tessera({"--simunlock", "--pin=1234"}).code, 0);
    EXPECT_EQ(state("pin1_enabled"), "false");
    EXPECT_EQ(tessera({"--simunlock", "--pin=1234"}).code, 1);
    wait_for_log("SIM is not locked");
    EXPECT_EQ(tessera({"--simunblock", "--puk=12345678", "--pin=4321"}).code, 1);
    tell_sim(R"({"state": {"pin1_enabled": true, "pin1_verified": false, "pin1_retries": 0}})");
    EXPECT_EQ(tessera({"--simunblock", "--puk=00000000", "--pin=4321"}).code, 1);
    EXPECT_EQ(tessera({"--simunblock", "--puk=12345678", "--pin=4321"}).code, 0);
    EXPECT_EQ(state("pin1"), "4321");
}

TEST_F(gobi_appliance, preferences_and_gps_are_the_modems_state)
{
    bring_up();
    EXPECT_EQ(
        tessera({"--modemask=c", "--bandmask=380", "--ltebandmask=8", "--ifacqorder=umts,gsm"})
            .code,
        0);
    EXPECT_EQ(state("mode_preference"), "12");
    EXPECT_EQ(state("band_preference"), std::to_string(0x380));
    EXPECT_EQ(state("lte_band_preference"), "8");
    EXPECT_EQ(state("acquisition_order"), "5,4");
    EXPECT_EQ(tessera({"-u", "LTE"}).code, 0);
    EXPECT_EQ(state("mode_preference"), std::to_string(0x10));
    EXPECT_EQ(tessera({"-u", "GSM-PREFERRED"}).code, 1) << "beyond the modem's list";
    EXPECT_EQ(state("mode_preference"), std::to_string(0x10));
    EXPECT_EQ(tessera({"-g", "on"}).code, 0);
    EXPECT_EQ(state("gps"), "true");
    EXPECT_EQ(state("gps_tracking"), "true");
    EXPECT_EQ(tessera({"-g", "off"}).code, 0);
    EXPECT_EQ(state("gps"), "false");
    EXPECT_EQ(tessera({"-g", "off"}).code, 0) << "off already";
    EXPECT_EQ(tessera({"--radio=off"}).code, 0);
    EXPECT_EQ(state("mode"), "1");
    EXPECT_EQ(tessera({"--connstatus"}).code, 1);
    EXPECT_EQ(tessera({"--radio=on"}).code, 0);
    EXPECT_EQ(state("mode"), "0");
}

TEST_F(gobi_appliance, a_long_message_comes_in_parts_and_whole_out_of_them)
{
    bring_up();
    std::string text;
    for (int i = 0; i < 60; i++)
        text += "part " + std::to_string(i) + "; ";
    tm now{};
    const time_t seconds = time(nullptr);
    gmtime_r(&seconds, &now);
    pdu_3gpp form;
    form.kind = pdu_3gpp_deliver;
    form.number = sms_address_from_text("+4915112");
    form.sent = {
        now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec, 0};
    std::vector<std::vector<uint8_t>> pdus;
    ASSERT_EQ(sms_encode_3gpp(form, text, {9, false}, pdus), 0);
    ASSERT_EQ(pdus.size(), 4u);
    const auto deliver = [&](size_t part, const std::string &storage) {
        std::string digits;
        char pair[3];
        for (const uint8_t octet : pdus[part]) {
            snprintf(pair, sizeof(pair), "%02X", octet);
            digits += pair;
        }
        tell_sim(R"({"state": {"deliver": [{"storage": ")" + storage + R"(", "pdu": ")" + digits +
                 R"("}]}})");
    };
    for (const size_t part : {2u, 0u, 3u})
        deliver(part, "UIM");
    EXPECT_EQ(tessera({"--get-sms", "-l"}).out, "sms-count 0\n");
    EXPECT_EQ(spool().size(), 0u);
    deliver(1, "NV");
    tell_sim(R"({"state": {"deliver": [{"from": "8888", "text": "Grüße 1€"}]}})");
    const client_result whole = tessera({"--get-sms", "-l"});
    EXPECT_EQ(whole.code, 0);
    EXPECT_EQ(count(whole.out, "sms-count 2\n"), 1) << whole.out;
    EXPECT_EQ(count(whole.out, "sms-phone +4915112\n"), 1);
    EXPECT_EQ(count(whole.out, "sms-text " + text + "\n"), 1);
    EXPECT_EQ(spool(),
              (std::vector<std::string>{"From: +4915112\n\n" + text, "From: 8888\n\nGrüße 1€"}));
    EXPECT_EQ(state("messages"), "[]") << "the modem has room again";
    EXPECT_EQ(tessera({"--get-sms", "-x"}).out,
              "<sms-list>\n\t<sms-count>0</sms-count>\n</sms-list>\n");
}

TEST_F(gobi_appliance, a_long_message_goes_out_in_parts)
{
    bring_up();
    root.write("/test/message", "To: 5551212\n\n" + std::string(200, 'x') + "\n");
    EXPECT_EQ(tessera({"--send-sms=" + root.place("/test/message"), "--smsc=+15550111"}).code, 0);
    EXPECT_EQ(asked("WMS 0x0020 Raw send: 01=06"), 2);
}

// A daemon that is killed behind the spooling and before the deletion knows of nothing afterwards: the
// message is spooled twice rather than not at all.
TEST_F(gobi_appliance, a_daemon_killed_before_the_deletion_loses_no_message)
{
    bring_up(R"({"state": {"deliver": [{"from": "8888", "text": "still there"}]}})");
    tell_sim(R"({"faults": [{"match": "WMS 0x0024", "do": "error", "text": "3", "count": 0}]})");
    EXPECT_EQ(count(tessera({"--get-sms", "-l"}).out, "sms-text still there\n"), 1);
    EXPECT_EQ(tessera({"--get-sms", "-l"}).out, "sms-count 0\n") << "known to this process";
    EXPECT_EQ(spool(), std::vector<std::string>{"From: 8888\n\nstill there"});
    EXPECT_EQ(stop_daemon(SIGKILL), 128 + SIGKILL);
    EXPECT_NE(state("messages"), "[]");
    tell_sim(R"({"clear_faults": true})");
    start_daemon();
    EXPECT_EQ(count(tessera({"--get-sms", "-l"}).out, "sms-text still there\n"), 1);
    EXPECT_EQ(spool().size(), 2u);
    EXPECT_EQ(state("messages"), "[]");
}

TEST_F(gobi_appliance, a_message_stays_while_the_spool_is_broken)
{
    bring_up(R"({"state": {"deliver": [{"from": "8888", "text": "patient"}]}})");
    std::filesystem::remove_all(root.place("/var/spool/sms"));
    root.write("/var/spool/sms", "in the way");
    EXPECT_EQ(count(tessera({"--get-sms", "-l"}).out, "sms-text patient\n"), 1);
    EXPECT_EQ(asked("WMS 0x0024"), 0);
    std::filesystem::remove(root.place("/var/spool/sms"));
    EXPECT_EQ(count(tessera({"--get-sms", "-l"}).out, "sms-text patient\n"), 1);
    EXPECT_EQ(spool(), std::vector<std::string>{"From: 8888\n\npatient"});
    EXPECT_EQ(state("messages"), "[]");
}

TEST_F(gobi_appliance, a_cdma_modem_has_its_own_messages_and_profile)
{
    bring_up(R"({"state": {"modem": "CDMA"}})");
    root.write("/test/message", "To: 5551212\n\n" + std::string(200, 'x') + "\n");
    EXPECT_EQ(tessera({"--send-sms=" + root.place("/test/message"), "--smsc=+15550111"}).code, 0);
    EXPECT_EQ(asked("WMS 0x0020 Raw send: 01=00"), 2);
    tell_sim(R"({"state": {"send_error": 54}})");
    EXPECT_EQ(tessera({"--send-sms=" + root.place("/test/message")}).code, 1);
    wait_for_log("SMS Send failed - rv 1054 - errorcode 54");
    tell_sim(R"({"state": {"deliver": [{"from": "5551212", "text": "hi", "mode": "cdma"}]}})");
    const std::string list = tessera({"--get-sms", "-l"}).out;
    EXPECT_EQ(count(list, "sms-phone 5551212\n"), 1) << list;
    EXPECT_EQ(count(list, " UTC\nsms-text hi\n"), 1) << list;
    EXPECT_EQ(tessera({"--dip_connect", "--apn="}).code, 0);
    EXPECT_EQ(asked("WDS 0x0020 Start network interface: 31=03"), 1);
}

TEST_F(gobi_appliance, a_reset_is_followed_by_a_recovery)
{
    bring_up(R"({"state": {"reset_hangup_ms": 300}})");
    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(asked("DMS 0x002E Set operating mode: 01=03"), 1);
    EXPECT_EQ(asked("DMS 0x002E Set operating mode: 01=04"), 1);
    EXPECT_EQ(tessera({"--ping"}).code, 0);
    EXPECT_EQ(tessera({"--dip_connect", "--apn=a"}).code, 0);
}

TEST_F(gobi_appliance, a_socket_that_goes_and_returns_is_found_again)
{
    bring_up();
    // The daemon's own rounds ask as well, so the fault stays until it was seen.
    tell_sim(
        R"({"faults": [{"match": "NAS 0x0024", "do": "hangup", "return_ms": 0, "count": 0}]})");
    EXPECT_EQ(tessera({"--connstatus"}).code, 1);
    wait_for_log("Requests are not being made to Gobi modem, re-attaching...");
    tell_sim(R"({"clear_faults": true})");
    // Only an attached daemon is asked: a lost modem is recovered in a quiet interval, of which a
    // client that asks all the time leaves none.
    const std::string key = "config.cellmodem.tessera.status.attached";
    wait_for("the link", [&] {
        return count(run_program("infod-get", {key}).out, key + " 1") == 1 &&
               tessera({"--connstatus"}).code == 0;
    });
    EXPECT_GE(count(modem_log(), "opened at /var/qmux_connect_socket"), 2);
}

TEST_F(gobi_appliance, a_socket_that_stays_away_for_long_is_recovered)
{
    bring_up();
    const int responding = count(daemon_log(), "modem is responding");
    tell_sim(R"({"faults": [{"do": "hangup", "return_ms": 1500}]})");
    wait_for_log("Failed to re-attach to Gobi modem");
    wait_for_log("Reconfiguring tesserad modem...");
    wait_for_log("modem is responding", responding + 1);
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(tessera({"--dip_connect", "--apn=a"}).code, 0);
    EXPECT_EQ(state("session"), "true");
}

struct link_fault_row {
    const char *name;
    const char *fault;
};

static const link_fault_row link_faults[] = {
    {"silence", R"("do": "silence")"},
    {"late", R"("do": "late", "delay_ms": 400)"},
    {"half", R"("do": "hangup", "bytes": 6, "return_ms": 0)"},
    {"garbage", R"("do": "garbage", "bytes": 40)"},
    {"error", R"("do": "error", "text": "3")"},
    {"double", R"("do": "double")"},
    {"split", R"("do": "split", "delay_ms": 20, "bytes": 9)"},
    {"out_of_order", R"("do": "out_of_order")"},
    {"wrong_transaction", R"("do": "wrong_transaction")"},
    {"tlv_overrun", R"("do": "tlv_overrun")"},
    {"tlv_missing", R"("do": "tlv_missing")"},
};

static void PrintTo(const link_fault_row &row, std::ostream *out)
{
    *out << row.name;
}

class gobi_link_faults : public gobi_appliance, public testing::WithParamInterface<link_fault_row>
{
};

TEST_P(gobi_link_faults, do_not_outlive_their_request)
{
    bring_up();
    for (const char *request : {"NAS 0x0024", "WDS 0x0020", "DMS 0x0022", "CTL 0x0022"}) {
        tell_sim(std::string(R"({"clear_faults": true, "faults": [{"match": ")") + request +
                 "\", " + GetParam().fault + "}]}");
        (void)tessera({"--dip_connect", "--apn=a"});
        tell_sim(R"({"clear_faults": true})");
        // Clients that ask all the time would leave no quiet interval for a recovery.
        const int polls = asked("NAS 0x0024");
        wait_for("two quiet rounds", [&] { return asked("NAS 0x0024") >= polls + 2; });
        EXPECT_EQ(tessera({"--connstatus"}).code, 0) << request;
        EXPECT_EQ(tessera({"--ping"}).code, 0) << request;
        (void)tessera({"-d"});
    }
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
}

INSTANTIATE_TEST_SUITE_P(faults, gobi_link_faults, testing::ValuesIn(link_faults),
                         [](const auto &row) { return std::string(row.param.name); });

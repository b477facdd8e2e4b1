// A UMTS/GSM modem behind its server program, from attach to the death of that program.

#include "support/sdk_appliance.h"

#include <csignal>
#include <map>

class gsm_appliance : public sdk_appliance
{
protected:
    gsm_appliance() : sdk_appliance("gsm") {}
};

// ---- records

TEST_F(gsm_appliance, both_records_are_as_ever_in_both_forms)
{
    bring_up();
    EXPECT_EQ(tessera({"-i"}).out, golden("gsm-info.txt"));
    EXPECT_EQ(tessera({"-s"}).out, golden("gsm-status.txt"));
    EXPECT_EQ(tessera({"-i", "-s", "-x"}).out, golden("gsm-both.xml"));
}

TEST_F(gsm_appliance, every_code_has_its_text)
{
    // Codes at the far ends of their tables, texts longer than their keys take, and a rare band.
    bring_up(
        R"({"product": "A & B <C>", "imei": "00499901065000112345", "serial": "UG030030810011012",
        "firmware": "0123456789012345678901234567890123456789", "country": "ABCDE",
        "carrier": "0123456789012345678901234567890123456789",
        "phone_number": "012345678901234567890", "msin": "", "mcc": 1, "mnc": 1,
        "modem_status": 0, "service_status": 4, "service_type": 1, "roaming_status": 7,
        "network_status": 4, "system_mode": 6, "sim_status": 11, "region": 9,
        "band": 22, "bands": "65535,21,11", "radio_bands": "12,88,255,254,48",
        "ecio": "0,13,1,2,3,4,5", "rssi": -113, "ber": 99, "temperature": -20})");
    EXPECT_EQ(tessera({"-i", "-s", "-x"}).out, golden("gsm-odd.xml"));
    EXPECT_EQ(tessera({"-i", "-s"}).out, golden("gsm-odd.txt"));
}

TEST_F(gsm_appliance, without_notifications_the_cached_values_are_unknown)
{
    bring_up(R"({"report": false, "ecio": "", "radio_bands": "", "phone_number": ""})");
    EXPECT_EQ(tessera({"-s"}).out, golden("gsm-unreported.txt"));
    EXPECT_GE(count(daemon_log(), "Failed to get cellmodem status"), 1);
}

// ---- start-up

TEST_F(gsm_appliance, start_up_tracks_as_the_configuration_says)
{
    const auto configure = [&](const std::string &enabled) {
        root.write("/etc/config/config.xml",
                   "<config><ports><total>3</total><port3><nmea><enabled>" + enabled +
                       "</enabled><fixfreq>17</fixfreq></nmea></port3></ports></config>");
    };
    configure("on");
    bring_up();
    EXPECT_EQ(asked("SwiSetLbsPdTrack"), 0) << "no GPS, whatever is configured";
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    root.write("/var/run/.modem/cellmodem_has_gps", "");
    start_daemon();
    EXPECT_EQ(asked("SwiSetLbsPdTrack 24 1 255 100 1000 17"), 1);
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    configure("off");
    start_daemon();
    EXPECT_EQ(asked("SwiSetLbsPdTrack"), 1);
    EXPECT_EQ(count(daemon_log(), "Could not enable"), 0);
}

TEST_F(gsm_appliance, start_up_goes_on_without_radio_gps_and_records)
{
    root.write("/var/run/.modem/cellmodem_has_gps", "");
    root.write("/etc/config/config.xml", "<config><ports><total>3</total><port3><nmea>"
                                         "<enabled>on</enabled></nmea></port3></ports></config>");
    start_sim("gsm", R"({"faults": [
        {"match": "SwiSetModemDisable", "do": "error", "text": "no", "count": 0},
        {"match": "SwiSetLbsPdTrack", "do": "error", "text": "no", "count": 0},
        {"match": "SwiGetSerialNumber", "do": "error", "text": "no", "count": 0},
        {"match": "SwiGetRssiBer", "do": "error", "text": "no", "count": 0}]})");
    start_daemon();
    const std::string log = daemon_log();
    const std::string start_up = log.substr(0, log.find("start time:"));
    for (const char *line :
         {"Could not enable modem", "Could not enable GPS",
          "Failed to send cellmodem info to infod", "Failed to send cellmodem status to infod"})
        EXPECT_EQ(count(start_up, line), 1) << line;
    EXPECT_EQ(tessera({"--ping"}).code, 0);
}

// ---- operations that change the modem

TEST_F(gsm_appliance, the_radio_is_switched_and_its_end_is_everybodys)
{
    time_scale = "0.2"; // a second for what takes the modem 20 ms, on a machine under load
    bring_up(R"({"packet_session": true})");
    EXPECT_EQ(asked("SwiSetModemDisable 1"), 1) << "enabled at the start";
    wait_for("the session", [&] { return infod("session-state") == "CONNECTED\n"; });
    EXPECT_EQ(tessera({"--radio=off"}).code, 0);
    EXPECT_EQ(status("modem-status"), "Low Power Mode");
    wait_for("no service", [&] { return status("network-status") == "No Service"; });
    EXPECT_EQ(status("system-mode"), "No Service");
    wait_for("no session", [&] { return infod("session-state") == "DISCONNECTED\n"; });
    EXPECT_EQ(tessera({"--radio=on"}).code, 0);
    wait_for("service", [&] { return status("system-mode") == "HSDPA"; });
    EXPECT_EQ(count(daemon_log(), "Radio is now on"), 2);
    EXPECT_EQ(count(daemon_log(), "Radio is now off"), 1);
    add_fault(R"({"match": "SwiSetModemDisable", "do": "error", "text": "not now"})");
    EXPECT_EQ(tessera({"--radio=off"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "Failed to enabled radio: 600"), 1);
    set_state(R"({"radio_ms": 5000})");
    EXPECT_EQ(tessera({"--radio=off"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "Timed out waiting for radio to turn off"), 1);
}

TEST_F(gsm_appliance, a_locked_sim_is_unlocked_blocked_and_unblocked)
{
    time_scale = "0.2"; // a second for what takes the modem 20 ms, on a machine under load
    bring_up(R"({"sim": "pin", "pin_lock": true})");
    wait_for("the lock", [&] { return status("sim-lock") == "SIM_LOCK_PIN"; });
    EXPECT_EQ(status("sim-imsi"), "(none)");
    EXPECT_EQ(tessera({"--simunlock", "--pin=9999"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "Modem reports CnS Error: Incorrect PIN, 2 tries left"), 1);
    EXPECT_EQ(tessera({"--simunlock", "--pin=1234"}).code, 0);
    EXPECT_EQ(status("sim-status"), "SIM is ready");
    EXPECT_EQ(status("sim-imsi"), "310261234567890");

    set_state(R"({"sim": "pin", "pin_tries": 1})");
    wait_for("the lock", [&] { return status("sim-lock") == "SIM_LOCK_PIN"; });
    EXPECT_EQ(tessera({"--simunlock", "--pin=9999"}).code, 1);
    wait_for("the block", [&] { return status("sim-lock") == "SIM_LOCK_PUK"; });
    EXPECT_EQ(tessera({"--simunblock", "--puk=00000000", "--pin=4321"}).code, 1);
    EXPECT_EQ(tessera({"--simunblock", "--puk=12345678", "--pin=4321"}).code, 0);
    wait_for("readiness", [&] { return status("sim-lock") == "SIM_READY"; });
    set_state(R"({"sim": "removed"})");
    wait_for("the removal", [&] { return status("sim-status") == "SIM has been removed"; });
}

TEST_F(gsm_appliance, region_technology_and_tracking_are_set)
{
    bring_up();
    EXPECT_EQ(tessera({"--region=1"}).code, 0) << "the default password";
    EXPECT_EQ(count(tessera({"-i"}).out, "region Europe\n"), 1);
    EXPECT_EQ(tessera({"--region=3", "--unlock=wrong"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "SwiSetPrlRegion failed with status 1"), 1);
    EXPECT_EQ(count(tessera({"-i"}).out, "region Europe\n"), 1);
    EXPECT_EQ(tessera({"-u", "UMTS"}).code, 0);
    EXPECT_EQ(asked("SwiSetRat 12 1"), 1);
    EXPECT_EQ(tessera({"-u", "GSM-PREFERRED"}).code, 0);
    EXPECT_EQ(asked("SwiSetRat 12 4"), 1);
    EXPECT_EQ(tessera({"-g", "off"}).code, 0) << "off already";
    EXPECT_EQ(tessera({"-g", "on", "-t", "7"}).code, 0);
    EXPECT_EQ(asked("SwiSetLbsPdTrack 24 1 255 100 1000 7"), 1);
    EXPECT_EQ(tessera({"-g", "on", "-t", "7"}).code, 0) << "on already";
    EXPECT_EQ(tessera({"-g", "on", "-t", "-5"}).code, 1);
    EXPECT_EQ(tessera({"-g", "off"}).code, 0);
    EXPECT_EQ(asked("SwiSetLbsEndSession 8 0"), 2);
}

TEST_F(gsm_appliance, the_session_follows_the_modem)
{
    bring_up();
    wait_for_session("DISCONNECTED");
    set_state(R"({"packet_session": true})");
    wait_for_session("CONNECTED");
    set_state(R"({"registration": "none"})");
    wait_for_session("DISCONNECTED");
    set_state(R"({"registration": "roaming"})");
    EXPECT_EQ(tessera({"-c", "*99#"}).code, 1) << "calls are placed elsewhere";
    EXPECT_EQ(tessera({"-d"}).code, 1);
    EXPECT_EQ(asked("enable 1027"), 1) << "but from now on they are listened for";
    set_state(R"({"call": "connecting"})");
    wait_for_session("CONNECTING");
    set_state(R"({"call": "connected"})");
    wait_for_session("CONNECTED");
    set_state(R"({"call": "none"})");
    wait_for_session("DISCONNECTED");
    EXPECT_EQ(status("roaming-status"), "Roaming");
}

TEST_F(gsm_appliance, a_reset_modem_comes_back)
{
    bring_up(R"({"pin_lock": true, "boot_ms": 200})");
    EXPECT_EQ(tessera({"-g", "on"}).code, 0);
    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(count(daemon_log(), "Sierra CnS back-end may only be started once"), 1);
    wait_for("the lock", [&] { return status("sim-lock") == "SIM_LOCK_PIN"; });
    EXPECT_EQ(tessera({"--ping"}).code, 0);
    EXPECT_EQ(asked("modem reset (GSM)"), 1);
}

TEST_F(gsm_appliance, a_modem_that_boots_longer_than_its_recovery_notifies_again)
{
    bring_up(R"({"boot_ms": 2500})");
    EXPECT_EQ(tessera({"-d"}).code, 1); // listens for calls
    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("Attaching to the Sierra Wireless GSM modem all the same");
    wait_for_log("status.device-state changed from UNRESPONSIVE -> RESPONDING");
    wait_for("the last of the notifications", [&] { return asked("enable 1013") >= 2; });
    set_state(R"({"sim": "removed"})");
    wait_for("the removal", [&] { return status("sim-status") == "SIM has been removed"; });
    set_state(R"({"sim": "ready", "call": "connecting"})");
    wait_for("the call", [&] { return infod("session-state") == "CONNECTING\n"; });
}

TEST_F(gsm_appliance, pause_and_resume_keep_the_session)
{
    bring_up();
    kill(daemon(), SIGUSR1);
    wait_for_log("cellmodem comms suspended");
    EXPECT_EQ(tessera({"-s"}).code, 1);
    set_state(R"({"sim": "removed"})");
    kill(daemon(), SIGUSR1);
    wait_for_log("cellmodem comms re-established");
    EXPECT_EQ(status("sim-status"), "SIM has been removed");
    EXPECT_EQ(asked("air-server availability"), 1) << "one session";
}

// ---- what goes wrong

TEST_F(gsm_appliance, wrong_answers_fail_one_request_and_harm_no_other)
{
    bring_up();
    const struct {
        const char *fault;
        int result;
    } rows[] = {
        {R"({"match": "SwiGetRssiBer", "do": "silence"})", 153},
        {R"({"match": "SwiGetRssiBer", "do": "late", "delay_ms": 800})", 153},
        {R"({"match": "SwiGetRssiBer", "do": "rejected"})", 18},
        {R"({"match": "SwiGetRssiBer", "do": "wrong_kind"})", 6},
        {R"({"match": "SwiGetRssiBer", "do": "short"})", 5},
        {R"({"match": "SwiGetRssiBer", "do": "half"})", 18},
        {R"({"match": "SwiGetRssiBer", "do": "double"})", 18},
        {R"({"match": "SwiGetRssiBer", "do": "garbage", "bytes": 700})", 18},
        {R"({"match": "SwiGetRssiBer", "do": "pad", "bytes": 2000, "at_end": true})", 18},
        {R"({"match": "SwiGetRssiBer", "do": "error", "text": "busy with itself"})", 600},
    };
    // Whoever asks next meets the fault: this command or the loop's own round.
    std::map<int, int> failures;
    for (const auto &row : rows) {
        add_fault(row.fault);
        (void)tessera({"-s"});
        wait_for_log("SwiGetRssiBer failed: " + std::to_string(row.result), ++failures[row.result]);
        EXPECT_EQ(tessera({"-s"}).out, golden("gsm-status.txt")) << "after " << row.fault;
    }
}

TEST_F(gsm_appliance, noise_on_the_notification_channel_is_dropped)
{
    bring_up();
    for (const int bytes : {1, 15, 16, 28, 700, 4096, 5000})
        add_fault(R"({"at_ms": 0, "do": "garbage", "bytes": )" + std::to_string(bytes) + "}");
    add_fault(R"({"at_ms": 0, "do": "unsolicited", "text": "2999"})");
    add_fault(R"({"at_ms": 0, "do": "burst", "number": 1000})");
    add_fault(R"({"match": "SwiGetRssiBer", "do": "burst", "number": 1000})");
    EXPECT_EQ(tessera({"-s"}).out, golden("gsm-status.txt"));
    set_state(R"({"sim": "removed"})");
    wait_for("what came behind it", [&] { return status("sim-status") == "SIM has been removed"; });
    EXPECT_GE(count(daemon_log(), "SWI API: dropped a malformed notification"), 7);
}

TEST_F(gsm_appliance, a_dead_server_is_noticed_recovered_from_and_reached_again)
{
    bring_up();
    set_state(R"({"sim": "pin"})");
    wait_for("the lock", [&] { return status("sim-lock") == "SIM_LOCK_PIN"; });
    ASSERT_GT(server_pid(), 0);
    kill(server_pid(), SIGKILL);
    wait_for_log("status.device-state changed from RESPONDING -> UNRESPONSIVE");
    wait_for_log("Reached 3 communcation errors, recovering modem...");
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(count(modem_log(), "= swisdk started"), 2) << "the recovery started it again";
    wait_for_log("status.device-state changed from UNRESPONSIVE -> RESPONDING");
    EXPECT_EQ(status("sim-lock"), "SIM_LOCK_PIN") << "the modem outlives its server";
    set_state(R"({"sim": "ready"})");
    wait_for("notifications", [&] { return status("sim-lock") == "SIM_READY"; });
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
}

TEST_F(gsm_appliance, a_server_that_cannot_be_started_for_a_while_is_reached_by_a_later_recovery)
{
    bring_up();
    set_state(R"({"serving": false})");
    wait_for_log("Sierra Wireless API could not be opened again: 8");
    EXPECT_EQ(count(modem_log(), "= swisdk started"), 1);
    set_state(R"({"serving": true})");
    wait_for_log("Reconfiguring tesserad modem...", 2);
    wait_for_log("status.device-state changed from UNRESPONSIVE -> RESPONDING");
    wait_for("commands", [&] { return tessera({"--ping"}).code == 0; });
    EXPECT_EQ(tessera({"-s"}).out, golden("gsm-status.txt"));
    EXPECT_EQ(count(daemon_log(), "SwiWaitNotification failed"), 0) << "one thread all along";
}

TEST_F(gsm_appliance, a_server_that_dies_at_any_point_of_an_attach_is_no_obstacle)
{
    // Before the modem is known, and between two notifications; the first attach goes on or is
    // repeated.
    start_sim("gsm", R"({"faults": [
        {"match": "air-server availability", "do": "hangup", "return_ms": 100},
        {"match": "enable 2000", "do": "hangup", "return_ms": 100}]})");
    start_daemon();
    wait_for("the last notification", [&] { return asked("enable 103") >= 1; });
    EXPECT_GE(asked("enable 2017"), 2) << "the new server knew nothing of the first ones";
    EXPECT_GE(count(daemon_log(), "SWI_NOTIFY_NetworkStatus failed: 153"), 1);
    EXPECT_EQ(tessera({"-i"}).out, golden("gsm-info.txt")) << "identified all the same";

    // And in a recovery.
    add_fault(R"({"match": "enable 2000", "do": "hangup", "return_ms": 100})");
    const int enabled = asked("enable 103");
    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("Attaching to the Sierra Wireless GSM modem all the same");
    wait_for("the last notification", [&] { return asked("enable 103") > enabled; });
    set_state(R"({"sim": "removed"})");
    wait_for("the removal", [&] { return status("sim-status") == "SIM has been removed"; });
}

TEST_F(gsm_appliance, a_silent_modem_is_unresponsive_until_it_answers)
{
    bring_up();
    add_fault(R"({"match": "SwiGetESN", "do": "silence", "count": 2})");
    wait_for_log("status.device-state changed from RESPONDING -> UNRESPONSIVE");
    wait_for_log("status.device-state changed from UNRESPONSIVE -> RESPONDING");
    EXPECT_GE(count(daemon_log(), "Failed to ping sierra wireless modem: 153"), 1);
    EXPECT_EQ(count(daemon_log(), "recovering modem..."), 0);
}

TEST_F(gsm_appliance, an_unreachable_modem_is_waited_for_and_the_wait_can_be_ended)
{
    start_sim("gsm", R"({"state": {"air_server": false}})");
    spawn_daemon();
    wait_for_log("Sierra Wireless Air Server unavailable", 2);
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    spawn_daemon();
    wait_for_log("Sierra Wireless Air Server unavailable", 4);
    set_state(R"({"air_server": true})");
    wait_for_log("start time:");
    EXPECT_EQ(tessera({"--ping"}).code, 0);
    EXPECT_EQ(count(modem_log(), "= swisdk started"), 1)
        << "one server, one client after the other";
}

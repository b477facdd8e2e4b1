// A CDMA modem behind its server program: provisioning, calls, messages, and what goes wrong.

#include "support/sdk_appliance.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

class cdma_appliance : public sdk_appliance
{
protected:
    cdma_appliance() : sdk_appliance("cdma") { time_scale = "0.02"; }

    [[nodiscard]] texts spooled() const { return root.read_all("/var/spool/sms/incoming"); }

    client_result send(const std::string &content)
    {
        root.write("/test/message", content);
        return tessera({"--send-sms=" + root.place("/test/message")});
    }

    [[nodiscard]] std::string modem_state() { return tell_sim(R"({"get": "state"})"); }
};

static const std::vector<std::string> activation = {"--activate", "--msl=424242",
                                                    "--mdn=5550100007", "--msid=001015550100007"};

// ---- records

TEST_F(cdma_appliance, both_records_are_as_ever_in_both_forms)
{
    bring_up();
    wait_for("the HDR session", [&] { return status("hdr-session-state") == "State open"; });
    EXPECT_EQ(tessera({"-i"}).out, golden("cdma-info.txt"));
    EXPECT_EQ(tessera({"-s"}).out, golden("cdma-status.txt"));
    EXPECT_EQ(tessera({"-i", "-s", "-x"}).out, golden("cdma-both.xml"));
}

TEST_F(cdma_appliance, every_code_has_its_text)
{
    // Codes at the far ends of their tables, texts longer than their keys take, rare bands.
    bring_up(R"({"product": "A & B <C>", "esn": 4294967295, "type_code": 65535,
        "firmware": "0123456789012345678901234567890123456789", "nam_status": 2,
        "phone_number": "012345678901234567890", "mdn": "5550100042", "imsi": "001015550100042",
        "mip_profile": 5, "mip_home_ip": "0.0.0.0", "mip_ha_ip_2": "255.255.255.255",
        "carrier_id": 29, "rssi": 65535, "ecio": 0, "transmit_power": -2147483648,
        "temperature": -20, "total_frames": 4294967295, "longitude": -1, "latitude": 0,
        "radio_bands": "48:0,255:1,254:2,88:3,0:0,12:1,40:2,80:1", "hdr_state": 5,
        "authentication": 7, "service": 9, "evdo_service": 2, "call_status": 65535, "roaming": 2,
        "roaming_indicator": 255})");
    wait_for("the HDR session", [&] { return status("hdr-session-state") == "Unknown"; });
    EXPECT_EQ(tessera({"-i", "-s", "-x"}).out, golden("cdma-odd.xml"));
    EXPECT_EQ(tessera({"-i", "-s"}).out, golden("cdma-odd.txt"));
}

TEST_F(cdma_appliance, what_is_not_known_is_left_out)
{
    bring_up(R"({"report": false, "radio_bands": "", "mip_profile": 6})");
    EXPECT_EQ(status("hdr-session-state"), "(none)");
    EXPECT_EQ(status("radio-bands"), "") << "an empty list";
    EXPECT_EQ(info("mip-nai"), "(none)");
    EXPECT_GE(count(daemon_log(), "MIP Profile must be between 0 and 5"), 1);
    EXPECT_GE(count(daemon_log(), "Failed to get cellmodem info"), 1);
    EXPECT_EQ(count(daemon_log(), "Failed to get cellmodem status"), 0);
    set_state(R"({"hdr_state": 1})");
    wait_for("the HDR session", [&] { return status("hdr-session-state") == "Protocol setup"; });
    add_fault(R"({"match": "SwiGetTechNID", "do": "error", "text": "no", "count": 0})");
    EXPECT_EQ(info("sid"), "(none)");
    EXPECT_EQ(info("nid"), "(none)");
    EXPECT_EQ(info("hdr-mac-index"), "5");
}

TEST_F(cdma_appliance, a_product_that_the_server_does_not_know_is_looked_up)
{
    root.write("/etc/scripts/usb-enum", "#!/bin/sh\necho 'Model=MC5 Product=UCD5700'\n");
    std::filesystem::permissions(root.place("/etc/scripts/usb-enum"),
                                 std::filesystem::perms::owner_all);
    bring_up(R"({"product": ""})");
    const std::string listed = tessera({"-i"}).out;
    EXPECT_EQ(count(listed, "\nproduct UCD5700\n\ntechnology "), 1) << listed;
    EXPECT_GE(count(shell_log(), "/bin/lua /etc/scripts/usb-enum > /tmp/usb-listing"), 1);
    root.write("/etc/scripts/usb-enum", "#!/bin/sh\nexit 1\n");
    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("Failed to retrieve Sierra Wireless CDMA product");
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(info("product"), "(none)");
    root.write("/etc/scripts/usb-enum", "#!/bin/sh\necho none\n");
    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("Resuming client communication...", 2);
    wait_for("the hardware's name", [&] { return info("product") == "UCD5800"; });
}

// ---- provisioning

TEST_F(cdma_appliance, a_modem_is_activated)
{
    bring_up(R"({"mdn": "", "imsi": "", "home_sid": 4242})");
    EXPECT_EQ(info("nam-status"), "Incomplete, Service Required");
    EXPECT_EQ(tessera({"-c", "#777"}).code, 1) << "not yet";
    EXPECT_EQ(tessera({"--activate", "--msl=1", "--mdn=1", "--msid=2"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "Failed to unlock the modem: 600, MSL may be incorrect"), 2)
        << "logged and printed";
    EXPECT_EQ(tessera({"--activate", "--msl=99999999999"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "Invalid MSL provided: 99999999999"), 2);
    EXPECT_EQ(tessera({"--activate", "--msl=424242"}).code, 1) << "nothing to be activated with";
    EXPECT_EQ(count(daemon_log(), "\n MDN not set\n IMSI not set\n"), 1);
    EXPECT_EQ(tessera(activation).code, 0);
    EXPECT_EQ(count(daemon_log(), "Successfully activated modem"), 1);
    EXPECT_EQ(info("mdn"), "5550100007");
    EXPECT_EQ(info("msid"), "001015550100007");
    EXPECT_EQ(info("nam-status"), "Complete");
    EXPECT_EQ(count(modem_state(), R"("home_sid":0,"home_nid":0)"), 1);
    EXPECT_EQ(asked("SwiPstSetHomeSidNid 0 0 0"), 2);
}

TEST_F(cdma_appliance, a_factory_reset_empties_the_modem_and_comes_back)
{
    bring_up(R"({"messages": [{"sender": "5550100099", "text": "gone soon"}]})");
    EXPECT_EQ(tessera({"-v", "--rtn", "--msl=1"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "Failed to unlock the Sierra Wireless CDMA modem: 600\n"), 1);
    EXPECT_EQ(count(daemon_log(), "\nFailed to unlock the Sierra Wireless CDMA modem: 600, MSL may "
                                  "not be correct\n"),
              1);
    EXPECT_EQ(count(daemon_log(), "faking re-attach"), 1);
    EXPECT_EQ(asked("factory reset"), 0);

    EXPECT_EQ(tessera({"--rtn", "--msl=424242"}).code, 0);
    EXPECT_EQ(asked("factory reset 2"), 1);
    EXPECT_EQ(asked("modem reset (CDMA)"), 1);
    for (const char *line : {"IMSI is not set", "Modem successfully factory reset",
                             "Sierra Wireless CDMA modem is responding again, continuing..."})
        EXPECT_EQ(count(daemon_log(), line), 1) << line;
    EXPECT_EQ(info("nam-status"), "Incomplete, Service Required");
    EXPECT_EQ(tessera({"--get-sms"}).out, "sms-count 0\n");

    EXPECT_EQ(tessera(activation).code, 0) << "and begins anew";
    wait_for("its notifications", [&] { return status("hdr-session-state") == "State open"; });
}

TEST_F(cdma_appliance, a_factory_reset_can_be_interrupted)
{
    time_scale = "1";
    bring_up(R"({"factory_boot_ms": 3600000})");
    const running_client client = spawn_tessera({"--rtn", "--msl=424242"});
    wait_for_log("Factory reset was successful, rebooting");
    EXPECT_EQ(stop_daemon(SIGTERM), 255) << "the wait for the modem ends at once";
    EXPECT_EQ(finish(client).code, 0) << "what had to be done is done";
}

// ---- calls

TEST_F(cdma_appliance, the_session_follows_the_interface_of_a_call)
{
    bring_up(R"({"connect_ms": 86400000})");
    wait_for_session("DISCONNECTED");
    EXPECT_EQ(tessera({"-c", "#777"}).code, 0);
    EXPECT_EQ(asked("SwiSetCallOriginateCmd 257 '#777'"), 1);
    wait_for_session("CONNECTING");
    set_state(R"({"call": "connected", "connect_ms": 20})");
    wait_for_session("CONNECTED");
    EXPECT_EQ(root.read("/var/run/ppp-interfaces"), "dialout0 10.172.42.7\n");
    EXPECT_EQ(status("session-state"), "CONNECTED");
    EXPECT_EQ(status("call-status"), "Packet 1xRTT call");
    EXPECT_EQ(tessera({"-c", "#777"}).code, 1) << "there is a call";
    EXPECT_EQ(infod("session-state"), "DISCONNECTED\n") << "as after any call that was refused";
    EXPECT_EQ(tessera({"-d"}).code, 0);
    wait_for("its end", [&] { return root.read("/var/run/ppp-interfaces").empty(); });
    EXPECT_EQ(tessera({"-d"}).code, 1) << "there is none";

    EXPECT_EQ(tessera({"-c", "5550100003", "--voice"}).code, 0);
    EXPECT_EQ(asked("SwiSetCallOriginateCmd 0 '5550100003'"), 1);
    wait_for("the voice call", [&] { return status("call-status") == "Voice call"; });
    wait_for_session("DISCONNECTED");
    EXPECT_EQ(tessera({"-d"}).code, 0);
    wait_for("its end", [&] { return status("call-status").empty(); });

    set_state(R"({"call_error": 42})");
    EXPECT_EQ(tessera({"-c", "#777"}).code, 0);
    wait_for_log("Call Error: 42");
    wait_for_session("DISCONNECTED");
    set_state(R"({"call_error": 0, "call": "incoming"})");
    wait_for_log("Caller ID detected: 5550100099");
    set_state(R"({"registration": "none"})");
    EXPECT_EQ(tessera({"-c", "#777"}).code, 1);
    EXPECT_GE(count(daemon_log(), "SwiSetCallOriginateCmd failed: 600"), 2);
}

TEST_F(cdma_appliance, a_call_ends_with_the_modem_and_is_found_by_a_new_daemon)
{
    bring_up(R"({"connect_ms": 0})");
    EXPECT_EQ(tessera({"-c", "#777"}).code, 0);
    wait_for_session("CONNECTED");
    EXPECT_EQ(stop_daemon(SIGKILL), 128 + SIGKILL);
    start_daemon();
    wait_for_session("CONNECTED");
    EXPECT_EQ(status("session-state"), "CONNECTED") << "looked up, not notified";
    EXPECT_EQ(count(modem_log(), "= swisdk started"), 1) << "the server outlived its client";
    EXPECT_EQ(tessera({"-d", "-f"}).code, 0);
    wait_for_session("DISCONNECTED");
    EXPECT_EQ(tessera({"-d", "-f"}).code, 1) << "no call: the modem is reset";
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(count(daemon_log(), "faking re-attach"), 1);
    wait_for("its notifications", [&] { return status("hdr-session-state") == "State open"; });
    EXPECT_EQ(status("session-state"), "DISCONNECTED");
}

// ---- messages

TEST_F(cdma_appliance, messages_are_listed_spooled_and_sent)
{
    bring_up(R"({"messages": [
        {"id": 1, "status": 1, "sender": "5550100011", "text": "Plain & simple"},
        {"id": 2, "status": 0, "sender": "5550100012", "text": "Caf\u00e9", "alphabet": "latin1"},
        {"id": 3, "status": 5, "sender": "5550100013", "text": "\u041f\u0440\u0438\u0432\u0435\u0442", "alphabet": "16-bit"},
        {"id": 4, "status": 7, "sender": "5550100014", "text": "Low", "alphabet": "16-bit-low", "encoding": 8},
        {"id": 5, "status": 7, "sender": "5550100014", "text": "Six", "alphabet": "16-bit", "encoding": 0, "format": 6},
        {"id": 6, "status": 2, "sender": "5550100015", "text": "never shown"}]})");
    EXPECT_EQ(tessera({"--get-sms"}).out, golden("cdma-sms.txt"));
    EXPECT_EQ(tessera({"--get-sms", "-x"}).out, golden("cdma-sms.xml"));
    const texts all = spooled();
    EXPECT_EQ(all.size(), 10u) << "five messages, listed twice";
    EXPECT_EQ(std::count(all.begin(), all.end(), "From: 5550100012\n\nCaf\xC3\xA9"), 2);

    EXPECT_EQ(send("To: 5550100077\n\nHello\n").code, 0);
    EXPECT_EQ(send("To: 5550100078\n\nAgain").code, 0);
    const std::string state = modem_state();
    EXPECT_EQ(count(state, R"("sent_count":2,"sent_reference":1,"sent_from":"5550100042",)"
                           R"("sent_number":"5550100078","sent_text":"Again")"),
              1)
        << state;
    EXPECT_EQ(send("no number").code, 1);
    EXPECT_EQ(count(daemon_log(), "Error storing message to modem - error 600"), 1);
}

TEST_F(cdma_appliance, a_full_store_is_listed_to_its_end)
{
    bring_up(R"({"messages": [{"sender": "1", "text": "same", "repeat": 119},
                              {"sender": "2", "text": "last"}]})");
    const std::string list = tessera({"--get-sms"}).out;
    EXPECT_EQ(count(list, "-text same\n"), 119);
    EXPECT_EQ(count(list, "sms10-id "), 11) << "the tenth, and those whose names are cut to its";
    EXPECT_TRUE(list.ends_with("sms12-text last\n"));
    EXPECT_EQ(spooled().size(), 120u);
}

TEST_F(cdma_appliance, reading_goes_on_behind_what_cannot_be_read)
{
    const std::string long_text(241, 'x'), fitting(240, 'y');
    bring_up(R"({"messages": [{"sender": "1", "text": "first"}, {"sender": "2", "text": ")" +
             long_text + R"("}, {"sender": "3", "text": ")" + fitting +
             R"("}, {"sender": "4", "text": ""}, {"sender": "5", "text": "last"}]})");
    const std::string list = tessera({"--get-sms"}).out;
    EXPECT_EQ(count(daemon_log(), "Message size exceeds buffer limit: 241 bytes"), 1);
    EXPECT_EQ(count(list, "sms2-"), 0);
    EXPECT_EQ(count(list, "sms3-text " + fitting + "\n"), 1);
    EXPECT_EQ(count(list, "sms4-text \n"), 1);
    EXPECT_EQ(count(list, "sms5-text last\n"), 1);

    add_fault(R"({"match": "SMS read", "do": "error", "text": "no", "skip": 1})");
    EXPECT_EQ(count(tessera({"--get-sms"}).out, "-text last\n"), 1);
    EXPECT_EQ(count(daemon_log(), "Error reading messages from modem: 600"), 1);
    set_state(R"({"sms_result": 5, "sms_more": 1})");
    EXPECT_EQ(tessera({"--get-sms"}).out, "sms-count 5\n");
    EXPECT_EQ(count(daemon_log(), "Giving up on the modem's messages after 5 of them"), 1);
    add_fault(R"({"match": "SMS status", "do": "error", "text": "no"})");
    EXPECT_EQ(tessera({"--get-sms"}).code, 1);
    EXPECT_EQ(count(daemon_log(), "Failed to get message status: error 600"), 1);
}

// ---- what goes wrong

TEST_F(cdma_appliance, a_dead_server_is_recovered_from)
{
    bring_up();
    ASSERT_GT(server_pid(), 0);
    kill(server_pid(), SIGKILL);
    wait_for_log("status.device-state changed from RESPONDING -> UNRESPONSIVE");
    wait_for_log("Resuming client communication...");
    EXPECT_EQ(count(modem_log(), "= swisdk started"), 2) << "the recovery started it again";
    wait_for_log("status.device-state changed from UNRESPONSIVE -> RESPONDING");
    EXPECT_EQ(info("type"), "31489") << "as before";
    set_state(R"({"hdr_state": 3})");
    wait_for("notifications", [&] { return status("hdr-session-state") == "AN initiated"; });
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
}

TEST_F(cdma_appliance, a_modem_that_boots_while_it_is_attached_to_is_waited_for)
{
    bring_up(R"({"boot_ms": 60000})");
    EXPECT_EQ(tessera({"-r"}).code, 0);
    wait_for_log("status.device-state changed from UNRESPONSIVE -> RESPONDING");
    wait_for("the recovery's end", [&] { return tessera({"--ping"}).code == 0; });
    set_state(R"({"hdr_state": 2})");
    wait_for("notifications", [&] { return status("hdr-session-state") == "AT initiated"; });
}

TEST_F(cdma_appliance, the_first_attach_copes_with_what_goes_wrong_in_it)
{
    start_sim("cdma", R"({"faults": [
        {"match": "air-server availability", "do": "hangup", "return_ms": 100},
        {"match": "SwiGetESN", "do": "silence", "count": 2},
        {"match": "enable 1051", "do": "error", "text": "no"}]})");
    start_daemon();
    wait_for("commands", [&] { return tessera({"--ping"}).code == 0; });
    EXPECT_EQ(count(daemon_log(), "Cant register HDR State Notifications"), 1);
    EXPECT_EQ(count(daemon_log(), "Failed to setup CDMA event notification"), 1);
    EXPECT_EQ(info("product"), "UCD5800");
}

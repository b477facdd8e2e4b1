#include "backends/gobi/call_end.h"
#include "backends/gobi/gobi_fixture.h"
#include "cellmodem/markers.h"
#include "platform/paths.h"

#include <unistd.h>

class gobi : public gobi_fixture
{
};

// ---- the modem as a whole

TEST_F(gobi, attach_reads_who_the_modem_is)
{
    EXPECT_EQ(modem.type, type_gobi);
    EXPECT_EQ(modem.technology, technology_lte);
    EXPECT_EQ(modem.device_path, "/dev/cellcommand01");
    EXPECT_FALSE(modem.slots.connect || modem.slots.activate || modem.slots.setregion ||
                 modem.slots.rtn);
    EXPECT_EQ(modem.slots.detach(modem), 0) << "fine while detached";
    ASSERT_EQ(modem.slots.attach(modem), 0);
    EXPECT_EQ(modem.manufacturer_text, "Qnc");
    EXPECT_EQ(modem.aux_buffer, "LTE-1");
    EXPECT_TRUE(modem.attached);
    EXPECT_EQ(infod.pushed, texts{"long config.cellmodem.tessera.status.attached=1"});
    qmuxd.answer(qmi_dms, 0x22, "01 0500 e9 41 00 42 43"); // what follows a zero is not the text's
    ASSERT_EQ(modem.slots.attach(modem), 0) << "anew";
    EXPECT_EQ(modem.aux_buffer, "\xC3\xA9"
                                "A");
    EXPECT_EQ(qmuxd.connections(), 2u);
    EXPECT_EQ(modem.slots.detach(modem), 0);
    EXPECT_FALSE(modem.attached);
    EXPECT_EQ(log.count("700 connecting to /dev/qcqmi0"), 2);
    EXPECT_EQ(log.count("700 disconnecting from /dev/qcqmi0"), 2);
}

TEST_F(gobi, attach_fails_without_a_modem_behind_the_socket)
{
    qmuxd.vanish();
    EXPECT_EQ(modem.slots.attach(modem), -1);
    EXPECT_EQ(log.count("0 Failed to connect to LTE (Gobi) modem API: 12"), 1);
    qmuxd.appear();
    qmuxd.behave(qmi_dms, 0x22, {qmuxd_reply::error, 3});
    EXPECT_EQ(modem.slots.attach(modem), -1);
    EXPECT_FALSE(modem.attached);
    EXPECT_EQ(modem.slots.ping(modem), -1);
    infod.start_result = 1;
    EXPECT_EQ(modem.slots.attach(modem), 0) << "an unreachable infod keeps nobody away";
}

TEST_F(gobi, operations_on_a_detached_modem_fail_with_code_1)
{
    EXPECT_EQ(modem.slots.data_up(modem), -1);
    EXPECT_EQ(log.count("300 Could not get Gobi registration state: 1"), 1);
    EXPECT_EQ(modem.slots.simispresent(modem), 0);
    EXPECT_EQ(log.count("300 Could not read SIM state 1"), 1);
    EXPECT_EQ(modem.slots.reset(modem), -1);
    EXPECT_EQ(log.count("300 Could not reset modem: 1"), 1);
    EXPECT_EQ(qmuxd.connections(), 0u);
}

TEST_F(gobi, ping_publishes_what_it_found)
{
    attach();
    EXPECT_EQ(modem.slots.ping(modem), 0);
    EXPECT_EQ(modem.device_state, device_responding);
    qmuxd.behave(qmi_dms, 0x22, {qmuxd_reply::silence});
    EXPECT_EQ(modem.slots.ping(modem), -1);
    EXPECT_EQ(modem.device_state, device_unresponsive);
    EXPECT_EQ(log.count("700 gobi_ping()"), 2);
}

TEST_F(gobi, radio_never_fails)
{
    attach();
    EXPECT_EQ(modem.slots.radio(modem, true), 0);
    EXPECT_EQ(modem.state_b, 1);
    qmuxd.behave(qmi_dms, 0x2E, {qmuxd_reply::error, 60});
    EXPECT_EQ(modem.slots.radio(modem, false), 0);
    EXPECT_EQ(modem.state_b, 2);
    EXPECT_EQ(qmuxd.requests(), (texts{"2 2e 01010000", "2 2e 01010001"}));
    EXPECT_EQ(log.count("700 Radio status is: 2"), 1);
}

TEST_F(gobi, reset_takes_silence_for_success)
{
    attach();
    EXPECT_EQ(modem.slots.reset(modem), 0);
    EXPECT_EQ(qmuxd.requests(), (texts{"2 2e 01010003", "2 2e 01010004"}));
    qmuxd.behave(qmi_dms, 0x2E, {qmuxd_reply::silence, 0, 2});
    EXPECT_EQ(modem.slots.reset(modem), 0);
    qmuxd.behave(qmi_dms, 0x2E, {qmuxd_reply::error, 60, 2});
    EXPECT_EQ(modem.slots.reset(modem), -1);
    EXPECT_EQ(log.count("300 Could not reset modem: 1060"), 1);
}

// ---- the link

TEST_F(gobi, data_up_follows_the_registration)
{
    attach();
    const std::string number = "LTE (Gobi) cellmodem";
    const struct {
        const char *registration, *packet;
        int result, session;
        std::string line;
    } rows[] = {
        {"00", "01", -1, session_disconnected, "400 " + number + " is not registered"},
        {"01", "01", 0, session_connected, "700 " + number + " is registered"},
        {"02", "02", -1, session_disconnected,
         "700 " + number + " is not registered but searching"},
        {"03", "01", -1, session_disconnected, "400 " + number + " is not registered (denied)"},
        {"04", "02", 0, session_connected,
         "700 " + number + " connected with unusual registration state 4 (probably registered)"},
        {"05", "01", 0, session_disconnected,
         "700 " + number +
             " not connected with unusual registration state 5 (probably not registered)"},
        {"08", "03", 0, session_disconnected,
         "700 " + number +
             " not connected with unusual registration state 8 (probably not registered)"},
        {"06", "02", -1, session_invalid, "400 " + number + " has unknown registration state 6"},
        {"ff", "01", -1, session_invalid, "400 " + number + " has unknown registration state 255"},
    };
    for (const auto &row : rows) {
        log.clear();
        modem.session_state = session_unknown;
        qmuxd.answer(qmi_wds, 0x22, std::string("01 0100 ") + row.packet);
        qmuxd.answer(qmi_nas, 0x24, std::string("01 0600 ") + row.registration + "01 01 02 01 08");
        EXPECT_EQ(modem.slots.data_up(modem), row.result) << row.registration;
        EXPECT_EQ(modem.session_state, row.session) << row.registration;
        EXPECT_EQ(log.count(row.line), 1) << row.line;
        EXPECT_EQ(log.count(std::string("700 LTE (Gobi) session_state=") + row.packet[1]), 1);
    }
}

TEST_F(gobi, data_up_attaches_again_when_requests_do_not_reach_the_modem)
{
    attach();
    qmuxd.behave(qmi_nas, 0x24, {qmuxd_reply::error, 3});
    EXPECT_EQ(modem.slots.data_up(modem), -1);
    EXPECT_EQ(log.count("300 Could not get Gobi registration state: 1003"), 1);
    EXPECT_EQ(qmuxd.connections(), 1u) << "an error of the modem's is no reason";
    qmuxd.behave(qmi_nas, 0x24, {qmuxd_reply::silence});
    EXPECT_EQ(modem.slots.data_up(modem), -1) << "also when attaching worked";
    EXPECT_EQ(modem.session_state, session_disconnected);
    EXPECT_EQ(log.count("600 Requests are not being made to Gobi modem, re-attaching..."), 1);
    EXPECT_EQ(qmuxd.connections(), 2u);
    EXPECT_EQ(modem.slots.data_up(modem), 0);
    qmuxd.vanish();
    EXPECT_EQ(modem.slots.data_up(modem), -1);
    EXPECT_EQ(log.count("300 Failed to re-attach to Gobi modem"), 1);
    EXPECT_FALSE(modem.attached);
    qmuxd.appear();
    EXPECT_EQ(modem.slots.attach(modem), 0) << "as the recovery does";
    EXPECT_EQ(modem.slots.data_up(modem), 0);
}

// ---- connect

static const std::string check_state = "1 22";
static const std::string check_system = "3 24";
static const std::string read_model = "2 22";

struct connect_row {
    const char *name;
    std::string model;
    bool cdma;
    const char *apn, *apn_type;
    int auth;
    const char *username, *password;
    const char *prepare, *start; // the requests, with blanks; null: none
};

static const connect_row connect_rows[] = {
    {"apn", "LTE-1", false, "net", nullptr, 0, nullptr, nullptr, "1 4b 01020000 01",
     "1 20 16010003 140300 6e6574"},
    {"apn_with_pap", "LTE-1", false, "net", "ipv4", 1, "u", "p", "1 4b 01020000 01",
     "1 20 16010001 140300 6e6574 170100 75 180100 70"},
    {"apn_with_chap_on_cdma", "LTE-1", true, "net", nullptr, 2, "u", "", "1 4b 01020000 03",
     "1 20 16010002 140300 6e6574 170100 75"},
    {"empty_apn_without_authentication", "LTE-1", false, "", nullptr, 3, nullptr, "p",
     "1 4b 01020000 01", "1 20 16010000 180100 70"},
    {"empty_apn_on_cdma", "LTE-1", true, "", nullptr, 0, "u", "p", nullptr, "1 20 31010003"},
    {"profile", "MC7710", false, "net", nullptr, 0, nullptr, nullptr,
     "1 28 01020000 01 100700 70726f66696c65 11010003 140300 6e6574 1d010001", "1 20 31010001"},
    {"profile_of_7304_ipv4", "MC7304", false, "net", "ipv4", 1, "u", "p",
     "1 28 01020000 01 100700 70726f66696c65 11010000 140300 6e6574 1d010003 1b0100 75 1c0100 70",
     "1 20 31010001"},
    {"profile_of_7750_ipv6", "MC7750", false, "net", "ipv6", 2, nullptr, nullptr,
     "1 28 01020000 03 100700 70726f66696c65 11010002 140300 6e6574 1d010002", "1 20 31010003"},
    {"profile_of_7710_on_cdma_other_type", "MC7710", true, "net", "ipv4v6", 3, nullptr, nullptr,
     "1 28 01020000 01 100700 70726f66696c65 11010003 140300 6e6574 1d010000", "1 20 31010001"},
    {"profile_without_apn", "MC7710", false, "", nullptr, 0, nullptr, nullptr, nullptr,
     "1 20 31010001"},
    {"profile_of_7710_on_cdma_without_apn", "MC7710", true, "", nullptr, 0, nullptr, nullptr,
     nullptr, "1 20 31010003"},
};

static void PrintTo(const connect_row &row, std::ostream *out)
{
    *out << row.name;
}

class gobi_connect_rows : public gobi_fixture, public testing::WithParamInterface<connect_row>
{
};

TEST_P(gobi_connect_rows, send_these_requests)
{
    const connect_row &row = GetParam();
    qmuxd.answer(qmi_dms, 0x22,
                 "01" + digits_of({static_cast<uint8_t>(row.model.size()), 0}) +
                     digits_of({row.model.begin(), row.model.end()}));
    if (row.cdma)
        root.write(marker_is_cdma_gobi, "");
    attach();
    EXPECT_EQ(connect(row.apn, row.apn_type, row.auth, row.username, row.password), 0);
    texts expected = {check_state, check_system, read_model};
    for (const char *request : {row.prepare, row.start})
        if (request)
            expected.push_back(std::string(request, 5) + digits_of(octets_of(request + 5)));
    expected.insert(expected.end(), {check_state, check_system});
    EXPECT_EQ(qmuxd.requests(), expected);
    EXPECT_EQ(modem.session_state, session_connected);
    EXPECT_EQ(log.count("600 Started Gobi LTE modem session: 0x12345678"), 1);
    EXPECT_EQ(
        log.count("600 WDS: Start Network Interface returned 0 in 0 secs (timeout is 90 secs)"), 1);
    EXPECT_EQ(root.read("/shell.log"),
              "/sbin/ifconfig wwan0 up &> /dev/null\n"
              "/sbin/udhcpc -i wwan0 -p /var/run/udhcpc-wwan0.pid -s /etc/scripts/wwan-up -t 8 -T 3"
              " &> /dev/null\n");
}

INSTANTIATE_TEST_SUITE_P(table, gobi_connect_rows, testing::ValuesIn(connect_rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(gobi, connect_goes_straight_to_the_link_when_the_session_is_up)
{
    attach();
    qmuxd.answer(qmi_wds, 0x22, "01 0100 02");
    root.write("/var/run/udhcpc-wwan0.pid", std::to_string(getpid()) + "\n");
    EXPECT_EQ(connect("net"), 0);
    EXPECT_EQ(qmuxd.requests(), (texts{check_state, check_state, check_system}));
    EXPECT_EQ(root.read("/shell.log"), "/sbin/ifconfig wwan0 up &> /dev/null\n"
                                       "kill -SIGUSR1 `cat /var/run/udhcpc-wwan0.pid`\n");
}

TEST_F(gobi, connect_tells_the_log_what_it_does)
{
    attach();
    qmuxd.answer(qmi_nas, 0x24, "01 0600 04 01 01 02 01 08");
    EXPECT_EQ(connect("net"), 0);
    EXPECT_EQ(log.count("700 Registration state unknown, continuing with connection"), 1);
    EXPECT_EQ(log.count("600 Resetting profile: 1"), 1);
    EXPECT_EQ(log.count("600 Starting data session with apn net"), 1);
    qmuxd.answer(qmi_dms, 0x22, "01 0400 37373530");
    EXPECT_EQ(connect("net"), 0);
    EXPECT_EQ(log.count("600 Updating profile 3 to apn net"), 1);
    EXPECT_EQ(log.count("600 Starting data session with profile 3"), 1);
    EXPECT_EQ(log.count("700 Adding 3GPP session start to request"), 1);
}

TEST_F(gobi, connect_says_why_a_session_did_not_start)
{
    attach();
    qmuxd.behave(qmi_wds, 0x20, {qmuxd_reply::error, 14, 2});
    qmuxd.explain(qmi_wds, 0x20, "10 0200 f503");
    EXPECT_EQ(connect("net"), -1);
    EXPECT_EQ(log.count("300 Could not start data session on profile 1 with APN net: "
                        "1013: Unknown APN"),
              1);
    EXPECT_EQ(log.count("600 WDS: Start Network Interface returned 1014 in 0 secs "
                        "(timeout is 90 secs)"),
              1);
    qmuxd.answer(qmi_dms, 0x22, "01 0400 37333034");
    EXPECT_EQ(connect(""), -1);
    EXPECT_EQ(log.count("300 Could not start data session on profile 1: 1013: Unknown APN"), 1);
    EXPECT_EQ(root.read("/shell.log"), "");
    (void)qmuxd.requests();
    EXPECT_EQ(connect("net", nullptr, 4), -1) << "there is no such authentication";
    EXPECT_EQ(connect("net", nullptr, -1), -1);
    EXPECT_EQ(qmuxd.requests(), texts{});
}

TEST_F(gobi, connect_waits_for_the_link_and_gives_up)
{
    attach();
    qmuxd.answer(qmi_nas, 0x24, "01 0600 02 01 01 02 01 08");
    EXPECT_EQ(connect("net"), -1);
    EXPECT_EQ(log.count("300 Gobi: timed out waiting for data connection"), 1);
    EXPECT_EQ(log.count("700 LTE (Gobi) cellmodem is not registered but searching"), 31);
    EXPECT_EQ(root.read("/shell.log"), "");
}

TEST_F(gobi, long_texts_are_sent_up_to_256_characters)
{
    attach();
    for (const size_t length : {1u, 100u, 255u, 256u, 257u, 10000u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(connect(text.c_str(), nullptr, 0, text.c_str(), text.c_str()), 0);
        const texts requests = qmuxd.requests();
        const size_t sent = std::min<size_t>(length, 256);
        std::string part = digits_of({static_cast<uint8_t>(sent), static_cast<uint8_t>(sent >> 8)});
        for (size_t i = 0; i < sent; i++)
            part += "78";
        EXPECT_EQ(requests.at(4), "1 20 16010003"
                                  "14" +
                                      part + "17" + part + "18" + part)
            << length;
    }
}

TEST(gobi_call_end, names_by_code)
{
    const struct {
        uint16_t reason;
        const char *text;
    } rows[] = {
        {1, "1: Unspecified"},
        {11, "11: Internal error"},
        {500, "500: CDMA lock"},
        {515, "515: No CDMA Service"},
        {1000, "1000: Conf Failed"},
        {1014, "1014: Unknown PDP"},
        {1028, "1028: Invallid mandatory info"},
        {1036, "1036: Feature not supported"},
        {1507, "1507: HDR release by CM"},
        {0, "0: Unknown error"},
        {12, "12: Unknown error"},
        {65535, "65535: Unknown error"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(gobi_call_end_text(row.reason, 1014), row.text);
    EXPECT_EQ(gobi_call_end_text(std::nullopt, 1014), "1014: Unknown error")
        << "a code of the request is no reason";
}

// ---- disconnect

static const std::string teardown = "/sbin/ifconfig wwan0 down &> /dev/null\n"
                                    "/etc/scripts/wwan-down wwan0 &> /dev/null\n"
                                    "kill `cat /var/run/udhcpc-wwan0.pid` &> /dev/null\n";

TEST_F(gobi, disconnect_without_a_session_tears_down_all_the_same)
{
    attach();
    qmuxd.behave(qmi_wds, 0x20, {qmuxd_reply::error, 14});
    EXPECT_EQ(connect("net"), -1);
    (void)qmuxd.requests();
    EXPECT_EQ(modem.slots.disconnect(modem), 0);
    EXPECT_EQ(root.read("/shell.log"), teardown);
    EXPECT_EQ(log.count("600 Disconnecting Gobi LTE modem, session 0xffffffff"), 1);
    EXPECT_EQ(qmuxd.requests(), texts{});
}

TEST_F(gobi, disconnect_tears_down_whatever_the_modem_says)
{
    attach();
    ASSERT_EQ(connect("net"), 0);
    const struct {
        const char *line;
        int result;
        qmuxd_behaviour stop, reset;
    } rows[] = {
        {"700 Successfully disconnected data session: 0x12345678", 0, {}, {}},
        {"300 Failed to stop data session: 0x12345678: error: 1009",
         1009,
         {qmuxd_reply::error, 9},
         {}},
        {"300 Failed to send request to stop data session: 0x12345678, resetting...",
         12,
         {qmuxd_reply::silence},
         {}},
        {"300 Failed to reset Gobi API", 12, {qmuxd_reply::silence}, {qmuxd_reply::error, 3}},
    };
    for (const auto &row : rows) {
        log.clear();
        (void)qmuxd.requests();
        std::filesystem::remove(root.place("/shell.log"));
        modem.session_state = session_connected;
        texts requests = {"1 21 01040078563412"};
        qmuxd.behave(qmi_wds, 0x21, row.stop);
        if (row.result == 12) {
            qmuxd.behave(qmi_wds, 0x00, row.reset);
            requests.push_back("1 00");
        }
        EXPECT_EQ(modem.slots.disconnect(modem), row.result);
        EXPECT_EQ(modem.session_state, row.result == 0 ? session_disconnected : session_connected);
        EXPECT_EQ(qmuxd.requests(), requests);
        EXPECT_EQ(root.read("/shell.log"), teardown);
        EXPECT_EQ(log.count(row.line), 1) << row.line;
    }
}

// ---- SIM

TEST_F(gobi, sim_presence_is_the_uim_state)
{
    attach();
    EXPECT_EQ(modem.slots.simispresent(modem), 1);
    EXPECT_EQ(log.count("600 Gobi UIM state is PRESENT (1 not 2)"), 1);
    qmuxd.answer(qmi_dms, 0x44, "01 0100 02");
    EXPECT_EQ(modem.slots.simispresent(modem), 0);
    EXPECT_EQ(log.count("600 Current UIM state is: NOT PRESENT"), 1);
    qmuxd.answer(qmi_dms, 0x44, "01 0100 ff");
    EXPECT_EQ(modem.slots.simispresent(modem), 1);
}

TEST_F(gobi, unlocking_turns_the_pin_check_off)
{
    attach();
    EXPECT_EQ(modem.slots.unlocksim(modem, "1234"), 0);
    EXPECT_EQ(qmuxd.requests(), (texts{"2 44", "2 27 01070001000431323334"}));
    EXPECT_EQ(modem.slots.unlocksim(modem, std::string(200, '1').c_str()), 0) << "the modem judges";
    (void)qmuxd.requests();
    EXPECT_EQ(modem.slots.unlocksim(modem, ""), -1);
    EXPECT_EQ(log.count("0 Could not unlock SIM - error 4"), 1);
    EXPECT_EQ(modem.slots.unlocksim(modem, std::string(256, '1').c_str()), -1);
    EXPECT_EQ(log.count("0 Could not unlock SIM - error 5"), 1);
    EXPECT_EQ(qmuxd.requests(), (texts{"2 44", "2 44"}));
    qmuxd.answer(qmi_dms, 0x44, "01 0100 00");
    EXPECT_EQ(modem.slots.unlocksim(modem, "1234"), -1);
    EXPECT_EQ(log.count("0 SIM is not locked"), 1);
    for (const std::string &line : log.lines())
        EXPECT_EQ(line.find("1234"), std::string::npos) << "a PIN is nobody's business";
}

TEST_F(gobi, unblocking_needs_a_blocked_pin)
{
    attach();
    EXPECT_EQ(modem.slots.unblocksim(modem, "12345678", "0000"), 0);
    EXPECT_EQ(qmuxd.requests(), (texts{"2 44", "2 2b",
                                       "2 29 010f0001083132333435363738"
                                       "0430303030"}));
    EXPECT_EQ(modem.slots.unblocksim(modem, "12345678", nullptr), -1);
    EXPECT_EQ(log.count("0 Could not unblock SIM - error 4"), 1);
    const struct {
        const char *status, *line;
    } rows[] = {
        {"11 0300 05 00 00", "0 PIN is permanently blocked"},
        {"11 0300 01 03 0a", "0 PIN is not in a blocked state"},
        {"12 0300 04 03 0a", "0 PIN is not in a blocked state"},
    };
    (void)qmuxd.requests();
    for (const auto &row : rows) {
        log.clear();
        qmuxd.answer(qmi_dms, 0x2B, row.status);
        EXPECT_EQ(modem.slots.unblocksim(modem, "12345678", "0000"), -1);
        EXPECT_EQ(log.count(row.line), 1) << row.status;
    }
    EXPECT_EQ(qmuxd.requests().size(), 6u) << "nothing but questions";
    qmuxd.answer(qmi_dms, 0x44, "01 0100 02");
    EXPECT_EQ(modem.slots.unblocksim(modem, "12345678", "0000"), -1);
    EXPECT_EQ(log.count("0 SIM is not locked"), 1);
}

// ---- GPS and preferences

TEST_F(gobi, gps_is_two_switches)
{
    attach();
    EXPECT_EQ(modem.slots.enablegps(modem, 1, 100), 0);
    EXPECT_EQ(modem.slots.disablegps(modem), 0);
    EXPECT_EQ(qmuxd.requests(),
              (texts{"6 21 01010001", "6 31 01010001", "6 21 01010000", "6 31 01010000"}));
    qmuxd.behave(qmi_pds, 0x21, {qmuxd_reply::error, 26, 2});
    EXPECT_EQ(modem.slots.enablegps(modem, 1, 100), -1);
    EXPECT_EQ(modem.slots.disablegps(modem), -1);
    EXPECT_EQ(qmuxd.requests(), (texts{"6 21 01010001", "6 21 01010000"}));
    qmuxd.behave(qmi_pds, 0x31, {qmuxd_reply::error, 69});
    EXPECT_EQ(modem.slots.disablegps(modem), 0);
    EXPECT_EQ(log.count("700 GPS was already disabled."), 1);
}

TEST_F(gobi, rats_are_mode_masks)
{
    attach();
    const char *masks[] = {"3f", "08", "04", "3f", "3f", "0c", "10", "1c", "3f"};
    for (int rat = 0; rat < 9; rat++) {
        EXPECT_EQ(modem.slots.setrat(modem, rat), 0);
        EXPECT_EQ(qmuxd.requests(), texts{std::string("3 33 110200") + masks[rat] + "00"}) << rat;
    }
    for (const int rat : {-1, 9, 19, 1000000}) {
        EXPECT_EQ(modem.slots.setrat(modem, rat), -1) << rat;
        EXPECT_EQ(log.count("300 Failed to set system mode preference " + std::to_string(rat) +
                            ": error: 4"),
                  1);
    }
    EXPECT_EQ(qmuxd.requests(), texts{});
}

TEST_F(gobi, system_selection_sends_what_is_given)
{
    attach();
    const uint32_t mode = 0x1C;
    const uint64_t band = 0x8000000000000380;
    const uint64_t lte = 0x1018;
    const auto select = [&](const uint32_t *m, const uint64_t *b, const uint64_t *l,
                            const char *order) {
        return modem.slots.setsysselect(modem, m, b, l, order);
    };
    EXPECT_EQ(select(&mode, &band, &lte, "lte,umts,gsm"), 0);
    EXPECT_EQ(select(nullptr, nullptr, &lte, nullptr), 0);
    EXPECT_EQ(select(&mode, nullptr, nullptr, "lte,wimax"), 0);
    EXPECT_EQ(select(nullptr, &band, nullptr, ""), 0);
    EXPECT_EQ(
        select(nullptr, nullptr, nullptr, "none,cdma20001x,cdma2000hrpd,amps,gsm,umts,lte,tdcdma"),
        0);
    EXPECT_EQ(select(nullptr, nullptr, nullptr, "LTE"), 0) << "names are as they are written";
    EXPECT_EQ(qmuxd.requests(), (texts{"3 33 1102001c00"
                                       "1208008003000000000080"
                                       "1508001810000000000000"
                                       "1e040003080504",
                                       "3 33 1508001810000000000000", "3 33 1102001c00",
                                       "3 33 1208008003000000000080",
                                       "3 33 1e090008"
                                       "0001020304050809",
                                       "3 33"}));
    EXPECT_EQ(log.count("0 Interface wimax not found"), 1);
    qmuxd.behave(qmi_nas, 0x33, {qmuxd_reply::error, 48});
    EXPECT_EQ(select(&mode, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(log.count("300 Failed to set system selection prefs: 1048"), 1);
    EXPECT_EQ(log.count("0 Error setting system selection masks: 1048"), 1);
    std::string many = "lte";
    for (int i = 0; i < 255; i++)
        many += ",gsm";
    EXPECT_EQ(select(nullptr, nullptr, nullptr, many.c_str()), 1);
    EXPECT_EQ(log.count("300 Failed to pack system selection prefs request: 5"), 1);
    EXPECT_EQ(log.count("0 Error setting system selection masks: 5"), 1);
}

// ---- every request failing in turn

struct failure_row {
    const char *operation;
    uint8_t service;
    uint16_t id;
    int (*run)(cellmodem &);
    int result;       // when that message fails
    const char *line; // of the log, up to the code; null: the failure is not the operation's
    bool code_in_line = true;
    int success = 0;
    const char *model = nullptr; // digits
};

static int run_connect(cellmodem &modem)
{
    return modem.slots.lte_connect(modem, "net", nullptr, 0, nullptr, nullptr);
}

static int run_disconnect(cellmodem &modem)
{
    EXPECT_EQ(run_connect(modem), 0);
    return modem.slots.disconnect(modem) == 0 ? 0 : -1;
}

static int run_getsms(cellmodem &modem)
{
    const memory_stream out;
    return modem.slots.getsms(modem, out.get(), output_lines);
}

static int run_sendsms(cellmodem &modem)
{
    return modem.slots.sendsms(modem, rooted("/message").c_str(), nullptr);
}

static const failure_row failure_rows[] = {
    {"attach_manufacturer", qmi_dms, 0x21, [](auto &m) { return m.slots.attach(m); }, -1,
     "300 Failed to retrieve modem manufacturer", false},
    {"attach_model", qmi_dms, 0x22, [](auto &m) { return m.slots.attach(m); }, -1,
     "300 Failed to retrieve modem model", false},
    {"ping", qmi_dms, 0x22, [](auto &m) { return m.slots.ping(m); }, -1, nullptr},
    {"data_up_packet_state", qmi_wds, 0x22, [](auto &m) { return m.slots.data_up(m); }, 0, nullptr},
    {"data_up_system", qmi_nas, 0x24, [](auto &m) { return m.slots.data_up(m); }, -1,
     "300 Could not get Gobi registration state: "},
    {"connect_packet_state", qmi_wds, 0x22, run_connect, 0, nullptr},
    {"connect_system", qmi_nas, 0x24, run_connect, 0, nullptr},
    {"connect_model", qmi_dms, 0x22, run_connect, -1, nullptr},
    {"connect_reset_profile", qmi_wds, 0x4B, run_connect, 0,
     "300 Could not reset profile 1 - trying to connect anyway", false},
    {"connect_start", qmi_wds, 0x20, run_connect, -1,
     "300 Could not start data session on profile 1 with APN net: "},
    {"connect_modify_profile", qmi_wds, 0x28, run_connect, 0,
     "0 Could not update profile 1 with apn net - trying to connect anyway", false, 0,
     "01 0400 37333034"},
    {"connect_start_by_profile", qmi_wds, 0x20, run_connect, -1,
     "300 Could not start data session on profile 1: ", true, 0, "01 0400 37333034"},
    {"disconnect", qmi_wds, 0x21, run_disconnect, -1, nullptr},
    {"radio", qmi_dms, 0x2E, [](auto &m) { return m.slots.radio(m, true); }, 0, nullptr},
    {"simispresent", qmi_dms, 0x44, [](auto &m) { return m.slots.simispresent(m); }, 0,
     "300 Could not read SIM state ", true, 1},
    {"unlock_state", qmi_dms, 0x44, [](auto &m) { return m.slots.unlocksim(m, "1234"); }, -1,
     "0 Could not read SIM state "},
    {"unlock", qmi_dms, 0x27, [](auto &m) { return m.slots.unlocksim(m, "1234"); }, -1,
     "0 Could not unlock SIM - error "},
    {"unblock_state", qmi_dms, 0x44, [](auto &m) { return m.slots.unblocksim(m, "12345678", "1"); },
     -1, "0 Could not read SIM state "},
    {"unblock_status", qmi_dms, 0x2B,
     [](auto &m) { return m.slots.unblocksim(m, "12345678", "1"); }, -1,
     "0 Could not get PIN Status", false},
    {"unblock", qmi_dms, 0x29, [](auto &m) { return m.slots.unblocksim(m, "12345678", "1"); }, -1,
     "0 Could not unblock SIM - error "},
    {"enablegps", qmi_pds, 0x21, [](auto &m) { return m.slots.enablegps(m, 1, 100); }, -1,
     "0 Could not enable GPS: "},
    {"enablegps_tracking", qmi_pds, 0x31, [](auto &m) { return m.slots.enablegps(m, 1, 100); }, -1,
     "0 Could not enable GPS: "},
    {"disablegps", qmi_pds, 0x21, [](auto &m) { return m.slots.disablegps(m); }, -1,
     "0 Could not disable GPS: "},
    {"disablegps_tracking", qmi_pds, 0x31, [](auto &m) { return m.slots.disablegps(m); }, -1,
     "0 Could not disable GPS: "},
    {"setrat", qmi_nas, 0x33, [](auto &m) { return m.slots.setrat(m, 6); }, -1,
     "300 Failed to set system mode preference 6: error: "},
    {"setsysselect", qmi_nas, 0x33,
     [](auto &m) { return m.slots.setsysselect(m, nullptr, nullptr, nullptr, "lte"); }, 1,
     "0 Error setting system selection masks: "},
    {"getsms_list", qmi_wms, 0x31, run_getsms, 0, "700 Failed to list UIM messages: "},
    {"getsms_read", qmi_wms, 0x22, run_getsms, 0, "400 WMS Raw Read Failed for UIM SMS: "},
    {"getsms_delete", qmi_wms, 0x24, run_getsms, 0, "400 WMS Delete UIM SMS failed: "},
    {"sendsms", qmi_wms, 0x20, run_sendsms, -1, "300 SMS Send failed - rv ", true},
};

static void PrintTo(const failure_row &row, std::ostream *out)
{
    *out << row.operation;
}

class gobi_failures : public gobi_fixture, public testing::WithParamInterface<failure_row>
{
protected:
    void SetUp() override
    {
        gobi_fixture::SetUp();
        if (GetParam().model)
            qmuxd.answer(qmi_dms, 0x22, GetParam().model);
        root.write("/message", "To: 123\n\nhi");
        qmuxd.answer(qmi_wms, 0x31, "01 0900 01000000 07000000 01"); // in both storages
        qmuxd.answer(qmi_wms, 0x22,
                     "01 1800 01 06 1400 00 04 0481 2143 0000 11101021436500 04 d4f29c0e");
    }

    void expect_failure(qmuxd_behaviour behaviour, uint32_t code)
    {
        const failure_row &row = GetParam();
        log.clear();
        if (!modem.attached)
            attach();
        qmuxd.behave(row.service, row.id, behaviour);
        EXPECT_EQ(row.run(modem), row.result) << code;
        if (row.line) {
            const std::string line = row.line + (row.code_in_line ? std::to_string(code) : "");
            EXPECT_TRUE(log.has(line)) << line;
        }
    }

    void expect_success()
    {
        if (!modem.attached)
            attach();
        EXPECT_EQ(GetParam().run(modem), GetParam().success) << "the next one works";
    }
};

TEST_P(gobi_failures, end_with_their_result_and_line)
{
    const struct {
        qmuxd_behaviour behaviour;
        uint32_t code;
    } kinds[] = {
        {{qmuxd_reply::silence}, 12},     {{qmuxd_reply::late}, 12},
        {{qmuxd_reply::error, 71}, 1071}, {{qmuxd_reply::cut_tlvs}, 1000},
        {{qmuxd_reply::no_result}, 1000}, {{qmuxd_reply::wrong_transaction}, 12},
    };
    for (const auto &kind : kinds) {
        expect_failure(kind.behaviour, kind.code);
        expect_success();
    }
}

TEST_P(gobi_failures, of_the_socket_are_mended_by_the_check_of_the_link)
{
    if (GetParam().result == GetParam().success)
        return; // such an operation goes on to its next request, whose row this is
    for (const qmuxd_reply reply : {qmuxd_reply::hang_up, qmuxd_reply::half}) {
        expect_failure({reply}, 12);
        if (modem.attached) {
            (void)modem.slots.data_up(modem);
            EXPECT_EQ(modem.slots.data_up(modem), 0);
        }
        expect_success();
    }
}

INSTANTIATE_TEST_SUITE_P(table, gobi_failures, testing::ValuesIn(failure_rows),
                         [](const auto &row) { return std::string(row.param.operation); });

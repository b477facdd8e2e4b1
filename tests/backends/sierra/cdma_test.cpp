// The CDMA family against a server that answers as each case needs it: session, calls, provisioning.

#include "backends/select.h"
#include "backends/sierra/cdma.h"
#include "backends/sierra/cdma_family.h"
#include "support/sierra_fixture.h"

#include <algorithm>

class cdma_modem : public sierra_fixture
{
protected:
    cdma_modem() : sierra_fixture(sierra_cdma_init) {}

    void identify_as(const std::string &product)
    {
        swi_modem_type type = {.type_code = 0x6812, .technology = swi_cdma_modems};
        ASSERT_EQ(swi_set_text(type.product, product), 0);
        answer_record(swi_op_modem_type, type);
    }

    void lock_says(uint32_t result, uint16_t missing)
    {
        answer_record(swi_op_pst_lock, swi_lock_result{result, missing});
    }

    // Runs an operation and collects what it prints on standard error.
    template <class Operation>
    static std::string printed_by(Operation operation)
    {
        testing::internal::CaptureStderr();
        operation();
        return testing::internal::GetCapturedStderr();
    }

    int activate(const char *msl = "123456", const char *mdn = "5550100001",
                 const char *msid = "5550100002")
    {
        return modem->slots.activate(*modem, msl, mdn, msid);
    }

    // How often re-attaching was logged, with all that belongs to it.
    [[nodiscard]] int reattached() const
    {
        const int times =
            log.count("600 Sierra Wireless CDMA cannot be fully detached, faking re-attach....");
        EXPECT_EQ(log.count("600 Re-attaching to Sierra Wireless CDMA modem"), times);
        return times;
    }

    // Besides that of somebody else.
    void data_interface(bool up) const
    {
        root.write("/var/run/ppp-interfaces",
                   std::string("dialout1 10.0.0.1\n") + (up ? "dialout0 10.0.0.2\n" : ""));
    }
};

// ---- attach and notifications

TEST_F(cdma_modem, the_first_attach_runs_five_rounds_and_later_ones_only_refresh)
{
    identify_as("MC5725");
    data_interface(true);
    attach();
    EXPECT_EQ(server.enabled(), (std::vector<uint32_t>{1051, 1051, 1051, 1051, 1051}));
    EXPECT_EQ(requests_of(swi_op_get_esn).size(), 5u + 1) << "and the device state";
    EXPECT_TRUE(modem->attached);
    EXPECT_EQ(modem->aux_buffer, "MC5725");
    EXPECT_EQ(modem->aux_word, 0x6812u);
    EXPECT_EQ(modem->device_state, device_responding);
    EXPECT_EQ(modem->session_state, session_connected);
    EXPECT_EQ(log.count("700 Sierra Wireless modem is ready."), 5);
    EXPECT_EQ(log.count("700 Setting up Sierra Wireless notifications"), 5);
    EXPECT_EQ(log.count("700 Enabling modem status notifications"), 5);
    EXPECT_EQ(log.count("700 Force update of Sierra Wireless CDMA modem device-state"), 1);
    EXPECT_EQ(log.count("700 Force update of Sierra Wireless CDMA modem sesion-state"), 1);

    EXPECT_EQ(modem->slots.detach(*modem), 0);
    EXPECT_FALSE(modem->attached);
    EXPECT_TRUE(log.has("600 Sierra Wireless CDMA modem cannot be fully detached, faking it..."));
    EXPECT_EQ(modem->slots.detach(*modem), 0) << "a detached modem";
    const size_t asked = server.requests().size();
    attach();
    EXPECT_TRUE(log.has("600 Sierra Wireless CDMA cannot be fully detached, faking re-attach...."));
    EXPECT_TRUE(modem->attached);
    EXPECT_EQ(server.requests().size(), asked) << "nobody is asked for anything";
}

TEST_F(cdma_modem, neither_silence_nor_a_lost_infod_fails_an_attach)
{
    identify_as("MC5725");
    refuse(swi_op_get_esn, swi_status_busy);
    infod.start_result = -1;
    attach();
    EXPECT_EQ(log.count("700 Sierra Wireless modem is not ready."), 5);
    EXPECT_EQ(log.count("700 Sierra Wireless modem is ready."), 5);
    EXPECT_TRUE(log.has("300 Failed to change cellmodem attached state"));
    EXPECT_TRUE(log.has("300 Failed to check Sierra Wireless CDMA modem device-state"));
    EXPECT_TRUE(modem->attached);
    EXPECT_EQ(modem->slots.detach(*modem), 0);
    EXPECT_EQ(modem->slots.attach(*modem), 0);
}

TEST_F(cdma_modem, an_attach_that_finds_no_server_program_is_repeated_from_the_beginning)
{
    ASSERT_EQ(unlink(root.place("/bin/swisdk").c_str()), 0);
    EXPECT_EQ(modem->slots.attach(*modem), -1);
    EXPECT_EQ(modem->slots.attach(*modem), -1) << "no session, no faked re-attach";
    EXPECT_EQ(log.count("0 Failed to start swisdk."), 2);
    install_program("/bin/swisdk");
    attach();
    EXPECT_EQ(server.enabled().size(), 5u);
}

TEST_F(cdma_modem, a_refused_notification_fails_the_first_attach_only)
{
    refuse_notification(1051, swi_status_not_supported);
    EXPECT_EQ(modem->slots.attach(*modem), -1);
    EXPECT_EQ(server.enabled().size(), 1u);
    EXPECT_EQ(log.count("0 Cant register HDR State Notifications"), 1);
    EXPECT_EQ(log.count("0 Failed to setup CDMA event notification"), 1);
    attach();
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(server.enabled().size(), 1u) << "a modem without HDR is left alone";
}

TEST_F(cdma_modem, the_product_is_looked_up_in_three_stages)
{
    swi_text hardware;
    ASSERT_EQ(swi_set_text(hardware.text, "HW5728 rev 2"), 0);
    answer_record(swi_op_get_hardware_version, hardware);
    const std::string padding(63, '.');
    const struct {
        std::string listing;
        std::string product;
    } rows[] = {
        {"Product=MC5728\n", "MC5728\n"}, // up to the chunk's end, whatever is there
        {"MC5 Product=abc\nVendor=x", "abc\nVendor=x"},
        {padding + "MC5720 Product=T\xC3\xA9st", "T\xC3\xA9st"},
        {padding + "MC5720 Product=T\xE9st", "T\xC3\xA9st"},
        {padding + "Product=wrong" + std::string(50, '.') + "Product=MC5", "MC5"},
        // A chunk divides the key, or what stands behind it.
        {std::string(49, '.') + "MC5725Product=MC5725", "HW5728"},
        {std::string(51, '.') + "MC5 Product=MC5728", "HW5728"},
        {std::string(48, '.') + "MC5 Product=MC5728", "MC5"},
        // The first that has the mark decides.
        {std::string("MC5") + std::string(60, '.') + "MC5 Product=late", "HW5728"},
        {"Product=EM5", "HW5728"},
        {"", "HW5728"},
        {std::string("MC5\0Product=hidden", 18), "HW5728"},
    };
    for (const auto &row : rows) {
        root.write("/tmp/usb-listing", row.listing);
        ASSERT_EQ(modem->slots.attach(*modem), 0);
        EXPECT_EQ(modem->aux_buffer, row.product) << row.listing;
    }

    ASSERT_EQ(unlink(root.place("/tmp/usb-listing").c_str()), 0);
    refuse(swi_op_get_hardware_version, swi_status_failed);
    attach();
    EXPECT_FALSE(modem->aux_buffer);
    EXPECT_TRUE(log.has("300 SwiGetHardwareVersion() failed: 5"));
    EXPECT_TRUE(log.has("300 Failed to retrieve Sierra Wireless CDMA product"));
    answer_record(swi_op_get_hardware_version, hardware);
    EXPECT_EQ(modem->slots.reset(*modem), 0);
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(modem->aux_buffer, "HW5728") << "it was still booting when it was asked";
    root.write("/tmp/usb-listing", "MC5 Product=yes");
    install_program("/bin/sh", "#!/bin/sh\nexit 3\n");
    attach();
    EXPECT_FALSE(modem->aux_buffer) << "there is a listing, but it is an old one";
    EXPECT_TRUE(log.has("400 Failed to enumerate USB devices"));
}

TEST_F(cdma_modem, notifications_are_logged_and_calls_looked_up)
{
    attach();
    data_interface(true);
    server.notify(notification(1008, {}));
    wait_for([&] { return modem->session_state == session_connected; });
    server.notify(notification(1007, {}));
    server.notify(notification(1009, {}));
    server.notify(notification(1013, {42}));
    packet caller = notification(1010, std::vector<uint32_t>(9));
    const std::string number = "555\xE9";
    std::copy(number.begin(), number.end(), caller.begin() + 28);
    server.notify(caller);
    server.notify(notification(1051, {0x0104}));
    server.notify(notification(1011, {}));
    server.notify(notification(1050, {}));
    data_interface(false);
    server.notify(notification(1012, {}));
    wait_for([&] { return modem->session_state == session_disconnected; });
    for (const char *line :
         {"700 Sierra Wireless CDMA data call connected",
          "700 Sierra Wireless CDMA data call connecting", "700 Incoming call detected",
          "300 Call Error: 42", "600 Caller ID detected: 555\xC3\xA9",
          "600 HDR Session status: 260", "700 Unhandled notification: 1011",
          "700 Unhandled notification: 1050", "700 Sierra Wireless CDMA data call disconnected",
          "700 Found 0 ppp interfaces", "700 Could not locate PPP interface",
          "700 Found 2 ppp interfaces", "700 Found interface: dialout0 address: 10.0.0.2"})
        EXPECT_EQ(log.count(line), 1) << line;
    EXPECT_EQ(cdma.hdr_session_state, 4) << "the low byte";
}

TEST_F(cdma_modem, a_modem_that_may_have_rebooted_is_told_again_what_to_notify)
{
    attach();
    EXPECT_EQ(modem->slots.disconnect(*modem), 0);
    ASSERT_EQ(server.enabled().size(), 5u + 4);
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(server.enabled().size(), 9u);
    refuse(swi_op_get_esn, swi_status_timeout);
    EXPECT_EQ(modem->slots.ping(*modem), -1);
    data_interface(true);
    answer_as_before(swi_op_get_esn);
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    std::vector<uint32_t> enabled = server.enabled();
    enabled.erase(enabled.begin(), enabled.begin() + 9);
    EXPECT_EQ(enabled, (std::vector<uint32_t>{1051, 1027, 1010, 1029, 1013}));
    EXPECT_EQ(modem->session_state, session_connected) << "nobody notified that";
    EXPECT_EQ(modem->slots.reset(*modem), 0);
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(server.enabled().size(), 9u + 5 + 5);
}

TEST_F(cdma_modem, a_re_attach_reaches_the_next_server)
{
    attach();
    EXPECT_EQ(modem->slots.disconnect(*modem), 0);
    EXPECT_EQ(server.enabled().size(), 5u + 4);
    server.die();
    wait_for([] { return !swi_api_alive(); });
    server.serve();
    EXPECT_EQ(modem->slots.ping(*modem), -1);
    EXPECT_EQ(modem->slots.detach(*modem), 0);
    attach();
    EXPECT_TRUE(swi_api_alive());
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(server.enabled().size(), 9u + 5) << "the new server knew nothing of them";
}

TEST_F(cdma_modem, a_record_that_is_filled_anew_is_let_go_of_and_notified_again)
{
    root.write("/var/run/.modem/cellmodem_is_sierra", "");
    root.write("/var/run/.modem/cellmodem_is_cdma", "");
    identify_as("MC5725");
    attach();
    EXPECT_EQ(modem->slots.detach(*modem), 0);
    ASSERT_EQ(cellmodem_select(*modem), 0);
    EXPECT_FALSE(modem->aux_buffer);
    server.notify(notification(1051, {1}));
    server.notify(packet(3));
    wait_for([&] { return log.has("dropped a malformed notification of 3 bytes"); });
    EXPECT_EQ(cdma.hdr_session_state, 255);
    attach();
    EXPECT_EQ(modem->aux_word, 0x6812u);
    server.notify(notification(1051, {2}));
    wait_for([&] { return cdma.hdr_session_state == 2; });
}

// ---- calls

TEST_F(cdma_modem, a_call_that_cannot_be_listened_for_is_not_placed)
{
    attach();
    refuse_notification(1013, swi_status_failed);
    EXPECT_EQ(modem->slots.connect(*modem, "#777", false), -1);
    EXPECT_EQ(modem->slots.disconnect(*modem), -1);
    EXPECT_TRUE(requests_of(swi_op_set_call_originate).empty());
    EXPECT_TRUE(requests_of(swi_op_set_call_disconnect).empty());
    refuse_notification(1013, swi_status_ok);
    EXPECT_EQ(modem->slots.connect(*modem, std::string(33, '1').c_str(), false), -1);
    EXPECT_TRUE(log.has("300 The number to dial has more than 32 characters"));
    EXPECT_TRUE(requests_of(swi_op_set_call_originate).empty());
    EXPECT_EQ(modem->slots.connect(*modem, std::string(32, '1').c_str(), false), 0);
    packet expected = {1, 1, 0, 0}; // a data call
    expected.resize(4 + 32, '1');
    expected.push_back(0);
    EXPECT_EQ(last_sent(swi_op_set_call_originate), expected);
}

TEST_F(cdma_modem, a_call_that_is_refused_is_none)
{
    attach();
    refuse(swi_op_set_call_originate, swi_status_busy);
    EXPECT_EQ(modem->slots.connect(*modem, "#777", false), -1);
    EXPECT_TRUE(log.has("600 sierra_cdma_connect(#777, voice = 0)"));
    EXPECT_TRUE(log.has("300 SwiSetCallOriginateCmd failed: 8"));
    EXPECT_EQ(modem->session_state, session_disconnected);
    refuse(swi_op_set_call_disconnect, swi_status_failed);
    EXPECT_EQ(modem->slots.disconnect(*modem), -1);
    EXPECT_TRUE(log.has("300 SwiSetCallDisconnectCmd Failed: 5"));
}

TEST_F(cdma_modem, a_call_is_connecting_unless_it_is_up_or_over_before_its_command_returns)
{
    attach();
    const struct {
        std::vector<uint32_t> notified; // before the command returns
        bool interface_up;
        int state;
    } rows[] = {
        {{1007}, false, session_connecting},
        {{1008}, false, session_connecting}, // the interface comes later
        {{1008}, true, session_connected},
        {{1012}, false, session_connecting}, // an earlier call's end
        {{1007, 1012}, false, session_disconnected},
        {{1007, 1008, 1012}, false, session_disconnected},
    };
    for (const auto &row : rows) {
        modem->session_state = session_unknown;
        data_interface(row.interface_up);
        log.clear();
        answer_with(swi_op_set_call_originate, [&](const fake_request &request) {
            for (const uint32_t type : row.notified)
                server.notify(notification(type, {}));
            server.notify(notification(1050, {}));
            wait_for([&] { return log.has("700 Unhandled notification: 1050"); });
            return respond(request, swi_status_ok);
        });
        EXPECT_EQ(modem->slots.connect(*modem, "#777", false), 0);
        EXPECT_EQ(modem->session_state, row.state)
            << row.notified.front() << " and " << row.notified.size() - 1 << " more";
    }
}

// ---- activation

TEST_F(cdma_modem, an_activation_clears_the_home_network_and_commits)
{
    attach();
    lock_says(1, 0);
    answer_record(swi_op_pst_get_home_sid_nid, swi_home_sid_nid{0, 4242, 42});
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(activate(), 0); }), "");
    EXPECT_TRUE(log.has("600 Successfully activated modem"));
    EXPECT_FALSE(log.has("700 SwiPstLock() rv")) << "that is the factory reset's";
    EXPECT_EQ(last_sent(swi_op_pst_unlock), (packet{0x40, 0xE2, 1, 0}));
    packet mdn = {0, '5', '5', '5', '0', '1', '0', '0', '0', '0', '1'};
    mdn.resize(33);
    EXPECT_EQ(last_sent(swi_op_set_mobile_dir_num), mdn);
    packet msid = {0, '5', '5', '5', '0', '1', '0', '0', '0', '0', '2'};
    msid.resize(33);
    EXPECT_EQ(last_sent(swi_op_set_imsi), msid);
    EXPECT_EQ(last_sent(swi_op_pst_set_home_sid_nid), (packet{0, 0, 0, 0, 0}));
    EXPECT_EQ(last_sent(swi_op_pst_lock), (packet{1, 0, 0, 0}));

    EXPECT_EQ(activate("123456", "", nullptr), 0) << "what is not given stays";
    EXPECT_EQ(requests_of(swi_op_set_mobile_dir_num).size(), 1u);
    EXPECT_EQ(requests_of(swi_op_set_imsi).size(), 1u);
    EXPECT_EQ(requests_of(swi_op_pst_set_home_sid_nid).size(), 2u);
    EXPECT_EQ(requests_of(swi_op_pst_lock).size(), 2u);
}

TEST_F(cdma_modem, each_step_of_an_activation_ends_it_when_it_fails)
{
    attach();
    lock_says(1, 0);
    const struct {
        swi_operation_id id;
        const char *line;
        const char *printed;
    } rows[] = {
        {swi_op_pst_unlock, "300 Failed to unlock the modem: 5, MSL may be incorrect",
         "Failed to unlock the modem: 5, MSL may be incorrect\n"},
        {swi_op_pst_set_current_nam, "300 SwiPstSetCurrentNam failed: 5", ""},
        {swi_op_set_mobile_dir_num, "300 SwiSetMobileDirNum failed: 5", ""},
        {swi_op_set_imsi, "300 SwiSetIMSI failed: 5", ""},
        {swi_op_pst_get_home_sid_nid, "300 SwiPstGetHomeSidNid failed: 5", ""},
        {swi_op_pst_set_home_sid_nid, "300 SwiPstSetHomeSidNid failed: 5", ""},
        {swi_op_pst_lock, "300 SwiPstLock failed: 5", ""},
    };
    for (const auto &row : rows) {
        log.clear();
        refuse(row.id, swi_status_failed);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(activate(), -1); }), row.printed);
        EXPECT_EQ(log.count(row.line), 1) << row.line;
        EXPECT_TRUE(is_operation(server.requests().back(), row.id)) << "nothing comes behind it";
        EXPECT_FALSE(log.has("Successfully"));
        EXPECT_TRUE(modem->attached);
        answer_as_before(row.id);
        lock_says(1, 0);
    }
    EXPECT_EQ(activate(), 0);
}

TEST_F(cdma_modem, a_lock_that_does_not_commit_says_what_is_missing)
{
    attach();
    const struct {
        uint32_t result;
        uint16_t missing;
        const char *printed;
    } rows[] = {
        {0, 0, ""},
        {2, 0xFFE0, ""},
        {0, 1, " MDN not set\n"},
        {0, 0x12, " IMSI not set\n NAM profile not provisioned in the right order\n"},
        {0, 0xFFFF,
         " MDN not set\n IMSI not set\n SIP User ID / Password not set\n Date not set\n"
         " NAM profile not provisioned in the right order\n"},
    };
    for (const auto &row : rows) {
        lock_says(row.result, row.missing);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(activate(), -1); }), row.printed);
    }
}

TEST_F(cdma_modem, an_msl_is_a_number_with_anything_behind_it)
{
    attach();
    lock_says(1, 0);
    const struct {
        const char *text;
        packet sent;
    } good[] = {
        {"12ab", {12, 0, 0, 0}},
        {" 42", {42, 0, 0, 0}},
        {"", {0, 0, 0, 0}},
        {"abc", {0, 0, 0, 0}},
        {"0x10", {0, 0, 0, 0}},
        {"2147483646", {0xFE, 0xFF, 0xFF, 0x7F}},
        {"-1", {0xFF, 0xFF, 0xFF, 0xFF}},
    };
    for (const auto &row : good) {
        EXPECT_EQ(activate(row.text), 0) << row.text;
        EXPECT_EQ(last_sent(swi_op_pst_unlock), row.sent) << row.text;
    }
    const std::string nines(400, '9');
    const struct {
        const char *text;
        int result;
    } bad[] = {{"99999999999", INT32_MAX},
               {"2147483647", INT32_MAX},
               {"99999999999999999999999x", INT32_MAX},
               {nines.c_str(), INT32_MAX},
               {"-2147483648", INT32_MIN},
               {"-99999999999999999999999", INT32_MIN}};
    const size_t asked = server.requests().size();
    for (const auto &row : bad) {
        log.clear();
        const std::string line = std::string("Invalid MSL provided: ") + row.text;
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(activate(row.text), -1); }), line + "\n");
        EXPECT_EQ(log.count("300 " + line), 1);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(modem->slots.rtn(*modem, row.text), row.result); }),
                  line + "\n");
    }
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(activate(nullptr), -1); }), "MSL was not provided\n");
    const std::string number(32, '1');
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(activate("1", number.c_str()), -1); }),
              "The MDN has more than 31 characters\n");
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(activate("1", "1", number.c_str()), -1); }),
              "The MSID has more than 31 characters\n");
    EXPECT_EQ(server.requests().size(), asked) << "nothing was sent";
    EXPECT_TRUE(modem->attached);
}

// ---- return to the factory state

TEST_F(cdma_modem, a_factory_reset_unlocks_resets_commits_reboots_and_re_attaches)
{
    attach();
    lock_says(1, 0x1F);
    log.clear();
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(modem->slots.rtn(*modem, "12ab"), 0); }), "");
    EXPECT_EQ(log.lines().front(), "700 cdma::sierra_cdma_rtn(12ab)");
    const char *const expected[] = {
        "600 Sierra Wireless CDMA modem cannot be fully detached, faking it...",
        "600 config.cellmodem.tessera.status.attached -> 0",
        "600 Unlocking Sierra Wireless CDMA modem with provided MSL",
        "600 Performing Factory Reset on Sierra Wireless CDMA modem",
        "600 Factory Reset of Sierra Wireless CDMA modem was successful",
        "600 Locking Sierra Wireless CDMA modem and commiting changes",
        "700 SwiPstLock() rv: 0 lockrv: 1 lockrv2: 31",
        "700 Factory Reset was successful: lockrv: 1",
        "700 MDN is not set",
        "700 IMSI is not set",
        "700 SIP User ID / Password is not set",
        "700 Date is not set",
        "700 NAM profile not provisioned in the right order",
        "600 Factory reset was successful, rebooting Sierra Wireless CDMA modem",
        "700 sierra_cdma_reset()",
        "700 Modem successfully reset",
        "600 Sierra Wireless CDMA modem is responding again, continuing...",
        "600 Sierra Wireless CDMA modem reboot was successful",
        "600 Re-attaching to Sierra Wireless CDMA modem",
        "600 Sierra Wireless CDMA cannot be fully detached, faking re-attach....",
        "600 config.cellmodem.tessera.status.attached -> 1",
    };
    const std::vector<std::string> lines = log.lines();
    auto at = lines.begin();
    for (const char *line : expected) {
        at = std::find(at, lines.end(), line);
        ASSERT_NE(at, lines.end()) << line;
    }
    EXPECT_EQ(last_sent(swi_op_pst_unlock), (packet{12, 0, 0, 0}));
    EXPECT_EQ(last_sent(swi_op_factory_reset), (packet{2, 0, 0, 0}));
    EXPECT_EQ(reattached(), 1);
    EXPECT_TRUE(modem->attached);
    EXPECT_EQ(server.enabled().size(), 5u + 1) << "what the reboot made it forget";
}

TEST_F(cdma_modem, whatever_fails_in_a_factory_reset_the_modem_is_attached_again)
{
    attach();
    // The lock's own failure stops nothing, and neither does a silent modem afterwards.
    const struct {
        swi_operation_id id;
        int result;
        const char *line;
        const char *printed;
        swi_operation_id last; // nothing is asked behind it; the count: not looked at
    } rows[] = {
        {swi_op_pst_unlock, 5, "300 Failed to unlock the Sierra Wireless CDMA modem: 5",
         "Failed to unlock the Sierra Wireless CDMA modem: 5, MSL may not be correct\n",
         swi_op_pst_unlock},
        {swi_op_factory_reset, 5, "300 Failed to Factory Reset the modem: 5", "",
         swi_op_factory_reset},
        {swi_op_pst_lock, 0, "700 SwiPstLock() rv: 5 lockrv: 0 lockrv2: 0", "",
         swi_operation_count},
        {swi_op_reset_cdma, 0, "300 Failed to reset Sierra Wireless CDMA modem", "",
         swi_op_reset_cdma},
        {swi_op_get_esn, 0, "600 Sierra Wireless CDMA modem reboot was successful", "",
         swi_op_get_esn},
    };
    identify_as("MC5725");
    attach();
    for (const auto &row : rows) {
        log.clear();
        refuse(row.id, swi_status_failed);
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(modem->slots.rtn(*modem, "7"), row.result); }),
                  row.printed);
        EXPECT_EQ(log.count(row.line), 1) << row.line;
        if (row.last != swi_operation_count) {
            EXPECT_TRUE(is_operation(server.requests().back(), row.last)) << row.line;
        }
        EXPECT_EQ(reattached(), 1) << row.line;
        EXPECT_TRUE(modem->attached);
        answer_as_before(row.id);
    }
    EXPECT_EQ(log.count("600 Sierra Wireless CDMA modem is not yet responding, waiting..."), 5)
        << "the last row's";

    log.clear();
    refuse(swi_op_pst_lock, swi_status_busy);
    refuse(swi_op_reset_cdma, swi_status_failed);
    EXPECT_EQ(modem->slots.rtn(*modem, "7"), 8) << "the lock's result is what is left";
    EXPECT_EQ(reattached(), 1);
}

TEST_F(cdma_modem, a_factory_reset_that_cannot_detach_leaves_the_modem_alone)
{
    attach();
    modem->slots.detach = [](cellmodem &) { return -1; };
    const std::string line = "Failed to detach from Sierra CDMA Modem";
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(modem->slots.rtn(*modem, "77"), 77); }), line + "\n");
    EXPECT_TRUE(log.has("300 " + line));
    EXPECT_NE(modem->slots.rtn(*modem, "0"), 0) << "a failure all the same";
    EXPECT_TRUE(requests_of(swi_op_pst_unlock).empty());
    EXPECT_EQ(reattached(), 0);
}

// ---- records

TEST_F(cdma_modem, a_failed_query_takes_its_keys_out_of_the_record)
{
    identify_as("MC5725");
    attach();
    cdma.hdr_session_state = 4;
    EXPECT_EQ(failing_queries(modem->slots.info) + failing_queries(modem->slots.status),
              golden("cdma-failures.txt"));
}

TEST_F(cdma_modem, values_that_exceed_their_limits_are_cut_or_left_out)
{
    identify_as("MC5725");
    attach();
    swi_mip_profile mip;
    memset(mip.nai, 'n', sizeof(mip.nai) - 1);
    answer_record(swi_op_get_mip_profile, mip);
    EXPECT_NE(record_lines(modem->slots.info, 0).find("mip-nai " + std::string(127, 'n') + "\n"),
              std::string::npos);
    answer_record(swi_op_get_active_mip_profile, swi_number{6});
    EXPECT_EQ(record_lines(modem->slots.info, -1).find("mip-nai"), std::string::npos);
    EXPECT_TRUE(log.has("300 MIP Profile must be between 0 and 5"));
    swi_radio_bands bands;
    bands.count = 20; // more than such a modem has
    answer_record(swi_op_get_current_radio_band, bands);
    std::string eight = "CDMA Band Class 0 1xRTT";
    for (int i = 1; i < 8; i++)
        eight += ", CDMA Band Class 0 1xRTT";
    EXPECT_NE(record_lines(modem->slots.status, 0).find("radio-bands " + eight + "\n"),
              std::string::npos);
    EXPECT_TRUE(log.has("700 HDR Session State: 255")) << "nothing notified is no failure";
}

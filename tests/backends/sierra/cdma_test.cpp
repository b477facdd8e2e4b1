// The CDMA family against a server that answers as each case needs it: session, calls, provisioning.

#include "backends/select.h"
#include "backends/sierra/cdma.h"
#include "backends/sierra/cdma_family.h"
#include "backends/sierra/cdma_names.h"
#include "support/sierra_fixture.h"

#include <algorithm>

class cdma_modem : public sierra_fixture
{
protected:
    cdma_modem() : sierra_fixture(sierra_cdma_init) {}

    void SetUp() override
    {
        sierra_fixture::SetUp();
        shell("exit 0");
    }

    // What the root's shell does, whatever its command line.
    void shell(const std::string &line) const
    {
        root.write("/bin/sh",
                   "#!/bin/sh\necho \"$2\" > \"$TESSERA_ROOT/tmp/line\"\n" + line + "\n");
        ASSERT_EQ(chmod(root.place("/bin/sh").c_str(), 0755), 0);
    }

    void identify_as(const std::string &product)
    {
        swi_modem_type type;
        type.type_code = 0x6812;
        type.technology = swi_cdma_modems;
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

    void data_interface(bool up) const
    {
        root.write("/var/run/ppp-interfaces", up ? "dialout0 10.0.0.2\n" : "");
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
    refuse(swi_object_esn, swi_status_busy);
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
    install_program();
    attach();
    EXPECT_EQ(server.enabled().size(), 5u);
}

TEST_F(cdma_modem, a_refused_notification_fails_the_first_attach_only)
{
    const auto object = static_cast<uint16_t>(swi_object_notification + 1051);
    refuse(object, swi_status_not_supported);
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
    EXPECT_EQ(root.read("/tmp/line"), "/bin/lua /etc/scripts/usb-enum > /tmp/usb-listing\n");

    ASSERT_EQ(unlink(root.place("/tmp/usb-listing").c_str()), 0);
    refuse_operation(swi_op_get_hardware_version, swi_status_failed);
    attach();
    EXPECT_FALSE(modem->aux_buffer);
    EXPECT_TRUE(log.has("300 SwiGetHardwareVersion() failed: 5"));
    EXPECT_TRUE(log.has("300 Failed to retrieve Sierra Wireless CDMA product"));
    answer_as_before(swi_op_get_hardware_version);
    answer_record(swi_op_get_hardware_version, hardware);
    EXPECT_EQ(modem->slots.reset(*modem), 0);
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(modem->aux_buffer, "HW5728") << "it was still booting when it was asked";
    root.write("/tmp/usb-listing", "MC5 Product=yes");
    shell("exit 3");
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
          "700 Unhandled notification: 1050", "700 Sierra Wireless CDMA data call disconnected"})
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
    refuse(swi_object_esn, swi_status_timeout);
    EXPECT_EQ(modem->slots.ping(*modem), -1);
    data_interface(true);
    answer_with(swi_object_esn,
                [](const fake_request &request) { return respond_with(request, swi_number{1}); });
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
    server.die();
    wait_for([] { return !swi_api_alive(); });
    server.serve();
    EXPECT_EQ(modem->slots.ping(*modem), -1);
    EXPECT_EQ(modem->slots.detach(*modem), 0);
    attach();
    EXPECT_TRUE(swi_api_alive());
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(server.enabled().size(), 6u) << "the new server knew nothing of it";
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

TEST_F(cdma_modem, a_call_is_placed_and_ended)
{
    attach();
    EXPECT_EQ(modem->slots.connect(*modem, "#777", false), 0);
    EXPECT_TRUE(log.has("600 sierra_cdma_connect(#777, voice = 0)"));
    EXPECT_EQ(modem->session_state, session_connecting);
    packet expected = {1, 1, 0, 0, '#', '7', '7', '7'};
    expected.resize(4 + 33);
    EXPECT_EQ(last_request(swi_object_call_originate).parameters, expected);
    const std::vector<uint32_t> enabled = server.enabled();
    EXPECT_EQ(std::vector(enabled.begin() + 5, enabled.end()),
              (std::vector<uint32_t>{1027, 1010, 1029, 1013}));
    EXPECT_EQ(modem->slots.connect(*modem, "5550100003", true), 0);
    EXPECT_EQ(last_request(swi_object_call_originate).parameters[0], 0) << "a voice call";
    EXPECT_EQ(modem->slots.disconnect(*modem), 0);
    EXPECT_EQ(requests_of(swi_op_set_call_disconnect).size(), 1u);

    refuse_operation(swi_op_set_call_originate, swi_status_busy);
    EXPECT_EQ(modem->slots.connect(*modem, "#777", false), -1);
    EXPECT_TRUE(log.has("300 SwiSetCallOriginateCmd failed: 8"));
    EXPECT_EQ(modem->session_state, session_disconnected);
    refuse_operation(swi_op_set_call_disconnect, swi_status_failed);
    EXPECT_EQ(modem->slots.disconnect(*modem), -1);
    EXPECT_TRUE(log.has("300 SwiSetCallDisconnectCmd Failed: 5"));
}

TEST_F(cdma_modem, a_call_that_cannot_be_listened_for_is_not_placed)
{
    attach();
    const auto object = static_cast<uint16_t>(swi_object_notification + 1013);
    refuse(object, swi_status_failed);
    EXPECT_EQ(modem->slots.connect(*modem, "#777", false), -1);
    EXPECT_EQ(modem->slots.disconnect(*modem), -1);
    EXPECT_TRUE(requests_of(swi_op_set_call_originate).empty());
    EXPECT_TRUE(requests_of(swi_op_set_call_disconnect).empty());
    refuse(object, swi_status_ok);
    EXPECT_EQ(modem->slots.connect(*modem, std::string(33, '1').c_str(), false), -1);
    EXPECT_TRUE(log.has("300 The number to dial has more than 32 characters"));
    EXPECT_TRUE(requests_of(swi_op_set_call_originate).empty());
    EXPECT_EQ(modem->slots.connect(*modem, std::string(32, '1').c_str(), false), 0);
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
        answer_operation(swi_op_set_call_originate, [&](const fake_request &request) {
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
    EXPECT_EQ(requests_of(swi_op_pst_unlock).at(0).parameters, (packet{0x40, 0xE2, 1, 0}));
    packet mdn = {0, '5', '5', '5', '0', '1', '0', '0', '0', '0', '1'};
    mdn.resize(33);
    EXPECT_EQ(requests_of(swi_op_set_mobile_dir_num).at(0).parameters, mdn);
    packet msid = {0, '5', '5', '5', '0', '1', '0', '0', '0', '0', '2'};
    msid.resize(33);
    EXPECT_EQ(requests_of(swi_op_set_imsi).at(0).parameters, msid);
    EXPECT_EQ(requests_of(swi_op_pst_set_home_sid_nid).at(0).parameters, (packet{0, 0, 0, 0, 0}));
    EXPECT_EQ(requests_of(swi_op_pst_lock).at(0).parameters, (packet{1, 0, 0, 0}));

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
        refuse_operation(row.id, swi_status_failed);
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
        uint32_t sent;
    } good[] = {{"12ab", 12},       {" 42", 42}, {"", 0}, {"abc", 0}, {"2147483646", 2147483646},
                {"-1", 0xFFFFFFFF}, {"0x10", 0}};
    for (const auto &row : good) {
        EXPECT_EQ(activate(row.text), 0) << row.text;
        const packet bytes = requests_of(swi_op_pst_unlock).back().parameters;
        EXPECT_EQ(
            bytes,
            (packet{static_cast<uint8_t>(row.sent), static_cast<uint8_t>(row.sent >> 8),
                    static_cast<uint8_t>(row.sent >> 16), static_cast<uint8_t>(row.sent >> 24)}))
            << row.text;
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
    EXPECT_EQ(requests_of(swi_op_pst_unlock).at(0).parameters, (packet{12, 0, 0, 0}));
    EXPECT_EQ(requests_of(swi_op_factory_reset).at(0).parameters, (packet{2, 0, 0, 0}));
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
        refuse_operation(row.id, swi_status_failed);
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
    refuse_operation(swi_op_pst_lock, swi_status_busy);
    refuse_operation(swi_op_reset_cdma, swi_status_failed);
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

TEST_F(cdma_modem, a_reset_is_told_from_one_of_the_other_family)
{
    attach();
    EXPECT_EQ(modem->slots.reset(*modem), 0);
    EXPECT_EQ(server.requests().back().header.kind, swi_kind_reset);
    refuse_operation(swi_op_reset_cdma, swi_status_busy);
    EXPECT_EQ(modem->slots.reset(*modem), -1);
    EXPECT_TRUE(log.has("300 Failed to reset Sierra Wireless CDMA modem"));
}

// ---- records

TEST_F(cdma_modem, a_failed_query_takes_its_keys_out_of_the_record)
{
    identify_as("MC5725");
    attach();
    cdma.hdr_session_state = 4;
    check_failing_queries({
        {swi_op_get_esn, true, {"esn"}, "300 SwiGetESN() failed: 5"},
        {swi_op_get_hardware_version, true, {"hardware"}, "300 SwiGetHardwareVersion() failed: 5"},
        {swi_op_get_boot_version, true, {"boot"}, "300 SwiGetBootVersion() failed: 5"},
        {swi_op_get_firmware_version, true, {"firmware"}, "300 SwiGetFirmwareVersion() failed: 5"},
        {swi_op_get_prl_version, true, {"prl-version"}, "300 SwiGetPRLVersion() failed: 5"},
        {swi_op_get_phone_number, true, {"phone-number1"}, "300 SwiGetPhoneNumber failed with 5"},
        {swi_op_get_mobile_dir_number, true, {"mdn"}, "300 SwiGetMobileDirNumber() failed: 5"},
        {swi_op_get_cdma_imsi, true, {"msid"}, "300 SwiGetCdmaIMSI() failed: 5"},
        {swi_op_get_nam_calid_status, true, {"nam-status"}, "300 SwiGetNamCalidStatus() failed: 5"},
        {swi_op_get_tech_sid, true, {"sid", "nid"}, "300 SwiGetTechSID() failed: 5"},
        {swi_op_get_tech_nid, true, {"sid", "nid"}, "300 SwiGetTechNID() failed: 5"},
        {swi_op_get_tech_hdr_mac_index,
         true,
         {"hdr-mac-index"},
         "300 SwiGetTechHdrMacIndex failed: 5"},
        {swi_op_get_packet_zone, true, {"packet-zone"}, "300 SwiGetPacketZone() failed: 5"},
        {swi_op_get_mip_behavior, true, {"mip-behavior"}, "300 SwiGetPacketZone() failed: 5"},
        {swi_op_get_active_mip_profile,
         true,
         {"mip-nai", "mip-home-ip", "mip-ha-ip-1", "mip-ha-ip-2"},
         "300 Failed to determine active MIP profile"},
        {swi_op_get_mip_profile,
         true,
         {"mip-nai", "mip-home-ip", "mip-ha-ip-1", "mip-ha-ip-2"},
         "300 Failed to read the MIP profile: 5"},
        {swi_op_get_tech_band_class, true, {"band-class"}, "300 SwiGetTechBandClass failed: 5"},
        {swi_op_get_rssi_ecio,
         false,
         {"rssi", "ecio", "hdr-rssi", "hdr-ecio"},
         "300 SwiGetRssiEcio failed: 5"},
        {swi_op_get_carrier_id, false, {"carrier"}, "300 SwiGetCarrierID failed: 5"},
        {swi_op_get_tech_frame,
         false,
         {"total-frames", "bad-frames"},
         "300 SwiGetTechFrame failed: 5"},
        {swi_op_get_byte_counter,
         false,
         {"tx-bytes", "rx-bytes"},
         "300 SwiGetByteCounter failed: 5"},
        {swi_op_get_tech_powersave_mode,
         false,
         {"powersave-mode"},
         "300 SwiGetTechPowersaveMode failed: 5"},
        {swi_op_get_transmit_power, false, {"transmit-power"}, "300 SwiGetTransmitPower failed: 5"},
        {swi_op_get_temperature, false, {"temperature"}, "300 SwiGetTemperature failed: 5"},
        {swi_op_get_channel_number, false, {"channel"}, "300 SwiGetChannelNumber failed: 5"},
        {swi_op_get_tech_bs_info,
         false,
         {"longtitude", "latitude"},
         "300 SwiGetTechBSInfo failed: 5"},
        {swi_op_get_current_radio_band,
         false,
         {"radio-bands"},
         "300 SwiGetCurrentRadioBand failed: 5"},
        {swi_op_get_authentication_status,
         false,
         {"aaa-status"},
         "300 SwiGetAuthenticationStatus failed: 5"},
        {swi_op_get_service_indication,
         false,
         {"service"},
         "300 SwiGetServiceIndication failed: 5"},
        {swi_op_get_hdr_srv_state, false, {"evdo-service"}, "300 SwiGetHdrSrvState failed: 5"},
        {swi_op_get_call_connection_state,
         false,
         {"call-status"},
         "300 SwiGetCallConnectionState failed: 5"},
        {swi_op_get_roaming_status,
         false,
         {"roaming", "roaming-indicator"},
         "300 SwiGetRoamingStatus failed: 5"},
    });
}

TEST_F(cdma_modem, values_are_written_as_their_rows_say)
{
    identify_as("MC5725");
    attach();
    swi_mip_profile mip;
    memset(mip.nai, 'n', sizeof(mip.nai) - 1);
    mip.home_address = 0x0AAC2A07; // as the SDK has it: the highest byte is the first one
    mip.secondary_agent = 0xFFFFFFFF;
    answer_record(swi_op_get_mip_profile, mip);
    answer_record(swi_op_get_esn, swi_number{0xFFFFFFFF});
    answer_record(swi_op_get_phone_number, swi_text{"0123456789012345678"});
    answer_record(swi_op_get_rssi_ecio, swi_rssi_ecio{85, 0, 65535, 7});
    answer_record(swi_op_get_transmit_power, swi_signed_number{-12});
    answer_record(swi_op_get_tech_bs_info, swi_base_station{-1742400, 561600});
    answer_record(swi_op_get_call_connection_state, swi_number{0x6});
    answer_record(swi_op_get_carrier_id, swi_number{UINT32_MAX});
    swi_radio_bands bands;
    bands.count = 20; // more than such a modem has
    bands.bands[0] = {48, 0};
    bands.bands[1] = {255, 1};
    bands.bands[2] = {254, 9};
    answer_record(swi_op_get_current_radio_band, bands);

    const std::string info = record_lines(modem->slots.info, 0);
    for (const std::string line :
         {"esn 4294967295\n", "phone-number1 012345678901234\n", "mip-home-ip 10.172.42.7\n",
          "mip-ha-ip-1 0.0.0.0\n", "mip-ha-ip-2 255.255.255.255\n", "type 26642\n"})
        EXPECT_NE(info.find(line), info.npos) << line << info;
    EXPECT_NE(info.find("mip-nai " + std::string(127, 'n') + "\n"), info.npos);
    const std::string status = record_lines(modem->slots.status, 0);
    for (const std::string line :
         {"rssi -85\n", "ecio 0\n", "hdr-rssi -65535\n", "hdr-ecio -7\n", "transmit-power -12\n",
          "longtitude -1742400\n", "call-status Voice call, Packet 1xRTT call\n",
          "carrier Unknown Carrier: -1\n",
          "radio-bands GSM DCS 1900 Band 1xRTT, Invalid band EVDO, Unknown band: 254 Unknown type: "
          "9, CDMA Band Class 0 1xRTT, CDMA Band Class 0 1xRTT, CDMA Band Class 0 1xRTT, "
          "CDMA Band Class 0 1xRTT, CDMA Band Class 0 1xRTT\n"})
        EXPECT_NE(status.find(line), status.npos) << line << status;
    EXPECT_EQ(status.find("hdr-session-state"), status.npos) << "nothing notified, no failure";
    EXPECT_TRUE(log.has("700 HDR Session State: 255"));

    answer_record(swi_op_get_active_mip_profile, swi_number{6});
    EXPECT_EQ(record_lines(modem->slots.info, -1).find("mip-nai"), std::string::npos);
    EXPECT_TRUE(log.has("300 MIP Profile must be between 0 and 5"));
    answer_record(swi_op_get_active_mip_profile, swi_number{5});
    EXPECT_NE(record_lines(modem->slots.info, 0).find("mip-nai"), std::string::npos);
    EXPECT_EQ(requests_of(swi_op_get_mip_profile).back().parameters, (packet{5, 0, 0, 0}));
}

TEST_F(cdma_modem, a_call_status_is_a_list_of_at_most_63_characters)
{
    attach();
    const struct {
        uint32_t mask;
        const char *text;
    } rows[] = {
        {0, ""},
        {0x8, ""},
        {0x1, "Async Data call"},
        {0x280, "Fax call, SMS"},
        {0x4400, "OTA, Data connection is in dormant state"},
        {0xFFFFFFFF, "Async Data call, Voice call, Packet 1xRTT call, Async Data call"},
    };
    for (const auto &row : rows) {
        answer_record(swi_op_get_call_connection_state, swi_number{row.mask});
        const std::string status = record_lines(modem->slots.status, 0);
        EXPECT_NE(status.find("call-status " + std::string(row.text) + "\n"), status.npos)
            << row.mask << "\n"
            << status;
    }
}

TEST(cdma_names, an_unknown_code_reads_as_its_table_says)
{
    const struct {
        const name_table *table;
        uint32_t known;
        const char *text;
        uint32_t other;
        const char *other_text;
    } rows[] = {
        {&cdma_hdr_state_names, 2, "AT initiated", 5, "Unknown"},
        {&cdma_nam_status_names, 2, "Incomplete, exceptional Service Required", 3, "Unknown"},
        {&cdma_authentication_names, 1, "Not Authenticated", UINT32_MAX, "Unknown: -1"},
        {&cdma_service_names, 2, "Digital", UINT32_MAX, "Unknown: 4294967295"},
        {&cdma_evdo_service_names, 4, "RevA", 1, "Unknown"},
        {&cdma_roaming_names, 2, "Non Preferred Roaming", 3, "Service Provider Dependent: 3"},
        {&cdma_band_technology_names, 2, "GSM/WCDMA", 3, "Unknown type: 3"},
        {&cdma_radio_band_names, 48, "GSM DCS 1900 Band", 13, "Unknown band: 13"},
        {&cdma_carrier_names, 29, "Tata", 30, "Unknown Carrier: 30"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(name_of(*row.table, row.known), row.text);
        EXPECT_EQ(name_of(*row.table, row.other), row.other_text);
    }
}

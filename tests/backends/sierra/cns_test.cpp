// The session that the Sierra families share.

#include "backends/sierra/cns.h"
#include "backends/sierra/names.h"
#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "support/fake_infod.h"
#include "support/swi_fixture.h"
#include "swi/api_state.h"

#include <filesystem>

#include <sys/stat.h>

class cns : public swi_fixture
{
protected:
    void install_program(const std::string &text = "#!/bin/sh\n")
    {
        root.write("/bin/swisdk", text);
        ASSERT_EQ(chmod(root.place("/bin/swisdk").c_str(), 0755), 0);
    }

    // Answers every request with this status.
    static fake_swi_server::answer_function status(uint32_t status)
    {
        return [=](const fake_request &request) {
            const packet zeros(900);
            return packets{respond(request, status, zeros)};
        };
    }

    sierra_identity identity;
    cellmodem modem;
    fake_infod infod;
};

TEST_F(cns, starts_once_and_identifies_the_modem)
{
    install_program();
    fake_swi_server server([](const fake_request &request) {
        swi_modem_type type;
        type.type_code = 0x7a01;
        type.technology = swi_gsm_modems;
        EXPECT_EQ(swi_set_text(type.product, "UGM8800"), 0);
        return packets{request.header.kind == swi_kind_device_info
                           ? respond_with(request, type)
                           : respond(request, swi_status_ok, packet(1008))};
    });
    ASSERT_EQ(sierra_cns_start(identity), 0);
    EXPECT_STREQ(identity.product, "UGM8800");
    EXPECT_EQ(identity.type_code, 0x7a01u);
    EXPECT_TRUE(log.has("700 Detected sierra-wireless modem: 'UGM8800' 0x7a01"));
    EXPECT_EQ(sierra_cns_await_thread(), 0);
    const size_t asked = server.requests().size();
    EXPECT_EQ(sierra_cns_start(identity), 0);
    EXPECT_TRUE(log.has("600 Sierra CnS back-end may only be started once"));
    EXPECT_EQ(server.requests().size(), asked);
    EXPECT_EQ(sierra_cns_restore(identity), 0) << "nothing to be done";
    EXPECT_EQ(sierra_cns_stop_notifications(), 0);
    EXPECT_TRUE(log.has("600 Canceling sierra API notification thread"));
}

TEST_F(cns, does_not_start_without_the_server_program)
{
    fake_swi_server server;
    EXPECT_EQ(sierra_cns_start(identity), -1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"0 No such file: /bin/swisdk"});
    EXPECT_TRUE(server.requests().empty());
    root.write("/bin/swisdk", "not executable");
    if (geteuid() != 0) {
        EXPECT_EQ(sierra_cns_start(identity), -1);
    }
}

TEST_F(cns, waits_until_the_server_reaches_the_modem)
{
    install_program();
    std::atomic<int> checks = 0;
    fake_swi_server server([&](const fake_request &request) {
        swi_air_server_status air;
        if (request.header.kind != swi_kind_air_server)
            return packets{respond(request, swi_status_timeout)}; // the modem type
        air.unavailable = ++checks < 4;
        return packets{respond_with(request, air)};
    });
    EXPECT_EQ(sierra_cns_start(identity), 0) << "a failed identification is no failure";
    EXPECT_EQ(log.count("300 Sierra Wireless Air Server unavailable"), 3);
    EXPECT_STREQ(identity.product, "");
}

TEST_F(cns, a_server_that_cannot_be_opened_ends_the_process)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto start = [&](bool busy, uint8_t version) {
        log_set_sink(
            [](int priority, const char *text) { fprintf(stderr, "%d %s\n", priority, text); });
        install_program();
        fake_swi_server server;
        server.busy = busy;
        server.version = version;
        (void)sierra_cns_start(identity);
    };
    EXPECT_EXIT(start(false, 9), testing::ExitedWithCode(1), "0 Sierra Wireless API Open failed\n");
    EXPECT_EXIT(start(true, swi_version), testing::ExitedWithCode(1),
                "0 Sierra Wireless API Open failed, busy\n");
    EXPECT_EXIT(
        {
            log_set_sink([](int, const char *text) { fprintf(stderr, "%s\n", text); });
            install_program(""); // nothing that can be started
            (void)sierra_cns_start(identity);
        },
        testing::ExitedWithCode(1), "Sierra Wireless API Open failed with system error\n");
}

TEST_F(cns, ping_publishes_whether_the_modem_answers)
{
    fake_swi_server server;
    ASSERT_EQ(open_api(), swi_ok);
    EXPECT_EQ(sierra_cns_ping(modem), 0);
    EXPECT_EQ(modem.device_state, device_responding);
    server.set_answer(status(swi_status_busy));
    EXPECT_EQ(sierra_cns_ping(modem), -1);
    EXPECT_EQ(modem.device_state, device_unresponsive);
    EXPECT_TRUE(log.has("400 Failed to ping sierra wireless modem: 8"));
    server.set_answer({});
    EXPECT_EQ(sierra_cns_ping(modem), 0);
    server.die();
    EXPECT_EQ(sierra_cns_ping(modem), -1);
    EXPECT_TRUE(log.has("400 Failed to ping sierra wireless modem: 153"));
    EXPECT_EQ(infod.pushed.back(),
              "text config.cellmodem.tessera.status.device-state=UNRESPONSIVE");
}

TEST_F(cns, a_request_that_is_not_for_this_technology_says_nothing_against_the_modem)
{
    fake_swi_server server;
    ASSERT_EQ(open_api(), swi_ok);
    swi_api.technology = ~uint32_t{swi_any_modem};
    swi_number esn;
    ASSERT_EQ(swi_get_esn(esn, timeout_ms), swi_not_applicable);
    EXPECT_EQ(sierra_cns_ping(modem), 0);
    EXPECT_EQ(modem.device_state, device_responding);
    EXPECT_FALSE(log.has("Failed to ping"));
}

TEST_F(cns, a_session_whose_server_died_is_restored_below)
{
    install_program();
    fake_swi_server server;
    ASSERT_EQ(sierra_cns_start(identity), 0);
    ASSERT_EQ(sierra_cns_enable_call_notifications(), 0);
    EXPECT_EQ(server.enabled(), (std::vector<uint32_t>{1027, 1010, 1029, 1013}));
    EXPECT_EQ(sierra_cns_enable_call_notifications(), 0);
    EXPECT_EQ(server.enabled().size(), 4u) << "once";
    server.die();
    wait_for([] { return !swi_api_alive(); });
    server.serve();
    EXPECT_EQ(sierra_cns_start(identity), 1) << "all notifications must be enabled again";
    EXPECT_TRUE(swi_api_alive());
    EXPECT_EQ(sierra_cns_ping(modem), 0);
    EXPECT_EQ(sierra_cns_enable_call_notifications(), 0);
    EXPECT_EQ(server.enabled().size(), 8u) << "the new server knew nothing of them";
}

TEST_F(cns, a_restore_identifies_what_was_silent_and_does_not_wait_for_ever)
{
    install_program();
    std::atomic<bool> known = false;
    std::atomic<bool> unavailable = false;
    fake_swi_server server([&](const fake_request &request) {
        swi_modem_type type;
        EXPECT_EQ(swi_set_text(type.product, "UGM8800"), 0);
        if (request.header.kind == swi_kind_air_server)
            return packets{respond_with(request, swi_air_server_status{unavailable})};
        return packets{known ? respond_with(request, type) : respond(request, swi_status_timeout)};
    });
    ASSERT_EQ(sierra_cns_start(identity), 0);
    EXPECT_STREQ(identity.product, "");
    known = true;
    EXPECT_EQ(sierra_cns_restore(identity), 0);
    EXPECT_STREQ(identity.product, "UGM8800");

    unavailable = true;
    server.die();
    wait_for([] { return !swi_api_alive(); });
    server.serve();
    EXPECT_EQ(sierra_cns_restore(identity), -1);
    EXPECT_EQ(log.count("300 Sierra Wireless Air Server unavailable"), 13) << "a minute, each 5 s";
    EXPECT_EQ(sierra_cns_start(identity), 0) << "the session is there, and pings tell the rest";
}

TEST_F(cns, the_first_call_notification_that_fails_ends_the_row)
{
    install_program();
    fake_swi_server server;
    ASSERT_EQ(sierra_cns_start(identity), 0);
    const struct {
        uint32_t id;
        const char *line;
    } rows[] = {
        {1027, "300 Failed setting call status notifications: 5"},
        {1010, "300 Failed setting caller-id notification: 5"},
        {1029, "300 Failed setting call privacy notification: 5"},
        {1013, "300 Failed setting call error notification: 5"},
    };
    for (const auto &row : rows) {
        server.set_answer([&](const fake_request &request) {
            const bool refused = request.object.object == swi_object_notification + row.id;
            return packets{respond(request, refused ? swi_status_failed : swi_status_ok)};
        });
        EXPECT_EQ(sierra_cns_enable_call_notifications(), -1);
        EXPECT_EQ(server.enabled().back(), row.id);
        EXPECT_EQ(log.count(row.line), 1) << row.line;
    }
}

TEST_F(cns, the_data_call_is_up_when_its_interface_is_there)
{
    EXPECT_EQ(sierra_cns_find_ppp_interface(modem), -1);
    EXPECT_EQ(modem.session_state, session_disconnected);
    EXPECT_TRUE(log.has("700 Found 0 ppp interfaces"));
    EXPECT_TRUE(log.has("700 Could not locate PPP interface"));
    root.write("/var/run/ppp-interfaces", "dialout1 10.0.0.1\ndialout0 10.0.0.2\n");
    EXPECT_EQ(sierra_cns_find_ppp_interface(modem), 0);
    EXPECT_EQ(modem.session_state, session_connected);
    EXPECT_TRUE(log.has("700 Found 2 ppp interfaces"));
    EXPECT_TRUE(log.has("700 Found interface: dialout1 address: 10.0.0.1"));
    root.write("/var/run/ppp-interfaces", "dialout1 10.0.0.1\n");
    EXPECT_EQ(sierra_cns_find_ppp_interface(modem), -1);
    EXPECT_EQ(modem.session_state, session_disconnected);
}

TEST_F(cns, result_codes_have_names_and_classes)
{
    char name[16];
    EXPECT_STREQ(sierra_cns_rcode_name(0, name, sizeof(name)), "SWI_RCODE_OK");
    EXPECT_STREQ(sierra_cns_rcode_name(6, name, sizeof(name)), "SWI_RCODE_UNEXP");
    EXPECT_STREQ(sierra_cns_rcode_name(-3, name, sizeof(name)), "SWI_RCODE: -3");

    EXPECT_EQ(sierra_cns_check_error(0), 1);
    EXPECT_EQ(sierra_cns_check_error(600), 1);
    EXPECT_TRUE(log.lines().empty()) << "neither of these is worth a line";
    EXPECT_EQ(sierra_cns_check_error(153), 2);
    EXPECT_EQ(log.lines().back(), "300 Sierra Wireless Error: 153: SWI_RCODE: 153");
    // The first code of each run, and its class: it holds up to the next row.
    const struct {
        int from;
        int error_class;
    } runs[] = {{0, 1},   {7, 2},   {14, 0},  {15, 2},  {24, 0},       {75, 2},  {79, 0},  {100, 2},
                {101, 1}, {106, 0}, {150, 2}, {156, 0}, {200, 2},      {201, 1}, {205, 0}, {225, 1},
                {226, 2}, {227, 1}, {230, 0}, {250, 2}, {251, 1},      {255, 0}, {275, 2}, {277, 0},
                {300, 2}, {304, 0}, {600, 1}, {601, 0}, {INT32_MAX, 0}};
    size_t run = 0;
    for (int code = 0; code < 700; code++) {
        if (code == runs[run + 1].from)
            run++;
        ASSERT_EQ(sierra_cns_check_error(code), runs[run].error_class) << code;
    }
    EXPECT_EQ(sierra_cns_check_error(-1), 0);
    EXPECT_EQ(sierra_cns_check_error(INT32_MIN), 0);
}

TEST(names, an_unknown_code_reads_as_its_table_says)
{
    static constexpr code_name rows[] = {{0, "none"}, {65535, "all"}};
    const name_table plain = {rows, "Unknown"};
    const name_table with_code = {rows, "Unknown: ", other_code::text_and_signed};
    const name_table unsigned_code = {rows, "Unknown: ", other_code::text_and_unsigned};
    EXPECT_EQ(name_of(plain, 65535), "all");
    EXPECT_EQ(name_of(plain, 1), "Unknown");
    EXPECT_EQ(name_of(with_code, 0xFFFFFFFF), "Unknown: -1");
    EXPECT_EQ(name_of(unsigned_code, 0xFFFFFFFF), "Unknown: 4294967295");
}

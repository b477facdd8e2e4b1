// The session that the Sierra families share.

#include "backends/sierra/cdma_names.h"
#include "backends/sierra/cns.h"
#include "backends/sierra/gsm.h"
#include "backends/sierra/gsm_names.h"
#include "support/sierra_fixture.h"
#include "swi/api_state.h"

class cns : public sierra_fixture
{
protected:
    cns() : sierra_fixture(sierra_gsm_init) {}

    sierra_identity identity;
};

TEST_F(cns, a_server_that_cannot_be_opened_ends_the_process)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    log.on_line([](const std::string &line) { fprintf(stderr, "%s\n", line.c_str()); });
    const testing::ExitedWithCode failure(1);
    server.version = swi_version + 1;
    EXPECT_EXIT((void)sierra_cns_start(identity), failure, "0 Sierra Wireless API Open failed\n");
    server.version = swi_version;
    server.busy = true;
    EXPECT_EXIT((void)sierra_cns_start(identity), failure,
                "0 Sierra Wireless API Open failed, busy\n");
    server.die();
    install_program("/bin/swisdk", ""); // nothing that can be started
    EXPECT_EXIT((void)sierra_cns_start(identity), failure,
                "0 Sierra Wireless API Open failed with system error\n");
}

TEST_F(cns, waits_until_the_server_reaches_the_modem)
{
    answer_with(swi_op_air_server, [checks = 0](const fake_request &request) mutable {
        return respond_with(request, swi_air_server_status{++checks < 4});
    });
    EXPECT_EQ(sierra_cns_start(identity), 0);
    EXPECT_EQ(log.count("300 Sierra Wireless Air Server unavailable"), 3);
}

TEST_F(cns, a_request_that_is_not_for_this_technology_says_nothing_against_the_modem)
{
    ASSERT_EQ(open_api(), swi_ok);
    swi_api.technology = ~uint32_t{swi_any_modem};
    swi_number esn;
    ASSERT_EQ(swi_get_esn(esn, timeout_ms), swi_not_applicable);
    EXPECT_EQ(sierra_cns_ping(*modem), 0);
    EXPECT_EQ(modem->device_state, device_responding);
    EXPECT_FALSE(log.has("Failed to ping"));
}

TEST_F(cns, a_restore_identifies_what_was_silent_and_does_not_wait_for_ever)
{
    const auto replace_server = [this] {
        server.die();
        wait_for([] { return !swi_api_alive(); });
        server.serve();
    };
    refuse(swi_op_modem_type, swi_status_timeout);
    ASSERT_EQ(sierra_cns_start(identity), 0) << "a failed identification is no failure";
    EXPECT_STREQ(identity.product, "");
    answer_record(swi_op_modem_type, swi_modem_type{.product = "UGM8800"});
    EXPECT_EQ(sierra_cns_restore(identity), 0);
    EXPECT_STREQ(identity.product, "UGM8800");
    EXPECT_TRUE(log.has("700 Detected sierra-wireless modem: 'UGM8800' 0x"));

    ASSERT_EQ(sierra_cns_enable_call_notifications(), 0);
    replace_server();
    EXPECT_EQ(sierra_cns_start(identity), 1) << "all notifications must be enabled again";
    EXPECT_EQ(sierra_cns_enable_call_notifications(), 0);
    EXPECT_EQ(server.enabled().size(), 4u + 4) << "the new server knew nothing of them";

    answer_record(swi_op_air_server, swi_air_server_status{1});
    replace_server();
    EXPECT_EQ(sierra_cns_restore(identity), -1);
    EXPECT_EQ(log.count("300 Sierra Wireless Air Server unavailable"), 13) << "a minute, each 5 s";
    EXPECT_EQ(sierra_cns_start(identity), 0) << "the session is there, and pings tell the rest";
    EXPECT_EQ(sierra_cns_stop_notifications(), 0);
    EXPECT_TRUE(log.has("600 Canceling sierra API notification thread"));
}

TEST_F(cns, the_first_call_notification_that_fails_ends_the_row)
{
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
        refuse_notification(row.id, swi_status_failed);
        EXPECT_EQ(sierra_cns_enable_call_notifications(), -1);
        EXPECT_EQ(server.enabled().back(), row.id);
        EXPECT_EQ(log.count(row.line), 1) << row.line;
        refuse_notification(row.id, swi_status_ok);
    }
}

TEST_F(cns, result_codes_have_names_and_classes)
{
    char name[16];
    EXPECT_STREQ(sierra_cns_rcode_name(0, name, sizeof(name)), "SWI_RCODE_OK");
    EXPECT_STREQ(sierra_cns_rcode_name(6, name, sizeof(name)), "SWI_RCODE_UNEXP");
    EXPECT_STREQ(sierra_cns_rcode_name(-3, name, sizeof(name)), "SWI_RCODE: -3");

    EXPECT_EQ(sierra_cns_check_error(0), 1);
    EXPECT_EQ(sierra_cns_check_error(600), 1);
    EXPECT_FALSE(log.has("Sierra Wireless Error")) << "neither of these is worth a line";
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

TEST(sierra_names, every_code_reads_as_it_always_has)
{
    const struct {
        const char *key;
        const name_table &table;
    } tables[] = {
        {"sim-status", gsm_sim_status_names},
        {"sim-lock", gsm_sim_lock_names},
        {"network-status", gsm_network_status_names},
        {"service-status", gsm_service_status_names},
        {"system-mode", gsm_system_mode_names},
        {"modem-status", gsm_modem_status_names},
        {"service-type", gsm_service_type_names},
        {"roaming-status", gsm_roaming_names},
        {"band", gsm_band_type_names},
        {"current-bands", gsm_radio_band_names},
        {"region", gsm_region_names},
        {"hdr-session-state", cdma_hdr_state_names},
        {"nam-status", cdma_nam_status_names},
        {"aaa-status", cdma_authentication_names},
        {"service", cdma_service_names},
        {"evdo-service", cdma_evdo_service_names},
        {"roaming", cdma_roaming_names},
        {"radio-bands", cdma_radio_band_names},
        {"radio-technology", cdma_band_technology_names},
        {"carrier", cdma_carrier_names},
    };
    std::string all;
    const auto write = [&](const char *key, uint32_t code, const std::string &name) {
        all += key + (" " + std::to_string(code)) + " " + name + "\n";
    };
    for (const auto &[key, table] : tables) {
        for (uint32_t code = 0; code <= 65536; code++) {
            const std::string name = name_of(table, code);
            const std::string number = table.print == other_code::text ? "" : std::to_string(code);
            if (name != table.other + number)
                write(key, code, name);
        }
        for (const uint32_t other : {77777u, UINT32_MAX})
            write(key, other, name_of(table, other));
    }
    for (uint32_t bit = 1; bit != 0; bit <<= 1)
        if (const std::string name = cdma_call_status_names(bit); !name.empty())
            write("call-status", bit, name);
    write("call-status", UINT32_MAX, cdma_call_status_names(UINT32_MAX));
    EXPECT_EQ(all, golden("sierra-names.txt"));
}

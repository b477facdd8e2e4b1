// The UMTS/GSM family against a server that answers as each case needs it.

#include "backends/select.h"
#include "backends/sierra/gsm.h"
#include "backends/sierra/gsm_family.h"
#include "support/sierra_fixture.h"

#include <algorithm>
#include <filesystem>

class gsm_modem : public sierra_fixture
{
protected:
    gsm_modem() : sierra_fixture(sierra_gsm_init) {}

    void sim_status(uint32_t code)
    {
        server.notify(notification(swi_notify_sim_status, {code}));
        wait_for([&] { return gsm.sim_status == code; });
    }
};

// ---- attach and notifications

TEST_F(gsm_modem, attach_enables_eight_notifications_in_order)
{
    attach();
    EXPECT_TRUE(modem->attached);
    EXPECT_EQ(server.enabled(),
              (std::vector<uint32_t>{2017, 2008, 112, 2000, 2031, 2026, 2028, 103}));
    EXPECT_EQ(modem->slots.attach(*modem), 0);
    EXPECT_TRUE(log.has("600 Sierra Wireless GSM modem can not be reattached"));
    EXPECT_EQ(server.enabled().size(), 8u);
    EXPECT_EQ(modem->slots.detach(*modem), 0);
    EXPECT_TRUE(log.has("600 Sierra Wireless GSM modem can not be detached"));
    EXPECT_FALSE(modem->attached);
    EXPECT_EQ(modem->slots.detach(*modem), 0);
    attach();
    EXPECT_TRUE(log.has("600 Sierra CnS back-end may only be started once"));
    EXPECT_EQ(server.enabled().size(), 16u);
}

TEST_F(gsm_modem, attach_needs_the_server_program)
{
    std::filesystem::remove(root.place("/bin/swisdk"));
    EXPECT_EQ(modem->slots.attach(*modem), -1);
    root.write("/bin/swisdk", "not executable");
    EXPECT_EQ(modem->slots.attach(*modem), -1);
    EXPECT_EQ(log.count("0 No such file: /bin/swisdk"), 2);
    EXPECT_EQ(log.count("0 Failed to start swisdk."), 2);
    EXPECT_FALSE(modem->attached);
    EXPECT_TRUE(server.requests().empty());
    install_program("/bin/swisdk");
    attach();
    EXPECT_TRUE(modem->attached);
}

TEST_F(gsm_modem, attach_fails_with_the_first_notification_that_is_refused)
{
    const struct {
        uint32_t id;
        std::string what, name;
    } rows[] = {
        {2017, "modem disabled", "ModemDisabled"},      {2008, "SIM status", "SimStatusExp"},
        {112, "temperature", "RadioTempState"},         {2000, "Network status", "NetworkStatus"},
        {2031, "GSM system status", "GsmSystemStatus"}, {2026, "service icon", "ServiceIcon"},
        {2028, "packet session", "PktSessionCall"},     {103, "RSSI", "Rssi"},
    };
    for (const auto &row : rows) {
        log.clear();
        refuse_notification(row.id, swi_status_failed);
        EXPECT_EQ(modem->slots.attach(*modem), -1);
        EXPECT_FALSE(modem->attached);
        EXPECT_EQ(server.enabled().back(), row.id);
        EXPECT_EQ(log.count("700 Enabling " + row.what + " notifications"), 1) << row.what;
        EXPECT_EQ(log.count("300 SWI_NOTIFY_" + row.name + " failed: 5"), 1) << row.name;
        EXPECT_EQ(log.count("300 Failed to setup GSM event notification"), 1);
        refuse_notification(row.id, swi_status_ok);
    }
    attach(); // a failed attach is no obstacle to the next
}

TEST_F(gsm_modem, a_recovery_attaches_whatever_becomes_of_the_notifications)
{
    attach();
    for (const uint32_t status : {swi_status_timeout, swi_status_busy, swi_status_not_supported}) {
        EXPECT_EQ(modem->slots.detach(*modem), 0);
        refuse_notification(2000, status);
        attach();
        EXPECT_TRUE(modem->attached) << status;
        size_t enabled = server.enabled().size();
        EXPECT_EQ(modem->slots.ping(*modem), 0) << "it answers, whatever it refuses";
        EXPECT_EQ(server.enabled().size(), enabled + 4);
        refuse_notification(2000, swi_status_ok);
        EXPECT_EQ(modem->slots.ping(*modem), 0);
        EXPECT_EQ(server.enabled().size(), enabled += 4 + 8);
        EXPECT_EQ(modem->slots.ping(*modem), 0);
        EXPECT_EQ(server.enabled().size(), enabled) << "now they are enabled";
    }
}

TEST_F(gsm_modem, a_modem_that_may_have_rebooted_is_told_again_what_to_notify)
{
    attach();
    EXPECT_EQ(modem->slots.disconnect(*modem), -1);
    EXPECT_EQ(server.enabled().size(), 12u);
    refuse(swi_op_get_esn, swi_status_timeout);
    EXPECT_EQ(modem->slots.ping(*modem), -1);
    EXPECT_EQ(server.enabled().size(), 12u);
    EXPECT_EQ(modem->device_state, device_unresponsive);
    refuse(swi_op_get_esn, swi_status_busy);
    EXPECT_EQ(modem->slots.ping(*modem), -1);
    EXPECT_TRUE(log.has("400 Failed to ping sierra wireless modem: 8"));
    answer_as_before(swi_op_get_esn);
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    const std::vector<uint32_t> all = server.enabled();
    ASSERT_EQ(all.size(), 24u);
    EXPECT_TRUE(std::equal(all.begin(), all.begin() + 12, all.begin() + 12))
        << "those of calls, too";
    EXPECT_EQ(modem->slots.reset(*modem), 0);
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(server.enabled().size(), 36u);
    refuse(swi_op_reset_gsm, swi_status_busy);
    EXPECT_EQ(modem->slots.reset(*modem), -1);
    EXPECT_TRUE(log.has("300 Failed to reset Sierra Wireless modem"));
}

TEST_F(gsm_modem, notifications_change_what_they_are_about)
{
    attach();
    sim_status(5);
    server.notify(notification(2000, {4}));
    server.notify(notification(2031, {0, 0, 0, 0, 6}));
    server.notify(notification(2017, {1}));
    wait_for([&] { return modem->state_b == gsm_radio_on; });
    EXPECT_EQ(gsm.network_status, 4u);
    EXPECT_EQ(gsm.system_mode, 6u);
    EXPECT_TRUE(log.has("700 Network status is_NOT_ normal: 4"));
    server.notify(notification(2017, {0}));
    wait_for([&] { return modem->state_b == gsm_radio_off; });
    const struct {
        packet bytes;
        int session;
    } rows[] = {
        {notification(1007, {}), session_connecting},
        {notification(1008, {}), session_connected},
        {notification(1012, {}), session_disconnected},
        {notification(2026, {0, 0, 1}), session_connected},
        {notification(2026, {1, 1, 0}), session_disconnected},
        {notification(2028, {1}), session_connected},
        {notification(2028, {0}), session_disconnected},
    };
    for (const auto &row : rows) {
        server.notify(row.bytes);
        wait_for([&] { return modem->session_state == row.session; });
    }
    server.notify(notification(103, {1}));
    server.notify(notification(2012, {1}));
    server.notify(notification(3000, {1}));
    wait_for([&] { return log.has("700 Unknown notification: "); });
    EXPECT_EQ(log.count("700 Unknown notification: 3000"), 1);
    EXPECT_FALSE(log.has("Unknown notification: 103"));
    EXPECT_FALSE(log.has("Unknown notification: 2012"));
}

TEST_F(gsm_modem, a_destroyed_record_is_no_longer_notified)
{
    attach();
    cellmodem_destroy(&modem);
    server.notify(notification(2028, {1}));
    server.notify(packet(3));
    wait_for([&] { return log.has("dropped a malformed notification of 3 bytes"); });
}

TEST_F(gsm_modem, a_record_that_is_filled_anew_is_let_go_of_first)
{
    root.write("/var/run/.modem/cellmodem_is_sierra", "");
    root.write("/var/run/.modem/cellmodem_is_gsm", "");
    attach();
    ASSERT_EQ(modem->slots.detach(*modem), 0);
    ASSERT_EQ(cellmodem_select(*modem), 0);
    server.notify(notification(2028, {1}));
    server.notify(packet(3));
    wait_for([&] { return log.has("dropped a malformed notification of 3 bytes"); });
    EXPECT_EQ(modem->session_state, session_unknown);
    attach();
    server.notify(notification(2028, {1}));
    wait_for([&] { return modem->session_state == session_connected; });
}

TEST_F(gsm_modem, data_calls_are_placed_elsewhere)
{
    attach();
    EXPECT_EQ(modem->slots.connect(*modem, "*99#", false), -1);
    EXPECT_TRUE(log.has("700 sierra_gsm_connect(*99#, voice = 0)"));
    EXPECT_EQ(modem->slots.disconnect(*modem), -1);
    EXPECT_EQ(server.enabled().back(), 1013u) << "the call notifications";
}

// ---- radio

TEST_F(gsm_modem, a_radio_that_does_not_follow_times_out)
{
    attach();
    EXPECT_EQ(modem->slots.radio(*modem, true), -1);
    EXPECT_TRUE(log.has("700 Radio currently disabled: 1"));
    EXPECT_TRUE(log.has("700 SwiSetModemDisable(1)"));
    EXPECT_TRUE(log.has("700 Radio status is: 2"));
    EXPECT_TRUE(log.has("300 Timed out waiting for radio to turn on"));
    refuse(swi_op_get_modem_enable, swi_status_failed);
    testing::internal::CaptureStderr();
    EXPECT_EQ(modem->slots.radio(*modem, true), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to detect the radio status: 5");
    answer_record(swi_op_get_modem_enable, swi_number{2});
    refuse(swi_op_set_modem_disable, swi_status_busy);
    EXPECT_EQ(modem->slots.radio(*modem, true), -1);
    EXPECT_EQ(log.count("700 Radio currently disabled: 0"), 1) << "2 is on, too";
    EXPECT_TRUE(log.has("300 Failed to enabled radio: 8"));
}

// ---- SIM

TEST_F(gsm_modem, sim_presence_follows_the_status)
{
    attach();
    EXPECT_EQ(modem->slots.simispresent(*modem), 1) << "unknown";
    sim_status(1);
    EXPECT_EQ(modem->slots.simispresent(*modem), 0);
    EXPECT_TRUE(log.has("600 SIM is not present: SIM is not inserted"));
    sim_status(2);
    EXPECT_EQ(modem->slots.simispresent(*modem), 0);
    sim_status(5);
    EXPECT_EQ(modem->slots.simispresent(*modem), 1);
    EXPECT_TRUE(log.has("600 SIM is present: SIM is locked"));
}

TEST_F(gsm_modem, a_sim_is_unlocked_in_two_requests)
{
    attach();
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), -1);
    EXPECT_TRUE(log.has("300 Failed to determine SIM lock status."));
    packet expected = {28, 0, 0, 0, 1, 0, 0, 0, '1', '2', '3', '4'};
    expected.resize(28);
    EXPECT_EQ(last_sent(swi_op_set_sim_verify), expected);
    sim_status(0);
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), 0);
    EXPECT_TRUE(log.has("700 SIM is already unlocked"));
    sim_status(5);
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), -1) << "it stays locked";
    EXPECT_TRUE(log.has("700 Currently SIM islocked: 5"));
    EXPECT_TRUE(log.has("300 Failed to unlock SIM"));
    refuse(swi_op_set_sim_lock, swi_status_failed);
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), -1);
    EXPECT_TRUE(log.has("300 SwiSetSimLock() failed with: 5"));
    answer_with(swi_op_set_sim_lock, [&](const fake_request &request) {
        server.notify(notification(2008, {0}));
        return respond(request, swi_status_ok);
    });
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), 0);
    EXPECT_TRUE(log.has("700 SIM is now unlocked"));
    expected = {20, 0, 0, 0, 0, 0, 0, 0, '1', '2', '3', '4'};
    expected.resize(20);
    EXPECT_EQ(last_sent(swi_op_set_sim_lock), expected);
    sim_status(5);
    refuse(swi_op_set_sim_lock, swi_status_error, "no");
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), -1);
    EXPECT_TRUE(log.has("300 Modem reports CnS Error: no"));
    refuse(swi_op_set_sim_verify, swi_status_error, "Incorrect PIN, 2 tries left");
    EXPECT_EQ(modem->slots.unlocksim(*modem, "9999"), -1);
    EXPECT_TRUE(log.has("300 SIM verify command is rejected: 600"));
    EXPECT_TRUE(log.has("300 Modem reports CnS Error: Incorrect PIN, 2 tries left"));
    const size_t asked = server.requests().size();
    EXPECT_EQ(modem->slots.unlocksim(*modem, "123456789"), -1) << "does not fit its field";
    EXPECT_EQ(server.requests().size(), asked);
}

TEST_F(gsm_modem, an_unblocking_needs_codes_of_four_to_eight)
{
    attach();
    const struct {
        const char *puk, *pin;
        const char *line; // null: passes
    } rows[] = {
        {"123456789", "123", "300 PIN must be between 4 and 8 digits"},
        {"12345678", "123456789", "300 PIN must be between 4 and 8 digits"},
        {"123456789", "1234", "300 PUK must be between 4 and 8 digits"},
        {"123", nullptr, "300 PUK must be between 4 and 8 digits"},
        {"12345678", "87654321", nullptr},
        {"1234", "1234", nullptr},
        {"abcd", nullptr, nullptr},
    };
    for (const auto &row : rows) {
        log.clear();
        EXPECT_EQ(modem->slots.unblocksim(*modem, row.puk, row.pin), row.line ? -1 : 0);
        EXPECT_TRUE(log.has(row.line ? row.line : "700 SIM unblock command is being processed"));
    }
    EXPECT_EQ(modem->slots.unblocksim(*modem, "12345678", "87654321"), 0);
    packet expected = {28, 0, 0, 0, 3, 0, 0, 0, '8', '7', '6', '5', '4', '3', '2', '1', 0};
    expected.insert(expected.end(), {'1', '2', '3', '4', '5', '6', '7', '8', 0, 0, 0});
    EXPECT_EQ(last_sent(swi_op_set_sim_verify), expected);
    refuse(swi_op_set_sim_verify, swi_status_busy);
    EXPECT_EQ(modem->slots.unblocksim(*modem, "12345678", "1234"), -1);
    EXPECT_TRUE(log.has("300 SwiSetSimVerify() failed with: 8"));
}

// ---- settings

TEST_F(gsm_modem, the_radio_technology_is_translated)
{
    attach();
    const struct {
        int rat;
        uint8_t code;
    } rows[] = {{0, 0}, {1, 1}, {2, 2}, {3, 0}, {5, 3}, {18, 0}, {19, 4}, {-1, 0}};
    for (const auto &row : rows) {
        EXPECT_EQ(modem->slots.setrat(*modem, row.rat), 0);
        EXPECT_EQ(last_sent(swi_op_set_rat), (packet{12, 0, 0, 0, row.code, 0, 0, 0, 0, 0, 0, 0}))
            << row.rat;
    }
    refuse(swi_op_set_rat, swi_status_not_supported);
    EXPECT_EQ(modem->slots.setrat(*modem, 1), -1);
    EXPECT_TRUE(log.has("300 SwiSetRat failed: 1"));
}

TEST_F(gsm_modem, tracking_that_is_on_or_off_already_is_no_failure)
{
    attach();
    EXPECT_EQ(modem->slots.enablegps(*modem, 5, 100), 0);
    EXPECT_EQ(
        last_sent(swi_op_set_lbs_pd_track),
        (packet{24, 0, 0, 0, 1, 0, 0, 0, 255, 0, 0, 0, 100, 0, 0, 0, 0xE8, 3, 0, 0, 5, 0, 0, 0}));
    EXPECT_EQ(modem->slots.disablegps(*modem), 0);
    EXPECT_EQ(last_sent(swi_op_set_lbs_end_session), (packet{8, 0, 0, 0, 0, 0, 0, 0}));
    const struct {
        uint32_t own;
        int on;
        const char *on_line;
        int off;
        const char *off_line;
    } rows[] = {
        {1063, 0, "700 SwiSetLbsPdTrack failed: GPS already enabled", -1,
         "300 SwiSetLbsEndSession failed: 1063"},
        {1062, -1, "300 SwiSetLbsPdTrack failed: 1062", 0,
         "700 SwiSetLbsPdTrack failed: GPS already disabled"},
    };
    for (const auto &row : rows) {
        for (const auto id : {swi_op_set_lbs_pd_track, swi_op_set_lbs_end_session})
            answer_with(id, [&](const fake_request &request) {
                return respond_with(request, swi_nothing(), &row.own);
            });
        EXPECT_EQ(modem->slots.enablegps(*modem, 5, 100), row.on);
        EXPECT_TRUE(log.has(row.on_line)) << row.on_line;
        EXPECT_EQ(modem->slots.disablegps(*modem), row.off);
        EXPECT_TRUE(log.has(row.off_line)) << row.off_line;
    }
    const size_t asked = server.requests().size();
    EXPECT_EQ(modem->slots.enablegps(*modem, -5, 100), -1) << "4294967291 seconds to the modem";
    EXPECT_EQ(log.count("300 The time between fixes is negative: -5"), 1);
    EXPECT_EQ(server.requests().size(), asked);
}

TEST_F(gsm_modem, a_region_is_set_when_it_reads_back)
{
    attach();
    struct {
        uint32_t own = 0, status = 0, present = 3;
    } region;
    answer_with(swi_op_set_prl_region, [&](const fake_request &request) {
        return respond_with(request, swi_number{region.status}, &region.own);
    });
    answer_with(swi_op_get_prl_region, [&](const fake_request &request) {
        return respond_with(request, swi_number{region.present});
    });
    EXPECT_EQ(modem->slots.setregion(*modem, 3, "0123456789"), 0);
    EXPECT_TRUE(log.has("700 SwiSetPrlRegion successfully set to 3"));
    EXPECT_TRUE(log.has("700 Changed region: 3"));
    const struct {
        uint32_t own, status, present;
        const char *line;
    } rows[] = {
        {0, 0, 2, "300 Failed to change region to: 3"},
        {0, 9, 3, "300 SwiSetPrlRegion failed with status 9"},
        {7, 0, 3, "300 SwiSetPrlRegion timed out"},
        {65534, 0, 3, "300 SwiSetPrlRegion is rejected: 65534"},
        {65535, 0, 3, "300 SwiSetPrlRegion has been commented out"},
    };
    for (const auto &row : rows) {
        log.clear();
        region = {row.own, row.status, row.present};
        EXPECT_EQ(modem->slots.setregion(*modem, 3, "K594"), -1);
        EXPECT_EQ(log.count(row.line), 1) << row.line;
        EXPECT_EQ(log.count("300 Failed to change region to: 3"), 1) << row.line;
    }
    refuse(swi_op_set_prl_region, swi_status_error, "wrong password");
    EXPECT_EQ(modem->slots.setregion(*modem, 3, "K594"), -1);
    EXPECT_TRUE(log.has("300 SwiSetPrlRegion is rejected: 600"));
    EXPECT_TRUE(log.has("300 Mdm reports CnS Error: wrong password"));
    const size_t asked = server.requests().size();
    EXPECT_EQ(modem->slots.setregion(*modem, 3, "more than ten"), -1) << "does not fit its field";
    EXPECT_EQ(server.requests().size(), asked);
}

// ---- records

TEST_F(gsm_modem, a_failed_query_takes_its_keys_out_of_the_record)
{
    attach();
    EXPECT_NE(record_lines(modem->slots.status, -1).find("system-mode Unknown\n"),
              std::string::npos)
        << "nothing is notified yet";
    EXPECT_TRUE(log.has("700 No entries in MSISDN Phone book"));
    sim_status(0);
    server.notify(notification(2000, {0}));
    server.notify(notification(2031, {0, 0, 0, 0, 1}));
    wait_for([] { return gsm.system_mode == 1u; });
    swi_phonebook_entry entry;
    entry.entries = 1;
    entry.digit_count = 200; // more than the record has
    entry.digits[0] = 4;
    entry.digits[1] = 9;
    entry.digits[2] = 10; // no digit
    answer_record(swi_op_get_phonebook_entry, entry);
    swi_rscp_ecio cells;
    cells.count = 6;
    for (swi_cell &cell : cells.cells)
        cell.ecio = 65535;
    cells.cells[0].ecio = 0;
    answer_record(swi_op_get_rscp_ecio, cells);
    swi_radio_bands bands;
    bands.count = 30;
    for (size_t i = 0; i < bands.count; i++)
        bands.bands[i].band = 254;
    answer_record(swi_op_get_current_radio_band, bands);
    const std::string status = record_lines(modem->slots.status, 0);
    EXPECT_NE(status.find("phone-number1 49\n"), status.npos) << status;
    EXPECT_NE(status.find("ecio -0.00, -32767.50, -32767.50, -32767.50, -32767.50, -32767.50\n"),
              status.npos)
        << "64 characters at most: " << status;
    const size_t list = status.find("current-bands ");
    EXPECT_EQ(status.find('\n', list) - list, strlen("current-bands ") + 256);
    EXPECT_EQ(failing_queries(modem->slots.info) + failing_queries(modem->slots.status),
              golden("gsm-failures.txt"));
}

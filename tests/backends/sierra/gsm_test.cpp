// The UMTS/GSM family against a server that answers as each case needs it.

#include "backends/select.h"
#include "backends/sierra/gsm.h"
#include "backends/sierra/gsm_family.h"
#include "backends/sierra/gsm_names.h"
#include "support/sierra_fixture.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

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
    EXPECT_EQ(log.count("0 No such file: /bin/swisdk"), 1);
    EXPECT_EQ(log.count("0 Failed to start swisdk."), 1);
    EXPECT_FALSE(modem->attached);
    EXPECT_TRUE(server.requests().empty());
    install_program();
    attach();
    EXPECT_TRUE(modem->attached);
}

TEST_F(gsm_modem, attach_fails_with_the_first_notification_that_is_refused)
{
    const struct {
        uint32_t id;
        const char *before, *line;
    } rows[] = {
        {2017, "700 Enabling modem disabled notifications",
         "300 SWI_NOTIFY_ModemDisabled failed: 5"},
        {2008, "700 Enabling SIM status notifications", "300 SWI_NOTIFY_SimStatusExp failed: 5"},
        {112, "700 Enabling temperature notifications", "300 SWI_NOTIFY_RadioTempState failed: 5"},
        {2000, "700 Enabling Network status notifications",
         "300 SWI_NOTIFY_NetworkStatus failed: 5"},
        {2031, "700 Enabling GSM system status notifications",
         "300 SWI_NOTIFY_GsmSystemStatus failed: 5"},
        {2026, "700 Enabling service icon notifications", "300 SWI_NOTIFY_ServiceIcon failed: 5"},
        {2028, "700 Enabling packet session notifications",
         "300 SWI_NOTIFY_PktSessionCall failed: 5"},
        {103, "700 Enabling RSSI notifications", "300 SWI_NOTIFY_Rssi failed: 5"},
    };
    for (const auto &row : rows) {
        log.clear();
        const auto object = static_cast<uint16_t>(swi_object_notification + row.id);
        refuse(object, swi_status_failed);
        EXPECT_EQ(modem->slots.attach(*modem), -1);
        EXPECT_FALSE(modem->attached);
        EXPECT_EQ(server.enabled().back(), row.id);
        EXPECT_EQ(log.count(row.before), 1) << row.before;
        EXPECT_EQ(log.count(row.line), 1) << row.line;
        EXPECT_EQ(log.count("300 Failed to setup GSM event notification"), 1);
        refuse(object, swi_status_ok);
    }
    attach(); // a failed attach is no obstacle to the next
}

TEST_F(gsm_modem, a_recovery_attaches_to_a_silent_modem_and_so_leads_to_the_next)
{
    const auto object = static_cast<uint16_t>(swi_object_notification + 2017);
    keep_silent(object, true);
    EXPECT_EQ(modem->slots.attach(*modem), -1) << "a first attach needs an answer";
    keep_silent(object, false);
    attach();
    EXPECT_EQ(modem->slots.detach(*modem), 0);
    keep_silent(object, true);
    attach();
    EXPECT_TRUE(modem->attached);
    EXPECT_TRUE(log.has("300 SWI_NOTIFY_ModemDisabled failed: 153"));
}

TEST_F(gsm_modem, a_recovery_attaches_whatever_becomes_of_the_notifications)
{
    const auto object = static_cast<uint16_t>(swi_object_notification + 2000);
    attach();
    for (const uint32_t status : {swi_status_timeout, swi_status_busy, swi_status_not_supported}) {
        EXPECT_EQ(modem->slots.detach(*modem), 0);
        refuse(object, status);
        attach();
        EXPECT_TRUE(modem->attached) << status;
        size_t enabled = server.enabled().size();
        EXPECT_EQ(modem->slots.ping(*modem), 0) << "it answers, whatever it refuses";
        EXPECT_EQ(server.enabled().size(), enabled + 4);
        refuse(object, swi_status_ok);
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
    refuse(swi_object_esn, swi_status_timeout);
    EXPECT_EQ(modem->slots.ping(*modem), -1);
    EXPECT_EQ(server.enabled().size(), 12u);
    refuse(swi_object_esn, swi_status_failed);
    EXPECT_EQ(modem->slots.ping(*modem), -1);
    answer_with(swi_object_esn,
                [](const fake_request &request) { return respond_with(request, swi_number{1}); });
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    const std::vector<uint32_t> all = server.enabled();
    ASSERT_EQ(all.size(), 24u);
    EXPECT_TRUE(std::equal(all.begin(), all.begin() + 12, all.begin() + 12))
        << "those of calls, too";
    EXPECT_EQ(modem->slots.reset(*modem), 0);
    EXPECT_EQ(modem->slots.ping(*modem), 0);
    EXPECT_EQ(server.enabled().size(), 36u);
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

TEST_F(gsm_modem, the_radio_is_switched_when_the_modem_says_so)
{
    attach();
    setenv("TESSERA_TIME_SCALE", "0.5", 1); // 2.5 s for the confirmation, on a machine under load
    answer_with(swi_object_modem_enable, [&](const fake_request &request) {
        if (request.object.operation == swi_operation_set)
            server.notify(notification(2017, {request.parameters[0]}));
        return respond_with(request, swi_number{1});
    });
    EXPECT_EQ(modem->slots.radio(*modem, false), 0);
    EXPECT_EQ(last_request(swi_object_modem_enable).parameters, (packet{0, 0, 0, 0}));
    EXPECT_TRUE(log.has("700 Radio currently disabled: 0"));
    EXPECT_TRUE(log.has("600 Radio is now off"));
    EXPECT_EQ(modem->slots.radio(*modem, true), 0);
    EXPECT_TRUE(log.has("600 Radio is now on"));
}

TEST_F(gsm_modem, a_radio_that_does_not_follow_times_out)
{
    attach();
    EXPECT_EQ(modem->slots.radio(*modem, true), -1);
    EXPECT_TRUE(log.has("700 Radio currently disabled: 1"));
    EXPECT_TRUE(log.has("700 SwiSetModemDisable(1)"));
    EXPECT_TRUE(log.has("700 Radio status is: 2"));
    EXPECT_TRUE(log.has("300 Timed out waiting for radio to turn on"));
    refuse(swi_object_modem_enable, swi_status_failed);
    testing::internal::CaptureStderr();
    EXPECT_EQ(modem->slots.radio(*modem, true), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to detect the radio status: 5");
    answer_with(swi_object_modem_enable, [](const fake_request &request) {
        return request.object.operation == swi_operation_set ? respond(request, swi_status_busy)
                                                             : respond_with(request, swi_number{2});
    });
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
    EXPECT_EQ(last_request(swi_object_sim_verify).parameters, expected);
    sim_status(0);
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), 0);
    EXPECT_TRUE(log.has("700 SIM is already unlocked"));
    sim_status(5);
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), -1) << "it stays locked";
    EXPECT_TRUE(log.has("700 Currently SIM islocked: 5"));
    EXPECT_TRUE(log.has("300 Failed to unlock SIM"));
    refuse(swi_object_sim_lock, swi_status_failed);
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), -1);
    EXPECT_TRUE(log.has("300 SwiSetSimLock() failed with: 5"));
    answer_with(swi_object_sim_lock, [&](const fake_request &request) {
        server.notify(notification(2008, {0}));
        return respond(request, swi_status_ok);
    });
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), 0);
    EXPECT_TRUE(log.has("700 SIM is now unlocked"));
    expected = {20, 0, 0, 0, 0, 0, 0, 0, '1', '2', '3', '4'};
    expected.resize(20);
    EXPECT_EQ(last_request(swi_object_sim_lock).parameters, expected);
    sim_status(5);
    refuse(swi_object_sim_lock, swi_status_error, "no");
    EXPECT_EQ(modem->slots.unlocksim(*modem, "1234"), -1);
    EXPECT_TRUE(log.has("300 Modem reports CnS Error: no"));
}

TEST_F(gsm_modem, a_refused_pin_is_explained)
{
    attach();
    refuse(swi_object_sim_verify, swi_status_error, "Incorrect PIN, 2 tries left");
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
    EXPECT_EQ(last_request(swi_object_sim_verify).parameters, expected);
    refuse(swi_object_sim_verify, swi_status_busy);
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
        EXPECT_EQ(last_request(swi_object_rat).parameters,
                  (packet{12, 0, 0, 0, row.code, 0, 0, 0, 0, 0, 0, 0}))
            << row.rat;
    }
    refuse(swi_object_rat, swi_status_not_supported);
    EXPECT_EQ(modem->slots.setrat(*modem, 1), -1);
    EXPECT_TRUE(log.has("300 SwiSetRat failed: 1"));
}

TEST_F(gsm_modem, tracking_that_is_on_or_off_already_is_no_failure)
{
    attach();
    EXPECT_EQ(modem->slots.enablegps(*modem, 5, 100), 0);
    EXPECT_EQ(
        last_request(swi_object_lbs_pd_track).parameters,
        (packet{24, 0, 0, 0, 1, 0, 0, 0, 255, 0, 0, 0, 100, 0, 0, 0, 0xE8, 3, 0, 0, 5, 0, 0, 0}));
    EXPECT_EQ(modem->slots.disablegps(*modem), 0);
    EXPECT_EQ(last_request(swi_object_lbs_end_session).parameters,
              (packet{8, 0, 0, 0, 0, 0, 0, 0}));
    const auto with_result = [&](uint16_t object, uint32_t result) {
        answer_with(object, [=](const fake_request &request) {
            return respond_with(request, swi_nothing(), &result);
        });
    };
    with_result(swi_object_lbs_pd_track, 1063);
    EXPECT_EQ(modem->slots.enablegps(*modem, 5, 100), 0);
    EXPECT_TRUE(log.has("700 SwiSetLbsPdTrack failed: GPS already enabled"));
    with_result(swi_object_lbs_pd_track, 1062);
    EXPECT_EQ(modem->slots.enablegps(*modem, 5, 100), -1);
    EXPECT_TRUE(log.has("300 SwiSetLbsPdTrack failed: 1062"));
    const size_t asked = server.requests().size();
    EXPECT_EQ(modem->slots.enablegps(*modem, -5, 100), -1) << "4294967291 seconds to the modem";
    EXPECT_EQ(log.count("300 The time between fixes is negative: -5"), 1);
    EXPECT_EQ(server.requests().size(), asked);
    with_result(swi_object_lbs_end_session, 1062);
    EXPECT_EQ(modem->slots.disablegps(*modem), 0);
    EXPECT_TRUE(log.has("700 SwiSetLbsPdTrack failed: GPS already disabled"));
    with_result(swi_object_lbs_end_session, 1063);
    EXPECT_EQ(modem->slots.disablegps(*modem), -1);
    EXPECT_TRUE(log.has("300 SwiSetLbsEndSession failed: 1063"));
}

TEST_F(gsm_modem, a_region_is_set_when_it_reads_back)
{
    attach();
    struct {
        uint32_t own = 0, status = 0, present = 3;
    } region;
    answer_with(swi_object_prl_region, [&](const fake_request &request) {
        return request.object.operation == swi_operation_set
                   ? respond_with(request, swi_number{region.status}, &region.own)
                   : respond_with(request, swi_number{region.present});
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
    refuse(swi_object_prl_region, swi_status_error, "wrong password");
    EXPECT_EQ(modem->slots.setregion(*modem, 3, "K594"), -1);
    EXPECT_TRUE(log.has("300 SwiSetPrlRegion is rejected: 600"));
    EXPECT_TRUE(log.has("300 Mdm reports CnS Error: wrong password"));
    const size_t asked = server.requests().size();
    EXPECT_EQ(modem->slots.setregion(*modem, 3, "more than ten"), -1) << "does not fit its field";
    EXPECT_EQ(server.requests().size(), asked);
}

TEST_F(gsm_modem, a_reset_is_a_packet_of_its_own)
{
    attach();
    EXPECT_EQ(modem->slots.reset(*modem), 0);
    EXPECT_EQ(server.requests().back().header.kind, swi_kind_reset);
    EXPECT_TRUE(log.has("700 Modem successfully reset"));
    server.set_answer(
        [](const fake_request &request) { return packets{respond(request, swi_status_busy)}; });
    EXPECT_EQ(modem->slots.reset(*modem), -1);
    EXPECT_TRUE(log.has("300 Failed to reset Sierra Wireless modem"));
}

// ---- records

// Which keys a failing query takes with it, and what it says.
TEST_F(gsm_modem, a_failed_query_takes_its_keys_out_of_the_record)
{
    attach();
    sim_status(0);
    server.notify(notification(2000, {0}));
    server.notify(notification(2031, {0, 0, 0, 0, 1}));
    wait_for([] { return gsm.system_mode == 1u; });
    answer_with(swi_object_phonebook_entry, [](const fake_request &request) {
        swi_phonebook_entry entry;
        entry.entries = 1;
        entry.digit_count = 200; // more than the record has
        entry.digits[0] = 4;
        entry.digits[1] = 9;
        entry.digits[2] = 10; // no digit
        return respond_with(request, entry);
    });
    answer_with(swi_object_rscp_ecio, [](const fake_request &request) {
        swi_rscp_ecio cells;
        cells.count = 6;
        for (swi_cell &cell : cells.cells)
            cell.ecio = 65535;
        cells.cells[0].ecio = 0;
        return respond_with(request, cells);
    });
    answer_with(swi_object_current_radio_band, [](const fake_request &request) {
        swi_radio_bands bands;
        bands.count = 30;
        for (size_t i = 0; i < bands.count; i++)
            bands.bands[i].band = 254;
        return respond_with(request, bands);
    });
    const std::string info = record_lines(modem->slots.info, 0);
    const std::string status = record_lines(modem->slots.status, 0);
    EXPECT_NE(status.find("phone-number1 49\n"), status.npos) << status;
    EXPECT_NE(status.find("ecio -0.00, -32767.50, -32767.50, -32767.50, -32767.50, -32767.50\n"),
              status.npos)
        << "64 characters at most: " << status;
    const size_t bands = status.find("current-bands ");
    EXPECT_EQ(status.find('\n', bands) - bands, strlen("current-bands ") + 256);

    check_failing_queries({
        {swi_op_get_imei, true, {"imei"}, "300 SwiGetImei() failed: 5"},
        {swi_op_get_serial_number, true, {"serial"}, "300 SwiGetSerialNumber() failed: 5"},
        {swi_op_get_hardware_version, true, {"hardware"}, "300 SwiGetHardwareVersion() failed: 5"},
        {swi_op_get_boot_version, true, {"boot"}, "300 SwiGetBootVersion() failed: 5"},
        {swi_op_get_firmware_version, true, {"firmware"}, "300 SwiGetFirmwareVersion() failed: 5"},
        {swi_op_get_band_info, true, {"band", "bands"}, "300 SwiGetBandInfo() failed: 5"},
        {swi_op_get_prl_region, true, {"region"}, "300 SwiGetPrlRegion failed: 5"},
        {swi_op_get_rssi_ber, false, {"rssi", "ber"}, "300 SwiGetRssiBer failed: 5"},
        {swi_op_get_gsm_imsi,
         false,
         {"sim-msin", "sim-mcc", "sim-mnc", "sim-imsi"},
         "300 SwiGetGsmImsi() failed: 5"},
        {swi_op_get_phonebook_entry,
         false,
         {"phone-number1"},
         "700 SwiGetPhonebookEntryExp failed: 5"},
        {swi_op_get_gsm_system_status,
         false,
         {"modem-status", "service-status", "service-type", "roaming-status", "country", "carrier"},
         "300 SwiGetGsmSystemStatus() failed : 5"},
        {swi_op_get_rscp_ecio, false, {"ecio"}, "300 SwiGetRscpEcIo() failed: 5"},
        {swi_op_get_current_radio_band,
         false,
         {"current-bands"},
         "300 SwiGetCurrentRadioBand() failed: 5"},
        {swi_op_get_radio_temp_state, false, {"temperature"}, "300 SwiGetRadioTempState failed: 5"},
    });
}

TEST_F(gsm_modem, before_any_notification_the_cached_values_are_unknown)
{
    attach();
    memory_stream out;
    EXPECT_EQ(modem->slots.status(*modem, out.get(), output_lines), -1);
    for (const char *line :
         {"sim-status-code Unknown\n", "sim-status Unknown\n", "sim-lock SIM_ERROR\n",
          "network-status Unknown\n", "system-mode Unknown\n"})
        EXPECT_NE(out.text().find(line), std::string::npos) << line;
    EXPECT_EQ(out.text().find("ecio"), std::string::npos) << "no cells";
    EXPECT_EQ(out.text().find("current-bands"), std::string::npos) << "no bands";
    EXPECT_TRUE(log.has("700 No entries in MSISDN Phone book"));
}

TEST(gsm_names, every_code_reads_as_it_always_has)
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
    };
    std::ostringstream all;
    for (const auto &[key, table] : tables) {
        for (uint32_t code = 0; code <= 65536; code++) {
            const std::string name = name_of(table, code);
            const std::string number = table.print == other_code::text ? "" : std::to_string(code);
            if (name != table.other + number)
                all << key << " " << code << " " << name << "\n";
        }
        for (const uint32_t other : {77777u, UINT32_MAX})
            all << key << " " << other << " " << name_of(table, other) << "\n";
    }
    std::ostringstream golden;
    golden << std::ifstream(TESSERA_TEST_DATA "/golden/gsm-names.txt", std::ios::binary).rdbuf();
    EXPECT_EQ(all.str(), golden.str());
}

TEST(gsm_names, the_two_status_tables_differ_in_their_rows)
{
    const struct {
        uint32_t code;
        const char *network, *service;
    } rows[] = {
        {4, "Formbidden PLMN", "Forbidden PLMN"},
        {8, "Illegal Equipment", "Illegal Mobile Equipment"},
        {10, "Authentication Failure", "Auth Failure"},
        {11, "GPRS Failed", "PRS Failed"},
        {12, "Unknown", "Unknown"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(name_of(gsm_network_status_names, row.code), row.network);
        EXPECT_EQ(name_of(gsm_service_status_names, row.code), row.service);
    }
    for (const uint32_t code : {0u, 1u, 2u, 3u, 5u, 6u, 7u, 9u})
        EXPECT_EQ(name_of(gsm_network_status_names, code), name_of(gsm_service_status_names, code));
}

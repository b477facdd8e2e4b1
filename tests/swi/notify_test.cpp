// Notifications: what reaches the callback, in what order, and what does not disturb the wait.

#include "platform/log.h"
#include "support/swi_fixture.h"
#include "swi/packet.h"

#include <mutex>

class swi_notifying : public swi_fixture
{
protected:
    swi_notifying()
    {
        EXPECT_EQ(open_api(), swi_ok);
        EXPECT_EQ(swi_register_callback(note, this, -1, 0), swi_ok);
        waiter = std::thread([this] { result = swi_wait_notification(); });
    }
    ~swi_notifying() override
    {
        swi_api_close();
        waiter.join();
        EXPECT_EQ(result, swi_ok);
    }

    static void note(const swi_notification &notification, void *context)
    {
        auto &self = *static_cast<swi_notifying *>(context);
        const std::lock_guard lock(self.mutex);
        self.seen_.push_back(notification);
    }

    [[nodiscard]] std::vector<swi_notification> seen()
    {
        const std::lock_guard lock(mutex);
        return seen_;
    }

    void wait_for_seen(size_t count)
    {
        wait_for([&] { return seen().size() >= count; });
    }

    fake_swi_server server;
    std::thread waiter;
    int result = -1;
    std::mutex mutex;
    std::vector<swi_notification> seen_;
};

TEST_F(swi_notifying, carry_their_type_and_its_parameters)
{
    server.notify(notification(swi_notify_sim_status, {5}));
    server.notify(notification(swi_notify_gsm_system_status, {1, 2, 3, 4, 6}));
    server.notify(notification(swi_notify_service_icon, {7, 8, 1}));
    server.notify(notification(swi_notify_packet_session, {1}));
    server.notify(notification(swi_notify_call_connected, {}));
    server.notify(notification(swi_notify_hdr_state, {0x00030002}));
    server.notify(notification(2999, {9}));
    server.notify(notification(0, {}, swi_parameter_air_server));
    server.notify(notification(0, {}, swi_parameter_firmware));
    packet other_object = notification(0, {9});
    other_object[swi_header_bytes] = swi_notify_sim_status & 0xFF;
    other_object[swi_header_bytes + 1] = swi_notify_sim_status >> 8;
    server.notify(other_object);
    wait_for_seen(10);
    const auto all = seen();
    EXPECT_EQ(all[0].type, 2008u);
    EXPECT_EQ(all[0].first, 5u);
    EXPECT_EQ(all[1].type, 2031u);
    EXPECT_EQ(all[1].system_mode, 6u);
    EXPECT_EQ(all[2].type, 2026u);
    EXPECT_EQ(all[2].packet_session_active, 1u);
    EXPECT_EQ(all[3].type, 2028u);
    EXPECT_EQ(all[3].packet_session_active, 1u);
    EXPECT_EQ(all[4].type, 1008u);
    EXPECT_EQ(all[5].hdr_state, 2);
    EXPECT_EQ(all[6].type, 2999u) << "unknown, but an id";
    EXPECT_EQ(all[7].type, 1u);
    EXPECT_EQ(all[8].type, 108u);
    EXPECT_EQ(all[9].type, 0x10000u + swi_notify_sim_status) << "an object, not the id";
}

TEST_F(swi_notifying, garbage_of_every_length_is_dropped)
{
    const packet good = notification(swi_notify_sim_status, {3});
    for (size_t length = 0; length < good.size(); length++)
        server.notify(packet(good.begin(), good.begin() + static_cast<long>(length)));
    for (size_t length = 0; length <= swi_notification_bytes_max + 64; length += 61) {
        packet garbage;
        for (size_t i = 0; i < length; i++)
            garbage.push_back(static_cast<uint8_t>(i * 31 + length));
        server.notify(garbage);
    }
    server.notify(notification(swi_notify_gsm_system_status, {1, 2})); // too short for its type
    packet response = good;
    response[3] = swi_message_response;
    server.notify(response);
    server.notify(good);
    wait_for_seen(1);
    EXPECT_EQ(seen().size(), 1u);
    EXPECT_EQ(seen()[0].first, 3u);
    EXPECT_TRUE(log.has("SWI API: dropped a malformed notification"));
}

TEST_F(swi_notifying, a_thousand_at_once_arrive_in_order)
{
    for (uint32_t i = 0; i < 1000; i++)
        server.notify(notification(swi_notify_rssi, {i}));
    wait_for_seen(1000);
    const auto all = seen();
    for (uint32_t i = 0; i < 1000; i++)
        ASSERT_EQ(all[i].first, i);
}

TEST_F(swi_notifying, are_enabled_by_their_object)
{
    EXPECT_EQ(swi_enable_notification(1, timeout_ms), swi_ok);
    EXPECT_EQ(swi_enable_notification(108, timeout_ms), swi_ok);
    EXPECT_TRUE(server.requests().empty()) << "these two are always on";
    for (const swi_notification_row &row : swi_notifications) {
        EXPECT_EQ(swi_enable_notification(row.id, timeout_ms), swi_ok);
        ASSERT_FALSE(server.enabled().empty());
        EXPECT_EQ(server.enabled().back(), row.id);
    }
    EXPECT_EQ(swi_enable_notification(4711, timeout_ms), swi_invalid_parameter);
    EXPECT_EQ(server.enabled().size(), std::size(swi_notifications));
}

using swi_fatal_notification = swi_fixture;

TEST_F(swi_fatal_notification, an_unknown_parameter_type_ends_the_process)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            log_set_sink([](int, const char *text) { fprintf(stderr, "%s\n", text); });
            fake_swi_server server;
            EXPECT_EQ(open_api(), swi_ok);
            server.notify(notification(swi_notify_rssi, {1}, 3));
            (void)swi_wait_notification();
        },
        testing::ExitedWithCode(1),
        "erAbort: API Fatal error -> SwiWaitNotification-unknown parmtype\n, Data: 3");
}

TEST_F(swi_fatal_notification, a_faulty_operation_ends_the_process)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto request = [](swi_operation operation) {
        log_set_sink([](int, const char *text) { fprintf(stderr, "%s\n", text); });
        fake_swi_server server;
        EXPECT_EQ(open_api(), swi_ok);
        uint8_t record[4096] = {};
        (void)swi_request(operation, record, record, timeout_ms);
    };
    swi_operation kindless = swi_operations[swi_op_get_esn];
    kindless.kind = swi_kind_none;
    EXPECT_EXIT(request(kindless), testing::ExitedWithCode(1), "No amtype specified");
    static const swi_field wide[] = {swi_padding(1000)};
    static const swi_layout layout = swi_make_layout(wide);
    swi_operation large = swi_operations[swi_op_get_esn];
    large.request = &layout;
    EXPECT_EXIT(request(large), testing::ExitedWithCode(1), "AM CNS header too big");
}

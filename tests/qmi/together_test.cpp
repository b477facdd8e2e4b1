// Requests that travel together, and what can go wrong with some of them.

#include "platform/clock.h"
#include "qmi/link.h"
#include "qmi/qmux.h"
#include "qmi/tlv.h"
#include "support/fake_qmuxd.h"
#include "support/log_capture.h"

#include <map>

#include <gtest/gtest.h>

// The messages 0x01 to 0xNN of DMS, each of which the fake answers with its own number.
class qmi_together : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TESSERA_TIME_SCALE", "0.4", 1); // 800 ms, for a busy machine
        for (uint16_t id = 1; id <= most; id++) {
            char tlvs[32];
            snprintf(tlvs, sizeof(tlvs), "01 0100 %02x", id);
            qmuxd.answer(qmi_dms, id, tlvs);
            qmuxd.answer(qmi_nas, id, tlvs);
        }
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    }
    void TearDown() override
    {
        qmi_close(handle);
        unsetenv("TESSERA_TIME_SCALE");
    }

    void ask(uint16_t count)
    {
        exchanges.clear();
        for (uint16_t id = 1; id <= count; id++)
            exchanges.push_back({{"DMS Number", qmi_dms, id}, {}, 99, {0x77}});
        qmi_send_wait_all(handle, exchanges);
    }

    // Every exchange has its own answer, but for those with these codes.
    void expect(const std::map<uint16_t, uint32_t> &failures = {})
    {
        for (const qmi_exchange &each : exchanges) {
            const auto failure = failures.find(each.request.id);
            const uint32_t code = failure == failures.end() ? uint32_t{qmi_ok} : failure->second;
            EXPECT_EQ(each.code, code) << each.request.id;
            const auto value = tlv_find(each.response, 0x01);
            ASSERT_EQ(value.has_value(), code == qmi_ok) << each.request.id;
            if (code == qmi_ok) {
                EXPECT_EQ(value->front(), each.request.id);
            }
            if (code == qmi_not_sent) {
                EXPECT_TRUE(each.response.empty());
            }
        }
    }

    static constexpr uint16_t most = 40;
    temp_root root;
    log_capture log;
    fake_qmuxd qmuxd{root};
    uint32_t handle = 0;
    std::vector<qmi_exchange> exchanges;
};

TEST_F(qmi_together, none_one_and_many)
{
    qmi_send_wait_all(handle, {});
    for (const uint16_t count : {uint16_t{1}, uint16_t{8}, most}) {
        ask(count);
        expect();
        EXPECT_EQ(qmuxd.requests().size(), count);
    }
    EXPECT_EQ(qmuxd.clients(), 1u);
    EXPECT_FALSE(log.has("skipped")) << "no answer was missed";
}

TEST_F(qmi_together, as_many_as_the_limit_are_under_way_in_any_order)
{
    qmuxd.gather(qmi_under_way_max);
    ask(most);
    expect();
    qmuxd.gather(qmi_under_way_max + 1);
    ask(qmi_under_way_max + 1);
    expect();
    EXPECT_EQ(qmuxd.requests().size(), most + 2 * qmi_under_way_max + 1)
        << "one more would have been too many: the others were given up, and sent again";
    qmuxd.gather(0);
    ask(most);
    expect();
}

TEST_F(qmi_together, several_services_become_clients_before_anything_is_sent)
{
    exchanges = {{{"a", qmi_dms, 1}, {}, 0, {}},
                 {{"b", qmi_nas, 2}, {}, 0, {}},
                 {{"c", qmi_dms, 3}, {1, 1, 0, 5}, 0, {}}};
    qmuxd.gather(3);
    qmi_send_wait_all(handle, exchanges);
    expect();
    EXPECT_EQ(qmuxd.clients(), 2u);
    EXPECT_EQ(qmuxd.requests(), (texts{"2 01", "3 02", "2 03 01010005"}));
    ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    qmuxd.behave(qmi_ctl, 0x22, {qmuxd_reply::silence});
    qmi_send_wait_all(handle, exchanges);
    EXPECT_EQ(exchanges[0].code, qmi_not_sent) << "one time-out for the whole service";
    EXPECT_EQ(exchanges[1].code, qmi_ok);
    EXPECT_EQ(exchanges[2].code, qmi_not_sent);
}

TEST_F(qmi_together, a_spoilt_answer_is_its_own_requests_matter)
{
    const struct {
        const char *name;
        qmuxd_reply reply;
        uint32_t code;
    } rows[] = {
        {"missing", qmuxd_reply::silence, qmi_not_sent},
        {"behind another", qmuxd_reply::late, qmi_ok},
        {"of another transaction", qmuxd_reply::wrong_transaction, qmi_not_sent},
        {"of another message", qmuxd_reply::wrong_message, qmi_not_sent},
        {"cut", qmuxd_reply::cut_tlvs, qmi_modem_error},
        {"without result", qmuxd_reply::no_result, qmi_modem_error},
        {"an error", qmuxd_reply::error, qmi_modem_error + 71},
        {"in pieces", qmuxd_reply::byte_by_byte, qmi_ok},
    };
    for (const auto &row : rows) {
        for (const uint16_t spoilt : {uint16_t{1}, uint16_t{5}, uint16_t{12}}) {
            SCOPED_TRACE(row.name);
            const int times = row.code == qmi_not_sent ? 2 : 1; // in company, and alone
            qmuxd.behave(qmi_dms, spoilt, {row.reply, 71, times});
            ask(13);
            if (row.code == qmi_modem_error) {
                EXPECT_EQ(exchanges[spoilt - 1U].code, qmi_modem_error);
            } else {
                expect(row.code == qmi_ok ? std::map<uint16_t, uint32_t>{}
                                          : std::map<uint16_t, uint32_t>{{spoilt, row.code}});
            }
            ask(13);
            expect();
        }
    }
}

TEST_F(qmi_together, a_late_answer_is_not_anothers)
{
    qmuxd.behave(qmi_dms, 2, {qmuxd_reply::late, 0, 2}); // the second one comes with the next round
    ask(2);
    expect({{2, qmi_not_sent}});
    ask(2);
    expect();
    EXPECT_TRUE(log.has("QMI answer skipped"));
    log.clear();
    qmuxd.behave(qmi_dms, 2, {qmuxd_reply::late}); // just before its own other answer
    ask(2);
    expect();
    EXPECT_TRUE(log.has("QMI answer skipped"));
}

TEST_F(qmi_together, what_a_modem_drops_is_asked_once_more)
{
    const auto drop = [&](std::initializer_list<uint16_t> ids) {
        for (const uint16_t id : ids)
            qmuxd.behave(qmi_dms, id, {qmuxd_reply::silence});
        ask(9);
    };
    drop({4, 5, 6, 7, 8});
    expect();
    EXPECT_EQ(qmuxd.requests().size(), 14u) << "nothing was sent thrice";
    ask(9); // a bad moment that is over
    expect();
    drop({2});
    expect();
    ask(3); // too few to tell anything
    EXPECT_FALSE(log.has("one request at a time"));
    drop({2, 9});
    expect();
    EXPECT_EQ(log.count("600 QMI modem takes one request at a time"), 1);
    (void)qmuxd.requests();
    drop({3});
    expect({{3, qmi_not_sent}});
    EXPECT_EQ(qmuxd.requests().size(), 9u) << "alone it has had its turn";
}

TEST_F(qmi_together, messages_that_are_always_silent_cost_little)
{
    for (uint16_t id = 3; id <= 6; id++)
        qmuxd.behave(qmi_dms, id, {qmuxd_reply::silence, 0, 4});
    const std::map<uint16_t, uint32_t> silent = {
        {3, qmi_not_sent}, {4, qmi_not_sent}, {5, qmi_not_sent}, {6, qmi_not_sent}};
    for (const size_t again : {size_t{2}, size_t{2}, size_t{0}}) {
        ask(12);
        expect(silent);
        EXPECT_EQ(qmuxd.requests().size(), 12 + again);
    }
    ask(12);
    expect();
    qmuxd.behave(qmi_dms, 4, {qmuxd_reply::silence});
    ask(12);
    expect();
    EXPECT_FALSE(log.has("one request at a time"));
}

TEST_F(qmi_together, a_silent_modem_ends_all)
{
    for (uint16_t id = 1; id <= 20; id++)
        qmuxd.behave(qmi_dms, id, {qmuxd_reply::silence});
    ask(20);
    for (const qmi_exchange &each : exchanges)
        EXPECT_EQ(each.code, qmi_not_sent);
    EXPECT_EQ(qmuxd.requests().size(), 20u) << "each was tried";
    ask(20);
    expect();
}

TEST_F(qmi_together, a_lost_connection_ends_all_at_once)
{
    for (const qmuxd_reply reply :
         {qmuxd_reply::hang_up, qmuxd_reply::half, qmuxd_reply::no_frame}) {
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
        qmuxd.behave(qmi_dms, 3, {reply});
        ask(most);
        for (size_t i = 2; i < exchanges.size(); i++)
            EXPECT_EQ(exchanges[i].code, qmi_not_sent) << i;
        ask(3);
        for (const qmi_exchange &each : exchanges)
            EXPECT_EQ(each.code, qmi_not_sent) << "until it is opened again";
    }
    ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    ask(most);
    expect();
}

TEST_F(qmi_together, handles_of_no_link_and_of_a_closed_one)
{
    ask(2);
    EXPECT_EQ(qmi_close(handle), qmi_ok);
    qmi_send_wait_all(handle, exchanges);
    EXPECT_EQ(exchanges[1].code, qmi_unknown_handle);
    EXPECT_TRUE(exchanges[1].response.empty());
    qmi_send_wait_all(0, exchanges);
    EXPECT_EQ(exchanges[0].code, qmi_no_handle);
}

TEST_F(qmi_together, a_busy_modem_is_asked_one_by_one)
{
    for (const uint16_t error : {uint16_t{23}, uint16_t{2}, uint16_t{68}, uint16_t{118}}) {
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
        log.clear();
        for (uint16_t id = 2; id <= 8; id++)
            qmuxd.behave(qmi_dms, id, {qmuxd_reply::error, error});
        ask(10);
        expect();
        EXPECT_EQ(log.count("600 QMI modem takes one request at a time"), 1) << error;
        (void)qmuxd.requests();
        qmuxd.behave(qmi_dms, 1, {qmuxd_reply::late}); // leaves with the next request only
        ask(3);
        expect({{1, qmi_not_sent}});
        EXPECT_EQ(qmuxd.requests(), (texts{"2 01", "2 02", "2 03"})) << "not together any more";
    }
    ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    qmuxd.gather(3);
    ask(3);
    expect();
}

TEST_F(qmi_together, what_is_busy_by_itself_does_not_slow_the_others)
{
    qmuxd.behave(qmi_dms, 2, {qmuxd_reply::error, 23, 2});
    ask(5);
    expect({{2, qmi_modem_error + 23}});
    EXPECT_EQ(qmuxd.requests().size(), 6u);
    EXPECT_FALSE(log.has("one request at a time"));
    qmuxd.gather(5);
    ask(5);
    expect();
}

TEST_F(qmi_together, requests_of_a_client_that_the_modem_forgot_are_sent_again)
{
    ask(1);
    for (uint16_t id = 1; id <= 8; id++)
        qmuxd.behave(qmi_dms, id, {qmuxd_reply::error, 7});
    ask(12);
    expect();
    EXPECT_EQ(qmuxd.clients(), 2u);
    qmuxd.behave(qmi_dms, 4, {qmuxd_reply::error, 7, 2});
    ask(12);
    expect({{4, qmi_modem_error + 7}});
    ask(12);
    expect();
    qmuxd.send_frame(octets_of("01 0b00 80 00 00 02 00 2700 0000")); // the modem has started anew
    ask(12);
    expect();
}

TEST_F(qmi_together, a_termination_is_not_kept_waiting)
{
    ASSERT_EQ(clock_init(), 0);
    qmuxd.behave(qmi_dms, 2, {qmuxd_reply::silence});
    clock_stop();
    ask(20);
    for (const qmi_exchange &each : exchanges)
        EXPECT_EQ(each.code, qmi_not_sent);
}

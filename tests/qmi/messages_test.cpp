// What the messages refuse to send and to read. Their TLVs, and what comes of their failures, are in
// the tests of the family's operations, which send them all.

#include "qmi/messages.h"
#include "qmi/qmux.h"
#include "support/fake_qmuxd.h"
#include "support/log_capture.h"

#include <functional>

#include <gtest/gtest.h>

class qmi_messages : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok); }
    void TearDown() override { EXPECT_EQ(qmi_close(handle), qmi_ok); }

    temp_root root;
    log_capture log;
    fake_qmuxd qmuxd{root};
    uint32_t handle = 0;
};

TEST_F(qmi_messages, pins_that_cannot_be_sent_are_not)
{
    const auto protect = [&](uint8_t id, size_t length) {
        return qmi_dms_set_pin_protection(handle, {id, 0, {std::string(length, '1')}});
    };
    EXPECT_EQ(protect(0, 4), qmi_bad_argument);
    EXPECT_EQ(protect(3, 4), qmi_bad_argument);
    EXPECT_EQ(protect(1, 0), qmi_bad_argument);
    EXPECT_EQ(protect(1, 256), qmi_too_long);
    EXPECT_EQ(qmi_dms_unblock_pin(handle, {1, {""}, {"1234"}}), qmi_bad_argument);
    EXPECT_EQ(qmi_dms_unblock_pin(handle, {1, {"12345678"}, {""}}), qmi_bad_argument);
    EXPECT_EQ(qmi_dms_unblock_pin(handle, {1, {std::string(256, '1')}, {"1"}}), qmi_too_long);
    EXPECT_EQ(qmuxd.requests(), texts{});
    EXPECT_EQ(protect(2, 255), qmi_ok);
}

TEST_F(qmi_messages, what_no_frame_can_hold_is_not_sent)
{
    qmi_sms message;
    for (const size_t length : {size_t{qmi_frame_bytes_max}, size_t{0x10000}}) {
        message.pdu.items.resize(length);
        EXPECT_EQ(qmi_wms_send(handle, message), qmi_too_long) << length;
    }
    EXPECT_EQ(qmuxd.requests(), texts{});
}

// The other answers are those of the records, whose tests cut them.
TEST_F(qmi_messages, a_cut_answer_is_unreadable)
{
    uint8_t state = 0;
    qmi_started_network started;
    qmi_stored_sms message;
    std::vector<qmi_listed_sms> list;
    const struct {
        uint8_t service;
        uint16_t id;
        const char *value; // of its TLV
        std::function<uint32_t()> call;
    } rows[] = {
        {qmi_wds, 0x20, "78563412", [&] { return qmi_wds_start_network(handle, {}, started); }},
        {qmi_wds, 0x22, "02", [&] { return qmi_wds_get_packet_status(handle, state); }},
        {qmi_wms, 0x22, "01 06 0300 0a0b0c", [&] { return qmi_wms_read(handle, {}, message); }},
        {qmi_wms, 0x31, "02000000 05000000 01 09000000 00",
         [&] { return qmi_wms_list(handle, {}, list); }},
    };
    for (const auto &row : rows) {
        const std::string value = digits_of(octets_of(row.value));
        for (uint8_t length = 0; length <= value.size() / 2; length++) {
            const std::string cut = value.substr(0, 2U * length);
            qmuxd.answer(row.service, row.id, "01" + digits_of({length, 0}) + cut);
            EXPECT_EQ(row.call() == qmi_ok, cut == value) << row.value << " of " << int{length};
        }
        qmuxd.behave(row.service, row.id, {qmuxd_reply::only_result});
        EXPECT_EQ(row.call(), qmi_modem_error) << row.value;
    }
    qmuxd.answer(qmi_wms, 0x31, "01 0900 ffffffff 05000000 01");
    EXPECT_EQ(qmi_wms_list(handle, {}, list), qmi_modem_error) << "a count that lies";
}

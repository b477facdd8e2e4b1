#include "platform/clock.h"
#include "qmi/link.h"
#include "qmi/messages.h"
#include "qmi/qmux.h"
#include "support/fake_qmuxd.h"
#include "support/log_capture.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

class qmi_link : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TESSERA_TIME_SCALE", "0.001", 1);
        qmuxd.answer(qmi_dms, 0x22, "01 0500 4c54452d31"); // "LTE-1"
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
        ASSERT_NE(handle, 0u);
    }
    void TearDown() override
    {
        qmi_close(handle);
        unsetenv("TESSERA_TIME_SCALE");
    }

    uint32_t model()
    {
        text.clear();
        return qmi_dms_get_model(handle, text);
    }

    temp_root root;
    log_capture log;
    fake_qmuxd qmuxd{root};
    uint32_t handle = 0;
    std::string text;
};

static std::string socket_name()
{
    char name[64];
    snprintf(name, sizeof(name), "/var/qmux_client_socket%7d", getpid());
    return name;
}

TEST_F(qmi_link, becomes_a_client_once_a_service_and_gives_the_ids_back)
{
    EXPECT_EQ(qmuxd.clients(), 0u);
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(text, "LTE-1");
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(qmi_pds_set_service(handle, true), qmi_ok);
    EXPECT_EQ(qmuxd.clients(), 2u);
    EXPECT_EQ(qmuxd.requests(), (texts{"2 22", "2 22", "6 21 01010001"}));
    const std::string name = socket_name();
    EXPECT_EQ(qmuxd.client_path(), root.place(name));
    EXPECT_TRUE(std::filesystem::exists(root.place(name)));
    EXPECT_EQ(qmi_close(handle), qmi_ok);
    EXPECT_EQ(qmuxd.clients(), 0u);
    EXPECT_FALSE(std::filesystem::exists(root.place(name)));
}

TEST_F(qmi_link, handles_of_no_link_and_of_a_closed_one)
{
    EXPECT_EQ(qmi_dms_get_model(0, text), qmi_no_handle);
    EXPECT_EQ(qmi_dms_get_model(handle + 1, text), qmi_unknown_handle);
    EXPECT_EQ(qmi_close(handle), qmi_ok);
    EXPECT_EQ(model(), qmi_unknown_handle);
    EXPECT_EQ(qmi_close(handle), qmi_unknown_handle);
    EXPECT_EQ(qmi_close(0), qmi_no_handle);
    const uint32_t before = handle;
    EXPECT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    EXPECT_NE(handle, before);
    EXPECT_EQ(model(), qmi_ok);
}

struct reply_row {
    const char *name;
    qmuxd_reply reply;
    uint32_t code;
    bool lost; // the connection is
};

static const reply_row reply_rows[] = {
    {"silence", qmuxd_reply::silence, qmi_not_sent, false},
    {"late", qmuxd_reply::late, qmi_not_sent, false},
    {"cut_tlvs", qmuxd_reply::cut_tlvs, qmi_modem_error, false},
    {"no_result", qmuxd_reply::no_result, qmi_modem_error, false},
    {"only_result", qmuxd_reply::only_result, qmi_modem_error, false},
    {"wrong_transaction", qmuxd_reply::wrong_transaction, qmi_not_sent, false},
    {"wrong_client", qmuxd_reply::wrong_client, qmi_not_sent, false},
    {"wrong_message", qmuxd_reply::wrong_message, qmi_not_sent, false},
    {"indication", qmuxd_reply::indication, qmi_not_sent, false},
    {"no_frame", qmuxd_reply::no_frame, qmi_not_sent, true},
    {"huge_frame", qmuxd_reply::huge_frame, qmi_not_sent, true},
    {"half", qmuxd_reply::half, qmi_not_sent, true},
    {"hang_up", qmuxd_reply::hang_up, qmi_not_sent, true},
    {"byte_by_byte", qmuxd_reply::byte_by_byte, qmi_ok, false},
};

static void PrintTo(const reply_row &row, std::ostream *out)
{
    *out << row.name;
}

class qmi_replies : public qmi_link, public testing::WithParamInterface<reply_row>
{
};

TEST_P(qmi_replies, end_a_request_once_and_leave_the_link_fit)
{
    const reply_row &row = GetParam();
    qmuxd.behave(qmi_dms, 0x22, {row.reply});
    EXPECT_EQ(model(), row.code);
    EXPECT_EQ(text, row.code == qmi_ok ? "LTE-1" : "");
    qmuxd.answer(qmi_dms, 0x22, "01 0300 6e6577"); // what comes now is not the old answer
    if (row.lost) {
        EXPECT_EQ(model(), qmi_not_sent);
        EXPECT_TRUE(log.has("QMI link lost")) << row.name;
        EXPECT_EQ(qmi_close(handle), qmi_not_sent);
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    }
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(text, "new");
    EXPECT_EQ(qmuxd.clients(), 1u);
}

TEST_P(qmi_replies, to_the_allocation_of_a_client_end_the_request)
{
    const reply_row &row = GetParam();
    if (row.reply == qmuxd_reply::only_result)
        qmuxd.behave(qmi_ctl, 0x22, {qmuxd_reply::short_value});
    else
        qmuxd.behave(qmi_ctl, 0x22, {row.reply});
    EXPECT_EQ(model(), row.code);
    EXPECT_EQ(qmuxd.requests().size(), row.code == qmi_ok ? 1u : 0u) << "nothing without an id";
    if (row.lost) {
        EXPECT_EQ(qmi_close(handle), qmi_not_sent);
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    }
    EXPECT_EQ(model(), qmi_ok);
}

INSTANTIATE_TEST_SUITE_P(rows, qmi_replies, testing::ValuesIn(reply_rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(qmi_link, errors_are_the_modems_number_plus_a_thousand)
{
    qmuxd.behave(qmi_dms, 0x22, {qmuxd_reply::error, 69});
    EXPECT_EQ(model(), 1069u);
    EXPECT_EQ(log.count("700 DMS Get Model: error 69, disabled"), 1);
    qmuxd.behave(qmi_dms, 0x22, {qmuxd_reply::error, 0});
    EXPECT_EQ(model(), 1000u) << "a failure without a number is none the less one";
    qmuxd.behave(qmi_ctl, 0x22, {qmuxd_reply::error, 5});
    EXPECT_EQ(qmi_pds_set_service(handle, true), 1005u) << "no client id left";
    EXPECT_EQ(qmi_pds_set_service(handle, true), qmi_ok);
}

TEST_F(qmi_link, a_reset_may_stay_unanswered)
{
    for (const qmuxd_reply reply : {qmuxd_reply::silence, qmuxd_reply::hang_up}) {
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
        qmuxd.behave(qmi_dms, 0x2E, {reply});
        EXPECT_EQ(qmi_dms_set_operating_mode(handle, qmi_mode_reset), qmi_no_reset_answer);
    }
    EXPECT_EQ(qmi_dms_set_operating_mode(handle, qmi_mode_reset), qmi_not_sent);
    ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    qmuxd.behave(qmi_dms, 0x2E, {qmuxd_reply::silence});
    EXPECT_EQ(qmi_dms_set_operating_mode(handle, qmi_mode_offline), qmi_not_sent);
}

TEST_F(qmi_link, client_ids_that_the_modem_forgot_are_asked_for_again)
{
    EXPECT_EQ(model(), qmi_ok);
    qmuxd.send_frame(octets_of("01 0b00 80 00 00 02 00 2700 0000")); // the modem has started anew
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(qmuxd.clients(), 2u) << "the old one was not given back";
    qmuxd.behave(qmi_dms, 0x22, {qmuxd_reply::error, 7});
    EXPECT_EQ(model(), 1007u);
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(qmuxd.clients(), 3u);
}

TEST_F(qmi_link, client_ids_that_come_too_late_are_given_back)
{
    qmuxd.behave(qmi_ctl, 0x22, {qmuxd_reply::late});
    EXPECT_EQ(model(), qmi_not_sent);
    EXPECT_EQ(qmuxd.clients(), 1u) << "which the link does not know";
    EXPECT_EQ(model(), qmi_ok) << "the late one comes while the next one is awaited";
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(qmuxd.clients(), 1u);
    EXPECT_EQ(model(), qmi_ok) << "the one in use was not given back";
    qmuxd.behave(qmi_ctl, 0x22, {qmuxd_reply::late});
    EXPECT_EQ(qmi_pds_set_service(handle, true), qmi_not_sent);
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(qmi_close(handle), qmi_ok);
    EXPECT_EQ(qmuxd.clients(), 0u) << "closing looks for late ones, too";
}

TEST_F(qmi_link, frames_that_nobody_asked_for_are_taken_off)
{
    EXPECT_EQ(model(), qmi_ok);
    for (int i = 0; i < 3; i++) {
        qmuxd.send_frame(octets_of("01 1500 80 01 01 04 0000 2200 0900 01 0200 0200 12 0100 04"));
        qmuxd.send_frame(octets_of("01 0c00 80 02 01 03 0000 2200 0000")); // of no kind
        EXPECT_EQ(model(), qmi_ok);
    }
    EXPECT_TRUE(log.has("QMI indication skipped: service 1 message 0x0022"));
    EXPECT_TRUE(log.has("cannot be read"));
}

TEST_F(qmi_link, a_socket_that_vanishes_and_returns)
{
    EXPECT_EQ(model(), qmi_ok);
    qmuxd.vanish();
    EXPECT_EQ(model(), qmi_not_sent);
    uint32_t other = 99;
    EXPECT_EQ(qmi_open("/dev/qcqmi0", other), qmi_not_sent);
    EXPECT_EQ(other, 0u);
    EXPECT_EQ(model(), qmi_unknown_handle) << "opening has closed the old link";
    qmuxd.appear();
    ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    EXPECT_EQ(model(), qmi_ok);
}

TEST_F(qmi_link, closing_waits_once_for_a_silent_modem)
{
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(qmi_pds_set_service(handle, true), qmi_ok);
    qmuxd.behave(qmi_ctl, 0x23, {qmuxd_reply::silence, 0, 2});
    EXPECT_EQ(qmi_close(handle), qmi_not_sent);
    ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    EXPECT_EQ(model(), qmi_ok);
    EXPECT_EQ(qmi_pds_set_service(handle, true), qmi_ok);
    qmuxd.behave(qmi_ctl, 0x23, {qmuxd_reply::late}); // the second answer comes first
    EXPECT_EQ(qmi_close(handle), qmi_ok);
    for (const uint16_t error : {uint16_t{7}, uint16_t{3}}) {
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
        EXPECT_EQ(model(), qmi_ok);
        qmuxd.behave(qmi_ctl, 0x23, {qmuxd_reply::error, error});
        EXPECT_EQ(qmi_close(handle), error == 7 ? 0u : 1003u) << "what is gone is given back";
    }
}

TEST_F(qmi_link, a_name_left_over_and_a_place_that_is_too_deep)
{
    qmi_close(handle);
    root.write(socket_name(), "left over");
    EXPECT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    const std::string deep = root.path() + "/" + std::string(120, 'd');
    setenv("TESSERA_ROOT", deep.c_str(), 1);
    EXPECT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_not_sent);
    EXPECT_TRUE(log.has("File name too long"));
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool freed_memory_is_kept = true; // by the sanitizer, to see who still uses it
#else
constexpr bool freed_memory_is_kept = false;
#endif

static long resident_pages()
{
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident;
}

static size_t descriptors()
{
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

TEST_F(qmi_link, transactions_wrap_around_without_growth)
{
    qmuxd.behave(qmi_dms, 0x22, {qmuxd_reply::error, 7, 300}); // each asks for a new client id
    for (int i = 0; i < 300; i++)
        ASSERT_EQ(model(), 1007u) << i;
    log.clear();
    const long before = resident_pages();
    const size_t open_before = descriptors();
    for (int i = 0; i < 66000; i++) {
        ASSERT_EQ(model(), qmi_ok) << i;
        if (i % 100 == 0)
            (void)qmuxd.requests();
    }
    if (!freed_memory_is_kept) {
        EXPECT_LT(resident_pages() - before, 256) << "pages";
    }
    EXPECT_EQ(descriptors(), open_before);
}

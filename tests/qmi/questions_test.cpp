// Questions that are asked together: each has its own answer or code. What their answers say, whole, cut
// and odd, is in the tests of the records.

#include "qmi/messages.h"
#include "qmi/qmux.h"
#include "qmi/questions.h"
#include "support/fake_qmuxd.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

TEST(qmi_ask_all, gives_each_question_its_code_and_record)
{
    setenv("TESSERA_TIME_SCALE", "0.4", 1); // 800 ms, for a busy machine
    const temp_root root;
    const log_capture log;
    fake_qmuxd qmuxd(root);
    uint32_t handle = 0;
    ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    std::string model = "old";
    std::string imsi = "old";
    uint16_t prl = 7;
    uint8_t mode = 7;
    qmuxd.answer(qmi_dms, 0x22, "01 0300 4c5445");
    qmuxd.behave(qmi_dms, 0x43, {qmuxd_reply::error, 37});
    qmuxd.behave(qmi_dms, 0x30, {qmuxd_reply::silence, 0, 2});
    qmuxd.answer(qmi_dms, 0x2D, "01 0000");
    qmi_question questions[] = {qmi_dms_model(model), qmi_dms_imsi(imsi), qmi_dms_prl_version(prl),
                                qmi_dms_operating_mode(mode)};
    qmi_ask_all(handle, questions);
    EXPECT_EQ(questions[0].code, qmi_ok);
    EXPECT_EQ(model, "LTE");
    EXPECT_EQ(questions[1].code, qmi_modem_error + 37);
    EXPECT_EQ(imsi, "old");
    EXPECT_EQ(questions[2].code, qmi_not_sent);
    EXPECT_EQ(prl, 7);
    EXPECT_EQ(questions[3].code, qmi_modem_error);
    EXPECT_EQ(mode, 7) << "what cannot be read changes nothing";
    EXPECT_EQ(log.count("700 DMS Get Operating Mode: something is missing in the answer"), 1);
    EXPECT_EQ(qmi_close(handle), qmi_ok);
}

// A Gobi modem's record, attached to a fake QMUXD in a root whose shell writes down what it is asked
// to run.
#pragma once

#include "backends/gobi/gobi.h"
#include "cellmodem/cellmodem.h"
#include "qmi/qmux.h"
#include "support/fake_infod.h"
#include "support/fake_qmuxd.h"
#include "support/log_capture.h"
#include "support/memory_stream.h"

#include <filesystem>

#include <gtest/gtest.h>

class gobi_fixture : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TESSERA_TIME_SCALE", "0.001", 1);
        root.write("/bin/sh", "#!/bin/sh\necho \"$2\" >> \"$TESSERA_ROOT/shell.log\"\n");
        std::filesystem::permissions(root.place("/bin/sh"), std::filesystem::perms::all);
        qmuxd.answer(qmi_dms, 0x21, "01 0300 516e63");                    // "Qnc"
        qmuxd.answer(qmi_dms, 0x22, "01 0500 4c54452d31");                // "LTE-1"
        qmuxd.answer(qmi_wds, 0x22, "01 0100 01");                        // disconnected
        qmuxd.answer(qmi_wds, 0x20, "01 0400 78563412");                  // the session
        qmuxd.answer(qmi_nas, 0x24, "01 0600 01 01 01 02 01 08");         // registered
        qmuxd.answer(qmi_dms, 0x44, "01 0100 01");                        // a locked SIM
        qmuxd.answer(qmi_dms, 0x2B, "11 0300 04 00 0a 12 0300 01 03 0a"); // blocked
        qmuxd.answer(qmi_wms, 0x31, "01 0400 00000000");                  // no messages
        ASSERT_EQ(gobi_init(modem), 0);
    }
    void TearDown() override
    {
        modem.slots.detach(modem);
        EXPECT_EQ(qmuxd.clients(), 0u) << "nothing stays allocated";
        unsetenv("TESSERA_TIME_SCALE");
    }

    void attach()
    {
        ASSERT_EQ(modem.slots.attach(modem), 0);
        (void)qmuxd.requests();
    }

    int connect(const char *apn, const char *apn_type = nullptr, int auth = 0,
                const char *username = nullptr, const char *password = nullptr)
    {
        return modem.slots.lte_connect(modem, apn, apn_type, auth, username, password);
    }

    temp_root root;
    fake_infod infod;
    log_capture log;
    fake_qmuxd qmuxd{root};
    cellmodem modem;
};

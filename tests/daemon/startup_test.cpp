// The start-up sequence with a second SIM holder, which no simulated family offers: the modem is a
// fake one that answers through the DirectIP markers' place in the selection.

#include "backends/select.h"
#include "cellmodem/cellmodem.h"
#include "daemon/daemon.h"
#include "support/fake_dualsim.h"
#include "support/fake_modem.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

#include <gtest/gtest.h>

// Linked instead of the real selection.
static cellmodem_slots fitted_slots;

int cellmodem_select(cellmodem &modem)
{
    modem.slots = fitted_slots;
    return 0;
}

class startup : public testing::Test
{
protected:
    void SetUp() override { fitted_slots = fake_modem_slots; }
    void TearDown() override { cellmodem_destroy(&tesserad.modem); }

    const short_waits waits;
    temp_root root;
    fake_modem calls;
    log_capture log;
};

TEST_F(startup, one_holder_is_done_when_the_modem_answers)
{
    EXPECT_EQ(tesserad_startup(), 0);
    EXPECT_EQ(calls.calls, (texts{"attach()", "ping()"}));
    EXPECT_EQ(log.lines(),
              (texts{"600 Detecting modem ...", "600 modem is responding, continuing startup...",
                     "600 This device doesn't support dual-sim",
                     "600 Only one SIM slot available, done"}));
    calls.calls.clear();
    EXPECT_EQ(tesserad_startup(), 0) << "a recovery";
    EXPECT_EQ(calls.calls, (texts{"detach()", "attach()", "ping()"}));
    calls.calls.clear();
    calls.results = {{"detach", -1}};
    EXPECT_EQ(tesserad_startup(), -1);
    EXPECT_EQ(log.count("0 Failed to detach from modem"), 1);
}

TEST_F(startup, a_modem_that_stays_away_is_tried_for_a_while)
{
    calls.results = {{"attach", -1}};
    EXPECT_EQ(tesserad_startup(), 0) << "it may come up later";
    EXPECT_EQ(log.count("400 Unable to attach to modem waiting..."), 13);
    EXPECT_EQ(calls.calls.size(), 13u);
}

TEST_F(startup, a_modem_that_attaches_but_does_not_answer)
{
    calls.results = {{"ping", -1}};
    EXPECT_EQ(tesserad_startup(), 0);
    EXPECT_EQ(calls.calls.size(), 65u) << "one attach, a ping a second from 0 to 63";
    EXPECT_EQ(log.count("700 modem is not responding yet: 63..."), 1);
}

TEST_F(startup, automatic_mode_walks_the_holders)
{
    fake_dualsim dualsim;
    EXPECT_EQ(tesserad_startup(), 0); // simispresent gives 0: no SIM anywhere
    EXPECT_EQ(calls.calls, (texts{"attach()", "ping()", "simispresent()", "reset()", "detach()",
                                  "attach()", "ping()", "simispresent()"}));
    EXPECT_EQ(dualsim.index, 1);
    EXPECT_EQ(
        log.lines(),
        (texts{"600 Detecting modem ...", "600 modem is responding, continuing startup...",
               "600 Detecting SIM...", "600 Attempting to autodetect SIM in next slot...",
               "600 Incremented autodetect SIM slot check", "600 Modem was successfully reset",
               "600 Waiting for modem to reset...", "700 Detaching from modem...",
               "600 Detecting modem ...", "600 modem is responding, continuing startup...",
               "600 Detecting SIM...", "600 Attempting to autodetect SIM in next slot...",
               "600 Finished checking SIM slots"}));
}

TEST_F(startup, the_walk_goes_on_after_a_failed_or_missing_reset)
{
    fake_dualsim dualsim;
    calls.results = {{"reset", -1}};
    EXPECT_EQ(tesserad_startup(), 0);
    EXPECT_EQ(log.count("300 Failed to reset modem"), 1);
    EXPECT_EQ(dualsim.index, 1);
    EXPECT_EQ(log.count("600 Finished checking SIM slots"), 1);
    dualsim.index = 0;
    fitted_slots.reset = nullptr;
    EXPECT_EQ(tesserad_startup(), 0);
    EXPECT_EQ(dualsim.index, 1);
    EXPECT_EQ(log.count("600 Finished checking SIM slots"), 2);
}

TEST_F(startup, the_walk_ends_at_a_sim_and_needs_automatic_mode)
{
    fake_dualsim dualsim;
    calls.results = {{"simispresent", 1}};
    EXPECT_EQ(tesserad_startup(), 0);
    EXPECT_EQ(log.count("600 SIM detected in current slot"), 1);
    EXPECT_EQ(dualsim.index, 0);
    dualsim.mode = 1;
    EXPECT_EQ(tesserad_startup(), 0);
    EXPECT_EQ(log.count("600 Manual SIM selection, continuing"), 1);
    dualsim.failing = {"get_mode"};
    EXPECT_EQ(tesserad_startup(), 0);
    EXPECT_EQ(log.count("600 Unable to determine current SIM selection mode"), 1);
    dualsim.failing.clear();
    dualsim.mode = 2;
    fitted_slots.simispresent = nullptr;
    EXPECT_EQ(tesserad_startup(), 0);
    EXPECT_EQ(log.count("600 No SIM is required for this cellmodem"), 1);
}

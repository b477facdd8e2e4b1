#include "platform/clock.h"

#include <cerrno>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

static void set_scale(const char *root, const char *scale)
{
    root ? setenv("TESSERA_ROOT", root, 1) : unsetenv("TESSERA_ROOT");
    scale ? setenv("TESSERA_TIME_SCALE", scale, 1) : unsetenv("TESSERA_TIME_SCALE");
}

TEST(clock, the_scale_counts_only_below_a_root_and_in_its_range)
{
    const struct {
        const char *root, *scale;
        int scaled_10_s;
    } rows[] = {
        {"/r", "0.01", 100},     {"/r", "0.001", 10},      {"/r", "1", 10000},
        {"/r", nullptr, 10000},  {nullptr, "0.01", 10000}, {"", "0.01", 10000},
        {"/r", "0.0009", 10000}, {"/r", "2", 10000},       {"/r", "0.01x", 10000},
        {"/r", "", 10000},       {"/r", "nan", 10000},
    };
    for (const auto &row : rows) {
        set_scale(row.root, row.scale);
        EXPECT_EQ(clock_scaled_ms(10000), row.scaled_10_s) << (row.scale ? row.scale : "unset");
    }
    set_scale("/r", "0.01");
    EXPECT_EQ(clock_scaled_ms(1), 1) << "a wait never shrinks to nothing";
    EXPECT_EQ(clock_answer_timeout_ms(5000), 250) << "an answer takes the time it takes";
    EXPECT_EQ(clock_answer_timeout_ms(300000), 3000);
    EXPECT_EQ(clock_answer_timeout_ms(100), 100) << "never longer than asked for";
    set_scale(nullptr, nullptr);
}

TEST(clock, wait_until_counts_its_checks)
{
    set_scale("/r", "0.001");
    int calls = 0;
    const auto after = [&](int successful) {
        return [&calls, successful] { return ++calls >= successful ? 0 : 7; };
    };
    EXPECT_EQ(wait_until(nullptr, 1000, 10), 0);
    EXPECT_EQ(wait_until(after(1), 0, 10), 0);
    EXPECT_EQ(calls, 1);
    calls = 0;
    EXPECT_EQ(wait_until(after(2), 0, 10), -1) << "no time: one check only";
    EXPECT_EQ(calls, 1);
    calls = 0;
    EXPECT_EQ(wait_until(after(4), 3000, 1000), 0);
    EXPECT_EQ(calls, 4);
    calls = 0;
    EXPECT_EQ(wait_until(after(100), 15000, 500), -1);
    EXPECT_EQ(calls, 31);
    calls = 0;
    EXPECT_EQ(wait_until(after(100), 2500, 1000), -1) << "a part of a step is a step";
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(wait_until(after(1000), 10, 0), -1) << "a step of nothing must not spin for ever";
    set_scale(nullptr, nullptr);
}

TEST(clock, a_wake_up_before_the_wait_is_not_lost)
{
    ASSERT_EQ(clock_init(), 0);
    pollfd nothing = {-1, 0, 0};
    clock_wake();
    clock_wake();
    EXPECT_EQ(clock_poll(nothing, 600000), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(clock_poll(nothing, 1), 0) << "two wake-ups before one wait are one";
}

// Last in its process: termination cannot be taken back.
TEST(clock, termination_ends_every_wait_now_and_later)
{
    ASSERT_EQ(clock_init(), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread other([] {
        usleep(20000);
        clock_stop();
    });
    clock_sleep_ms(600000);
    other.join();
    EXPECT_TRUE(clock_stopped());
    clock_sleep_ms(600000);
    EXPECT_EQ(clock_wait_readable(ends[0], 600000), 0);
    pollfd waited = {ends[0], POLLIN, 0};
    EXPECT_EQ(clock_poll(waited, 600000), -1);
    int calls = 0;
    EXPECT_EQ(wait_until([&] { return ++calls, -1; }, 600000, 1000), -1);
    EXPECT_EQ(calls, 2);
    close(ends[0]);
    close(ends[1]);
}

#include "platform/log.h"
#include "support/log_capture.h"

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

// What is written to standard error while `run` runs, with the log open as a stream.
template <class Run>
static std::string on_stderr(Run run)
{
    setenv("TESSERA_LOG", "stream", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(log_open("probe"), 0);
    run();
    return testing::internal::GetCapturedStderr();
}

TEST(log, a_long_response_stays_one_whole_line)
{
    const std::string response = std::string(4000, 'x') + "\r\nOK\r";
    const std::string text = on_stderr([&] {
        log_message(log_error, "Info get failed - %s\n", response.c_str());
        log_message(log_debug, "below the threshold");
        log_message(log_fatal, "forged?\n20260101 00:00:00.000 INFO \x1B[2J\x7F");
    });
    EXPECT_NE(
        text.find(" ERROR    probe- Info get failed - " + std::string(4000, 'x') + "\\r\\nOK\\r\n"),
        std::string::npos);
    EXPECT_NE(text.find(" FATAL    probe- forged?\\n20260101 00:00:00.000 INFO \\x1B[2J\\x7F\n"),
              std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST(log, errno_survives_and_threads_do_not_mix_lines)
{
    const std::string line(300, 'y');
    const std::string text = on_stderr([&] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; i++)
            threads.emplace_back([&] {
                for (int k = 0; k < 50; k++) {
                    errno = 77;
                    log_message(log_info, "%s", line.c_str());
                    EXPECT_EQ(errno, 77);
                }
            });
        for (std::thread &thread : threads)
            thread.join();
    });
    int whole = 0;
    for (size_t at = text.find(line + "\n"); at != text.npos; at = text.find(line + "\n", at + 1))
        whole++;
    EXPECT_EQ(whole, 200);
}

// A test with a root of its own, a served SDK and an open API.
#pragma once

#include "support/fake_swi_server.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "swi/calls.h"

#include <chrono>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

class swi_fixture : public testing::Test
{
protected:
    swi_fixture() { setenv("TESSERA_TIME_SCALE", "0.001", 1); }
    ~swi_fixture() override { swi_api_close(); }

    // A program of the root, such as the server's.
    void install_program(const std::string &path, const std::string &text = "#!/bin/sh\n") const
    {
        root.write(path, text);
        ASSERT_EQ(chmod(root.place(path).c_str(), 0755), 0);
    }

    static int open_api()
    {
        swi_start_parameters parameters;
        EXPECT_EQ(swi_set_text(parameters.server_path, "/bin/swisdk"), 0);
        parameters.launch = 1;
        return swi_api_open(parameters);
    }

    template <class Condition>
    static void wait_for(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    static constexpr int timeout_ms = 60000; // 250 under this time scale

    temp_root root;
    log_capture log;
};

// A whole appliance in a directory: a simulated modem, the built daemon and the built client, for
// end-to-end tests. Everything that was started is stopped at the end.
#pragma once

#include "support/temp_root.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/types.h>

struct client_result {
    int code = -1; // the exit status, 128 + n for signal n
    std::string out;
    std::string err;
};

class appliance : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    // The scenario is JSON; more options of the simulator's command line may follow.
    void start_sim(const std::string &family, const std::string &scenario = "{}",
                   const std::vector<std::string> &options = {});
    // Sends the running simulator a scenario object; returns its answer.
    std::string tell_sim(const std::string &json);
    void stop_sim();

    // Starts the daemon and waits until it serves.
    void start_daemon();
    // Starts it without waiting.
    void spawn_daemon();
    // Sends the signal and waits for the end; the exit status as in client_result.
    int stop_daemon(int signo);
    int wait_daemon();
    [[nodiscard]] pid_t daemon() const { return daemon_; }

    client_result tessera(const std::vector<std::string> &arguments);
    // Starts a client without waiting for it; finish() gives its result.
    struct running_client {
        pid_t pid;
        std::string base; // of its outputs' paths below the root
    };
    running_client spawn_tessera(const std::vector<std::string> &arguments);
    client_result finish(const running_client &client);

    // Runs a program to its end: a built one by its name, any other by its path. Environment as
    // NAME=VALUE, ours behind it.
    client_result run_program(const std::string &name, const std::vector<std::string> &arguments,
                              const std::vector<std::string> &environment = {});

    [[nodiscard]] std::string daemon_log() const { return root.read("/test/daemon.log"); }
    // What the modem was asked and answered.
    [[nodiscard]] std::string modem_log() const { return root.read("/var/log/modem.log"); }
    // Command lines with their status.
    [[nodiscard]] std::string shell_log() const { return root.read("/var/log/shell.log"); }
    [[nodiscard]] int count(const std::string &text, const std::string &part) const;

    // Fails the test when the condition does not become true within a generous time.
    void wait_for(const std::string &what, const std::function<bool()> &condition);
    void wait_for_log(const std::string &part, int times = 1);

    temp_root root;
    std::string time_scale = "0.01";

private:
    running_client start(const std::string &name, const std::vector<std::string> &arguments,
                         std::vector<std::string> environment);

    pid_t sim_ = -1;
    pid_t daemon_ = -1;
    int serial_ = 0;
};

// Waits for a child; the exit status, 128 + n for signal n.
int reap(pid_t pid);

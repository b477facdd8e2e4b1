// The daemon's life: one instance, signals, pause, recovery, its services failing.

#include "support/appliance.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

static const std::string holding = "/var/run/.modem/.tessera_wait";
static const std::string pause_file = "/var/run/.modem/.tessera_infod_paused";

class daemon_life : public appliance
{
protected:
    void SetUp() override
    {
        appliance::SetUp();
        start_sim("directip");
    }

    // Whether the daemon serves an attached modem.
    bool serves() { return tessera({"-i"}).out.find("attached yes") == 0; }
};

TEST_F(daemon_life, a_second_instance_is_refused)
{
    start_daemon();
    const std::string pid = root.read("/var/run/tesserad.pid");
    EXPECT_EQ(pid, std::to_string(daemon()) + "\n");
    const pid_t first = daemon();
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 1);
    EXPECT_EQ(count(daemon_log(), "Failed creating lock file: Resource temporarily unavailable"),
              1);
    EXPECT_EQ(root.read("/var/run/tesserad.pid"), pid);
    EXPECT_TRUE(serves());
    kill(first, SIGTERM);
    reap(first);
    EXPECT_FALSE(std::filesystem::exists(root.place("/var/run/tesserad.pid")));
    EXPECT_FALSE(std::filesystem::exists(root.place("/var/lock/tesserad.lock")));
}

TEST_F(daemon_life, without_its_pid_file_it_does_not_start)
{
    std::filesystem::create_directory(root.place("/var/run/tesserad.pid"));
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 1);
    EXPECT_EQ(count(daemon_log(), "Failed creating: pid file: Is a directory"), 1);
    EXPECT_EQ(count(modem_log(), "> "), 0);
}

TEST_F(daemon_life, without_its_command_socket_it_ends_with_the_loops_status)
{
    std::filesystem::create_directories(root.place("/var/run/tessera.cmd/taken"));
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 255);
    EXPECT_EQ(count(daemon_log(), "Failed to create server socket"), 1);
    EXPECT_EQ(count(daemon_log(), "Failed to run infod service, exit: -1"), 1);
    EXPECT_EQ(count(daemon_log(), "Service is exiting..."), 1);
    EXPECT_FALSE(std::filesystem::exists(root.place("/var/run/tesserad.pid")));
}

// The init script in this root.
TEST_F(daemon_life, the_init_script_stops_the_daemon_and_nobody_else)
{
    std::ostringstream text;
    text << std::ifstream(TESSERA_TEST_DATA "/../../packaging/tesserad.init").rdbuf();
    std::string script = text.str();
    const std::string path = "=/var/run/tesserad.pid";
    ASSERT_NE(script.find(path), script.npos);
    script.replace(script.find(path) + 1, path.size() - 1, root.place("/var/run/tesserad.pid"));
    root.write("/test/init", script);
    const auto run = [&](const std::string &action) {
        return std::system(("sh " + root.place("/test/init") + " " + action).c_str());
    };
    EXPECT_NE(run("status"), 0);
    EXPECT_EQ(run("stop"), 0) << "stopped already";
    start_daemon();
    EXPECT_EQ(run("status"), 0);
    // The id of a daemon that was killed may be another process's by now: here it is this test's.
    const std::string pid = root.read("/var/run/tesserad.pid");
    root.write("/var/run/tesserad.pid", std::to_string(getpid()) + "\n");
    EXPECT_NE(run("status"), 0);
    EXPECT_EQ(run("stop"), 0);
    root.write("/var/run/tesserad.pid", "no number\n");
    EXPECT_NE(run("status"), 0);
    EXPECT_EQ(run("stop"), 0);
    root.write("/var/run/tesserad.pid", pid);
    EXPECT_TRUE(serves());
    EXPECT_EQ(run("stop"), 0);
    EXPECT_EQ(wait_daemon(), 255);
}

TEST_F(daemon_life, a_held_modem_is_not_touched)
{
    root.write(holding, "");
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 1);
    EXPECT_EQ(root.read("/test/daemon.out"),
              "External app is blocking modem access: " + holding + "\n");
    EXPECT_EQ(count(modem_log(), "> "), 0);
    std::filesystem::remove(root.place(holding));
    start_daemon();
    root.write(holding, "");
    const client_result refused = tessera({"-i"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.out, "External app is blocking modem access: " + holding + "\n");
    std::filesystem::remove(root.place(holding));
    EXPECT_TRUE(serves());
}

TEST_F(daemon_life, without_a_modem_it_says_so)
{
    std::filesystem::remove(root.place("/var/run/.modem/cellmodem_is_lte"));
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 1);
    EXPECT_EQ(count(daemon_log(), "No modem detected"), 1);
}

TEST_F(daemon_life, an_interrupt_ends_it_in_order)
{
    start_daemon();
    EXPECT_EQ(stop_daemon(SIGINT), 255);
    EXPECT_EQ(count(daemon_log(), "Receieved INT signal, si_code 0, si_pid "), 1);
    EXPECT_EQ(count(daemon_log(), "service has been commanded to quit"), 1);
    EXPECT_EQ(count(daemon_log(), "Detaching from modem..."), 1);
    EXPECT_EQ(count(daemon_log(), "Service is exiting..."), 1);
}

// A wait of the real length, in which SIGTERM arrives; each is much longer than a test's patience.
TEST_F(daemon_life, termination_ends_the_wait_of_start_up)
{
    time_scale = "1";
    spawn_daemon();
    wait_for_log("attached -> 1");
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    EXPECT_EQ(count(daemon_log(), "Service is exiting..."), 1);
    EXPECT_EQ(count(daemon_log(), "attached -> 0"), 1);
}

TEST_F(daemon_life, termination_ends_a_modems_silence)
{
    start_daemon();
    tell_sim(R"({"faults": [{"match": "AT!SCACT=0", "do": "silence", "count": 0}]})");
    stop_daemon(SIGTERM);
    time_scale = "0.05"; // 15 s for the answer to a deactivation
    start_daemon();
    const running_client client = spawn_tessera({"-d"});
    wait_for("the request", [&] { return count(modem_log(), "> AT!SCACT=0,1") == 1; });
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    EXPECT_EQ(finish(client).code, 1) << "the command fails, and its client is told";
}

TEST_F(daemon_life, termination_does_not_wait_for_a_script)
{
    root.write("/etc/scripts/cell-carrier", "#!/bin/sh\nexec sleep 3600\n");
    spawn_daemon();
    wait_for_log("Only one SIM slot available, done");
    wait_for("the first records", [&] {
        return run_program("infod-get", {"config.cellmodem.tessera.status.temp"}).code == 0;
    });
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
}

TEST_F(daemon_life, killed_in_any_state_it_starts_again)
{
    const std::vector<std::pair<const char *, std::function<void()>>> states = {
        {"start-up", [&] { wait_for_log("attached -> 1"); }},
        {"serving", [&] { wait_for_log("start time:"); }},
        {"recovery",
         [&] {
             wait_for_log("start time:");
             EXPECT_EQ(tessera({"-r"}).code, 0);
             wait_for("the holding file",
                      [&] { return std::filesystem::exists(root.place(holding)); });
         }},
        {"paused",
         [&] {
             wait_for_log("start time:");
             kill(daemon(), SIGUSR1);
             wait_for_log("cellmodem comms suspended");
         }},
    };
    for (const auto &[name, reach] : states) {
        SCOPED_TRACE(name);
        std::filesystem::remove(root.place("/test/daemon.log"));
        spawn_daemon();
        reach();
        EXPECT_EQ(stop_daemon(SIGKILL), 128 + SIGKILL);
        std::filesystem::remove(root.place("/test/daemon.log"));
        start_daemon();
        EXPECT_TRUE(serves());
        EXPECT_EQ(stop_daemon(SIGTERM), 255);
    }
}

TEST_F(daemon_life, usr1_pauses_and_resumes)
{
    start_daemon();
    kill(daemon(), SIGUSR1);
    wait_for_log("cellmodem comms suspended");
    EXPECT_TRUE(std::filesystem::exists(root.place(pause_file)));
    EXPECT_EQ(tessera({"-i"}).out, "Modem is not attached to tessera service\n");
    kill(daemon(), SIGUSR1);
    wait_for_log("cellmodem comms re-established");
    EXPECT_FALSE(std::filesystem::exists(root.place(pause_file)));
    EXPECT_TRUE(serves());

    // Two signals within one round are one.
    kill(daemon(), SIGSTOP);
    kill(daemon(), SIGUSR1);
    kill(daemon(), SIGUSR1);
    kill(daemon(), SIGCONT);
    wait_for_log("cellmodem comms suspended", 2);
    EXPECT_EQ(count(tessera({"-i"}).out, "Modem is not attached"), 1);
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    EXPECT_FALSE(std::filesystem::exists(root.place(pause_file)));
    EXPECT_EQ(count(daemon_log(), "re-established"), 1);
}

TEST_F(daemon_life, a_pause_that_cannot_be)
{
    start_daemon();
    root.write(pause_file, "");
    kill(daemon(), SIGUSR1);
    wait_for_log("Service already paused...");
    EXPECT_TRUE(serves());
    std::filesystem::remove(root.place(pause_file));

    kill(daemon(), SIGUSR1);
    wait_for_log("cellmodem comms suspended");
    stop_sim();
    kill(daemon(), SIGUSR1);
    wait_for_log("Failed to resume service");
    EXPECT_EQ(count(daemon_log(), "Failed to attach to the modem"), 1);
    start_sim("directip");
    kill(daemon(), SIGUSR1);
    wait_for_log("cellmodem comms re-established");
    EXPECT_TRUE(serves());
}

TEST_F(daemon_life, a_recovery_without_a_modem_ends_the_service)
{
    start_daemon();
    std::filesystem::remove(root.place("/var/run/.modem/cellmodem_is_lte"));
    EXPECT_EQ(tessera({"-r"}).code, 0);
    EXPECT_EQ(wait_daemon(), 0);
    EXPECT_EQ(count(daemon_log(), "Failed to reconfigure modem, exiting..."), 1);
    EXPECT_FALSE(std::filesystem::exists(root.place(holding)));
}

// ---- services that fail

TEST_F(daemon_life, an_unwritable_infod_costs_values_only)
{
    std::filesystem::create_directory(root.place("/var/run/infod.db"));
    start_daemon();
    EXPECT_GE(count(daemon_log(), "Could not open infod socket: "), 7);
    EXPECT_EQ(count(daemon_log(), "Failed to write new modem attached state to infod"), 1);
    EXPECT_TRUE(serves());
}

TEST_F(daemon_life, a_locked_infod_costs_values_only)
{
    start_daemon();
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(root.place("/var/run/infod.db").c_str(), &other), SQLITE_OK);
    sqlite3_busy_timeout(other, 10000);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_TRUE(serves());
    wait_for_log("Could not open infod socket: 16: Device or resource busy (5)");
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    tell_sim(R"({"state": {"temperature": 55}})");
    wait_for("a new value", [&] {
        return run_program("infod-get", {"config.cellmodem.tessera.status.temp"}).out ==
               "config.cellmodem.tessera.status.temp 55\n";
    });
}

TEST_F(daemon_life, a_broken_configuration_costs_gps_only)
{
    root.write("/var/run/.modem/cellmodem_has_gps", "");
    for (const char *content : {"", "<config><ports>", "absent"}) {
        root.write("/etc/config/config.xml", content);
        if (std::string(content) == "absent")
            std::filesystem::remove(root.place("/etc/config/config.xml"));
        std::filesystem::remove(root.place("/test/daemon.log"));
        start_daemon();
        EXPECT_EQ(count(daemon_log(), "Error opening config database"), 1) << content;
        EXPECT_TRUE(serves());
        EXPECT_EQ(stop_daemon(SIGTERM), 255);
    }
}

TEST_F(daemon_life, a_failing_carrier_script_is_logged)
{
    root.write("/etc/scripts/cell-carrier", "#!/bin/sh\nexit 4\n");
    start_daemon();
    EXPECT_EQ(count(daemon_log(), "Failed to detect cellular carrier: 4"), 1);
}

TEST_F(daemon_life, start_up_waits_for_a_port_that_appears_late)
{
    std::filesystem::rename(root.place("/dev/cellcommand01"), root.place("/dev/later"));
    spawn_daemon();
    wait_for_log("Unable to attach to modem waiting...");
    std::filesystem::rename(root.place("/dev/later"), root.place("/dev/cellcommand01"));
    wait_for_log("start time:");
    EXPECT_TRUE(serves());
}

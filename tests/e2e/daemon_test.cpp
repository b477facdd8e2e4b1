// The daemon's life: one instance, signals, pause, recovery, its services failing.

#include "support/appliance.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <sqlite3.h>
#include <unistd.h>

namespace fs = std::filesystem;

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
    bool serves() { return tessera({"-i"}).out.starts_with("attached yes"); }
    [[nodiscard]] int logged(const std::string &line) const { return count(daemon_log(), line); }
    void pause_or_resume() { kill(daemon(), SIGUSR1); }
};

TEST_F(daemon_life, a_second_instance_is_refused)
{
    start_daemon();
    const std::string pid = root.read("/var/run/tesserad.pid");
    EXPECT_EQ(pid, std::to_string(daemon()) + "\n");
    const pid_t first = daemon();
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 1);
    EXPECT_EQ(logged("Failed creating lock file: Resource temporarily unavailable"), 1);
    EXPECT_EQ(root.read("/var/run/tesserad.pid"), pid);
    EXPECT_TRUE(serves());
    kill(first, SIGINT);
    EXPECT_EQ(reap(first), 255);
    EXPECT_EQ(logged("Receieved INT signal, si_code 0, si_pid "), 1);
    EXPECT_EQ(logged("service has been commanded to quit"), 1);
    EXPECT_EQ(logged("Detaching from modem..."), 1);
    EXPECT_EQ(logged("Service is exiting..."), 1);
    EXPECT_FALSE(fs::exists(root.place("/var/run/tesserad.pid")));
    EXPECT_FALSE(fs::exists(root.place("/var/lock/tesserad.lock")));
}

TEST_F(daemon_life, what_it_does_not_start_without)
{
    fs::create_directory(root.place("/var/run/tesserad.pid"));
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 1);
    EXPECT_EQ(logged("Failed creating: pid file: Is a directory"), 1);
    fs::remove(root.place("/var/run/tesserad.pid"));

    root.write(holding, "");
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 1);
    EXPECT_EQ(root.read("/test/daemon.out"),
              "External app is blocking modem access: " + holding + "\n");
    EXPECT_EQ(count(modem_log(), "> "), 0);
    fs::remove(root.place(holding));

    fs::create_directories(root.place("/var/run/tessera.cmd/taken"));
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 255);
    EXPECT_EQ(logged("Failed to create server socket"), 1);
    EXPECT_EQ(logged("Failed to run infod service, exit: -1"), 1);
    EXPECT_EQ(logged("Service is exiting..."), 1);
    EXPECT_FALSE(fs::exists(root.place("/var/run/tesserad.pid")));

    fs::remove(root.place("/var/run/.modem/cellmodem_is_lte"));
    spawn_daemon();
    EXPECT_EQ(wait_daemon(), 1);
    EXPECT_EQ(logged("No modem detected"), 1);
}

// The init script in this root.
TEST_F(daemon_life, the_init_script_stops_the_daemon_and_nobody_else)
{
    std::string script = test_data("../../packaging/tesserad.init");
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
    for (const std::string &other : {std::to_string(getpid()), std::string("no number")}) {
        root.write("/var/run/tesserad.pid", other + "\n");
        EXPECT_NE(run("status"), 0) << other;
        EXPECT_EQ(run("stop"), 0) << other;
    }
    root.write("/var/run/tesserad.pid", pid);
    EXPECT_TRUE(serves());
    EXPECT_EQ(run("stop"), 0);
    EXPECT_EQ(wait_daemon(), 255);
}

// A wait of the real length, in which SIGTERM arrives; each is much longer than a test's patience.
TEST_F(daemon_life, termination_ends_the_wait_of_start_up)
{
    time_scale = "1";
    spawn_daemon();
    wait_for_log("attached -> 1");
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    EXPECT_EQ(logged("Service is exiting..."), 1);
    EXPECT_EQ(logged("attached -> 0"), 1);
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
             wait_for("the holding file", [&] { return fs::exists(root.place(holding)); });
         }},
        {"paused",
         [&] {
             wait_for_log("start time:");
             pause_or_resume();
             wait_for_log("cellmodem comms suspended");
         }},
    };
    for (const auto &[name, reach] : states) {
        SCOPED_TRACE(name);
        fs::remove(root.place("/test/daemon.log"));
        spawn_daemon();
        reach();
        EXPECT_EQ(stop_daemon(SIGKILL), 128 + SIGKILL);
        fs::remove(root.place("/test/daemon.log"));
        start_daemon();
        EXPECT_TRUE(serves());
        EXPECT_EQ(stop_daemon(SIGTERM), 255);
    }
}

TEST_F(daemon_life, usr1_pauses_and_resumes)
{
    start_daemon();
    pause_or_resume();
    wait_for_log("cellmodem comms suspended");
    EXPECT_TRUE(fs::exists(root.place(pause_file)));
    EXPECT_EQ(tessera({"-i"}).out, "Modem is not attached to tessera service\n");
    pause_or_resume();
    wait_for_log("cellmodem comms re-established");
    EXPECT_FALSE(fs::exists(root.place(pause_file)));
    EXPECT_TRUE(serves());

    // Two signals within one round are one.
    kill(daemon(), SIGSTOP);
    pause_or_resume();
    pause_or_resume();
    kill(daemon(), SIGCONT);
    wait_for_log("cellmodem comms suspended", 2);
    EXPECT_EQ(count(tessera({"-i"}).out, "Modem is not attached"), 1);
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    EXPECT_FALSE(fs::exists(root.place(pause_file)));
    EXPECT_EQ(logged("re-established"), 1);
}

TEST_F(daemon_life, a_pause_that_cannot_be)
{
    start_daemon();
    root.write(pause_file, "");
    pause_or_resume();
    wait_for_log("Service already paused...");
    EXPECT_TRUE(serves());
    fs::remove(root.place(pause_file));

    pause_or_resume();
    wait_for_log("cellmodem comms suspended");
    stop_sim();
    pause_or_resume();
    wait_for_log("Failed to resume service");
    EXPECT_EQ(logged("Failed to attach to the modem"), 1);
    start_sim("directip");
    pause_or_resume();
    wait_for_log("cellmodem comms re-established");
    EXPECT_TRUE(serves());
}

TEST_F(daemon_life, a_recovery_without_a_modem_ends_the_service)
{
    start_daemon();
    fs::remove(root.place("/var/run/.modem/cellmodem_is_lte"));
    EXPECT_EQ(tessera({"-r"}).code, 0);
    EXPECT_EQ(wait_daemon(), 0);
    EXPECT_EQ(logged("Failed to reconfigure modem, exiting..."), 1);
    EXPECT_FALSE(fs::exists(root.place(holding)));
}

// ---- services that fail

TEST_F(daemon_life, an_unwritable_infod_costs_values_only)
{
    fs::create_directory(root.place("/var/run/infod.db"));
    start_daemon();
    EXPECT_GE(logged("Could not open infod socket: "), 7);
    EXPECT_EQ(logged("Failed to write new modem attached state to infod"), 1);
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
    for (const char *content : {"", "<config><ports>"}) {
        root.write("/etc/config/config.xml", content);
        fs::remove(root.place("/test/daemon.log"));
        start_daemon();
        EXPECT_EQ(logged("Error opening config database"), 1) << content;
        EXPECT_TRUE(serves());
        EXPECT_EQ(stop_daemon(SIGTERM), 255);
    }
}

TEST_F(daemon_life, a_failing_carrier_script_is_logged)
{
    root.write("/etc/scripts/cell-carrier", "#!/bin/sh\nexit 4\n");
    start_daemon();
    EXPECT_EQ(logged("Failed to detect cellular carrier: 4"), 1);
}

TEST_F(daemon_life, start_up_waits_for_a_port_that_appears_late)
{
    fs::rename(root.place("/dev/cellcommand01"), root.place("/dev/later"));
    spawn_daemon();
    wait_for_log("Unable to attach to modem waiting...");
    fs::rename(root.place("/dev/later"), root.place("/dev/cellcommand01"));
    wait_for_log("start time:");
    EXPECT_TRUE(serves());
}

#include "support/appliance.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

constexpr auto patience = std::chrono::seconds(60);
constexpr auto glance = std::chrono::milliseconds(5);

static std::string program(const std::string &name)
{
    return name.starts_with('/') ? name : std::string(TESSERA_BIN_DIR) + "/" + name;
}

int reap(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
        ;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

static pid_t spawn(const std::string &name, std::vector<std::string> arguments,
                   std::vector<std::string> environment, const std::string &out,
                   const std::string &err)
{
    arguments.insert(arguments.begin(), program(name));
    for (char **entry = environ; *entry; entry++)
        environment.emplace_back(*entry);
    const auto pointers = [](std::vector<std::string> &strings) {
        std::vector<char *> all;
        for (std::string &text : strings)
            all.push_back(text.data());
        all.push_back(nullptr);
        return all;
    };
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, program(name).c_str(), &actions, nullptr,
                                  pointers(arguments).data(), pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        ADD_FAILURE() << program(name) << ": " << strerror(error);
    return error == 0 ? pid : -1;
}

void appliance::SetUp()
{
    std::filesystem::create_directories(root.place("/test"));
}

void appliance::TearDown()
{
    if (daemon_ > 0) {
        kill(daemon_, SIGKILL);
        reap(daemon_);
    }
    stop_sim();
    if (HasFailure())
        std::cerr << "---- daemon\n" << daemon_log() << "---- modem\n" << modem_log();
}

void appliance::start_sim(const std::string &family, const std::string &scenario,
                          const std::vector<std::string> &options)
{
    root.write("/test/scenario.json", scenario);
    std::vector<std::string> arguments = {
        "--family", family, "--root", root.path(), "--scenario", root.place("/test/scenario.json")};
    arguments.insert(arguments.end(), options.begin(), options.end());
    sim_ = spawn("tessera-sim", arguments, {"TESSERA_TIME_SCALE=" + time_scale},
                 root.place("/test/sim.out"), root.place("/test/sim.err"));
    wait_for("the simulator", [&] {
        return !root.read("/var/run/tessera-sim.pid").empty() ||
               waitpid(sim_, nullptr, WNOHANG) != 0;
    });
    ASSERT_EQ(root.read("/test/sim.err"), "");
}

std::string appliance::tell_sim(const std::string &json)
{
    const client_result answer =
        run_program("tessera-sim", {"--root", root.path(), "--tell", json});
    EXPECT_EQ(answer.code, 0) << answer.out << answer.err;
    return answer.out;
}

void appliance::stop_sim()
{
    if (sim_ <= 0)
        return;
    kill(sim_, SIGTERM);
    EXPECT_EQ(reap(sim_), 0) << root.read("/test/sim.err");
    sim_ = -1;
}

void appliance::spawn_daemon()
{
    daemon_ = spawn(
        "tesserad", {},
        {"TESSERA_ROOT=" + root.path(), "TESSERA_TIME_SCALE=" + time_scale, "TESSERA_LOG=stream"},
        root.place("/test/daemon.out"), root.place("/test/daemon.log"));
}

void appliance::start_daemon()
{
    const int starts = count(daemon_log(), "start time:");
    spawn_daemon();
    wait_for_log("start time:", starts + 1);
}

int appliance::wait_daemon()
{
    const int status = reap(daemon_);
    daemon_ = -1;
    return status;
}

int appliance::stop_daemon(int signo)
{
    kill(daemon_, signo);
    return wait_daemon();
}

appliance::running_client appliance::start(const std::string &name,
                                           const std::vector<std::string> &arguments,
                                           std::vector<std::string> environment)
{
    const std::string base = "/test/program" + std::to_string(serial_++);
    const std::string place = root.place(base);
    environment.push_back("TESSERA_ROOT=" + root.path());
    return {spawn(name, arguments, environment, place + ".out", place + ".err"), base};
}

appliance::running_client appliance::spawn_tessera(const std::vector<std::string> &arguments)
{
    return start("tessera", arguments, {"TESSERA_TIME_SCALE=1"});
}

client_result appliance::finish(const running_client &client)
{
    const int code = client.pid > 0 ? reap(client.pid) : -1;
    return {code, root.read(client.base + ".out"), root.read(client.base + ".err")};
}

client_result appliance::tessera(const std::vector<std::string> &arguments)
{
    return finish(spawn_tessera(arguments));
}

client_result appliance::run_program(const std::string &name,
                                     const std::vector<std::string> &arguments,
                                     const std::vector<std::string> &environment)
{
    return finish(start(name, arguments, environment));
}

int appliance::count(const std::string &text, const std::string &part) const
{
    int found = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size()))
        found++;
    return found;
}

void appliance::wait_for(const std::string &what, const std::function<bool()> &condition)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "waited in vain for " << what;
        std::this_thread::sleep_for(glance);
    }
}

void appliance::wait_for_log(const std::string &part, int times)
{
    wait_for("log line: " + part, [&] { return count(daemon_log(), part) >= times; });
}

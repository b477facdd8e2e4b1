// What the daemon costs, each figure beside a bare yardstick measured in the same run:
//   - a command's round trip against a bare datagram ping-pong of the same sizes,
//   - one AT exchange with an instant modem against 200 bare sleeps of 100 us,
//   - the idle daemon's resident memory, and the processor time of its quiet rounds.

#include "backends/serial/at.h"
#include "backends/serial/port.h"
#include "command/cmdsock.h"
#include "platform/clock.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

static std::string root;

[[noreturn]] static void give_up(const std::string &what)
{
    fprintf(stderr, "tessera_bench: %s\n", what.c_str());
    exit(1);
}

// ---- measuring

static double microseconds(const std::function<void()> &run)
{
    const auto start = std::chrono::steady_clock::now();
    run();
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
    return took.count();
}

// Two things in turn, so that a machine that slows down slows both; the medians.
struct pair_of_medians {
    double subject, yardstick;
};

static pair_of_medians measure(int repeats, const std::function<void()> &subject,
                               const std::function<void()> &yardstick)
{
    std::vector<double> subjects, yardsticks;
    subject();
    yardstick();
    for (int i = 0; i < repeats; i++) {
        subjects.push_back(microseconds(subject));
        yardsticks.push_back(microseconds(yardstick));
    }
    const auto median = [](std::vector<double> &all) {
        std::nth_element(all.begin(), all.begin() + static_cast<long>(all.size() / 2), all.end());
        return all[all.size() / 2];
    };
    return {median(subjects), median(yardsticks)};
}

// Without a goal of its own a figure is there to be looked at.
static void report(const char *name, const pair_of_medians &medians, const char *yardstick,
                   double goal = 0)
{
    printf("%-34s %10.1f us   %s %.1f us   ratio %.2f", name, medians.subject, yardstick,
           medians.yardstick, medians.subject / medians.yardstick);
    if (goal > 0)
        printf(" (goal %.2f)", goal);
    putchar('\n');
}

// ---- the running programs

static pid_t start(const std::string &name, const std::vector<std::string> &arguments)
{
    const std::string path = std::string(TESSERA_BIN_DIR) + "/" + name;
    std::vector<char *> argv = {const_cast<char *>(path.c_str())};
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, (root + "/log").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    pid_t pid = -1;
    if (posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ) != 0)
        give_up(path + " does not start");
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

static void stop(pid_t pid)
{
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

static void wait_for_file(const std::string &path)
{
    for (int i = 0; i < 3000; i++) {
        if (std::filesystem::exists(root + path))
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    give_up("no " + path);
}

// ---- round trip

static void exchange(int fd, const std::vector<const char *> &argv, std::string &results)
{
    char error[256];
    int code = 0;
    if (cmdsock_send_request(fd, static_cast<int>(argv.size()), argv.data(), error,
                             sizeof(error)) != 0 ||
        cmdsock_recv_reply(fd, code, results, error, sizeof(error)) != 0)
        give_up(error);
}

// One command whose request and reply have these sizes, against a process that echoes datagrams of
// the same sizes and does nothing else.
static void bench_round_trip(const char *name, const std::vector<const char *> &argv,
                             double goal = 0)
{
    char error[256];
    const unique_fd client = cmdsock_client_open("/tmp/bench", cmdsock_path, error, sizeof(error));
    if (!client)
        give_up(error);
    std::string results;
    exchange(client.get(), argv, results);

    size_t request_size = strlen("[]") + argv.size() - 1;
    for (const char *argument : argv)
        request_size += strlen(argument) + 2;
    const std::string answer = cmdsock_marshal_reply(0, results.c_str()).get();
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0)
        give_up("socketpair");
    const pid_t echo = fork();
    std::vector<char> buffer(cmdsock_datagram_max);
    if (echo == 0)
        while (recv(ends[1], buffer.data(), buffer.size(), 0) > 0 &&
               send(ends[1], answer.data(), answer.size(), 0) > 0)
            ;
    const auto ping_pong = [&] {
        if (send(ends[0], buffer.data(), request_size, 0) < 0 ||
            recv(ends[0], buffer.data(), buffer.size(), 0) != static_cast<ssize_t>(answer.size()))
            give_up("ping-pong");
    };
    report(name,
           measure(
               5000, [&] { exchange(client.get(), argv, results); }, ping_pong),
           "datagram ping-pong", goal);
    kill(echo, SIGKILL);
    waitpid(echo, nullptr, 0);
}

// ---- AT exchange

// A modem that answers at once, in a thread of its own.
class instant_modem
{
public:
    instant_modem()
    {
        master_ = posix_openpt(O_RDWR | O_NOCTTY);
        grantpt(master_);
        unlockpt(master_);
        std::filesystem::remove(root + "/dev/cellcommand01");
        std::filesystem::create_symlink(ptsname(master_), root + "/dev/cellcommand01");
        thread_ = std::thread([this] {
            char byte;
            while (read(master_, &byte, 1) == 1)
                if (byte == '\r' && write(master_, "\r\nOK\r\n", 6) != 6)
                    return;
        });
    }
    ~instant_modem()
    {
        thread_
            .detach(); // ends with the process: nothing wakes a read of a pseudo-terminal's master
    }

private:
    int master_;
    std::thread thread_;
};

static void bench_at_exchange()
{
    const instant_modem modem;
    if (port_open(at_port()) != 0)
        give_up("no port");
    const auto exchange_at = [] {
        if (at_write("AT\r") != 0 || !at_read(at_timeout_s))
            give_up("no AT answer");
    };
    const auto sleeps = [] {
        const timespec pause = {0, 100000};
        prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); // an exchange leaves the default behind
        for (int i = 0; i < 200; i++)
            nanosleep(&pause, nullptr);
    };
    report("AT exchange, instant modem", measure(60, exchange_at, sleeps), "200 sleeps", 1.05);
    port_close(at_port());
}

// ---- the idle daemon

static long status_kib(pid_t pid, const std::string &field)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, field.size(), field) == 0)
            return std::strtol(line.c_str() + field.size() + 1, nullptr, 10);
    return -1;
}

static double processor_ms(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/schedstat");
    double ns = 0;
    file >> ns;
    return ns / 1e6;
}

// Rounds are 10 s long; under the time scale of this run they are 100 ms.
static void bench_idle(pid_t daemon)
{
    constexpr int rounds = 100;
    const double before = processor_ms(daemon);
    std::this_thread::sleep_for(std::chrono::milliseconds(100 * rounds));
    const double used = processor_ms(daemon) - before;
    printf("%-34s %10ld KiB  of which private %ld KiB (goal 4096)\n",
           "idle daemon, resident memory", status_kib(daemon, "VmRSS:"),
           status_kib(daemon, "RssAnon:"));
    printf("%-34s %10.2f ms  (three AT exchanges, ten values to infod)\n",
           "processor time of a quiet round", used / rounds);
}

// Both sides of every exchange on one processor: whether the kernel wakes a partner on the same or on
// another one would otherwise decide the ratio.
static void stay_on_one_processor()
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof(one), &one);
}

int main()
{
    stay_on_one_processor();
    char name[] = "/tmp/tessera-bench.XXXXXX";
    root = mkdtemp(name);
    setenv("TESSERA_ROOT", root.c_str(), 1);
    setenv("TESSERA_TIME_SCALE", "0.01", 1);
    setenv("TESSERA_LOG", "stream", 1);
    if (clock_init() != 0)
        give_up("no pipes");

    const pid_t sim = start("tessera-sim", {"--family", "directip", "--root", root});
    wait_for_file("/var/run/tessera-sim.pid");
    const pid_t daemon = start("tesserad", {});
    wait_for_file("/var/run/tessera.cmd");

    bench_idle(daemon);
    bench_round_trip("command round trip, no output", {"tessera", "-f"}, 2.5);
    // Nearly all of this one is Jansson, which looks at each of 1,700 characters on both sides.
    bench_round_trip("command round trip, usage text", {"tessera", "-h"});
    stop(daemon);
    stop(sim);
    bench_at_exchange();
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
    return 0;
}

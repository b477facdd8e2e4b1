// What asking together gains: a whole status record of a simulated Gobi modem that takes 10 ms for
// each answer. Beside it the same record asked one by one, as a modem wants it that refuses company:
//   - from a modem that works on several requests at a time, where time is to be gained,
//   - from one that works on one after the other, where none must be lost.

#include "backends/gobi/gobi.h"
#include "cellmodem/cellmodem.h"
#include "platform/infod.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

constexpr int repeats = 25;
constexpr double gain_goal = 3.0;  // at least so many times faster
constexpr double loss_goal = 1.05; // at most so much slower

static std::string root;

[[noreturn]] static void give_up(const std::string &what)
{
    fprintf(stderr, "gobi_bench: %s\n", what.c_str());
    exit(1);
}

// An infod that takes everything: what a database costs is not the question here.
int infod_push_multiple_start(int *handle)
{
    *handle = 3;
    return 0;
}

int infod_push_multiple_text(int, const char *, int, const char *)
{
    return 0;
}

int infod_push_multiple_long(int, const char *, int, long)
{
    return 0;
}

int infod_push_multiple_end(int)
{
    return 0;
}

// ---- the simulator

static pid_t run_simulator(const std::vector<std::string> &arguments)
{
    const std::string path = std::string(TESSERA_BIN_DIR) + "/tessera-sim";
    std::vector<char *> argv = {const_cast<char *>(path.c_str())};
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    if (posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ) != 0)
        give_up(path + " does not start");
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

static void set_state(const std::string &state)
{
    int status = 0;
    const std::string datagram = R"({"state": )" + state + "}";
    if (waitpid(run_simulator({"--root", root, "--tell", datagram}), &status, 0) < 0 || status != 0)
        give_up("the simulator refuses " + datagram);
}

static void wait_for_simulator()
{
    for (int i = 0; i < 3000; i++) {
        if (std::filesystem::exists(root + "/var/run/tessera-sim.pid"))
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    give_up("no simulator");
}

// ---- measuring

struct setting {
    const char *name;
    const char *pace;
    const char *alone; // the same pace of a modem that refuses company
};

// The median time of a record in milliseconds.
static double status_ms(cellmodem &modem, const char *pace)
{
    set_state(pace);
    const std::unique_ptr<FILE, int (*)(FILE *)> out(fopen("/dev/null", "w+e"), fclose);
    if (!out || modem.slots.attach(modem) != 0)
        give_up("no modem");
    std::vector<double> took_ms;
    for (int i = 0; i <= repeats; i++) {
        const auto start = std::chrono::steady_clock::now();
        if (modem.slots.status(modem, out.get(), output_xml) != 0)
            give_up("no status");
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - start;
        if (i > 0) // the first one is also the one in which the modem refuses
            took_ms.push_back(took.count());
    }
    (void)modem.slots.detach(modem);
    std::nth_element(took_ms.begin(), took_ms.begin() + repeats / 2, took_ms.end());
    return took_ms[repeats / 2];
}

int main()
{
    char name[] = "/tmp/gobi-bench.XXXXXX";
    if (!mkdtemp(name))
        give_up(name);
    root = name;
    setenv("TESSERA_ROOT", name, 1);
    const pid_t simulator = run_simulator({"--family", "gobi", "--root", root});
    wait_for_simulator();
    cellmodem modem;
    (void)gobi_init(modem);
    constexpr setting settings[] = {
        {"works on several at a time",
         R"({"answer_ms": 10, "in_series": false, "under_way_max": 0})",
         R"({"answer_ms": 10, "in_series": false, "under_way_max": 1})"},
        {"works on one after the other",
         R"({"answer_ms": 10, "in_series": true, "under_way_max": 0})",
         R"({"answer_ms": 10, "in_series": true, "under_way_max": 1})"},
    };
    double ratios[2];
    for (int i = 0; i < 2; i++) {
        const double together = status_ms(modem, settings[i].pace);
        const double alone = status_ms(modem, settings[i].alone);
        ratios[i] = alone / together;
        printf("status, modem %-29s %7.1f ms   one by one %7.1f ms   ratio %.2f\n",
               settings[i].name, together, alone, ratios[i]);
    }
    printf("gain %.2f (goal %.2f), loss %.2f (goal %.2f)\n", ratios[0], gain_goal, 1 / ratios[1],
           loss_goal);
    kill(simulator, SIGTERM);
    waitpid(simulator, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
    return 0;
}

// The main loop on a fake modem: what a quiet interval checks and publishes, pauses, and failures that
// no simulated modem can bring about. The loop runs in the test's own thread and ends when a certain
// line was logged or an operation of the modem says so.

#include "backends/select.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/markers.h"
#include "command/cmdsock.h"
#include "daemon/daemon.h"
#include "daemon/signals.h"
#include "platform/clock.h"
#include "support/fake_modem.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace fs = std::filesystem;

static cellmodem_slots fitted_slots;

// Linked instead of the real selection.
int cellmodem_select(cellmodem &modem)
{
    modem.slots = fitted_slots;
    return 0;
}

// The C library's, until it has no memory for so many streams.
static int streams_without_memory;

extern "C" FILE *open_memstream(char **text, size_t *length) noexcept
{
    if (streams_without_memory > 0) {
        streams_without_memory--;
        errno = ENOMEM;
        return nullptr;
    }
    using function = FILE *(*)(char **, size_t *);
    return reinterpret_cast<function>(dlsym(RTLD_NEXT, "open_memstream"))(text, length);
}

// What the pings of the loop give, in order; the one after the last ends it.
static std::deque<int> pings;
static fake_modem *recorder;

static int scripted_ping(cellmodem &)
{
    if (holding_present()) {
        recorder->calls.push_back("ping of the recovery");
        return 0;
    }
    if (pings.empty()) {
        tesserad.quit_requested = true;
        return 0;
    }
    const int result = pings.front();
    pings.pop_front();
    recorder->calls.push_back(result == 0 ? "good ping" : "failed ping");
    return result;
}

class main_loop : public testing::Test
{
protected:
    void SetUp() override
    {
        recorder = &calls;
        fitted_slots = fake_modem_slots;
        fitted_slots.data_up = nullptr;
        tesserad = {};
        ASSERT_EQ(signals_install(), 0);
        ASSERT_EQ(cellmodem_create(&tesserad.modem), 0);
        tesserad.modem->attached = true;
    }
    void TearDown() override { cellmodem_destroy(&tesserad.modem); }

    int run()
    {
        tesserad.modem->slots = fitted_slots;
        return tesserad_main_loop();
    }

    // Runs the loop until this line was logged.
    void run_until(const std::string &last)
    {
        log.on_line([&](const std::string &line) {
            if (line == last)
                tesserad.quit_requested = true;
            else if (reactions.count(line) != 0)
                reactions[line]();
        });
        EXPECT_EQ(run(), 0);
        log.on_line(nullptr);
    }

    void on_start(const std::function<void()> &action)
    {
        log.on_line([=](const std::string &line) {
            if (line.find("start time:") != line.npos)
                action();
        });
    }

    [[nodiscard]] texts lines_with(const std::string &part) const
    {
        texts found = log.lines();
        std::erase_if(found, [&](const auto &line) { return line.find(part) == line.npos; });
        return found;
    }

    unique_fd open_client()
    {
        char error[256] = "";
        unique_fd fd = cmdsock_client_open("/tmp/client", cmdsock_path, error, sizeof(error));
        EXPECT_TRUE(fd) << error;
        return fd;
    }

    const short_waits waits;
    temp_root root;
    fake_modem calls;
    log_capture log;
    std::map<std::string, std::function<void()>> reactions; // what a test does after a line
};

// ---- a quiet interval

TEST_F(main_loop, the_third_failed_ping_in_a_row_recovers_and_every_one_after_it)
{
    fitted_slots.ping = scripted_ping;
    pings = {-1, 0, -1, -1, -1, -1, 0, -1};
    EXPECT_EQ(run(), 0);
    // Nothing is published in a round that recovers, and a recovery does not set the count back.
    EXPECT_EQ(calls.calls,
              (texts{"failed ping", "info(2)",     "status(2)",   "good ping",
                     "info(2)",     "status(2)",   "failed ping", "info(2)",
                     "status(2)",   "failed ping", "info(2)",     "status(2)",
                     "failed ping", "detach()",    "attach()",    "ping of the recovery",
                     "failed ping", "detach()",    "attach()",    "ping of the recovery",
                     "good ping",   "info(2)",     "status(2)",   "failed ping",
                     "info(2)",     "status(2)",   "info(2)",     "status(2)"}));
    texts counts;
    for (const int count : {1, 1, 2, 3, 4, 1})
        counts.push_back("400 Failed to communicate with modem: " + std::to_string(count) +
                         " times");
    EXPECT_EQ(lines_with("Failed to communicate"), counts);
    EXPECT_EQ(log.count("300 Reached 3 communcation errors, recovering modem..."), 2);
    EXPECT_EQ(log.count("600 Reconfiguring tesserad modem..."), 2);
}

static void send_request(const unique_fd &client, const std::string &request)
{
    EXPECT_EQ(send(client.get(), request.data(), request.size(), 0),
              static_cast<ssize_t>(request.size()));
}

// A command every now and then, and the check never has its quiet interval.
static int statuses;
static unique_fd busy_client;

static int slow_status(cellmodem &, FILE *, int)
{
    constexpr int slow_ms = 20; // twice the interval under this time scale
    constexpr int commands = 10;
    clock_sleep_ms(slow_ms);
    if (statuses++ == 0) // the loop's own
        for (int i = 0; i < commands; i++)
            send_request(busy_client, "[\"tessera\",\"-s\"]");
    else if (statuses == commands + 1)
        tesserad.quit_requested = true;
    return 0;
}

TEST_F(main_loop, a_client_faster_than_the_interval_keeps_the_check_off)
{
    statuses = 0;
    fitted_slots.ping = [](cellmodem &modem) {
        recorder->calls.emplace_back("ping");
        return modem.attached ? 0 : -1;
    };
    fitted_slots.status = slow_status;
    on_start([&] { busy_client = open_client(); });
    EXPECT_EQ(run(), 0);
    busy_client.reset();
    EXPECT_EQ(statuses, 11);
    EXPECT_EQ(calls.calls, (texts{"ping", "info(2)"}));
    EXPECT_EQ(log.count("600 service has been commanded to quit"), 1);
}

TEST_F(main_loop, a_detached_modem_is_left_alone)
{
    tesserad.modem->attached = false;
    run_until("700 Modem is detached, unable to poll status");
    EXPECT_EQ(calls.calls, texts{});
}

TEST_F(main_loop, failed_records_and_the_data_session_are_told)
{
    fitted_slots.data_up = fake_modem_slots.data_up;
    run_until("700 A data session is connected.");
    EXPECT_EQ(lines_with("Failed to send"), texts{});
    tesserad.quit_requested = false;
    calls.results = {{"data_up", -1}, {"info", -1}, {"status", -1}};
    run_until("700 No data session is connected currently");
    EXPECT_EQ(lines_with("Failed to send"),
              (texts{"300 Failed to send cellmodem info to infod",
                     "300 Failed to send cellmodem status to infod"}));
}

// ---- pause and recovery

TEST_F(main_loop, a_pause_file_that_cannot_be_made_pauses_nothing)
{
    fs::remove_all(root.place("/var/run/.modem"));
    raise(SIGUSR1);
    run_until("300 Failed to pause service");
    EXPECT_EQ(log.count("300 Failed to create pause file: /var/run/.modem/.tessera_infod_paused: "
                        "No such file or directory"),
              1);
    EXPECT_EQ(std::count(calls.calls.begin(), calls.calls.end(), "detach()"), 0);
    EXPECT_TRUE(tesserad.modem->attached);
}

TEST_F(main_loop, a_pause_file_that_cannot_be_removed)
{
    calls.results = {{"detach", -1}};
    reactions["600 cellmodem comms suspended"] = [&] {
        fs::remove(root.place(pause_path));
        fs::create_directory(root.place(pause_path));
        raise(SIGUSR1);
    };
    raise(SIGUSR1);
    run_until("300 Failed to resume service");
    EXPECT_EQ(log.count("300 Failed to detach from modem"), 1);
    EXPECT_EQ(log.count("300 Failed to remove pause file: /var/run/.modem/.tessera_infod_paused: "
                        "Is a directory"),
              1);
    EXPECT_EQ(log.count("600 cellmodem comms re-established"), 0);
}

TEST_F(main_loop, a_pause_file_that_cannot_be_closed)
{
    reactions["600 cellmodem comms suspended"] = [&] {
        for (const auto &entry : fs::directory_iterator("/proc/self/fd"))
            if (fs::read_symlink(entry) == root.place(pause_path)) {
                close(std::stoi(entry.path().filename())); // behind its owner's back
                break;
            }
        raise(SIGUSR1);
    };
    raise(SIGUSR1);
    run_until("300 Failed to resume service");
    EXPECT_EQ(log.count("300 Failed to release pause file: /var/run/.modem/.tessera_infod_paused: "
                        "Bad file descriptor"),
              1);
}

TEST_F(main_loop, a_recovery_goes_on_without_its_holding_file)
{
    fs::remove_all(root.place("/var/run/.modem"));
    tesserad.reconfigure_requested = true;
    run_until("600 Resuming client communication...");
    EXPECT_EQ(log.count("300 Failed to create holding file: /var/run/.modem/.tessera_wait"), 1);
    EXPECT_EQ(calls.calls, (texts{"detach()", "attach()", "ping()"}));
    EXPECT_FALSE(tesserad.reconfigure_requested);
}

// ---- what cannot be served

TEST_F(main_loop, a_command_without_memory_is_dropped_and_said_so)
{
    unique_fd client;
    streams_without_memory = 1;
    fitted_slots.radio = [](cellmodem &, bool) {
        tesserad.quit_requested = true;
        return 0;
    };
    on_start([&] {
        client = open_client();
        send_request(client, "[\"tessera\",\"--ping\"]");
        send_request(client, "[\"tessera\",\"--radio=on\"]");
    });
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(log.count("300 Out of memory, a command was dropped"), 1);
    EXPECT_EQ(calls.calls, texts{}) << "it was not carried out";
    char error[256] = "";
    int code = -1;
    std::string results;
    EXPECT_EQ(cmdsock_recv_reply(client.get(), code, results, error, sizeof(error)), 0) << error;
    EXPECT_EQ(code, 0) << "the next one was";
}

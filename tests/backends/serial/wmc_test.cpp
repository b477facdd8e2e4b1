#include "backends/serial/port.h"
#include "backends/serial/wmc.h"
#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "support/fake_infod.h"
#include "support/log_capture.h"
#include "support/pty_modem.h"
#include "support/temp_root.h"

#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

constexpr const char *lock_path = "/var/lock/tessera-pantech-wmc.lck";

static std::string own_pid()
{
    return std::to_string(getpid());
}

static std::string dead_pid()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    waitpid(child, nullptr, 0);
    return std::to_string(child);
}

class wmc : public testing::Test
{
protected:
    // The length of the reply to one command, or -1; the modem answers with these bytes.
    int ask(uint8_t code, const std::string &answer)
    {
        pty_modem scripted(root, {answer});
        const int result = pantech_wmc_sendcommand(modem, code, reply);
        scripted.vanish();
        sent = scripted.commands();
        EXPECT_FALSE(is_locked());
        return result == 0 ? static_cast<int>(reply.size()) : -1;
    }

    [[nodiscard]] bool is_locked() const { return fs::exists(root.place(lock_path)); }

    const short_waits waits;
    temp_root root;
    fake_infod infod;
    log_capture log;
    cellmodem modem;
    texts sent;
    std::vector<uint8_t> reply;
};

// Those of the other commands are the simulated modem's business, which checks what it gets.
TEST_F(wmc, frames_and_reply_lengths_of_commands_that_are_never_sent)
{
    const struct {
        uint8_t code;
        std::string frame; // without its carriage return
        size_t reply_bytes;
    } rows[] = {
        {0x11, "AT*WMC=\xC8}1}!} } }&%", 9},
        {0x54, "AT*WMC=\xC8T|}#", 11},
    };
    for (const auto &[code, frame, reply_bytes] : rows) {
        log.clear();
        EXPECT_EQ(ask(code, blank_reply(code, reply_bytes + 7)), reply_bytes) << +code;
        EXPECT_EQ(sent, texts{frame}) << +code;
        EXPECT_TRUE(log.has("300 Received unexpected response term"))
            << "the last three bytes are those before the cut";
    }
}

TEST_F(wmc, an_exchange_holds_lock_and_port_for_its_time)
{
    EXPECT_EQ(ask(0x54, blank_reply(0x54, 11)), 11);
    texts lines = log.lines();
    for (std::string &line : lines)
        if (line.starts_with("700 pantech_wmc_sendwmccommand(buf: 0x"))
            line = "700 sendwmccommand" + line.substr(line.find(" len"));
    EXPECT_EQ(
        lines,
        (texts{
            "700 pantech_wmc_sendcommand(0x54)",
            "700 Process " + own_pid() + " is locking the Pantech Modem", "700 Opening WMC Device",
            "700 pantech_wmc_openwmcdevice()", "700 cmd: 0x54 cmdlen: 13",
            "700 sendwmccommand len: 13)", "700 Send 13 bytes to /dev/cellcommand01",
            "600 config.cellmodem.tessera.status.device-state changed from UNKNOWN -> RESPONDING",
            "700 Got 11 bytes from /dev/cellcommand01 retries: 0", "700 Closing WMC Device",
            "700 pantech_wmc_closewmcdevice()",
            "700 Process " + own_pid() + " is unlocking the Pantech Modem"}));
}

TEST_F(wmc, careless_replies_are_accepted)
{
    EXPECT_EQ(ask(0x54, "hello"), 5);
    EXPECT_EQ(log.count("700 Receieved an unexpected response prefix: 0x68 0x65"), 1);
    EXPECT_EQ(log.count("300 Received unexpected response term: 0x6f 0x6c 0x6c"), 1);
    log.clear();
    EXPECT_EQ(ask(0x13, "\xC8\x13half"), 6);
    EXPECT_FALSE(log.has("unexpected"));
    EXPECT_TRUE(log.has("700 Got 6 bytes from /dev/cellcommand01 retries: 20"));
    EXPECT_EQ(ask(0x54, "\xC8T0~"), -1);
    EXPECT_EQ(log.count("300 Receieved a short response: 4"), 1);
    EXPECT_EQ(modem.device_state, device_responding);
}

TEST_F(wmc, silence_makes_the_device_unresponsive)
{
    EXPECT_EQ(ask(0x54, ""), -1);
    EXPECT_EQ(log.count("700 select() failed: /dev/cellcommand01 result: 0"), 1);
    EXPECT_EQ(log.count("300 Failed to receive WMC reply"), 1);
    EXPECT_EQ(modem.device_state, device_unresponsive);
    const std::string key = "text config.cellmodem.tessera.status.device-state=";
    EXPECT_EQ(infod.pushed, (texts{key + "RESPONDING", key + "UNRESPONSIVE"}));
    EXPECT_EQ(ask(0x54, blank_reply(0x54, 11)), 11);
    EXPECT_EQ(modem.device_state, device_responding);
}

TEST_F(wmc, an_exception_leaves_neither_lock_nor_port_behind)
{
    const pty_modem scripted(root, {});
    for (int i = 0; i < 2; i++)
        EXPECT_THROW(
            (void)pantech_wmc_with_device("opening", "closing",
                                          [](serial_port &) -> int { throw std::bad_alloc(); }),
            std::bad_alloc);
    EXPECT_EQ(log.count("700 closing"), 2);
    EXPECT_FALSE(is_locked());
}

TEST_F(wmc, a_missing_device_is_no_sign_of_the_modem)
{
    EXPECT_EQ(pantech_wmc_sendcommand(modem, 0x06, reply), -1);
    EXPECT_EQ(log.count("0 Failed to open: /dev/cellcommand01: No such file or directory"), 1);
    EXPECT_EQ(log.count("300 Failed to open the WMC device"), 1);
    EXPECT_FALSE(log.has("Closing WMC Device"));
    EXPECT_EQ(modem.device_state, device_unknown);
    EXPECT_FALSE(is_locked());
}

TEST_F(wmc, a_write_that_fails_is_told)
{
    serial_port closed;
    EXPECT_EQ(pantech_wmc_sendwmccommand(closed, std::string("x")), -1);
    EXPECT_EQ(log.count("0 Failed writing WMC command"), 1);
    EXPECT_EQ(pantech_wmc_read(closed, reply, 9), -1);
    EXPECT_EQ(log.count("0 Failed to select on: /dev/cellcommand01: Bad file descriptor"), 1);

    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    serial_port full;
    full.fd.reset(ends[1]);
    log.clear();
    EXPECT_EQ(pantech_wmc_sendwmccommand(full, std::string(1 << 20, 'x')), -1);
    EXPECT_EQ(log.lines().size(), 1u) << "a modem that takes nothing is given up without a word";

    serial_port unreadable;
    unreadable.fd.reset(open(root.path().c_str(), O_RDONLY));
    EXPECT_EQ(pantech_wmc_read(unreadable, reply, 9), -1);
    EXPECT_TRUE(reply.empty());
    EXPECT_EQ(log.count("300 Received -1 unexpected chars: Is a directory: /dev/cellcommand01"), 1);
    close(ends[0]);
}

TEST_F(wmc, pieces_may_add_up_to_more_than_wanted)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends), 0);
    serial_port port;
    port.fd.reset(ends[0]);
    for (const std::string piece : {"12345678", "123456789", "rest"})
        ASSERT_EQ(write(ends[1], piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
    EXPECT_EQ(pantech_wmc_read(port, reply, 9), 0);
    EXPECT_EQ(std::string(reply.begin(), reply.end()), "12345678123456789");
    close(ends[1]);
}

// ---- the lock

TEST_F(wmc, a_held_lock_is_waited_for_three_times)
{
    for (const std::string owner : {"1\n", "who knows\n", "", "-5", "99999999999999999999"}) {
        log.clear();
        root.write(lock_path, owner);
        const pty_modem scripted(root, {blank_reply(0x54, 11)});
        EXPECT_EQ(pantech_wmc_sendcommand(modem, 0x54, reply), -1) << owner;
        EXPECT_EQ(log.lines(), (texts{"700 pantech_wmc_sendcommand(0x54)",
                                      "700 Process " + own_pid() + " is locking the Pantech Modem",
                                      "300 Failed opening lockfile, attempt: 1, 17: File exists",
                                      "300 Failed opening lockfile, attempt: 2, 17: File exists",
                                      "300 Failed opening lockfile, attempt: 3, 17: File exists",
                                      "300 Another process is using the Pantech Modem"}))
            << owner;
        EXPECT_EQ(root.read(lock_path), owner);
    }
    EXPECT_EQ(modem.device_state, device_unknown);
    EXPECT_EQ(infod.pushed, texts{});
}

TEST_F(wmc, a_lock_of_a_dead_owner_is_taken_over)
{
    for (const std::string &owner : {dead_pid(), own_pid()}) {
        root.write(lock_path, owner + "\n and more");
        EXPECT_EQ(pantech_wmc_lock(), 0);
        EXPECT_EQ(log.count("400 Taking over /var/lock/tessera-pantech-wmc.lck, its owner " +
                            owner + " is dead"),
                  1);
        EXPECT_EQ(root.read(lock_path), own_pid() + "\n");
        pantech_wmc_unlock();
        EXPECT_FALSE(is_locked());
    }
    EXPECT_FALSE(log.has("Failed"));

    // The same number may be somebody else's in another container.
    root.write(lock_path, own_pid());
    const int held = open(root.place(lock_path).c_str(), O_RDONLY);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_EQ(pantech_wmc_lock(), -1);
    close(held);
}

TEST_F(wmc, a_pipe_in_the_place_of_the_lock_holds_up_nobody)
{
    ASSERT_EQ(mkfifo(root.place(lock_path).c_str(), 0600), 0);
    EXPECT_EQ(pantech_wmc_lock(), -1);
    EXPECT_EQ(log.count("300 Failed opening lockfile, attempt: 3, 17: File exists"), 1);
}

TEST_F(wmc, a_lock_that_cannot_be_signed_is_not_made)
{
    const auto lock_without_space = [&](void (*disposition)(int)) {
        const pid_t child = fork();
        if (child == 0) {
            const rlimit none = {0, 0};
            std::signal(SIGXFSZ, disposition);
            if (setrlimit(RLIMIT_CORE, &none) != 0 || setrlimit(RLIMIT_FSIZE, &none) != 0)
                _exit(1);
            const bool told = pantech_wmc_lock() == -1 && !log.has("Taking over") &&
                              log.has("Failed opening lockfile, attempt: 3, 27: File too large");
            _exit(told ? 2 : 3);
        }
        int result = 0;
        EXPECT_EQ(waitpid(child, &result, 0), child);
        return WIFSIGNALED(result) ? -WTERMSIG(result) : WEXITSTATUS(result);
    };
    EXPECT_EQ(lock_without_space(SIG_IGN), 2);
    EXPECT_TRUE(fs::is_empty(root.place("/var/lock")));
    const std::string owner = dead_pid();
    root.write(lock_path, owner);
    EXPECT_EQ(lock_without_space(SIG_IGN), 2);
    EXPECT_EQ(root.read(lock_path), owner);
    fs::remove(root.place(lock_path));

    EXPECT_EQ(lock_without_space(SIG_DFL), -SIGXFSZ) << "killed while it signs";
    EXPECT_EQ(pantech_wmc_lock(), 0) << "and nothing blocks";
    pantech_wmc_unlock();
}

TEST_F(wmc, the_lock_names_its_owner_and_excludes_others)
{
    fs::remove(root.place("/var/lock"));
    EXPECT_EQ(pantech_wmc_lock(), 0) << "its directory is made";
    EXPECT_EQ(fs::status(root.place("/var/lock")).permissions() & fs::perms(0133), fs::perms());
    EXPECT_EQ(fs::status(root.place(lock_path)).permissions() & fs::perms(0111), fs::perms());
    EXPECT_EQ(root.read(lock_path), own_pid() + "\n");
    const pid_t child = fork();
    if (child == 0)
        _exit(pantech_wmc_lock() == 0 ? 1 : 0);
    int result = -1;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0) << "another process must not get it";
    pantech_wmc_unlock();
    log.clear();
    pantech_wmc_unlock();
    EXPECT_EQ(
        log.count("300 Pid: " + own_pid() + " failed to unlock: /var/lock/tessera-pantech-wmc.lck"),
        1);
    fs::remove_all(root.place("/var"));
    EXPECT_EQ(pantech_wmc_lock(), -1);
    EXPECT_EQ(log.count("300 Failed to create /var/lock: 2: No such file or directory"), 1);
}

TEST_F(wmc, an_unknown_command_takes_the_lock_file_with_it)
{
    root.write(lock_path, "1\n");
    EXPECT_EQ(pantech_wmc_sendcommand(modem, 0x77, reply), -1);
    EXPECT_EQ(log.lines(), (texts{"700 pantech_wmc_sendcommand(0x77)", "0 No such command: 0x77",
                                  "700 Process " + own_pid() + " is unlocking the Pantech Modem"}));
    EXPECT_FALSE(is_locked());
}

TEST_F(wmc, termination_ends_every_wait_and_says_nothing_of_the_modem)
{
    unsetenv("TESSERA_TIME_SCALE");
    ASSERT_EQ(clock_init(), 0);
    clock_stop();
    root.write(lock_path, "1\n");
    EXPECT_EQ(pantech_wmc_lock(), -1) << "and not after nine seconds";
    fs::remove(root.place(lock_path));
    EXPECT_EQ(ask(0x54, ""), -1);
    EXPECT_EQ(log.count("300 Failed to receive WMC reply"), 1);
    EXPECT_EQ(modem.device_state, device_responding);
}

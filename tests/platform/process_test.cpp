#include "platform/clock.h"
#include "platform/process.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

static void write_script(const temp_root &root, const std::string &path, const std::string &text)
{
    root.write(path, "#!/bin/sh\n" + text);
    std::filesystem::permissions(root.place(path), std::filesystem::perms::owner_all);
}

TEST(process, a_program_runs_below_the_root_and_tells_its_status)
{
    const temp_root root;
    write_script(root, "/etc/scripts/try", "test \"$1\" = word && exit 3\nkill -KILL $$\n");
    const char *const with_word[] = {"/etc/scripts/try", "word", nullptr};
    const char *const without[] = {"/etc/scripts/try", nullptr};
    int status = -7;
    EXPECT_EQ(process_run("/etc/scripts/try", with_word, &status), 0);
    EXPECT_EQ(status, 3);
    EXPECT_EQ(process_run("/etc/scripts/try", without, &status), 0);
    EXPECT_EQ(status, 128 + SIGKILL);
    status = -7;
    EXPECT_EQ(process_run("/etc/scripts/absent", without, &status), -1);
    EXPECT_EQ(status, -7);
}

TEST(process, a_rooted_line_never_reaches_the_host)
{
    const temp_root root;
    const log_capture log;
    EXPECT_EQ(process_shell("exit 0"), -1) << "no shell in the root: nothing runs";
    write_script(root, "/bin/sh", "echo \"$1|$2\" > \"$TESSERA_ROOT/line\"\nexit 5\n");
    EXPECT_EQ(process_shell("/sbin/ifconfig wwan0 up &> /dev/null"), 5);
    EXPECT_EQ(root.read("/line"), "-c|/sbin/ifconfig wwan0 up &> /dev/null\n");
    EXPECT_TRUE(log.has("700 Exit status 5 of: /sbin/ifconfig wwan0 up &> /dev/null"));
}

TEST(process, ids_from_files_are_checked)
{
    const temp_root root;
    const struct {
        const char *text;
        long pid;
    } rows[] = {{"123\n", 123}, {"123", 123}, {"", -1},  {"\n", -1},          {"0\n", -1},
                {"-5\n", -1},   {"12x", -1},  {"x", -1}, {"99999999999", -1}, {"1 2", -1}};
    for (const auto &row : rows) {
        root.write("/var/run/some.pid", row.text);
        EXPECT_EQ(process_read_pid("/var/run/some.pid"), row.pid) << row.text;
    }
    EXPECT_EQ(process_read_pid("/var/run/absent.pid"), -1);
    EXPECT_TRUE(process_alive(getpid()));
    EXPECT_FALSE(process_alive(0)) << "kill(0) would name our own process group";
    EXPECT_FALSE(process_alive(-1)) << "and kill(-1) everybody";
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    siginfo_t ended = {};
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
    EXPECT_FALSE(process_alive(child)) << "ended, but not reaped yet";
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(process_alive(child));
}

TEST(process, a_program_in_the_background_is_known_by_its_id)
{
    const temp_root root;
    write_script(root, "/server", "exec sleep 600\n");
    const char *const argv[] = {"/server", nullptr};
    long pid = -1;
    ASSERT_EQ(process_start("/server", argv, &pid), 0);
    EXPECT_TRUE(process_alive(pid));
    EXPECT_EQ(getsid(static_cast<pid_t>(pid)) == getsid(0), false) << "in a session of its own";
    EXPECT_EQ(kill(static_cast<pid_t>(pid), SIGKILL), 0);
    while (process_alive(pid))
        usleep(1000);
    long absent = -1;
    EXPECT_EQ(process_start("/absent", argv, &absent), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(absent, -1) << "the child that found no program may still be dying";
}

// Last in its process: termination cannot be taken back.
TEST(process, termination_does_not_wait_for_a_program)
{
    const temp_root root;
    ASSERT_EQ(clock_init(), 0);
    write_script(root, "/slow", "exec sleep 600\n");
    const char *const argv[] = {"/slow", nullptr};
    int status = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { clock_stop(); };
    sigaction(SIGALRM, &action, nullptr);
    alarm(1);
    EXPECT_EQ(process_run("/slow", argv, &status), -1);
    system("pkill -P $PPID sleep 2>/dev/null; true");
}

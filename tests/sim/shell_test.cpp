// The root's shell: what it records, what it plays, and that it stays within its root.

#include "sim/family.h"
#include "sim/root.h"
#include "sim/shell.h"
#include "sim/udhcpc.h"

#include <csignal>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

class shell : public testing::Test
{
protected:
    void SetUp() override
    {
        char made[] = "/tmp/sim_shell_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(made));
        root_ = made;
        std::string reason;
        ASSERT_EQ(0, root_fill(root_, *family_find("directip"), "/nowhere", reason)) << reason;
        ASSERT_EQ(0, setenv("TESSERA_ROOT", made, 1));
        write("/var/run/tessera-sim.pid", std::to_string(getpid()) + "\n");
    }

    void TearDown() override
    {
        udhcpc_stop_all(root_);
        unsetenv("TESSERA_ROOT");
        const std::string remove = "rm -rf '" + root_ + "'";
        EXPECT_EQ(0, system(remove.c_str()));
    }

    int run(std::string line)
    {
        std::string name = "sh";
        std::string flag = "-c";
        char *arguments[] = {name.data(), flag.data(), line.data(), nullptr};
        return shell_main(3, arguments);
    }

    void write(const std::string &path, const std::string &content)
    {
        ASSERT_EQ(0, file_replace(root_ + path, content));
    }

    std::string read(const std::string &path)
    {
        std::string content;
        return file_read(root_ + path, content) == 0 ? content : "(none)";
    }

    // Waits for a file to say something, generously.
    bool comes_to_say(const std::string &path, const std::string &content)
    {
        for (int i = 0; i < 2000 && read(path) != content; i++)
            usleep(5000);
        return read(path) == content;
    }

    std::string root_;
};

static constexpr const char udhcpc_line[] =
    "/sbin/udhcpc -i wwan0 -p /var/run/udhcpc-wwan0.pid -s /etc/scripts/wwan-up -t 8 -T 3"
    " &> /dev/null";
static constexpr const char renew_line[] = "kill -SIGUSR1 `cat /var/run/udhcpc-wwan0.pid`";
static constexpr const char end_line[] = "kill `cat /var/run/udhcpc-wwan0.pid` &> /dev/null";

TEST_F(shell, records_each_line_with_its_status)
{
    write("/var/run/shell-status.json",
          R"([{"match": "lineherd", "status": 9}, {"match": "kill", "status": 4}])");
    EXPECT_EQ(0, run("/sbin/ifconfig wwan0 up &> /dev/null"));
    EXPECT_EQ(9, run("killall -HUP lineherd"));
    EXPECT_EQ(0, run("two\nlines"));
    EXPECT_EQ("0\t/sbin/ifconfig wwan0 up &> /dev/null\n9\tkillall -HUP lineherd\n0\ttwo\\nlines\n",
              read("/var/log/shell.log"));
    EXPECT_EQ("up\n", read("/var/run/wwan0.state"));
}

TEST_F(shell, runs_the_scripts_of_its_root)
{
    EXPECT_EQ(0, run("/etc/scripts/wwan-down &> /dev/null"));
    EXPECT_EQ(0, run("/bin/lua /etc/scripts/usb-enum > /tmp/usb-listing"));
    EXPECT_EQ("wwan-down\nusb-enum\n", read("/var/log/scripts.log"));
    EXPECT_EQ("1-1 cellmodem\n", read("/tmp/usb-listing"));
    ASSERT_EQ(0, file_replace(root_ + "/etc/scripts/wwan-down", "#!/bin/sh\nexit 5\n", 0755));
    EXPECT_EQ(5, run("/etc/scripts/wwan-down &> /dev/null"));
    EXPECT_EQ(127, run("/etc/scripts/missing"));
}

TEST_F(shell, plays_a_dhcp_client_that_renews_and_ends)
{
    ASSERT_EQ(0, run(udhcpc_line));
    EXPECT_EQ("wwan-up bound interface=wwan0\n", read("/var/log/scripts.log"));
    EXPECT_EQ("0\n", read("/var/run/udhcpc-wwan0.renewals"));
    const long pid = file_read_pid(root_ + "/var/run/udhcpc-wwan0.pid");
    ASSERT_GT(pid, 1);
    EXPECT_NE(getsid(0), getsid(static_cast<pid_t>(pid)));
    EXPECT_EQ(1, run(udhcpc_line));
    EXPECT_EQ(0, run(renew_line));
    EXPECT_TRUE(comes_to_say("/var/run/udhcpc-wwan0.renewals", "1\n"));
    EXPECT_EQ(0, run(end_line));
    EXPECT_EQ("(none)", read("/var/run/udhcpc-wwan0.pid"));
    EXPECT_EQ(1, run(end_line));
}

TEST_F(shell, a_dhcp_client_ends_without_its_simulator)
{
    ASSERT_EQ(0, run(udhcpc_line));
    ASSERT_EQ(0, unlink((root_ + "/var/run/tessera-sim.pid").c_str()));
    EXPECT_TRUE(comes_to_say("/var/run/udhcpc-wwan0.pid", "(none)"));
}

TEST_F(shell, signals_nobody_for_a_number_that_is_no_process)
{
    for (const char *content : {"", "0\n", "1\n", "-1\n", "12x\n", "99999999999\n"}) {
        write("/var/run/udhcpc-wwan0.pid", content);
        EXPECT_EQ(1, run(end_line)) << content;
    }
}

TEST_F(shell, does_not_leave_its_root)
{
    EXPECT_EQ(1, run("/etc/scripts/../../../../bin/true"));
    EXPECT_EQ(1, run("/bin/lua /etc/scripts/usb-enum > /../escaped"));
    EXPECT_EQ(1, run("/sbin/udhcpc -i ../x -p /var/run/x.pid"));
    EXPECT_EQ(1, run("/sbin/udhcpc -i wwan0 -p /../x.pid"));
    EXPECT_EQ(1, run("/sbin/ifconfig ../../x up"));
    setenv("TESSERA_ROOT", "/nowhere/at/all", 1);
    EXPECT_EQ(2, run("/sbin/ifconfig wwan0 up"));
}

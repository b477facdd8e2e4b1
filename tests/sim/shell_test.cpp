// The root's shell: what it records, what it plays, and that it stays within its root.

#include "sim/family.h"
#include "sim/root.h"
#include "sim/shell.h"
#include "sim/udhcpc.h"
#include "support/appliance.h"

#include <cstdlib>
#include <filesystem>

#include <unistd.h>

class shell : public appliance
{
protected:
    void SetUp() override
    {
        std::string reason;
        ASSERT_EQ(0, root_fill(root.path(), *family_find("directip"), "/nowhere", reason))
            << reason;
        root.write("/var/run/tessera-sim.pid", std::to_string(getpid()) + "\n");
    }

    void TearDown() override { udhcpc_stop_all(root.path()); }

    int run(std::string line)
    {
        std::string name = "sh";
        std::string flag = "-c";
        char *arguments[] = {name.data(), flag.data(), line.data(), nullptr};
        return shell_main(3, arguments);
    }
};

static constexpr const char pid_path[] = "/var/run/udhcpc-wwan0.pid";
static constexpr const char udhcpc_line[] =
    "/sbin/udhcpc -i wwan0 -p /var/run/udhcpc-wwan0.pid -s /etc/scripts/wwan-up -t 8 -T 3"
    " &> /dev/null";
static constexpr const char renew_line[] = "kill -SIGUSR1 `cat /var/run/udhcpc-wwan0.pid`";
static constexpr const char end_line[] = "kill `cat /var/run/udhcpc-wwan0.pid` &> /dev/null";

TEST_F(shell, records_each_line_with_its_status)
{
    root.write("/var/run/shell-status.json",
               R"([{"match": "lineherd", "status": 9}, {"match": "kill", "status": 4}])");
    EXPECT_EQ(0, run("/sbin/ifconfig wwan0 up &> /dev/null"));
    EXPECT_EQ(9, run("killall -HUP lineherd"));
    EXPECT_EQ(0, run("two\nlines"));
    EXPECT_EQ("0\t/sbin/ifconfig wwan0 up &> /dev/null\n9\tkillall -HUP lineherd\n0\ttwo\\nlines\n",
              root.read("/var/log/shell.log"));
    EXPECT_EQ("up\n", root.read("/var/run/wwan0.state"));
}

TEST_F(shell, runs_the_scripts_of_its_root)
{
    EXPECT_EQ(0, run("/etc/scripts/wwan-down &> /dev/null"));
    EXPECT_EQ(0, run("/bin/lua /etc/scripts/usb-enum > /tmp/usb-listing"));
    EXPECT_EQ("wwan-down\nusb-enum\n", root.read("/var/log/scripts.log"));
    EXPECT_EQ("1-1 cellmodem\n", root.read("/tmp/usb-listing"));
    ASSERT_EQ(0, file_replace(root.place("/etc/scripts/wwan-down"), "#!/bin/sh\nexit 5\n", 0755));
    EXPECT_EQ(5, run("/etc/scripts/wwan-down &> /dev/null"));
    EXPECT_EQ(127, run("/etc/scripts/missing"));
}

TEST_F(shell, plays_a_dhcp_client_that_renews_and_ends)
{
    ASSERT_EQ(0, run(udhcpc_line));
    EXPECT_EQ("wwan-up bound interface=wwan0\n", root.read("/var/log/scripts.log"));
    EXPECT_EQ("0\n", root.read("/var/run/udhcpc-wwan0.renewals"));
    const long pid = file_read_pid(root.place(pid_path));
    ASSERT_GT(pid, 1);
    EXPECT_NE(getsid(0), getsid(static_cast<pid_t>(pid)));
    EXPECT_EQ(1, run(udhcpc_line));
    EXPECT_EQ(0, run(renew_line));
    wait_for("a renewal", [&] { return root.read("/var/run/udhcpc-wwan0.renewals") == "1\n"; });
    EXPECT_EQ(0, run(end_line));
    EXPECT_FALSE(std::filesystem::exists(root.place(pid_path)));
    EXPECT_EQ(1, run(end_line));
}

TEST_F(shell, a_dhcp_client_ends_without_its_simulator)
{
    ASSERT_EQ(0, run(udhcpc_line));
    std::filesystem::remove(root.place("/var/run/tessera-sim.pid"));
    wait_for("its end", [&] { return !std::filesystem::exists(root.place(pid_path)); });
}

TEST_F(shell, signals_nobody_for_a_number_that_is_no_process)
{
    for (const char *content : {"", "0\n", "1\n", "-1\n", "12x\n", "99999999999\n"}) {
        root.write(pid_path, content);
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
    EXPECT_EQ(-1, file_replace(root.place("/nowhere/at/all"), "x"));
    setenv("TESSERA_ROOT", "/nowhere/at/all", 1);
    EXPECT_EQ(2, run("/sbin/ifconfig wwan0 up"));
}

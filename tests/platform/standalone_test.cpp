// The stand-alone implementations of the appliance's calls.

#include "platform/clock.h"
#include "platform/infod.h"
#include "platform/tarnwick.h"
#include "platform/xmldb.h"
#include "support/temp_root.h"

#include <cerrno>
#include <csignal>
#include <filesystem>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

// ---- configuration

TEST(xmldb, dotted_names_are_paths_of_elements)
{
    const temp_root root;
    root.write("/etc/config/config.xml",
               "<config><ports><total>5</total><port5><nmea><enabled>on</enabled>"
               "<fixfreq>7</fixfreq><odd>7x</odd><huge>99999999999</huge><minus>-1</minus>"
               "</nmea></port5></ports></config>");
    xmldb *db = xmldb_open(0);
    ASSERT_TRUE(db);
    EXPECT_STREQ(xmldb_getstring(db, "config.ports.port5.nmea", "enabled"), "on");
    EXPECT_EQ(xmldb_getstring(db, "config.ports.port5.nmea", "absent"), nullptr);
    EXPECT_EQ(xmldb_getstring(db, "config.ports.port9.nmea", "enabled"), nullptr);
    EXPECT_EQ(xmldb_getsize(db, "config.ports.port5.nmea", "fixfreq"), 7);
    for (const char *no_size : {"odd", "huge", "minus", "absent", "enabled"})
        EXPECT_EQ(xmldb_getsize(db, "config.ports.port5.nmea", no_size), 0) << no_size;
    EXPECT_EQ(tarnwick_serial_count(db), 5);
}

TEST(xmldb, what_cannot_be_read_does_not_open)
{
    const temp_root root;
    EXPECT_EQ(xmldb_open(0), nullptr);
    EXPECT_EQ(errno, ENOENT);
    for (const char *bad : {"", "<config>", "no xml", "<a></b>"}) {
        root.write("/etc/config/config.xml", bad);
        EXPECT_EQ(xmldb_open(0), nullptr) << bad;
    }
    EXPECT_EQ(xmldb_getstring(nullptr, "config.ports", "total"), nullptr);
    EXPECT_EQ(tarnwick_serial_count(nullptr), 0);
}

// ---- infod

static int push(const char *key, const char *text, long number = 0)
{
    int handle = -1;
    if (infod_push_multiple_start(&handle) != 0)
        return -1;
    const int result = text ? infod_push_multiple_text(handle, key, 1, text)
                            : infod_push_multiple_long(handle, key, 1, number);
    return infod_push_multiple_end(handle) == 0 ? result : -1;
}

// What the store holds of a key, as "kind value type" of each of its rows.
static std::string stored(const temp_root &root, const std::string &key)
{
    const std::string sql = "SELECT group_concat(kind || ' ' || value || ' ' || typeof(value))"
                            " FROM info WHERE updated > 1700000000000 AND key = '" +
                            key + "'";
    sqlite3 *db = nullptr;
    sqlite3_stmt *statement = nullptr;
    std::string value = "(none)";
    sqlite3_open(root.place("/var/run/infod.db").c_str(), &db);
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
        value = reinterpret_cast<const char *>(sqlite3_column_text(statement, 0));
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return value;
}

TEST(infod, values_carry_kind_and_time_and_replace_each_other)
{
    const temp_root root;
    EXPECT_EQ(push("a.b", "old"), 0);
    EXPECT_EQ(push("a.b", "it's; new"), 0);
    EXPECT_EQ(push("a.n", nullptr, -76), 0);
    EXPECT_EQ(stored(root, "a.b"), "text it's; new text");
    EXPECT_EQ(stored(root, "a.n"), "long -76 integer");
}

TEST(infod, a_session_becomes_visible_at_its_end)
{
    const temp_root root;
    ASSERT_EQ(push("k", "before"), 0);
    int handle = -1;
    ASSERT_EQ(infod_push_multiple_start(&handle), 0);
    EXPECT_EQ(infod_push_multiple_text(handle, "k", 1, "after"), 0);
    EXPECT_EQ(infod_push_multiple_long(handle, "n", 1, 4), 0);
    EXPECT_EQ(stored(root, "k"), "text before text");
    EXPECT_EQ(infod_push_multiple_end(handle), 0);
    EXPECT_EQ(stored(root, "k"), "text after text");
    EXPECT_NE(infod_push_multiple_text(-1, "k", 1, "no session"), 0);
}

TEST(infod, a_store_that_cannot_be_written_fails_and_recovers)
{
    const temp_root root;
    std::filesystem::create_directory(root.place("/var/run/infod.db"));
    EXPECT_EQ(push("k", "v"), -1);
    EXPECT_NE(errno, 0);
    std::filesystem::remove(root.place("/var/run/infod.db"));
    EXPECT_EQ(push("k", "v"), 0);

    root.write("/var/run/infod.db", std::string(8192, 'x')); // replaced under our feet
    std::filesystem::remove(root.place("/var/run/infod.db"));
    EXPECT_EQ(push("k", "again"), 0);
    EXPECT_EQ(stored(root, "k"), "text again text");
}

TEST(infod, a_store_that_fills_up_says_so)
{
    const temp_root root;
    ASSERT_EQ(push("k", "v"), 0);
    // No file may grow beyond what is there, as on a full file system.
    struct stat status;
    ASSERT_EQ(stat(root.place("/var/run/infod.db-wal").c_str(), &status), 0);
    const rlimit tight = {static_cast<rlim_t>(status.st_size), RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    errno = 0;
    EXPECT_EQ(push("k", "lost"), -1);
    EXPECT_NE(errno, 0);
    const rlimit wide = {RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &wide), 0);
    EXPECT_EQ(stored(root, "k"), "text v text");
    EXPECT_EQ(push("k", "kept"), 0);
}

// Last in its process: termination cannot be taken back.
TEST(infod, a_writer_elsewhere_costs_the_value_not_the_service)
{
    const temp_root root;
    ASSERT_EQ(push("k", "v"), 0);
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(root.place("/var/run/infod.db").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    errno = 0;
    EXPECT_EQ(push("k", "lost"), -1);
    EXPECT_EQ(errno, EBUSY);
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    EXPECT_EQ(push("k", "kept"), 0);
    EXPECT_EQ(stored(root, "k"), "text kept text");

    // It holds up no termination: with the usual wait for each value this would take minutes, and
    // the test's limit would end it.
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    clock_stop();
    for (int i = 0; i < 20000; i++)
        ASSERT_EQ(push("k", "lost"), -1);
    EXPECT_EQ(errno, EBUSY);
    sqlite3_close(other);
    EXPECT_EQ(push("k", "last"), 0) << "what needs no wait is still published";
}

// ---- lock and pid files

// What a child process gets from taking the lock, as an errno (0: it has it).
static int lock_in_child(bool clear)
{
    const pid_t child = fork();
    if (child == 0) {
        const int result = tarnwick_lockfile_create("probe");
        const int error = result == 0 ? 0 : errno;
        if (clear)
            tarnwick_lockfile_clear("probe");
        _exit(error);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

TEST(tarnwick, a_second_instance_is_refused_and_disturbs_nothing)
{
    const temp_root root;
    // The other process holds the lock, so that ours is the second instance.
    const pid_t owner = fork();
    if (owner == 0) {
        if (tarnwick_lockfile_create("probe") == 0)
            pause();
        _exit(1);
    }
    const std::string name = std::to_string(owner) + "\n";
    while (root.read("/var/lock/probe.lock") != name) {
        ASSERT_EQ(waitpid(owner, nullptr, WNOHANG), 0) << "no lock for the first instance";
        usleep(1000);
    }
    EXPECT_NE(lock_in_child(true), 0);
    EXPECT_EQ(root.read("/var/lock/probe.lock"), name);

    kill(owner, SIGKILL);
    waitpid(owner, nullptr, 0);
    EXPECT_EQ(lock_in_child(false), 0) << "a killed owner must not block the next start";
    EXPECT_TRUE(std::filesystem::exists(root.place("/var/lock/probe.lock")));
    EXPECT_EQ(tarnwick_lockfile_clear("probe"), 0) << "what a dead process left goes";
    EXPECT_FALSE(std::filesystem::exists(root.place("/var/lock/probe.lock")));
}

TEST(tarnwick, the_pid_file_names_its_owner_until_it_is_cleared)
{
    const temp_root root;
    root.write("/var/run/probe.pid", "1\n"); // left behind, and number 1 is always alive
    EXPECT_EQ(tarnwick_pidfile_create("probe"), 0);
    EXPECT_EQ(root.read("/var/run/probe.pid"), std::to_string(getpid()) + "\n");
    EXPECT_EQ(tarnwick_pidfile_clear("probe"), 0);
    EXPECT_FALSE(std::filesystem::exists(root.place("/var/run/probe.pid")));
    EXPECT_EQ(tarnwick_pidfile_clear("probe"), 0);
    std::filesystem::remove_all(root.place("/var/run"));
    EXPECT_EQ(tarnwick_pidfile_create("probe"), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(tarnwick, a_root_names_its_own_interfaces)
{
    const temp_root root;
    tarnwick_interface records[2];
    EXPECT_EQ(tarnwick_network_getinterfaces(records, 2, tarnwick_interfaces_ppp), 0);
    root.write("/var/run/ppp-interfaces", "dialout1 10.0.0.1\ndialout0 10.0.0.2\nppp9 10.0.0.3\n");
    ASSERT_EQ(tarnwick_network_getinterfaces(records, 2, tarnwick_interfaces_ppp), 2);
    EXPECT_STREQ(records[1].name, "dialout0");
    EXPECT_EQ(records[1].ipv4, inet_addr("10.0.0.2"));
    EXPECT_EQ(tarnwick_network_getinterfaces(records, 2, 1), -1);
}

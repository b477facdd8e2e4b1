// The carrier database on files. Its state is one per process and for life, so each case needs a
// process of its own; ctest gives it one.

#include "carrier/db.h"
#include "platform/clock.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <utility>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

// The allocation with this number, counted from now, fails. These stay functions: inlined, they look
// to the compiler like memory of new that is freed by free().
static int failing_allocation = 0;

[[gnu::noinline]] void *operator new(size_t bytes)
{
    if (failing_allocation > 0 && --failing_allocation == 0)
        throw std::bad_alloc();
    if (void *memory = malloc(bytes ? bytes : 1))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *memory) noexcept
{
    free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, size_t) noexcept
{
    free(memory);
}

static const std::string header = "MCC,MCC (int),MNC,MNC (int),ISO,Country,Country Code,Network\n";
static const std::string spark = header + "530,1328,05,95,nz,New Zealand,64,Spark\n";
static const std::string other = header + "530,1328,05,95,nz,Aotearoa,64,Other\n"
                                          "262,610,01,31,de,Germany,49,Telekom\n";

class carrier_db : public testing::Test
{
protected:
    void SetUp() override
    {
        static bool used = false;
        if (std::exchange(used, true))
            GTEST_SKIP() << "one case a process: use ctest";
        EXPECT_EQ(carrier_db_create(), 0);
    }

    static std::string look_up(unsigned mcc, unsigned mnc)
    {
        carrier_network found;
        const int result =
            carrier_db_lookup(found, static_cast<uint16_t>(mcc), static_cast<uint16_t>(mnc));
        return result == 0 ? std::string(found.country) + "|" + found.network : "none";
    }

    temp_root root;
    log_capture log;
};

TEST_F(carrier_db, is_read_with_the_first_look_up_and_then_stays)
{
    EXPECT_EQ(log.lines(), texts{}) << "no file yet, and nobody asked";
    root.write(carrier_db_path, spark);
    EXPECT_EQ(look_up(530, 5), "New Zealand|Spark");
    EXPECT_EQ(look_up(530, 6), "none");
    root.write(carrier_db_path, other); // the same file, other contents
    EXPECT_EQ(look_up(530, 5), "New Zealand|Spark");
    root.write("/etc/config/new", other); // another file in its place, then none
    std::filesystem::rename(root.place("/etc/config/new"), root.place(carrier_db_path));
    EXPECT_EQ(look_up(530, 5), "New Zealand|Spark");
    std::filesystem::remove(root.place(carrier_db_path));
    EXPECT_EQ(look_up(530, 5), "New Zealand|Spark");
    EXPECT_EQ(look_up(262, 1), "none");
    EXPECT_EQ(log.lines(), texts{});
}

TEST_F(carrier_db, a_missing_file_is_looked_for_each_time)
{
    EXPECT_EQ(look_up(530, 5), "none");
    EXPECT_EQ(look_up(530, 5), "none");
    EXPECT_EQ(log.lines(), texts(2, "300 No carrier database file found"));
    root.write(carrier_db_path, spark);
    EXPECT_EQ(look_up(530, 5), "New Zealand|Spark");
}

// Each in the place of the site's own table, with a good one behind it that must not be taken.
TEST_F(carrier_db, an_unreadable_file_fails_the_look_up)
{
    const std::string place = root.place(carrier_db_own_path);
    root.write(carrier_db_path, other);
    const auto expect_failure = [&](const std::string &line) {
        log.clear();
        EXPECT_EQ(look_up(530, 5), "none");
        EXPECT_EQ(look_up(262, 1), "none");
        EXPECT_EQ(log.lines(), texts(2, line));
        std::filesystem::remove(place);
    };
    std::filesystem::create_directory(place);
    expect_failure("300 Failed to open: /etc/config/mcc-mnc-table.csv: Is a directory");
    ASSERT_EQ(mkfifo(place.c_str(), 0600), 0);
    expect_failure("300 Failed to open: /etc/config/mcc-mnc-table.csv: Invalid argument");
    std::filesystem::create_symlink("/dev/zero", place);
    expect_failure("300 Failed to open: /etc/config/mcc-mnc-table.csv: Invalid argument");
    std::filesystem::create_symlink("/proc/self/mem", place); // opens, but its start is not mapped
    expect_failure("300 Failed to read: /etc/config/mcc-mnc-table.csv: Input/output error");
    if (geteuid() != 0) {
        root.write(carrier_db_own_path, spark);
        chmod(place.c_str(), 0);
        expect_failure("300 Failed to open: /etc/config/mcc-mnc-table.csv: Permission denied");
    }
    root.write(carrier_db_own_path, spark);
    EXPECT_EQ(look_up(530, 5), "New Zealand|Spark") << "once it can be read";
    EXPECT_EQ(look_up(262, 1), "none") << "the tables are not joined";
}

class carrier_db_useless : public carrier_db, public testing::WithParamInterface<const char *>
{
};

TEST_P(carrier_db_useless, is_read_once_and_replaces_the_installed_table_too)
{
    root.write(carrier_db_own_path, GetParam());
    root.write(carrier_db_path, other);
    EXPECT_EQ(look_up(262, 1), "none");
    root.write(carrier_db_own_path, other);
    EXPECT_EQ(look_up(262, 1), "none");
    EXPECT_EQ(log.lines().size(), strchr(GetParam(), '9') ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(files, carrier_db_useless,
                         testing::Values("", "header only\n", "no\nline is\n\ngood,,\n",
                                         "header\n99999999999\n", "\xFF\xFE\x80\n\x80,\xC3\n"));

TEST_F(carrier_db, finds_every_line_of_a_large_file)
{
    std::string file = header;
    for (unsigned i = 0; i < 100000; i++)
        file += std::to_string(i / 100) + ",0," + std::to_string(i % 100) + ",0,cc,Country,1," +
                std::to_string(i) + "\n";
    root.write(carrier_db_path, file);
    for (unsigned i = 0; i < 100000; i += 7)
        ASSERT_EQ(look_up(i / 100, i % 100), "Country|" + std::to_string(i));
    EXPECT_EQ(log.lines(), texts{});
}

TEST_F(carrier_db, finds_nothing_after_its_end)
{
    carrier_db_free(); // nothing was read: nothing to give back, and still usable
    root.write(carrier_db_path, spark);
    EXPECT_EQ(look_up(530, 5), "New Zealand|Spark");
    carrier_db_free();
    EXPECT_EQ(look_up(530, 5), "none");
    carrier_db_free();
    EXPECT_EQ(log.lines(), texts{});
}

TEST_F(carrier_db, survives_the_lack_of_memory_at_any_moment)
{
    std::string file = spark;
    for (int i = 0; i < 60; i++)
        file += "1,0," + std::to_string(i) + ",0,cc,A country of a long name " + std::to_string(i) +
                ",1,A network of a long name\n";
    root.write(carrier_db_path, file);
    int failures = 0;
    for (;; failures++) {
        log.clear();
        carrier_network found;
        failing_allocation = failures + 1;
        const int result = carrier_db_lookup(found, 530, 5);
        failing_allocation = 0;
        if (result == 0)
            break;
        ASSERT_EQ(log.lines(), texts{"300 Failed to allocate carrier entry"}) << failures;
        ASSERT_LT(failures, 10000);
    }
    EXPECT_GT(failures, 60) << "paths, names, entries";
    EXPECT_EQ(look_up(530, 5), "New Zealand|Spark");
    EXPECT_EQ(look_up(1, 59), "A country of a long name 59|A network of a long name");
}

TEST_F(carrier_db, reads_no_file_once_termination_was_requested)
{
    root.write(carrier_db_path, spark);
    clock_stop();
    EXPECT_EQ(look_up(530, 5), "none");
    EXPECT_EQ(log.lines(), texts{});
}

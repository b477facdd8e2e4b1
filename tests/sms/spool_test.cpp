#include "sms/spool.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

static const std::string spool = "/var/spool/sms/incoming";

// What was flushed when, and what was in the spool then: linked instead of the C library's.
struct flush {
    bool directory;
    size_t messages;
};

static std::vector<flush> flushes;
static std::string counted_directory;
static int flush_errno;

extern "C" int fsync(int fd)
{
    struct stat status;
    fstat(fd, &status);
    size_t messages = 0;
    std::error_code ignored;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator(counted_directory, ignored))
        messages++;
    flushes.push_back({S_ISDIR(status.st_mode), messages});
    errno = flush_errno;
    return flush_errno == 0 ? 0 : -1;
}

class sms_spool : public testing::Test
{
protected:
    // The names in a directory of the root, hidden ones too.
    [[nodiscard]] texts names(const std::string &directory) const
    {
        texts found;
        for (const auto &entry : fs::directory_iterator(root.place(directory)))
            found.push_back(entry.path().filename());
        return found;
    }

    [[nodiscard]] mode_t mode(const std::string &path) const
    {
        struct stat status;
        EXPECT_EQ(stat(root.place(path).c_str(), &status), 0) << path;
        return status.st_mode & 07777u;
    }

    [[nodiscard]] std::string only_message() const
    {
        const texts found = names(spool);
        EXPECT_EQ(found.size(), 1u);
        return found.empty() ? "" : root.read(spool + "/" + found[0]);
    }

    temp_root root;
    log_capture log;
};

TEST_F(sms_spool, a_message_becomes_a_file_for_everybody)
{
    ASSERT_FALSE(fs::exists(root.place("/var/spool"))) << "the directory is made";
    const mode_t old_mask = umask(077);
    EXPECT_EQ(cellmodem_sms_writefile("+6421555", "Kia ora\n"), 1);
    umask(old_mask);
    EXPECT_EQ(only_message(), "From: +6421555\n\nKia ora\n") << "no line feed more or less";
    const std::string name = names(spool)[0];
    EXPECT_EQ(name.size(), 11u);
    EXPECT_TRUE(name.starts_with("recv_"));
    EXPECT_EQ(mode(spool + "/" + name), 0644u);
    for (const char *directory : {"/var/spool", "/var/spool/sms", "/var/spool/sms/incoming"})
        EXPECT_EQ(mode(directory), 0755u) << directory;
    EXPECT_EQ(names("/tmp"), texts{});
    EXPECT_EQ(log.lines(),
              (texts{"700 cellmodem_sms_writefile(/tmp/" + name + ", +6421555, Kia ora\n)",
                     "600 Received new SMS from +6421555 -> /var/spool/sms/incoming/" + name}));
}

TEST_F(sms_spool, a_message_outlives_a_power_cut_under_its_name)
{
    flushes.clear();
    counted_directory = root.place(spool);
    EXPECT_EQ(cellmodem_sms_writefile("1", "kept"), 1);
    ASSERT_EQ(flushes.size(), 2u);
    EXPECT_FALSE(flushes[0].directory);
    EXPECT_EQ(flushes[0].messages, 0u) << "the text first";
    EXPECT_TRUE(flushes[1].directory);
    EXPECT_EQ(flushes[1].messages, 1u) << "then the name";
    flush_errno = EIO;
    EXPECT_EQ(cellmodem_sms_writefile("1", "lost"), 0);
    flush_errno = 0;
    EXPECT_EQ(names(spool).size(), 1u);
}

TEST_F(sms_spool, what_cannot_be_moved_stays_in_tmp)
{
    root.write(spool, "a file in the way");
    EXPECT_EQ(cellmodem_sms_writefile("1", "kept"), 0);
    ASSERT_EQ(names("/tmp").size(), 1u);
    const std::string name = names("/tmp")[0];
    EXPECT_EQ(root.read("/tmp/" + name), "From: 1\n\nkept");
    EXPECT_EQ(mode("/tmp/" + name), 0600u);
    EXPECT_EQ(log.count("300 Failed moving: /tmp/" + name + " -> " + spool + "/" + name +
                        ": File exists"),
              1);
}

TEST_F(sms_spool, one_leftover_at_most_stays_in_tmp)
{
    // The name exists and the mode is set before the move itself fails.
    fs::create_directories(root.place("/var/spool/sms"));
    fs::create_symlink("/proc", root.place(spool));
    EXPECT_EQ(cellmodem_sms_writefile("1", "first"), 0);
    root.write("/tmp/recv_others", "another program's");
    EXPECT_EQ(cellmodem_sms_writefile("1", "second"), 0);
    texts left = names("/tmp");
    std::erase(left, "recv_others");
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(root.read("/tmp/" + left[0]), "From: 1\n\nsecond");
    EXPECT_EQ(mode("/tmp/" + left[0]), 0600u);
    EXPECT_TRUE(log.has("300 Failed moving: /tmp/" + left[0]));
    fs::remove(root.place(spool));
    EXPECT_EQ(cellmodem_sms_writefile("1", "third"), 1);
    EXPECT_EQ(names("/tmp"), texts{"recv_others"});
    EXPECT_EQ(only_message(), "From: 1\n\nthird");
}

TEST_F(sms_spool, a_full_disk_leaves_no_half_message)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit unlimited;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &unlimited), 0);
    const rlimit small = {20, unlimited.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const int result = cellmodem_sms_writefile("1", std::string(500, 'x'));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &unlimited), 0);
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(log.has("300 Failed writing: /tmp/recv_"));
    EXPECT_EQ(names("/tmp"), texts{});
    EXPECT_FALSE(fs::exists(root.place(spool)));
    fs::remove_all(root.place("/tmp"));
    EXPECT_EQ(cellmodem_sms_writefile("1", "x"), 0);
    EXPECT_TRUE(log.has("300 Could not open file /tmp/recv_"));
}

class sms_outgoing : public sms_spool
{
protected:
    // "number|text" of a file with that content, or the result.
    std::string read(const std::string &content, size_t number_size = 18, size_t text_size = 161)
    {
        root.write("/message", content);
        std::string number = "old", text = "old";
        const int result = cellmodem_sms_readfile(root.place("/message").c_str(), number,
                                                  number_size, text, text_size);
        return result == 1 ? number + "|" + text : std::to_string(result);
    }
};

TEST_F(sms_outgoing, number_and_text_are_found_by_their_lines)
{
    const struct {
        const char *content, *read;
    } rows[] = {
        {"To: 5551234\n\nHello\n", "5551234|Hello"},
        {"To: 5551234\nignored\nHello\n\n", "5551234|Hello\n"},
        {"To: 1\n\ntwo\nlines", "1|two\nlines"},
        {"XXXX5551234", "5551234|"},
        {"To:\n\nx", "|x"},
        {"To: \n\nx", "|x"},
        {"To: 123456789012345678901\n\nx", "123456789012345678|x"},
        {"To: 12345678901234567\n\nx", "12345678901234567|x"},
        {"\n\n\n", "|"},
        {"", "|"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(read(row.content), row.read) << row.content;
    EXPECT_GE(log.count("700 Truncating new line from text buffer"), 3);
}

TEST_F(sms_outgoing, long_lines_count_as_several)
{
    const std::string head = "To: " + std::string(155, '1');
    EXPECT_EQ(read(head + std::string(141, '2') + "\nreal second line\nthird\n", 200),
              std::string(155, '1') + "|real second line\nthird");
    const std::string exact(159, 'x');
    EXPECT_EQ(read("To: 1\n\n" + exact + "y\n", 18, 1000), "1|" + exact + "y");
    // The line feed behind a piece of exactly 159 characters is a line of its own.
    EXPECT_EQ(read(head + "\nsecond\n"), std::string(18, '1') + "|second");
}

TEST_F(sms_outgoing, texts_are_bounded)
{
    EXPECT_EQ(read("To: 1\n\n" + std::string(300, 'x')), "1|" + std::string(160, 'x'));
    EXPECT_EQ(read("To: 1\n\n" + std::string(159, 'x') + "\nmore"), "1|" + std::string(159, 'x'));
    EXPECT_EQ(read("To: 1\n\nabc", 0, 0), "|");
    EXPECT_EQ(read("To: 1\n\nabc", 1, 3), "1|ab");
    EXPECT_EQ(read("To: 1\n\nabc\n", 1, 4), "1|abc");
    const std::string euro = "\xE2\x82\xAC", most(158, 'x');
    EXPECT_EQ(read("To: 1\n\n" + most + euro), "1|" + most) << "no character is divided";
    EXPECT_EQ(read("To: 1\n\n" + most + "\xC3\xA9" + euro), "1|" + most + "\xC3\xA9");
    const std::string latin = "\xE9" + most + "\xB0";
    EXPECT_EQ(read("To: 1\n\n" + latin + "\xB0"), "1|" + latin) << "these are no UTF-8";
}

TEST_F(sms_outgoing, what_cannot_be_read_is_no_empty_message)
{
    const std::string pipe = root.place("/pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    // The last is a regular file to look at, but its first page is never mapped.
    for (const std::string &path : texts{"/nowhere", pipe, root.path(), "/proc/self/mem"}) {
        std::string number = "old", text = "old";
        EXPECT_EQ(cellmodem_sms_readfile(path.c_str(), number, 18, text, 161), 0) << path;
        EXPECT_EQ(number + text, "") << path;
    }
    EXPECT_EQ(log.lines(),
              (texts{"700 cellmodem_sms_readfile(/nowhere)", "300 No such file: /nowhere",
                     "700 cellmodem_sms_readfile(" + pipe + ")", "300 Could not open file " + pipe,
                     "700 cellmodem_sms_readfile(" + root.path() + ")",
                     "300 Could not open file " + root.path(),
                     "700 cellmodem_sms_readfile(/proc/self/mem)",
                     "300 Could not open file /proc/self/mem"}));
}

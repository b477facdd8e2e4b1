#include "backends/serial/at.h"
#include "backends/serial/port.h"
#include "support/log_capture.h"
#include "support/pty_modem.h"
#include "support/temp_root.h"

#include <cerrno>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

// The C library's, with a switch: no terminal that can be opened refuses to tell its settings.
static bool settings_unreadable;

extern "C" int tcgetattr(int fd, termios *settings) noexcept
{
    if (settings_unreadable) {
        errno = EIO;
        return -1;
    }
    using function = int (*)(int, termios *);
    return reinterpret_cast<function>(dlsym(RTLD_NEXT, "tcgetattr"))(fd, settings);
}

class at_exchange : public testing::Test
{
protected:
    void TearDown() override { port_close(at_port()); }

    // The response to one command.
    std::string ask(const char *command)
    {
        if (at_write(command) != 0)
            return "(not written)";
        const auto response = at_read(at_timeout_s);
        return response ? std::string(*response) : "(none)";
    }

    const short_waits waits;
    temp_root root;
    log_capture log;
};

TEST_F(at_exchange, a_shorter_response_keeps_the_older_ones_tail)
{
    pty_modem modem(root, {"\r\nlong answer\r\nOK\r\n", "\r\nERROR\r\n", "nul\0hidden"});
    ASSERT_EQ(port_open(at_port()), 0);
    EXPECT_EQ(ask("AT1\r"), "\r\nlong answer\r\nOK\r\n");
    const std::string mixed = ask("AT2\r");
    EXPECT_EQ(mixed, "\r\nERROR\r\nswer\r\nOK\r\n");
    EXPECT_TRUE(at_ok(mixed)) << "the tail counts, as it always has";
    modem.vanish();
    EXPECT_EQ(modem.commands(), (std::vector<std::string>{"AT1", "AT2"}));
}

TEST_F(at_exchange, a_full_buffer_ends_the_read)
{
    pty_modem modem(root, {std::string(5000, '\xE9')});
    ASSERT_EQ(port_open(at_port()), 0);
    EXPECT_EQ(ask("AT\r").size(), at_response_max);
    EXPECT_TRUE(log.has("700 Got 4096 bytes from /dev/cellcommand01 retries: "));
}

TEST_F(at_exchange, silence_is_told_from_a_vanished_modem)
{
    pty_modem modem(root, {});
    ASSERT_EQ(port_open(at_port()), 0);
    EXPECT_EQ(ask("AT\r"), "(none)");
    EXPECT_EQ(log.count("300 select() failed: /dev/cellcommand01 result: 0"), 1);
    modem.vanish();
    EXPECT_EQ(ask("AT\r"), "(not written)");
    EXPECT_EQ(log.count("0 Failed writing AT command"), 1);
    port_close(at_port());
    EXPECT_EQ(ask("AT\r"), "(not written)") << "a closed port is an error, not a crash";
    EXPECT_EQ(at_read(1), std::nullopt);
    EXPECT_EQ(log.count("0 Failed to select on: /dev/cellcommand01: Bad file descriptor"), 1);
    EXPECT_EQ(at_write(""), 0);
}

TEST_F(at_exchange, a_modem_that_takes_nothing_is_given_up)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
    at_port().fd.reset(ends[1]);
    EXPECT_EQ(at_write(std::string(1 << 20, 'x')), -1);
    EXPECT_EQ(log.lines().size(), 0u);
    at_port().fd.reset();
    close(ends[0]);
}

TEST_F(at_exchange, opening_says_what_is_wrong)
{
    EXPECT_EQ(port_open(at_port()), -1);
    EXPECT_EQ(log.count("0 Failed to open: /dev/cellcommand01: No such file or directory"), 1);
    root.write("/dev/cellcommand01", "a file, not a terminal");
    EXPECT_EQ(port_open(at_port()), -1);
    EXPECT_EQ(log.count("0 Failed to lock: /dev/cellcommand01"), 1);
    // A port whose settings are unknown could not be given back.
    const pty_modem modem(root, {});
    settings_unreadable = true;
    EXPECT_EQ(port_open(at_port()), -1);
    settings_unreadable = false;
    EXPECT_EQ(log.count("0 Old termios failed: /dev/cellcommand01 (5) Input/output error"), 1);
    EXPECT_FALSE(at_port().fd);
}

TEST_F(at_exchange, a_port_that_cannot_be_read_answers_nothing)
{
    at_port().fd.reset(open("/", O_RDONLY | O_DIRECTORY)); // always readable, never read
    EXPECT_EQ(at_read(1), std::nullopt);
    EXPECT_EQ(log.count("300 Read Error on /dev/cellcommand01: Is a directory: "), 1);
}

TEST_F(at_exchange, the_port_is_given_back_as_it_was)
{
    pty_modem modem(root, {});
    ASSERT_EQ(port_open(at_port()), 0);
    termios raw;
    ASSERT_EQ(tcgetattr(at_port().fd.get(), &raw), 0);
    EXPECT_EQ(raw.c_iflag, static_cast<tcflag_t>(IGNPAR));
    EXPECT_EQ(raw.c_lflag, 0u);
    EXPECT_EQ(raw.c_oflag, 0u);
    EXPECT_EQ(cfgetospeed(&raw), static_cast<speed_t>(B115200));
    EXPECT_EQ(raw.c_cc[VMIN], 0);
    EXPECT_EQ(port_close(at_port()), 0);
    ASSERT_EQ(port_open(at_port()), 0) << "exclusive mode must not outlive the close";
    EXPECT_EQ(at_port().saved.c_iflag, 0u);
}

TEST_F(at_exchange, commands_are_cut)
{
    const std::string long_apn(300, 'a');
    const std::string command = at_format("AT+CGDCONT=1,\"IP\",\"%s\"\r", long_apn.c_str());
    EXPECT_EQ(command.size(), 254u);
    EXPECT_EQ(command.substr(252), "a\r") << "an open line would swallow the next command";
    EXPECT_EQ(at_format("%s", std::string(254, 'b').c_str()), std::string(254, 'b'));
}

TEST(at, ok_is_a_line_of_its_own)
{
    for (const char *good : {"\r\nOK\r\n", "text\r\nOK\r", "\nOK\rx"})
        EXPECT_TRUE(at_ok(good)) << good;
    for (const char *bad : {"", "OK", "OK\r\n", "\r\nOK", "\r\nOKAY\r\n", "\r\nok\r\n"})
        EXPECT_FALSE(at_ok(bad)) << bad;
}

TEST(at, the_first_capture_group_is_extracted)
{
    const log_capture log;
    const std::string text = "Model: MC7700\r\nIMEI: 35\r\nIMEI SV: 7\r\n";
    size_t start = 0, length = 0;
    for (int i = 0; i < 2; i++) { // the second time from the compiled pattern
        ASSERT_EQ(at_extract(text, "IMEI: (\\w+)", &start, &length), 0);
        EXPECT_EQ(text.substr(start, length), "35");
    }
    EXPECT_EQ(at_extract(text, "ESN: (\\w+)", &start, &length), 1);
    EXPECT_EQ(at_extract(text, "Model: \\w+", &start, &length), 1);
    EXPECT_EQ(at_extract(text, "Model: (\\w+", &start, &length), 1);
    EXPECT_EQ(at_extract(text, "(*LIMIT_MATCH=1)(\\w+)+[!?]", &start, &length), 1);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"0 No match found in text", "0 No Captures Found",
                                        "0 Could not compile RE: offset 11, error missing closing "
                                        "parenthesis",
                                        "0 Match error -47"}));
}

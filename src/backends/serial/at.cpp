#include "backends/serial/at.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#define PCRE2_CODE_UNIT_WIDTH 8
#include "backends/serial/port.h"
#include "platform/clock.h"
#include "platform/log.h"

#include <pcre2.h>
#include <termios.h>
#include <unistd.h>

constexpr int empty_reads_max = 200;
constexpr int read_pause_us = 100;
constexpr uint32_t capture_pairs = 10;

static serial_port the_port;
static char response_buffer[at_response_max]; // starts zeroed, is never cleared

serial_port &at_port()
{
    return the_port;
}

std::string at_format(const char *format, ...)
{
    char command[at_command_max + 1];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(command, sizeof(command), format, arguments);
    va_end(arguments);
    if (length > static_cast<int>(at_command_max))
        command[at_command_max - 1] = '\r';
    return command;
}

void at_discard()
{
    tcflush(the_port.fd.get(), TCIFLUSH);
}

int at_write(std::string_view command)
{
    if (port_write(the_port, command) == 0)
        return 0;
    if (errno != EAGAIN)
        log_message(log_fatal, "Failed writing AT command");
    return -1;
}

// Reads until the modem was silent for long enough or the buffer is full. The byte count, or -1.
static int read_response(int *empty_reads)
{
    size_t length = 0;
    int retries = 0;
    while (retries < empty_reads_max && length < at_response_max && !clock_stopped()) {
        clock_pause_us(read_pause_us);
        errno = 0;
        const ssize_t got =
            read(the_port.fd.get(), response_buffer + length, at_response_max - length);
        if (got > 0) {
            length += static_cast<size_t>(got);
        } else if (got == 0 || errno == EAGAIN) {
            if (retries > empty_reads_max)
                log_message(log_fatal, "Exceeded read retries: %s", port_path);
            retries++;
        } else {
            log_message(log_error, "Read Error on %s: %s: ", port_path, strerror(errno));
            return -1;
        }
    }
    *empty_reads = retries;
    return static_cast<int>(length);
}

std::optional<std::string_view> at_read(int timeout_s)
{
    const int ready =
        clock_wait_readable(the_port.fd.get(), clock_answer_timeout_ms(timeout_s * 1000));
    if (ready < 0) {
        log_message(log_fatal, "Failed to select on: %s: %s", port_path, strerror(errno));
        return std::nullopt;
    }
    if (ready != 1) {
        if (!clock_stopped())
            log_message(log_error, "select() failed: %s result: %d", port_path, ready);
        return std::nullopt;
    }
    int retries = 0;
    const int length = read_response(&retries);
    if (length < 0)
        return std::nullopt;
    log_message(log_debug, "Got %d bytes from %s retries: %d", length, port_path, retries);
    if (length == 0)
        return std::nullopt; // readable and empty: the port was hung up
    return std::string_view(response_buffer, strnlen(response_buffer, at_response_max));
}

bool at_ok(std::string_view response)
{
    return response.find("\nOK\r") != std::string_view::npos;
}

using compiled_pattern = std::unique_ptr<pcre2_code, void (*)(pcre2_code *)>;

static const pcre2_code *compile(const char *pattern)
{
    static std::map<std::string_view, compiled_pattern> compiled;
    const auto known = compiled.find(pattern);
    if (known != compiled.end())
        return known->second.get();
    int error = 0;
    PCRE2_SIZE offset = 0;
    pcre2_code *code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED,
                                     0, &error, &offset, nullptr);
    if (!code) {
        char text[128] = "";
        pcre2_get_error_message(error, reinterpret_cast<PCRE2_UCHAR *>(text), sizeof(text));
        log_message(log_fatal, "Could not compile RE: offset %d, error %s",
                    static_cast<int>(offset), text);
        return nullptr;
    }
    compiled.emplace(pattern, compiled_pattern(code, pcre2_code_free));
    return code;
}

int at_extract(std::string_view text, const char *pattern, size_t *start, size_t *length)
{
    const pcre2_code *code = compile(pattern);
    if (!code)
        return 1;
    static const std::unique_ptr<pcre2_match_data, void (*)(pcre2_match_data *)> match(
        pcre2_match_data_create(capture_pairs, nullptr), pcre2_match_data_free);
    const int found = pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0,
                                  0, match.get(), nullptr);
    if (found == PCRE2_ERROR_NOMATCH) {
        log_message(log_fatal, "No match found in text\n");
        return 1;
    }
    if (found < 0) {
        log_message(log_fatal, "Match error %d", found);
        return 1;
    }
    if (found == 1) {
        log_message(log_fatal, "No Captures Found");
        return 1;
    }
    const PCRE2_SIZE *pairs = pcre2_get_ovector_pointer(match.get());
    *start = pairs[2];
    *length = pairs[3] - pairs[2];
    return 0;
}

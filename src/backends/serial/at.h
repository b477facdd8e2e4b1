// AT exchange on the command port: one command out, one response in, and the fields of a response.
// There is one port and one response buffer for the process; only the main thread uses them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

struct serial_port;

constexpr size_t at_command_max = 254; // longer commands are cut
constexpr size_t at_response_max = 4096;
constexpr int at_timeout_s = 5;

// The port that the AT functions use, open while the back-end is attached.
serial_port &at_port();

// Formats a command. One that is longer than at_command_max is cut, and ends with the carriage return
// all the same: left open, it would swallow the next command.
__attribute__((format(printf, 1, 2))) std::string at_format(const char *format, ...);

// Drops what has come in unasked, or too late for the command it answered: the next answer would
// otherwise be taken for that of the command after it, and so on for ever.
void at_discard();

// Writes a command with its carriage return. 0, or -1; a modem that takes nothing for 1,000 tries
// fails without a log line.
[[nodiscard]] int at_write(std::string_view command);

// Waits up to timeout_s (a modem's answer: under the time scale) for the response and reads until
// the modem has been silent for 200 tries in all. The text is valid until the next read. Nothing when
// there was no byte in time, the port was hung up, or termination was requested meanwhile.
//
// The response buffer is not cleared in between: behind a response that is shorter than the one
// before it, the older one's tail still stands and belongs to the text. Callers' tests for "OK"
// have always seen it.
[[nodiscard]] std::optional<std::string_view> at_read(int timeout_s);

// True when the response holds a line "OK".
[[nodiscard]] bool at_ok(std::string_view response);

// Finds the first capture group of a regular expression in the text, as an offset and a length. 0,
// or 1 after logging why there is none. The pattern must be a constant: it is compiled once.
int at_extract(std::string_view text, const char *pattern, size_t *start, size_t *length);

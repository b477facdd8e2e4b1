// What every modem behind an AT command port has in common: a line is complete at its carriage
// return, is echoed if the modem is told to, is looked up in the family's table of commands, and its
// answer leaves through the faults. The commands and what they do are the family's.
#pragma once

#include "sim/fault.h"
#include "sim/outbox.h"
#include "sim/pty_port.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct sim_services;

// What a command answers. The information text comes before the result code; it has no line end of
// its own unless the real modem prints an empty line there.
struct at_reply {
    std::string information;
    std::string result = "OK";
    bool raw = false;          // the information is the whole answer, byte for byte
    std::optional<hangup> end; // the port goes away behind the answer
};

at_reply at_error();
at_reply at_cme_error(int code);
at_reply at_information(std::string text);

// The bytes of an answer: verbose result codes, as after ATV1.
std::string at_format(const at_reply &reply);

// "1,\"IP\",\"internet\"" in three. Quotes are taken off. -1 if a quote is not closed or something
// follows a closed one.
int at_arguments(std::string_view text, std::vector<std::string> &arguments);

template <class Modem>
struct at_command {
    const char *name = nullptr;  // in capitals, after the AT
    bool takes_argument = false; // anything may follow the name; otherwise nothing
    at_reply (*run)(Modem &modem, std::string_view argument) = nullptr;
};

// Whether `line` begins with `name`, capitals or not.
bool at_begins(std::string_view line, std::string_view name);

// Runs the first row that fits; `line` begins with AT. No row: ERROR.
template <class Modem>
at_reply at_dispatch(std::span<const at_command<Modem>> commands, Modem &modem,
                     std::string_view line)
{
    line.remove_prefix(2);
    for (const at_command<Modem> &command : commands) {
        const std::string_view name = command.name;
        if (at_begins(line, name) && (command.takes_argument || line.size() == name.size()))
            return command.run(modem, line.substr(name.size()));
    }
    return at_error();
}

// A line without its carriage return. Of an overlong one only the beginning is kept.
struct at_line {
    std::string text;
    bool overlong = false;
};

// Makes lines of bytes. Line feeds and zero bytes before a line are not part of it.
class at_lines
{
public:
    static constexpr size_t line_bytes_max = 4096;

    std::vector<at_line> take(std::string_view bytes);
    void forget() { line_ = {}; }

private:
    at_line line_;
};

// What the family does. Null where it has nothing to do.
struct at_hooks {
    bool (*echo)() = nullptr;                             // whether to echo now; null: never
    at_reply (*execute)(std::string_view line) = nullptr; // a line that begins with AT
    void (*reboot)() = nullptr;                           // the port is back after a power cycle
    std::string (*request_name)(std::string_view line) =
        nullptr; // what faults match; null: the line
};

class at_modem
{
public:
    // `links` are unrooted paths such as "/dev/cellcommand01".
    at_modem(sim_services &services, const std::vector<std::string> &links, at_hooks hooks);

    int open(std::string &reason) { return port_.open(reason); }
    void close() { port_.close(); }

    // Plays a fault that needs no request.
    void act(const fault &alone);

private:
    void received(std::string_view bytes);
    void serve(const at_line &line);
    void hang_up(const hangup &end);

    sim_services &services_;
    at_hooks hooks_;
    at_lines lines_;
    pty_port port_;
    outbox outbox_;
};

// WMC as a modem hears it: frames behind AT*WMC= are un-escaped and checked before anything is done
// with them, and replies have fixed lengths.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

static constexpr std::string_view wmc_prefix = "AT*WMC=";
static constexpr char wmc_start_byte = '\xC8';
static constexpr std::string_view wmc_terminator = "00~";
static constexpr uint8_t wmc_send_code = 0x56;

struct wmc_request {
    uint8_t code = 0;
    std::string body; // un-escaped, without code and check bytes
};

// Takes the escapes out. -1 if one is cut off at the end.
int wmc_unescape(std::string_view escaped, std::string &bytes);

// The check value of un-escaped bytes, all of a frame from the "AT" on: the CRC of ITU-T X.25.
uint16_t wmc_check(std::string_view bytes);

// Reads a line without its carriage return. 0, or -1 with the reason why a modem would refuse it.
// The frame that sends a message has no check value, and its texts are not escaped.
int wmc_read(std::string_view line, wmc_request &request, std::string &reason);

// What faults match: "WMC 0x06", or the line itself if it is no WMC frame.
std::string wmc_request_name(std::string_view line);

// A reply of so many bytes, with code and terminator and zero bytes between them.
std::string wmc_blank_reply(uint8_t code, size_t bytes);

// Makes a reply longer or shorter: zero bytes come or content goes before the terminator.
void wmc_resize_reply(std::string &reply, size_t bytes);

// A message as its frame carries it.
struct wmc_message {
    std::string number;
    std::string smsc;
    std::string text;
};

// Reads the line of a frame that sends a message, by the places that its fields have on the line.
int wmc_read_message(std::string_view line, wmc_message &message, std::string &reason);

#include "sim/wmc.h"

#include "sim/report.h"

#include <algorithm>

static constexpr char escape = 0x7D;
static constexpr char escape_mask = 0x20;

static int refuse(std::string &reason, std::string why)
{
    reason = std::move(why);
    return -1;
}

int wmc_unescape(std::string_view escaped, std::string &bytes)
{
    bytes.clear();
    for (size_t i = 0; i < escaped.size(); i++) {
        if (escaped[i] != escape) {
            bytes += escaped[i];
            continue;
        }
        if (++i == escaped.size())
            return -1;
        bytes += static_cast<char>(escaped[i] ^ escape_mask);
    }
    return 0;
}

uint16_t wmc_check(std::string_view bytes)
{
    unsigned crc = 0xFFFF;
    for (const char c : bytes) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; bit++)
            crc = crc & 1 ? (crc >> 1) ^ 0x8408 : crc >> 1;
    }
    return static_cast<uint16_t>(crc ^ 0xFFFF);
}

// What is behind the start byte, still escaped. -1 with the reason if the line does not begin like
// a frame.
static int open_frame(std::string_view line, std::string_view &inside, std::string &reason)
{
    if (!line.starts_with(wmc_prefix))
        return refuse(reason, "no frame");
    inside = line.substr(wmc_prefix.size());
    if (inside.empty() || inside.front() != wmc_start_byte)
        return refuse(reason, "no start byte");
    inside.remove_prefix(1);
    return 0;
}

// The daemon's frame of 0x11 has another check value than that of its bytes. It is taken as it stands.
static constexpr std::string_view known_short_body("\x11\x01\x00\x00", 4);
static constexpr uint16_t known_short_check = 0x2506;

static int compare_check(std::string_view body, uint16_t given, std::string &reason)
{
    if (body == known_short_body && given == known_short_check)
        return 0;
    const uint16_t wanted = wmc_check(std::string(wmc_prefix) + wmc_start_byte + std::string(body));
    if (given == wanted)
        return 0;
    return refuse(reason, sim_format("check value %04X, expected %04X", given, wanted));
}

int wmc_read(std::string_view line, wmc_request &request, std::string &reason)
{
    std::string_view inside;
    std::string bytes;
    if (open_frame(line, inside, reason) != 0)
        return -1;
    if (wmc_unescape(inside, bytes) != 0)
        return refuse(reason, "an escape is cut off");
    if (bytes.size() < 3)
        return refuse(reason, "too short");
    const std::string_view body = std::string_view(bytes).substr(0, bytes.size() - 2);
    request.code = static_cast<uint8_t>(body.front());
    request.body = body.substr(1);
    if (request.code == wmc_send_code)
        return 0;
    const auto bare = std::find_if(inside.begin(), inside.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x20; });
    if (bare != inside.end())
        return refuse(reason, sim_format("byte %02X is not escaped", *bare));
    const auto byte = [&](size_t from_end) {
        return static_cast<unsigned char>(bytes[bytes.size() - from_end]);
    };
    return compare_check(body, static_cast<uint16_t>(byte(1) << 8 | byte(2)), reason);
}

std::string wmc_request_name(std::string_view line)
{
    std::string_view inside;
    std::string bytes;
    std::string reason;
    if (open_frame(line, inside, reason) != 0)
        return std::string(line);
    wmc_unescape(inside.substr(0, 2), bytes);
    return bytes.empty() ? "WMC" : sim_format("WMC 0x%02X", static_cast<uint8_t>(bytes.front()));
}

std::string wmc_blank_reply(uint8_t code, size_t bytes)
{
    std::string reply(bytes, '\0');
    reply[0] = wmc_start_byte;
    reply[1] = static_cast<char>(code);
    reply.replace(bytes - wmc_terminator.size(), wmc_terminator.size(), wmc_terminator);
    return reply;
}

void wmc_resize_reply(std::string &reply, size_t bytes)
{
    if (reply.ends_with(wmc_terminator) && bytes >= wmc_terminator.size()) {
        reply.resize(reply.size() - wmc_terminator.size());
        reply.resize(bytes - wmc_terminator.size());
        reply += wmc_terminator;
    } else {
        reply.resize(bytes);
    }
}

// Where the fields of a message are on its line. The line is as long as it would be without a text,
// less a byte for each character of it.
static constexpr size_t number_at = 24;
static constexpr size_t number_bytes_max = 178;
static constexpr size_t mark_at = 203;
static constexpr size_t smsc_at = 210;
static constexpr size_t smsc_bytes_max = 41;
static constexpr size_t length_at = 252;
static constexpr size_t text_at = 259;
static constexpr size_t line_bytes = 1281;
static constexpr char mark = 0x24;

// A field that ends with the first escape, or with the half of one that an odd length leaves.
static std::string field(std::string_view line, size_t at, size_t bytes_max)
{
    const std::string_view all = line.substr(at, bytes_max);
    return std::string(all.substr(0, all.find_first_of("} ")));
}

int wmc_read_message(std::string_view line, wmc_message &message, std::string &reason)
{
    if (line.size() <= text_at || line[mark_at] != mark)
        return refuse(reason, "no message");
    const auto length = static_cast<size_t>(static_cast<uint8_t>(line[length_at] ^ escape_mask));
    if (line.size() + length != line_bytes)
        return refuse(reason, sim_format("%zu bytes with a text of %zu, expected %zu", line.size(),
                                         length, line_bytes - length));
    if (!line.ends_with("00"))
        return refuse(reason, "no end");
    std::string text;
    if (wmc_unescape(line.substr(text_at), text) != 0 || text.size() < length)
        return refuse(reason, "the text is cut off");
    message.number = field(line, number_at, number_bytes_max);
    message.smsc = field(line, smsc_at, smsc_bytes_max);
    message.text = text.substr(0, length);
    return 0;
}

#include "sim/bytes.h"

#include "sim/report.h"

#include <charconv>
#include <cstdint>

std::string bytes_escape(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\r')
            text += "\\r";
        else if (c == '\n')
            text += "\\n";
        else if (c == '\t')
            text += "\\t";
        else if (c == '\\')
            text += "\\\\";
        else if (byte < 0x20 || byte >= 0x7F)
            text += sim_format("\\x%02X", byte);
        else
            text += c;
    }
    return text;
}

int bytes_from_hex(std::string_view hex, std::string &bytes)
{
    bytes.clear();
    while (!hex.empty()) {
        if (hex.front() == ' ') {
            hex.remove_prefix(1);
            continue;
        }
        if (hex.size() < 2)
            return -1;
        uint8_t byte = 0;
        const char *end = hex.data() + 2;
        const auto [stop, error] = std::from_chars(hex.data(), end, byte, 16);
        if (error != std::errc() || stop != end)
            return -1;
        bytes += static_cast<char>(byte);
        hex.remove_prefix(2);
    }
    return 0;
}

std::string bytes_noise(size_t count)
{
    std::string noise;
    noise.reserve(count);
    uint32_t seed = 0x7E55E7A1;
    while (noise.size() < count) {
        seed = seed * 1664525 + 1013904223;
        noise += static_cast<char>(seed >> 24);
    }
    return noise;
}

static std::string placeholder(std::string_view inside,
                               const std::function<std::string(std::string_view)> &value)
{
    const size_t colon = inside.find(':');
    std::string text = value(inside.substr(0, colon));
    size_t width = 0;
    if (colon != std::string_view::npos)
        std::from_chars(inside.data() + colon + 1, inside.data() + inside.size(), width);
    if (text.size() < width)
        text.append(width - text.size(), ' ');
    return text;
}

std::string layout_expand(std::string_view layout,
                          const std::function<std::string(std::string_view)> &value)
{
    std::string text;
    while (true) {
        const size_t open = layout.find('{');
        const size_t close = layout.find('}', open == std::string_view::npos ? 0 : open);
        if (open == std::string_view::npos || close == std::string_view::npos)
            return text.append(layout);
        text.append(layout.substr(0, open));
        text += placeholder(layout.substr(open + 1, close - open - 1), value);
        layout.remove_prefix(close + 1);
    }
}

#include "platform/text.h"

#include <algorithm>

static unsigned byte_at(std::string_view bytes, size_t index)
{
    return static_cast<unsigned char>(bytes[index]);
}

// Rows of the well-formed sequences: the lead byte's range, the range of the byte after it, and
// how many bytes follow the lead byte. All further bytes are 0x80 to 0xBF.
struct utf8_form {
    unsigned char lead_min, lead_max, second_min, second_max;
    size_t following;
};

constexpr utf8_form utf8_forms[] = {
    {0x00, 0x7F, 0x00, 0xFF, 0}, {0xC2, 0xDF, 0x80, 0xBF, 1}, {0xE0, 0xE0, 0xA0, 0xBF, 2},
    {0xE1, 0xEC, 0x80, 0xBF, 2}, {0xED, 0xED, 0x80, 0x9F, 2}, {0xEE, 0xEF, 0x80, 0xBF, 2},
    {0xF0, 0xF0, 0x90, 0xBF, 3}, {0xF1, 0xF3, 0x80, 0xBF, 3}, {0xF4, 0xF4, 0x80, 0x8F, 3},
};

bool text_is_utf8(std::string_view bytes)
{
    for (size_t i = 0; i < bytes.size();) {
        const unsigned lead = byte_at(bytes, i);
        const auto *form =
            std::find_if(std::begin(utf8_forms), std::end(utf8_forms), [&](const utf8_form &f) {
                return lead >= f.lead_min && lead <= f.lead_max;
            });
        if (form == std::end(utf8_forms) || bytes.size() - i <= form->following)
            return false;
        for (size_t k = 1; k <= form->following; k++) {
            const unsigned next = byte_at(bytes, i + k);
            if (next < (k == 1 ? form->second_min : 0x80u) ||
                next > (k == 1 ? form->second_max : 0xBFu))
                return false;
        }
        i += 1 + form->following;
    }
    return true;
}

std::string text_from_latin1(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size(); i++) {
        const unsigned byte = byte_at(bytes, i);
        if (byte < 0x80) {
            text.push_back(static_cast<char>(byte));
        } else {
            text.push_back(static_cast<char>(0xC0 | byte >> 6));
            text.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
        }
    }
    return text;
}

std::string text_from_bytes(std::string_view bytes)
{
    return text_is_utf8(bytes) ? std::string(bytes) : text_from_latin1(bytes);
}

std::string_view text_cut(std::string_view text, size_t bytes_max)
{
    if (text.size() <= bytes_max)
        return text;
    size_t end = bytes_max;
    while (end > 0 && (byte_at(text, end) & 0xC0) == 0x80)
        end--;
    return text.substr(0, end);
}

bool text_has_control(std::string_view text)
{
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

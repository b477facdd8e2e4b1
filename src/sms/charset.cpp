#include "sms/charset.h"

#include "platform/text.h"

#include <algorithm>
#include <array>

constexpr uint8_t escape = 0x1B;
constexpr char32_t replacement_character = 0xFFFD;
constexpr char32_t supplementary_first = 0x10000;

constexpr char16_t gsm7_main[] = u"@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\u001BÆæßÉ"
                                 u" !\"#¤%&'()*+,-./0123456789:;<=>?"
                                 u"¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§"
                                 u"¿abcdefghijklmnopqrstuvwxyzäöñüà";
constexpr size_t gsm7_main_size = 128;
static_assert(std::size(gsm7_main) == gsm7_main_size + 1);

struct gsm7_pair {
    uint8_t septet;
    char16_t character;
};

constexpr gsm7_pair gsm7_extension[] = {
    {0x0A, u'\f'}, {0x14, u'^'}, {0x28, u'{'}, {0x29, u'}'}, {0x2F, u'\\'},
    {0x3C, u'['},  {0x3D, u'~'}, {0x3E, u']'}, {0x40, u'|'}, {0x65, u'€'},
};

// National tables as what differs from the default ones; a single-shift table begins with the
// default extension table wherever it has no row of its own.
struct gsm7_national {
    uint8_t language;
    uint8_t septet;
    char16_t character;
};

constexpr gsm7_national gsm7_national_single[] = {
    {1, 0x47, u'Ğ'}, {1, 0x49, u'İ'}, {1, 0x53, u'Ş'}, {1, 0x63, u'ç'}, {1, 0x67, u'ğ'},
    {1, 0x69, u'ı'}, {1, 0x73, u'ş'},

    {2, 0x09, u'ç'}, {2, 0x41, u'Á'}, {2, 0x49, u'Í'}, {2, 0x4F, u'Ó'}, {2, 0x55, u'Ú'},
    {2, 0x61, u'á'}, {2, 0x69, u'í'}, {2, 0x6F, u'ó'}, {2, 0x75, u'ú'},

    {3, 0x05, u'ê'}, {3, 0x09, u'ç'}, {3, 0x0B, u'Ô'}, {3, 0x0C, u'ô'}, {3, 0x0E, u'Á'},
    {3, 0x0F, u'á'}, {3, 0x12, u'Φ'}, {3, 0x13, u'Γ'}, {3, 0x15, u'Ω'}, {3, 0x16, u'Π'},
    {3, 0x17, u'Ψ'}, {3, 0x18, u'Σ'}, {3, 0x19, u'Θ'}, {3, 0x1F, u'Ê'}, {3, 0x41, u'À'},
    {3, 0x49, u'Í'}, {3, 0x4F, u'Ó'}, {3, 0x55, u'Ú'}, {3, 0x5B, u'Ã'}, {3, 0x5C, u'Õ'},
    {3, 0x61, u'Â'}, {3, 0x69, u'í'}, {3, 0x6F, u'ó'}, {3, 0x75, u'ú'}, {3, 0x7B, u'ã'},
    {3, 0x7C, u'õ'}, {3, 0x7F, u'â'},
};

constexpr gsm7_national gsm7_national_locking[] = {
    {1, 0x04, u'€'}, {1, 0x07, u'ı'}, {1, 0x0B, u'Ğ'}, {1, 0x0C, u'ğ'}, {1, 0x1C, u'Ş'},
    {1, 0x1D, u'ş'}, {1, 0x40, u'İ'}, {1, 0x60, u'ç'},

    {3, 0x04, u'ê'}, {3, 0x06, u'ú'}, {3, 0x07, u'í'}, {3, 0x08, u'ó'}, {3, 0x09, u'ç'},
    {3, 0x0B, u'Ô'}, {3, 0x0C, u'ô'}, {3, 0x0E, u'Á'}, {3, 0x0F, u'á'}, {3, 0x12, u'ª'},
    {3, 0x13, u'Ç'}, {3, 0x14, u'À'}, {3, 0x15, u'∞'}, {3, 0x16, u'^'}, {3, 0x17, u'\\'},
    {3, 0x18, u'€'}, {3, 0x19, u'Ó'}, {3, 0x1A, u'|'}, {3, 0x1C, u'Â'}, {3, 0x1D, u'â'},
    {3, 0x1E, u'Ê'}, {3, 0x24, u'º'}, {3, 0x40, u'Í'}, {3, 0x5B, u'Ã'}, {3, 0x5C, u'Õ'},
    {3, 0x5D, u'Ú'}, {3, 0x60, u'~'}, {3, 0x7B, u'ã'}, {3, 0x7C, u'õ'}, {3, 0x7D, u'`'},
};

// The default tables the other way round, in order of the character.
struct gsm7_row {
    char16_t character;
    uint8_t septet;
    bool escaped;
};

static constexpr auto gsm7_rows = [] {
    // Every main septet but the escape itself.
    std::array<gsm7_row, gsm7_main_size - 1 + std::size(gsm7_extension)> rows{};
    size_t count = 0;
    for (size_t septet = 0; septet < gsm7_main_size; septet++) {
        if (septet != escape)
            rows[count++] = {gsm7_main[septet], static_cast<uint8_t>(septet), false};
    }
    for (const gsm7_pair &pair : gsm7_extension)
        rows[count++] = {pair.character, pair.septet, true};
    std::sort(rows.begin(), rows.end(),
              [](const gsm7_row &a, const gsm7_row &b) { return a.character < b.character; });
    return rows;
}();

static const gsm7_row *gsm7_find(char32_t character)
{
    const auto *row =
        std::lower_bound(gsm7_rows.begin(), gsm7_rows.end(), character,
                         [](const gsm7_row &r, char32_t c) { return r.character < c; });
    return row != gsm7_rows.end() && row->character == character ? row : nullptr;
}

size_t charset_gsm7_width(char32_t character)
{
    const gsm7_row *row = gsm7_find(character);
    if (!row)
        return 0;
    return row->escaped ? 2 : 1;
}

char32_t charset_next(std::string_view text, size_t &position)
{
    const auto lead = static_cast<unsigned char>(text[position++]);
    if (lead < 0x80)
        return lead;
    const int following = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    char32_t character = lead & (0x3Fu >> following);
    for (int i = 0; i < following && position < text.size(); i++)
        character = character << 6 | (static_cast<unsigned char>(text[position++]) & 0x3Fu);
    return character;
}

static void append(std::string &text, char32_t character)
{
    const auto put = [&](char32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6);
        put(0x80 | (character & 0x3F));
    } else if (character < supplementary_first) {
        put(0xE0 | character >> 12);
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    } else {
        put(0xF0 | character >> 18);
        put(0x80 | (character >> 12 & 0x3F));
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

// One encoder an alphabet: appends a character's units, or says -1.

static int gsm7_put(char32_t character, std::vector<uint8_t> &units)
{
    const gsm7_row *row = gsm7_find(character);
    if (!row)
        return -1;
    if (row->escaped)
        units.push_back(escape);
    units.push_back(row->septet);
    return 0;
}

static void utf16_put_unit(char32_t unit, std::vector<uint8_t> &units)
{
    units.push_back(static_cast<uint8_t>(unit >> 8));
    units.push_back(static_cast<uint8_t>(unit & 0xFF));
}

static int utf16_put(char32_t character, std::vector<uint8_t> &units)
{
    if (character < supplementary_first) {
        utf16_put_unit(character, units);
    } else {
        const char32_t offset = character - supplementary_first;
        utf16_put_unit(0xD800 | offset >> 10, units);
        utf16_put_unit(0xDC00 | (offset & 0x3FF), units);
    }
    return 0;
}

static int latin1_put(char32_t character, std::vector<uint8_t> &units)
{
    if (character > 0xFF)
        return -1;
    units.push_back(static_cast<uint8_t>(character));
    return 0;
}

static int ascii_put(char32_t character, std::vector<uint8_t> &units)
{
    return character > 0x7F ? -1 : latin1_put(character, units);
}

static const gsm7_national *find_national(std::span<const gsm7_national> rows, uint8_t language,
                                          uint8_t septet)
{
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const gsm7_national &r) {
        return r.language == language && r.septet == septet;
    });
    return row == rows.end() ? nullptr : &*row;
}

static char32_t main_character(uint8_t septet, uint8_t language)
{
    if (language != gsm7_language_default) {
        const gsm7_national *row = find_national(gsm7_national_locking, language, septet);
        if (row)
            return row->character;
    }
    return gsm7_main[septet];
}

// 0: the tables have nothing behind the escape for this septet.
static char32_t escaped_character(uint8_t septet, uint8_t language)
{
    if (language != gsm7_language_default) {
        const gsm7_national *row = find_national(gsm7_national_single, language, septet);
        if (row)
            return row->character;
    }
    for (const gsm7_pair &pair : gsm7_extension) {
        if (pair.septet == septet)
            return pair.character;
    }
    return septet == escape ? U' ' : 0;
}

static std::string gsm7_text(std::span<const uint8_t> units, gsm7_shift shift)
{
    std::string text;
    for (size_t i = 0; i < units.size(); i++) {
        const uint8_t septet = units[i] & 0x7F;
        if (septet != escape) {
            append(text, main_character(septet, shift.locking));
        } else if (i + 1 == units.size()) {
            append(text, U' ');
        } else {
            const uint8_t second = units[++i] & 0x7F;
            const char32_t escaped = escaped_character(second, shift.single);
            append(text, escaped ? escaped : main_character(second, shift.locking));
        }
    }
    return text;
}

static std::string utf16_text(std::span<const uint8_t> units, gsm7_shift)
{
    std::string text;
    const auto unit_at = [&](size_t i) -> char32_t {
        return static_cast<char32_t>(units[i] << 8 | units[i + 1]);
    };
    for (size_t i = 0; i + 1 < units.size(); i += 2) {
        char32_t character = unit_at(i);
        if (character >= 0xD800 && character <= 0xDFFF) {
            const char32_t low = i + 3 < units.size() ? unit_at(i + 2) : 0;
            if (character < 0xDC00 && low >= 0xDC00 && low <= 0xDFFF) {
                character = supplementary_first + ((character & 0x3FF) << 10 | (low & 0x3FF));
                i += 2;
            } else {
                character = replacement_character;
            }
        }
        append(text, character);
    }
    return text;
}

static std::string latin1_text(std::span<const uint8_t> units, gsm7_shift)
{
    return text_from_latin1({reinterpret_cast<const char *>(units.data()), units.size()});
}

enum packing { packed_octets, packed_low_bit_first, packed_high_bit_first };

struct charset {
    sms_encoding encoding;
    enum packing packing;
    int (*put)(char32_t character, std::vector<uint8_t> &units) = nullptr; // null: not for texts
    std::string (*text)(std::span<const uint8_t> units, gsm7_shift shift) = nullptr;
};

constexpr charset charsets[] = {
    {sms_encoding_none, packed_octets},
    {sms_encoding_gsm7, packed_low_bit_first, gsm7_put, gsm7_text},
    {sms_encoding_octets, packed_octets},
    {sms_encoding_utf16, packed_octets, utf16_put, utf16_text},
    {sms_encoding_latin1, packed_octets, latin1_put, latin1_text},
    {sms_encoding_ascii7, packed_high_bit_first, ascii_put, latin1_text},
    {sms_encoding_ia5, packed_high_bit_first, ascii_put, latin1_text},
    {sms_encoding_other, packed_octets},
};

static_assert([] {
    for (size_t i = 0; i < std::size(charsets); i++) {
        if (charsets[i].encoding != static_cast<sms_encoding>(i))
            return false;
    }
    return std::size(charsets) == sms_encoding_other + 1;
}());

bool charset_is_7bit(sms_encoding encoding)
{
    return charsets[encoding].packing != packed_octets;
}

int charset_encode(sms_encoding encoding, std::string_view text, std::vector<uint8_t> &units)
{
    const charset &set = charsets[encoding];
    units.clear();
    if (!set.put || !text_is_utf8(text))
        return -1;
    for (size_t position = 0; position < text.size();) {
        if (set.put(charset_next(text, position), units) != 0)
            return -1;
    }
    return 0;
}

std::optional<std::string> charset_decode(sms_encoding encoding, std::span<const uint8_t> units,
                                          gsm7_shift shift)
{
    const charset &set = charsets[encoding];
    if (!set.text)
        return std::nullopt;
    return set.text(units, shift);
}

void charset_pack(sms_encoding encoding, std::span<const uint8_t> units, size_t first_unit,
                  std::vector<uint8_t> &octets)
{
    const enum packing packing = charsets[encoding].packing;
    if (packing == packed_octets) {
        octets.resize(first_unit);
        octets.insert(octets.end(), units.begin(), units.end());
        return;
    }
    octets.resize(((first_unit + units.size()) * 7 + 7) / 8);
    for (size_t i = 0; i < units.size(); i++) {
        const size_t bit = (first_unit + i) * 7;
        const size_t octet = bit / 8, shift = bit % 8;
        const unsigned septet = units[i] & 0x7Fu;
        // The septet inside the two octets that it may touch, the first one in the high half or,
        // low bit first, in the low half.
        const unsigned pair =
            packing == packed_low_bit_first ? septet << shift : septet << (9 - shift);
        const unsigned here = packing == packed_low_bit_first ? pair & 0xFF : pair >> 8;
        const unsigned next = packing == packed_low_bit_first ? pair >> 8 : pair & 0xFF;
        octets[octet] = static_cast<uint8_t>(octets[octet] | here);
        if (shift > 1)
            octets[octet + 1] = static_cast<uint8_t>(octets[octet + 1] | next);
    }
}

int charset_unpack(sms_encoding encoding, std::span<const uint8_t> octets, size_t first_unit,
                   size_t count, std::vector<uint8_t> &units)
{
    const enum packing packing = charsets[encoding].packing;
    const size_t bits = packing == packed_octets ? 8 : 7;
    units.clear();
    if (octets.size() * 8 < (first_unit + count) * bits)
        return -1;
    if (packing == packed_octets) {
        const auto part = octets.subspan(first_unit, count);
        units.assign(part.begin(), part.end());
        return 0;
    }
    units.reserve(count);
    for (size_t bit = first_unit * 7; units.size() < count; bit += 7) {
        const size_t octet = bit / 8, shift = bit % 8;
        const unsigned here = octets[octet];
        const unsigned next = shift > 1 ? octets[octet + 1] : 0;
        const unsigned septet = packing == packed_low_bit_first ? (next << 8 | here) >> shift
                                                                : (here << 8 | next) >> (9 - shift);
        units.push_back(static_cast<uint8_t>(septet & 0x7F));
    }
    return 0;
}

#include "sms/split.h"

#include "platform/text.h"

constexpr size_t narrow_header_octets = 6, wide_header_octets = 7;

// Code units of one character: septets, or units of UTF-16.
static size_t utf16_width(char32_t character)
{
    return character > 0xFFFF ? 2 : 1;
}

static size_t ascii_width(char32_t character)
{
    return character <= 0x7F ? 1 : 0;
}

struct alphabet {
    sms_encoding encoding;
    size_t (*width)(char32_t character); // 0: the character is not in it
    size_t units_max;                    // of a message without a header
    size_t units_max_narrow, units_max_wide;
};

constexpr size_t septets_behind(size_t header_octets)
{
    return sms_user_data_septets_max - (header_octets * 8 + 6) / 7;
}

constexpr size_t utf16_units_behind(size_t header_octets)
{
    return (sms_user_data_octets_max - header_octets) / 2;
}

constexpr alphabet gsm7 = {sms_encoding_gsm7, charset_gsm7_width, septets_behind(0),
                           septets_behind(narrow_header_octets),
                           septets_behind(wide_header_octets)};
constexpr alphabet ascii7 = {sms_encoding_ascii7, ascii_width, septets_behind(0), 0, 0};
constexpr alphabet utf16 = {sms_encoding_utf16, utf16_width, utf16_units_behind(0),
                            utf16_units_behind(narrow_header_octets),
                            utf16_units_behind(wide_header_octets)};

// How many code units the text takes; nothing when it has a character that the alphabet lacks.
static std::optional<size_t> measure(std::string_view text, const alphabet &alphabet)
{
    size_t units = 0;
    for (size_t position = 0; position < text.size();) {
        const size_t width = alphabet.width(charset_next(text, position));
        if (width == 0)
            return std::nullopt;
        units += width;
    }
    return units;
}

static std::vector<std::string_view> cut(std::string_view text, const alphabet &alphabet, bool wide)
{
    const size_t units_max = wide ? alphabet.units_max_wide : alphabet.units_max_narrow;
    std::vector<std::string_view> pieces;
    size_t start = 0, units = 0;
    for (size_t position = 0; position < text.size();) {
        const size_t character_start = position;
        const size_t width = alphabet.width(charset_next(text, position));
        if (units + width > units_max) {
            pieces.push_back(text.substr(start, character_start - start));
            start = character_start;
            units = 0;
        }
        units += width;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

// Which alphabets to try, in order. 3GPP2 receivers read ASCII and UTF-16 everywhere, but the GSM
// alphabet only since enhanced messaging; so it stands behind them, where it saves parts.
struct choice {
    const alphabet *letters;
    bool may_split;
};

constexpr choice choices_3gpp[] = {{&gsm7, true}, {&utf16, true}};
constexpr choice choices_3gpp2[] = {
    {&ascii7, false}, {&utf16, false}, {&gsm7, true}, {&utf16, true}};

// The text in pieces and the encoding of all of them; no pieces when the text cannot be sent.
struct text_plan {
    sms_encoding encoding = sms_encoding_none;
    std::vector<std::string_view> pieces;
};

static text_plan make_plan(std::string_view text, sms_standard standard, bool wide)
{
    if (!text_is_utf8(text))
        return {};
    const std::span<const choice> choices =
        standard == sms_3gpp2 ? std::span<const choice>(choices_3gpp2) : choices_3gpp;
    for (const choice &choice : choices) {
        const std::optional<size_t> units = measure(text, *choice.letters);
        if (units && *units <= choice.letters->units_max)
            return {choice.letters->encoding, {text}};
        if (!units || !choice.may_split)
            continue;
        text_plan plan{choice.letters->encoding, cut(text, *choice.letters, wide)};
        if (plan.pieces.size() <= sms_parts_max)
            return plan;
    }
    return {};
}

int sms_split(std::string_view text, sms_standard standard, sms_split_reference reference,
              std::vector<sms_body> &bodies)
{
    bodies.clear();
    const text_plan plan = make_plan(text, standard, reference.wide);
    if (plan.pieces.empty() || (!reference.wide && reference.ref > UINT8_MAX))
        return -1;
    const size_t total = plan.pieces.size();
    for (size_t i = 0; i < total; i++) {
        sms_body &body = bodies.emplace_back();
        body.encoding = plan.encoding;
        body.text = plan.pieces[i];
        if (total > 1)
            body.concat = {reference.ref, static_cast<uint8_t>(total), static_cast<uint8_t>(i + 1),
                           reference.wide};
    }
    return 0;
}

size_t sms_part_count(std::string_view text, sms_standard standard, bool wide_reference)
{
    return make_plan(text, standard, wide_reference).pieces.size();
}

// Both standards' messages have a body and an encoder; nothing else matters here.
template <typename message>
static int encode_parts(const message &form, sms_standard standard,
                        int (*encode)(const message &, std::vector<uint8_t> &),
                        std::string_view text, sms_split_reference reference,
                        std::vector<std::vector<uint8_t>> &pdus)
{
    std::vector<sms_body> bodies;
    pdus.clear();
    if (sms_split(text, standard, reference, bodies) != 0)
        return -1;
    message part = form;
    for (sms_body &body : bodies) {
        part.body = std::move(body);
        if (encode(part, pdus.emplace_back()) != 0) {
            pdus.clear();
            return -1;
        }
    }
    return 0;
}

int sms_encode_3gpp(const pdu_3gpp &form, std::string_view text, sms_split_reference reference,
                    std::vector<std::vector<uint8_t>> &pdus)
{
    pdu_3gpp coded = form;
    coded.dcs.reset(); // it follows from the encoding and the class
    return encode_parts(coded, sms_3gpp, pdu_3gpp_encode, text, reference, pdus);
}

int sms_encode_cdma(const pdu_cdma &form, std::string_view text, sms_split_reference reference,
                    std::vector<std::vector<uint8_t>> &pdus)
{
    return encode_parts(form, sms_3gpp2, pdu_cdma_encode, text, reference, pdus);
}

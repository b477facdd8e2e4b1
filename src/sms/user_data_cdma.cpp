#include "sms/user_data_cdma.h"

#include "sms/bits.h"
#include "sms/pdu_3gpp.h"

#include <algorithm>

constexpr unsigned code_bits = 5, octet_bits = 8;
constexpr uint8_t code_extended = 1;     // the older standard's own messages
constexpr uint8_t code_3gpp_scheme = 10; // a 3GPP data coding scheme follows

struct encoding_row {
    uint8_t code;
    sms_encoding encoding;
    unsigned field_bits;
};

// The first row of an encoding is the one to write. The older standard's messages and those of
// unknown codes have no row: how wide their fields are depends on what they are.
constexpr encoding_row encodings[] = {
    {0, sms_encoding_octets, 8}, {2, sms_encoding_ascii7, 7}, {3, sms_encoding_ia5, 7},
    {4, sms_encoding_utf16, 16}, {5, sms_encoding_other, 8}, // Shift-JIS, one or two fields a character
    {6, sms_encoding_other, 8},                              // KS C 5601
    {7, sms_encoding_other, 8},                              // ISO 8859-8
    {8, sms_encoding_latin1, 8}, {9, sms_encoding_gsm7, 7},
};

struct user_data_head {
    const encoding_row *row; // null: unknown width
    uint8_t fields;
};

static const encoding_row *row_of_code(uint8_t code)
{
    const auto *row = std::find_if(std::begin(encodings), std::end(encodings),
                                   [&](const encoding_row &r) { return r.code == code; });
    return row == std::end(encodings) ? nullptr : row;
}

static const encoding_row *row_of_encoding(sms_encoding encoding)
{
    const auto *row = std::find_if(std::begin(encodings), std::end(encodings),
                                   [&](const encoding_row &r) { return r.encoding == encoding; });
    return row == std::end(encodings) ? nullptr : row;
}

static int read_head(bit_reader &reader, user_data_head &head)
{
    uint8_t code, type = 0;
    if (!reader.field(code_bits, code))
        return -1;
    const bool typed = code == code_extended || code == code_3gpp_scheme;
    if ((typed && !reader.field(octet_bits, type)) || !reader.field(octet_bits, head.fields))
        return -1;
    head.row = code == code_3gpp_scheme ? row_of_encoding(pdu_3gpp_read_dcs(type).encoding)
                                        : row_of_code(code);
    return 0;
}

// Regroups that many bits into octets, the last one filled up with zeros. 0, or -1 when there are
// fewer.
static int regroup(bit_reader &reader, size_t bits, std::vector<uint8_t> &octets)
{
    bit_writer writer;
    for (; bits > 0; bits -= std::min<size_t>(bits, octet_bits)) {
        const auto width = static_cast<unsigned>(std::min<size_t>(bits, octet_bits));
        uint32_t value;
        if (!reader.field(width, value))
            return -1;
        writer.field(width, value);
    }
    octets = std::move(writer.octets);
    return 0;
}

// The bits that a piece's fields take. Packed GSM septets end with an octet: their last bits are
// its low ones.
static size_t bits_of(const user_data_head &head)
{
    const size_t bits = size_t{head.fields} * head.row->field_bits;
    return head.row->encoding == sms_encoding_gsm7
               ? (bits + octet_bits - 1) / octet_bits * octet_bits
               : bits;
}

static int read_piece(bit_reader &reader, bool has_header, sms_body &body)
{
    user_data_head head;
    std::vector<uint8_t> octets;
    if (read_head(reader, head) != 0)
        return -1;
    if (!head.row) {
        body.encoding = sms_encoding_other;
        body.text.reset();
        return regroup(reader, reader.left(), body.data);
    }
    body.encoding = head.row->encoding;
    if (regroup(reader, bits_of(head), octets) != 0)
        return -1;
    const size_t count = charset_is_7bit(body.encoding) ? head.fields : octets.size();
    return sms_body_decode(body, octets, count, has_header);
}

int user_data_cdma_read(std::span<const uint8_t> octets, bool has_header, sms_body &body)
{
    bit_reader reader{octets};
    return read_piece(reader, has_header, body);
}

int user_data_cdma_read_multiple(std::span<const uint8_t> octets, sms_body &body)
{
    bit_reader reader{octets};
    std::string text;
    bool first = true;
    while (reader.left() >= code_bits + octet_bits) {
        sms_body piece;
        if (read_piece(reader, false, piece) != 0)
            return -1;
        if (!piece.text) {
            body.encoding = sms_encoding_other;
            body.data.assign(octets.begin(), octets.end());
            return 0;
        }
        text += *piece.text;
        body.encoding =
            first || piece.encoding == body.encoding ? piece.encoding : sms_encoding_utf16;
        first = false;
    }
    if (first)
        return 0;
    body.text = text;
    return charset_encode(body.encoding, text, body.data);
}

int user_data_cdma_write(const sms_body &body, std::vector<uint8_t> &octets)
{
    const encoding_row *row = row_of_encoding(body.encoding);
    std::vector<uint8_t> packed;
    size_t count;
    if (!row || row->encoding == sms_encoding_other || sms_body_encode(body, packed, count) != 0)
        return -1;
    if (row->encoding == sms_encoding_utf16) {
        packed.resize((packed.size() + 1) / 2 * 2); // behind a header of odd length
        count = packed.size() / 2;
    }
    if (count > UINT8_MAX)
        return -1;
    bit_writer writer;
    writer.field(code_bits, row->code);
    writer.field(octet_bits, static_cast<uint32_t>(count));
    // Fields of seven bits, high bit first, end before the last octet does.
    const bool septets = row->encoding != sms_encoding_gsm7 && row->field_bits == 7;
    size_t bits = septets ? count * row->field_bits : packed.size() * octet_bits;
    for (uint8_t octet : packed) {
        const auto width = static_cast<unsigned>(std::min<size_t>(bits, octet_bits));
        writer.field(width, octet >> (octet_bits - width));
        bits -= width;
    }
    octets = std::move(writer.octets);
    return 0;
}

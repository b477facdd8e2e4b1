#include "sim/cdma_messages.h"

#include "sim/bytes.h"
#include "sim/report.h"
#include "sim/state_fields.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

static constexpr uint32_t small_buffer = 2;
static constexpr size_t text_bytes_max = 4096;
static constexpr size_t messages_max = 1000;

// ---- alphabets

// The next character of a text that is UTF-8, as all that came as JSON is.
static char32_t take_character(std::string_view &text)
{
    const auto first = static_cast<uint8_t>(text[0]);
    const size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    char32_t character = length == 1 ? first : first & (0x7FU >> length);
    for (size_t i = 1; i < length; i++)
        character = character << 6 | (static_cast<uint8_t>(text[i]) & 0x3FU);
    text.remove_prefix(length);
    return character;
}

static void put_unit(std::string &bytes, char32_t unit)
{
    bytes += static_cast<char>(unit >> 8);
    bytes += static_cast<char>(unit & 0xFF);
}

static int put_7bit(std::string &bytes, char32_t character)
{
    bytes += static_cast<char>(character);
    return character < 0x80 ? 0 : -1;
}

static int put_latin1(std::string &bytes, char32_t character)
{
    bytes += static_cast<char>(character);
    return character < 0x100 ? 0 : -1;
}

static int put_16bit(std::string &bytes, char32_t character)
{
    constexpr char32_t supplementary = 0x10000;
    if (character >= supplementary) {
        put_unit(bytes, 0xD800 + ((character - supplementary) >> 10));
        put_unit(bytes, 0xDC00 + ((character - supplementary) & 0x3FF));
    } else {
        put_unit(bytes, character);
    }
    return 0;
}

static int put_16bit_low(std::string &bytes, char32_t character)
{
    const size_t from = bytes.size();
    (void)put_16bit(bytes, character);
    for (size_t i = from; i < bytes.size(); i += 2)
        std::swap(bytes[i], bytes[i + 1]);
    return 0;
}

struct alphabet {
    const char *name;
    int64_t encoding; // the code that goes with it
    int (*put)(std::string &bytes, char32_t character);
};

static constexpr const char alphabet_names[] = "7-bit|latin1|16-bit|16-bit-low";

static constexpr std::array alphabets = {
    alphabet{"7-bit", 2, put_7bit}, alphabet{"latin1", 0, put_latin1},
    alphabet{"16-bit", 4, put_16bit},
    alphabet{"16-bit-low", 4, put_16bit_low}, // the low byte first
};

static const alphabet &find_alphabet(std::string_view name)
{
    return *std::find_if(alphabets.begin(), alphabets.end(),
                         [&](const alphabet &row) { return name == row.name; });
}

// ---- what a scenario says

using field = state_field<cdma_message>;

// clang-format off
static constexpr std::array message_table = {
    field{"id",         &cdma_message::id,         nullptr, -1, 0xFFFFFFFF},
    field{"status",     &cdma_message::status,     nullptr, 0, 255},
    field{"encoding",   &cdma_message::encoding,   nullptr, -1, 255},
    field{"format",     &cdma_message::format,     nullptr, 0, 255},
    field{"sender",     &cdma_message::sender},
    field{"alphabet",   &cdma_message::alphabet,   alphabet_names},
    field{"text_bytes", &cdma_message::text_bytes, nullptr, -1, 0xFFFF},
    field{"read",       &cdma_message::read},
    field{"repeat",     &cdma_message::repeat,     nullptr, 1, static_cast<int64_t>(messages_max)},
};
// clang-format on

// Texts are longer here than those of a state.
static int read_long_texts(json_t *row, cdma_message &message, json_refusal &refusal)
{
    if (json_read(row, "text", message.text, refusal) != 0 ||
        json_read(row, "text_hex", message.text_hex, refusal) != 0)
        return -1;
    if (!message.text.empty() && !message.text_hex.empty())
        return json_refuse(refusal, "text_hex", "there is a text already");
    return 0;
}

static int make_bytes(const cdma_message &message, std::string &bytes, json_refusal &refusal)
{
    if (bytes_from_hex(message.text_hex, bytes) != 0)
        return json_refuse(refusal, "text_hex", "must be pairs of hexadecimal digits");
    const alphabet &row = find_alphabet(message.alphabet);
    for (std::string_view rest = message.text; !rest.empty();)
        if (row.put(bytes, take_character(rest)) != 0)
            return json_refuse(refusal, "text", "has characters that are not in its alphabet");
    if (bytes.size() > text_bytes_max)
        return json_refuse(refusal, message.text.empty() ? "text_hex" : "text",
                           sim_format("must have at most %zu bytes", text_bytes_max));
    return 0;
}

int cdma_messages::add(json_t *row, json_refusal &refusal)
{
    refusal = {{}, "must be an object"};
    if (!json_is_object(row))
        return -1;
    entry added;
    const json_ref fields(json_copy(row));
    json_object_del(fields.get(), "text");
    json_object_del(fields.get(), "text_hex");
    if (state_merge(added.message, std::span<const field>(message_table), fields.get(), refusal) !=
            0 ||
        read_long_texts(row, added.message, refusal) != 0 ||
        make_bytes(added.message, added.bytes, refusal) != 0)
        return -1;
    const int64_t repeat = std::exchange(added.message.repeat, 1);
    if (received_.size() + static_cast<size_t>(repeat) > messages_max)
        return json_refuse(refusal, "repeat",
                           sim_format("the modem has room for %zu messages", messages_max));
    if (added.message.encoding < 0)
        added.message.encoding = find_alphabet(added.message.alphabet).encoding;
    for (int64_t i = 0; i < repeat; i++) {
        received_.push_back(added);
        int64_t &id = received_.back().message.id;
        id = id >= 0 ? (id + i) & 0xFFFFFFFF : next_id_;
        next_id_ = id + 1;
    }
    return 0;
}

int cdma_messages::append(json_t *array, json_refusal &refusal)
{
    if (!json_is_array(array)) {
        refusal = {{}, "must be an array"};
        return -1;
    }
    cdma_messages changed = *this;
    size_t i = 0;
    json_t *row = nullptr;
    json_array_foreach(array, i, row)
    {
        if (changed.add(row, refusal) != 0)
            return json_refuse_inside(refusal, std::to_string(i));
    }
    *this = std::move(changed);
    return 0;
}

int cdma_messages::assign(json_t *array, json_refusal &refusal)
{
    cdma_messages changed = *this;
    changed.clear_received();
    if (changed.append(array, refusal) != 0)
        return -1;
    *this = std::move(changed);
    return 0;
}

json_ref cdma_messages::dump() const
{
    json_ref array(json_array());
    for (const entry &one : received_) {
        json_ref row = state_dump(one.message, std::span<const field>(message_table));
        const bool as_text = one.message.text_hex.empty();
        const std::string &text = as_text ? one.message.text : one.message.text_hex;
        json_object_set_new(row.get(), as_text ? "text" : "text_hex", state_json(text));
        json_array_append_new(array.get(), row.release());
    }
    return array;
}

void cdma_messages::clear_received()
{
    received_.clear();
    next_ = 0;
    next_id_ = 1;
}

// ---- what the modem does

swi_reply cdma_messages::count(swi_sms_status &status)
{
    rewind();
    for (const entry &one : received_)
        (one.message.read ? status.stored : status.pending)++;
    return {};
}

swi_reply cdma_messages::read_next(const swi_sms_read_request &request, swi_sms_message &message)
{
    if (next_ >= received_.size())
        return swi_refuse("No message");
    entry &one = received_[next_++];
    const size_t size = one.message.text_bytes >= 0 ? static_cast<size_t>(one.message.text_bytes)
                                                    : one.bytes.size();
    message.more = next_ < received_.size();
    message.text_bytes = static_cast<uint16_t>(size);
    message.id = static_cast<uint32_t>(one.message.id);
    message.status = static_cast<uint8_t>(one.message.status);
    if (one.bytes.size() > std::min<size_t>(request.buffer_bytes, sizeof(message.text)))
        return {swi_status_ok, small_buffer, {}};
    one.message.read = true;
    message.encoding = static_cast<uint8_t>(one.message.encoding);
    message.format = static_cast<uint8_t>(one.message.format);
    (void)swi_set_text(message.sender, one.message.sender.substr(0, sizeof(message.sender) - 1));
    memcpy(message.text, one.bytes.data(), one.bytes.size());
    return {};
}

swi_reply cdma_messages::store(const swi_sms_submit &message)
{
    const std::string_view destination = message.destination;
    drop_stored();
    if (destination.empty() || destination.find_first_not_of("0123456789*#+") != destination.npos)
        return swi_refuse("No number to send to");
    if (destination.size() != message.destination_length)
        return swi_refuse("The number's length is wrong");
    if (message.text_bytes > sizeof(message.text))
        return swi_refuse("The text is too long");
    stored_ = message;
    return {};
}

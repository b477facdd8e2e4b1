#include "backends/serial/pantech_wire.h"

#include "backends/serial/wmc.h"
#include "platform/text.h"
#include "publish/output.h"

#include <algorithm>
#include <cstdlib>

using enum reply_field_kind;

// ---- replies

// clang-format off
constexpr reply_field info_fields[] = {
    {29,  63, text,    "manufacturer", true},
    {93,  63, text,    "model",        true},
    {157, 63, text,    "firmware",     false},
    {221, 63, text,    "hardware",     false},
    {413, 21, text,    "min",          false},
    {533, 21, text,    "imei",         false},
    {571, 21, text,    "iccid",        false},
    {513, 19, text,    "meid",         false},
    {435, 1,  byte,    "home-sid",     false},
    {529, 1,  byte,    "prefmode",     false}, // within the MEID's field, behind its digits
    {597, 16, decimal, "sim-mcc",      false},
    {613, 16, decimal, "sim-mnc",      false},
};

constexpr reply_field eps_fields[] = {
    {10,  266, text,   "apn",          true},
};

constexpr reply_field ip_config_fields[] = {
    {26,  15, text,    "ipv4",         false},
    {50,  39, text,    "ipv6",         false},
};

constexpr reply_field operator_field = {75, 68, text, "operator-name", true};
// clang-format on

const std::span<const reply_field> pantech_info_fields = info_fields;
const std::span<const reply_field> pantech_eps_fields = eps_fields;
const std::span<const reply_field> pantech_ip_config_fields = ip_config_fields;

// The signal's magnitude in -dBm. Which of the two a modem fills depends on its service.
constexpr size_t signal_offset = 143;
constexpr size_t signal_other_offset = 26;

constexpr size_t message_number_offset = 1041;
constexpr size_t message_number_width = 17;
constexpr size_t message_identifier_offset = 1113;
constexpr size_t message_identifier_width = 11;
constexpr size_t message_length_offset = 1165;
constexpr size_t message_text_offset = 1169;

static uint8_t byte_at(wmc_bytes reply, size_t offset)
{
    return offset < reply.size() ? reply[offset] : 0;
}

// A UTF-8 text without a last character of which only the beginning is there; any other as it is.
static std::string_view without_divided_end(std::string_view bytes)
{
    size_t whole = bytes.size();
    while (whole > 0 && (static_cast<uint8_t>(bytes[whole - 1]) & 0xC0) == 0x80)
        whole--;
    if (whole == 0)
        return bytes;
    const auto lead = static_cast<uint8_t>(bytes[--whole]);
    const size_t needed = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    const bool divided = lead >= 0xC2 && lead <= 0xF4 && bytes.size() - whole < needed;
    return divided && text_is_utf8(bytes.substr(0, whole)) ? bytes.substr(0, whole) : bytes;
}

static std::string text_at(wmc_bytes reply, size_t offset, size_t width)
{
    const wmc_bytes rest = reply.subspan(std::min(offset, reply.size()));
    const wmc_bytes field = rest.first(std::min(width, rest.size()));
    const std::string bytes(field.begin(), std::find(field.begin(), field.end(), 0));
    // A full field may have cut its text anywhere.
    return text_from_bytes(bytes.size() == width ? without_divided_end(bytes)
                                                 : std::string_view(bytes));
}

static int64_t decimal_at(wmc_bytes reply, size_t offset, size_t width)
{
    const long value = std::strtol(text_at(reply, offset, width).c_str(), nullptr, 10);
    return value > 0 && value < INT32_MAX ? value : 0;
}

void pantech_write_fields(FILE *out, int mode, wmc_bytes reply, std::span<const reply_field> fields)
{
    for (const auto &[offset, width, kind, key, push] : fields) {
        switch (kind) {
        case text:
            output_text(out, key, text_at(reply, offset, width).c_str(), mode, push);
            break;
        case byte:
            output_longlong(out, key, byte_at(reply, offset), mode, push);
            break;
        case decimal:
            output_longlong(out, key, decimal_at(reply, offset, width), mode, push);
            break;
        }
    }
}

void pantech_write_service(FILE *out, int mode, wmc_bytes reply)
{
    const uint8_t signal = byte_at(reply, signal_offset) != 0 ? byte_at(reply, signal_offset)
                                                              : byte_at(reply, signal_other_offset);
    if (signal != 0)
        output_longlong(out, "rssi", -signal, mode, true);
    else
        output_text(out, "rssi", "No Service", mode, true);
    pantech_write_fields(out, mode, reply, {&operator_field, 1});
    const bool lte = reply.size() == pantech_status_lte_bytes;
    output_text(out, "technology", lte ? "4G LTE" : "3G CDMA/HDR", mode, true);
}

std::string pantech_model(wmc_bytes reply)
{
    constexpr const reply_field &model = info_fields[1];
    return text_at(reply, model.offset, model.width);
}

static bool is_closed(wmc_bytes reply)
{
    return reply.size() >= wmc_reply_bytes_min &&
           std::equal(wmc_reply_end.rbegin(), wmc_reply_end.rend(), reply.rbegin());
}

static std::string hexadecimal(wmc_bytes bytes)
{
    std::string text;
    for (const uint8_t value : bytes) {
        char digits[4];
        snprintf(digits, sizeof(digits), text.empty() ? "%02x" : " %02x", value);
        text += digits;
    }
    return text;
}

int pantech_read_message(wmc_bytes reply, pantech_message &message)
{
    const bool closed = is_closed(reply);
    if (closed)
        reply = reply.first(reply.size() - wmc_reply_end.size());
    message = {};
    message.number = text_at(reply, message_number_offset, message_number_width);
    message.text_bytes = byte_at(reply, message_length_offset);
    const size_t end = message_text_offset + std::min<size_t>(message.text_bytes, pantech_text_max);
    if (reply.size() < end)
        return message.number.empty() && closed ? 0 : -1;
    message.text = text_at(reply, message_text_offset, pantech_text_max);
    message.identifier =
        hexadecimal(reply.subspan(message_identifier_offset, message_identifier_width));
    return 0;
}

// ---- the frame of a message to be sent

// Offsets in the frame as it is sent, escapes included.
constexpr size_t frame_number_offset = 24;
constexpr size_t frame_mark_offset = 203;
constexpr size_t frame_smsc_offset = 210;
constexpr size_t frame_length_offset = 252;
constexpr size_t frame_text_offset = 259;
constexpr std::string_view frame_head = "AT*WMC=\xC8\x56\x86\x7D\x22";
constexpr std::string_view frame_end = "00\r";

// Fills with escaped zero bytes; the last one may be cut.
static void fill_zeros(std::span<char> bytes)
{
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = i % 2 == 0 ? 0x7D : 0x20;
}

static void put(std::span<char> frame, size_t offset, std::string_view bytes)
{
    std::copy(bytes.begin(), bytes.end(), frame.subspan(offset).begin());
}

pantech_message_frame pantech_make_message(std::string_view number, std::string_view smsc,
                                           std::string_view text_bytes)
{
    number = number.substr(0, pantech_number_max);
    smsc = smsc.substr(0, pantech_smsc_max);
    text_bytes = text_bytes.substr(0, pantech_text_max);

    pantech_message_frame bytes{};
    const std::span<char> frame = bytes;
    fill_zeros(frame.first(frame_smsc_offset));
    put(frame, 0, frame_head);
    put(frame, frame_number_offset, number);
    frame[frame_mark_offset] = 0x24;
    put(frame, frame_smsc_offset, smsc);
    const size_t smsc_end = frame_smsc_offset + smsc.size();
    fill_zeros(frame.subspan(smsc_end, frame_text_offset - smsc_end));
    frame[frame_length_offset] = static_cast<char>(text_bytes.size() ^ 0x20);
    put(frame, frame_text_offset, text_bytes);
    // A character of the text takes one byte where the zero it stands for takes two: the frame is
    // shorter by as many, and zero bytes that the modem does not look at follow it.
    const size_t text_end = frame_text_offset + text_bytes.size();
    const size_t filled_end = frame.size() - text_bytes.size();
    fill_zeros(frame.subspan(text_end, filled_end - text_end));
    put(frame, filled_end - frame_end.size(), frame_end);
    return bytes;
}

constexpr uint8_t message_sent[] = {wmc_start, wmc_send_sms, 0, 0, 0, 0, 0x30, 0x30, 0x7E};
const std::span<const uint8_t> pantech_message_sent = message_sent;

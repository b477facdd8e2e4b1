// The bytes of Pantech modems: where the fields of each reply lie and how a message is put into the
// frame that sends it. Everything works on memory only. A reply may have any length: a field beyond
// its end reads as empty or 0.
//
// Texts in replies end at their first zero byte or with their field. Nothing states their encoding;
// they are UTF-8 from here on. A character that the end of a full field divides is left out.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>

using wmc_bytes = std::span<const uint8_t>;

constexpr size_t pantech_info_bytes = 644;
constexpr size_t pantech_status_lte_bytes = 154;
constexpr size_t pantech_status_cdma_bytes = 153; // the length alone tells the service
constexpr size_t pantech_ip_config_bytes = 93;

enum class reply_field_kind {
    text,
    byte,    // an unsigned number
    decimal, // a number as text; what is no number from 0 up, or fills 32 bits, counts as 0
};

struct reply_field {
    size_t offset;
    size_t width;
    reply_field_kind kind;
    const char *key; // in the records
    bool push;       // to infod
};

// The fields of each reply in the order in which the records show them.
extern const std::span<const reply_field> pantech_info_fields;
extern const std::span<const reply_field> pantech_eps_fields;
extern const std::span<const reply_field> pantech_ip_config_fields;

// Writes the fields of a reply into the record that is open.
void pantech_write_fields(FILE *out, int mode, wmc_bytes reply,
                          std::span<const reply_field> fields);

// Writes what a status reply says of signal, operator and service.
void pantech_write_service(FILE *out, int mode, wmc_bytes reply);

// The model of an info reply.
[[nodiscard]] std::string pantech_model(wmc_bytes reply);

// The newest message that the modem keeps.
struct pantech_message {
    std::string identifier; // 11 bytes in hexadecimal, separated by blanks
    std::string number;     // empty: there is no message
    std::string text;
    uint8_t text_bytes = 0; // as the modem counts them
};

// Takes the message out of a reply. 0, also when there is none; -1 when the reply ends before its
// text does. Only a short reply that is closed like a whole one says that there is no message.
[[nodiscard]] int pantech_read_message(wmc_bytes reply, pantech_message &message);

constexpr size_t pantech_number_max = 18; // bytes of each that the frame has room for
constexpr size_t pantech_smsc_max = 15;
constexpr size_t pantech_text_max = 160;
constexpr size_t pantech_message_frame_bytes = 1282;

// The frame carries the length of the text XOR 0x20, and that of so many bytes would be a carriage
// return.
constexpr size_t pantech_text_unsendable = '\r' ^ 0x20;

using pantech_message_frame = std::array<char, pantech_message_frame_bytes>;

// The frame that sends a text to a number through a service centre. What exceeds its field is cut.
// Nothing is escaped: none of the three may hold a carriage return, which ends the frame, or '}',
// which escapes what follows it, and the text must not have pantech_text_unsendable bytes.
[[nodiscard]] pantech_message_frame
pantech_make_message(std::string_view number, std::string_view smsc, std::string_view text);

// What the modem replies to a frame that it has sent.
extern const std::span<const uint8_t> pantech_message_sent;

// Short messages of a CDMA modem: received ones are listed and put into the spool, one from a file
// is sent.

#include "backends/sierra/cdma_family.h"
#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/text.h"
#include "publish/output.h"
#include "sms/charset.h"
#include "sms/spool.h"
#include "swi/calls.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>
#include <utility>

constexpr unsigned accepted_statuses = 1u << 0 | 1u << 1 | 1u << 5 | 1u << 7;
constexpr uint8_t encoding_ascii = 2;
constexpr uint8_t encoding_ia5 = 3;
constexpr uint8_t encoding_utf16 = 4;
constexpr uint8_t encoding_utf16_too = 8;
constexpr uint8_t format_utf16 = 6;
constexpr size_t element_max = 5;
constexpr size_t number_max = 17;
constexpr uint32_t references = 50;
constexpr uint64_t announced_max = 1000; // more messages than any of these modems stores
constexpr uint64_t arrivals_max = 32;    // that come while a list is read
constexpr unsigned unanswered_max = 2;   // each holds everybody up for a minute

// ---- texts

static bool is_utf16(const swi_sms_message &message)
{
    return message.encoding == encoding_utf16 || message.encoding == encoding_utf16_too ||
           message.format == format_utf16;
}

// The modem has the high byte first, but leaves the units of plain Latin text, whose bytes it has in
// the other order already. A pair with zero behind is such a unit.
static void swap_pairs(std::span<uint8_t> text)
{
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        if (text[i + 1] != 0)
            std::swap(text[i], text[i + 1]);
}

// The text of 16-bit units with the low byte first, up to the first that is 0.
static std::string utf16_text(std::span<const uint8_t> bytes)
{
    std::vector<uint8_t> octets;
    for (size_t i = 0; i + 1 < bytes.size() && (bytes[i] | bytes[i + 1]) != 0; i += 2) {
        octets.push_back(bytes[i + 1]);
        octets.push_back(bytes[i]);
    }
    return charset_decode(sms_encoding_utf16, octets).value_or("");
}

static std::string message_text(swi_sms_message &message)
{
    const std::span<uint8_t> bytes = std::span(message.text).first(message.text_bytes);
    if (is_utf16(message)) {
        swap_pairs(bytes);
        return utf16_text(bytes);
    }
    const auto *chars = reinterpret_cast<const char *>(bytes.data());
    const std::string_view text(chars, strnlen(chars, bytes.size()));
    // Seven bits fit into Latin-1; what says nothing of the kind may be UTF-8 as well.
    if (message.encoding == encoding_ascii || message.encoding == encoding_ia5)
        return text_from_latin1(text);
    return text_from_bytes(text);
}

// ---- received messages

static void write_message(FILE *out, int mode, const std::string &element, uint32_t id,
                          const std::string &sender, const std::string &text)
{
    if (mode == output_xml)
        fprintf(out, "<%s>\n", element.c_str());
    output_longlong(out, (element + "-id").c_str(), id, mode, false);
    output_text(out, (element + "-phone").c_str(), sender.c_str(), mode, false);
    output_text(out, (element + "-text").c_str(), text.c_str(), mode, false);
    if (mode == output_xml)
        fprintf(out, "</%s>\n", element.c_str());
}

static void take_message(FILE *out, int mode, unsigned number, swi_sms_message &message)
{
    if (message.status > 7 || (accepted_statuses >> message.status & 1) == 0)
        return;
    // Readers know five characters of a name: from the hundredth message on they come again.
    const std::string element = ("sms" + std::to_string(number)).substr(0, element_max);
    const std::string sender = text_from_bytes(message.sender);
    const std::string text = message_text(message);
    write_message(out, mode, element, message.id, sender, text);
    if (cellmodem_sms_writefile(sender, text) != 1)
        log_message(log_error, "Failed to write sms");
}

// Reads the next message: a swi_result, logged unless it is swi_ok. `more` becomes what the modem says
// of further ones, where it says so.
static int read_next(swi_sms_message &message, bool &more)
{
    message = {};
    message.more = more;
    const int result = swi_read_sms({}, message, sierra_timeout_ms);
    more = message.more != 0;
    if (result == swi_small_buffer ||
        (result == swi_ok && message.text_bytes > sizeof(message.text))) {
        log_message(log_error, "Message size exceeds buffer limit: %d bytes", message.text_bytes);
        return swi_small_buffer;
    }
    if (result != swi_ok)
        log_message(log_error, "Error reading messages from modem: %d", result);
    return result;
}

// Lists messages as long as the modem has more. Errors end nothing: there may be a good message
// behind each. But a modem that knows nothing else is left when each of those it announced was tried,
// and one that has fallen silent sooner.
static void list_messages(FILE *out, int mode, uint64_t announced)
{
    bool more = announced > 0;
    uint64_t errors_left = std::min(announced, announced_max);
    const uint64_t reads_max = errors_left + arrivals_max;
    unsigned unanswered = 0;
    swi_sms_message message;
    for (unsigned number = 1; more && !clock_stopped(); number++) {
        if (errors_left == 0 || number > reads_max || unanswered == unanswered_max) {
            log_message(log_error, "Giving up on the modem's messages after %u of them",
                        number - 1);
            return;
        }
        const int result = read_next(message, more);
        if (result == swi_ok)
            take_message(out, mode, number, message);
        else
            errors_left--;
        if (result == swi_no_response || result == swi_modem_timeout)
            unanswered++;
    }
}

int sierra_cdma_getsms(cellmodem &, FILE *out, int mode)
{
    log_message(log_debug, "sierra_cdma_getsms()");
    swi_sms_status status;
    const int result = swi_get_sms_status(status, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_fatal, "Failed to get message status: error %d", result);
        return -1;
    }
    if (mode != output_xml)
        mode = output_lines;
    const uint64_t announced = uint64_t{status.stored} + status.pending;
    if (mode == output_xml)
        fputs("<sms-list>\n", out);
    output_longlong(out, "sms-count", static_cast<int64_t>(announced), mode, false);
    list_messages(out, mode, announced);
    if (mode == output_xml)
        fputs("</sms-list>\n", out);
    return 0;
}

// ---- messages to be sent

// The modem takes the text as it is in the file.
static int read_message(const char *path, swi_sms_submit &message)
{
    std::string number, text;
    if (cellmodem_sms_readfile(path, number, number_max, text, sizeof(message.text) + 1) != 1 ||
        swi_set_text(message.destination, number) != 0)
        return -1;
    message.destination_length = static_cast<uint8_t>(number.size());
    message.text_bytes = static_cast<uint16_t>(text.size());
    memcpy(message.text, text.data(), text.size());
    return 0;
}

int sierra_cdma_sendsms(cellmodem &, const char *path, const char *)
{
    swi_sms_submit message;
    if (read_message(path, message) != 0)
        return -1;
    swi_text own;
    if (cdma_phone_number(own) == swi_ok)
        (void)swi_set_text(message.own_number,
                           std::string_view(own.text).substr(0, sizeof(message.own_number) - 1));
    message.reference = std::exchange(cdma.sms_reference, (cdma.sms_reference + 1) % references);
    int result = swi_store_sms(message, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_fatal, "Error storing message to modem - error %d", result);
        return -1;
    }
    result = swi_send_sms(sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_fatal, "Could not send sms - error %d", result);
        return -1;
    }
    return 0;
}

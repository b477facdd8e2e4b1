#include "backends/gobi/operations.h"
#include "cellmodem/cellmodem.h"
#include "platform/log.h"
#include "platform/text.h"
#include "publish/output.h"
#include "qmi/errors.h"
#include "qmi/messages.h"
#include "sms/address_3gpp.h"
#include "sms/address_cdma.h"
#include "sms/parts.h"
#include "sms/split.h"
#include "sms/spool.h"

#include <algorithm>
#include <ctime>

using code_value = unsigned long;

constexpr size_t number_bytes_max = 18;
// More than 255 parts can carry in any alphabet, so that a text that is cut here is refused later.
constexpr size_t text_bytes_max = 2 * sms_parts_max * sms_user_data_septets_max;
// So many requests in a row without an answer, and the rest is left for another time.
constexpr int silences_max = 3;

struct storage_row {
    uint8_t storage;
    const char *name;
};

constexpr storage_row storage_rows[] = {{qmi_storage_uim, "UIM"}, {qmi_storage_nv, "NV"}};

// A message as it lies in the modem.
struct stored_message {
    const storage_row *storage;
    uint32_t index;
    uint8_t format;
    std::vector<uint8_t> pdu;
};

// A message as it goes out: a whole one, or a part that stands alone.
struct received_message {
    std::string sender;
    std::string timestamp;
    std::string text;
    std::vector<size_t> members; // which of the stored messages it was
};

// Messages that are in the spool already, but that the modem did not delete.
static std::vector<stored_message> undeleted;

static uint8_t message_mode()
{
    return gobi_is_cdma() ? qmi_sms_cdma : qmi_sms_gsm;
}

static bool went_silent(uint32_t code, int &silences)
{
    silences = code == qmi_not_sent ? silences + 1 : 0;
    return silences == silences_max;
}

// ---- reading

static void read_storage(const storage_row &storage, const std::vector<qmi_listed_sms> &listed,
                         std::vector<stored_message> &messages)
{
    int silences = 0;
    for (const qmi_listed_sms &entry : listed) {
        if (entry.tag != qmi_tag_read && entry.tag != qmi_tag_unread)
            continue; // of the user's own writing
        log_message(log_debug, "Attempting to get %s SMS %lu", storage.name,
                    code_value{entry.index});
        qmi_stored_sms message;
        const uint32_t code = qmi_wms_read(
            gobi_handle(),
            {.storage = storage.storage, .index = entry.index, .mode = message_mode()}, message);
        if (code == qmi_ok)
            messages.push_back(
                {&storage, entry.index, message.format, std::move(message.pdu.items)});
        else
            log_message(log_warning, "WMS Raw Read Failed for %s SMS: %lu", storage.name,
                        code_value{code});
        if (went_silent(code, silences))
            return;
    }
}

// Reads both storages. One that cannot be listed does not hide the other: 0, or the code of the
// first one when neither could be.
static uint32_t read_stored(std::vector<stored_message> &messages)
{
    uint32_t first_code = qmi_ok;
    bool any = false;
    for (const storage_row &storage : storage_rows) {
        std::vector<qmi_listed_sms> listed;
        const uint32_t code = qmi_wms_list(
            gobi_handle(), {.storage = storage.storage, .mode = message_mode()}, listed);
        if (code == qmi_ok) {
            any = true;
            read_storage(storage, listed, messages);
            continue;
        }
        log_message(log_debug, "Failed to list %s messages: %lu", storage.name, code_value{code});
        if (code == qmi_modem_error + qmi_error_malformed)
            log_message(log_warning, "Ensure the correct SIM is selected");
        first_code = first_code == qmi_ok ? code : first_code;
    }
    return any ? uint32_t{qmi_ok} : first_code;
}

// ---- deleting

static bool same_place(const stored_message &a, const stored_message &b)
{
    return a.storage == b.storage && a.index == b.index;
}

static void forget(const stored_message &message)
{
    std::erase_if(undeleted, [&](const auto &each) { return same_place(each, message); });
}

static void remember(const stored_message &message)
{
    forget(message);
    undeleted.push_back(message);
}

static uint32_t delete_stored(const stored_message &message)
{
    const uint32_t code = qmi_wms_delete(
        gobi_handle(),
        {.storage = message.storage->storage, .index = message.index, .mode = message_mode()});
    if (code == qmi_ok) {
        forget(message);
        return code;
    }
    log_message(log_warning, "WMS Delete %s SMS failed: %lu", message.storage->name,
                code_value{code});
    remember(message);
    return code;
}

// Takes out what is in the spool already, and tries once more to have it deleted.
static void drop_spooled(std::vector<stored_message> &messages)
{
    int silences = 0;
    std::erase_if(messages, [&](const stored_message &message) {
        const bool spooled =
            std::any_of(undeleted.begin(), undeleted.end(), [&](const stored_message &each) {
                return same_place(each, message) && each.pdu == message.pdu;
            });
        if (spooled && silences < silences_max)
            (void)went_silent(delete_stored(message), silences);
        return spooled;
    });
}

// ---- decoding

static std::string hexadecimal(std::span<const uint8_t> octets)
{
    constexpr const char *digits = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t octet : octets) {
        text += digits[octet >> 4];
        text += digits[octet & 0x0F];
    }
    return text;
}

static const char *number_type_name(sms_number_type type)
{
    switch (type) {
    case sms_number_international:
        return "International";
    case sms_number_national:
        return "National";
    case sms_number_unknown:
    case sms_number_alphanumeric:
        break;
    }
    return "Unknown";
}

static int decode_3gpp(const stored_message &stored, sms_part &part)
{
    pdu_3gpp message;
    if (pdu_3gpp_decode(stored.pdu, message) != 0)
        return -1;
    log_message(log_debug, "SMS from %s, type of number: %s", message.number.number.c_str(),
                number_type_name(message.number.type));
    part.sender = message.number;
    part.sent = message.sent;
    part.body = std::move(message.body);
    return message.kind == pdu_3gpp_status_report ? -1 : 0;
}

static int decode_cdma(const stored_message &stored, sms_part &part)
{
    pdu_cdma message;
    if (pdu_cdma_decode(stored.pdu, message) != 0)
        return -1;
    part.sender = message.number;
    part.sent = message.sent;
    part.body = std::move(message.body);
    return 0;
}

// The number of a message that cannot be decoded as a whole.
static void find_sender_3gpp(std::span<const uint8_t> pdu, sms_address &sender)
{
    constexpr uint8_t type_bits = 0x03; // 0: a delivered message, whose next field is its sender
    octet_reader reader{pdu};
    std::optional<sms_address> smsc;
    uint8_t first = 0;
    sms_address found;
    if (address_3gpp_read_smsc(reader, smsc) == 0 && reader.octet(first) &&
        (first & type_bits) == 0 && address_3gpp_read(reader, found) == 0)
        sender = found;
}

static void find_sender_cdma(std::span<const uint8_t> pdu, sms_address &sender)
{
    constexpr uint8_t originator_id = 0x02;
    octet_reader reader{pdu};
    uint8_t id = 0;
    uint8_t length = 0;
    std::span<const uint8_t> value;
    sms_address found;
    if (!reader.octet(id)) // the transport type
        return;
    while (reader.octet(id) && reader.octet(length) && reader.take(length, value))
        if (id == originator_id && address_cdma_read(value, address_cdma_transport, found) == 0)
            sender = found;
}

struct format_row {
    uint8_t format;
    int (*decode)(const stored_message &, sms_part &);
    void (*find_sender)(std::span<const uint8_t>, sms_address &);
};

constexpr format_row format_rows[] = {
    {qmi_format_gsm, decode_3gpp, find_sender_3gpp},
    {qmi_format_cdma, decode_cdma, find_sender_cdma},
};

// Decodes one message; one that is no text, or cannot be decoded, becomes its octets.
static void decode(const stored_message &stored, sms_part &part)
{
    const auto *row = std::find_if(std::begin(format_rows), std::end(format_rows),
                                   [&](const auto &each) { return each.format == stored.format; });
    const bool known = row != std::end(format_rows);
    if (known && row->decode(stored, part) == 0)
        return;
    log_message(log_warning, "%s SMS %lu is kept as its octets: it is no text that can be decoded",
                stored.storage->name, code_value{stored.index});
    if (known && part.sender.number.empty())
        row->find_sender(stored.pdu, part.sender);
    part.body = {};
    part.body.encoding = sms_encoding_octets;
    part.body.data = stored.pdu;
}

static std::string timestamp_text(const std::optional<sms_time> &sent)
{
    if (!sent)
        return "";
    char text[80];
    const int length =
        snprintf(text, sizeof(text), "%02d/%02d/%02d %02d:%02d:%02d UTC", sent->year % 100,
                 sent->month, sent->day, sent->hour, sent->minute, sent->second);
    const int zone = sent->zone_minutes.value_or(0);
    if (zone != 0)
        snprintf(text + length, sizeof(text) - static_cast<size_t>(length), "%c%02d:%02d",
                 zone < 0 ? '-' : '+', abs(zone) / 60, abs(zone) % 60);
    return text;
}

static std::string body_text(const sms_body &body)
{
    return body.text || body.encoding == sms_encoding_none ? body.text.value_or("")
                                                           : hexadecimal(body.data);
}

// The messages to hand on. Parts whose others are still missing are left out.
static std::vector<received_message> receive(const std::vector<stored_message> &stored)
{
    std::vector<sms_part> parts;
    for (size_t i = 0; i < stored.size(); i++) {
        sms_part &part = parts.emplace_back();
        part.id = i;
        decode(stored[i], part);
    }
    std::vector<received_message> messages;
    for (sms_joined &joined : sms_join(parts, time(nullptr))) {
        if (joined.state == sms_joined_waiting)
            log_message(log_debug, "SMS from %s waits for %zu more parts",
                        joined.sender.number.c_str(), joined.missing.size());
        else
            messages.push_back({joined.sender.number, timestamp_text(joined.sent),
                                body_text(joined.body), std::move(joined.members)});
    }
    return messages;
}

// ---- the two operations

static void write_message(FILE *out, int mode, int number, const received_message &message)
{
    if (mode == output_xml)
        fprintf(out, "<sms%d>\n", number);
    output_text(out, "sms-phone", message.sender.c_str(), mode, false);
    output_text(out, "sms-timestamp", message.timestamp.c_str(), mode, false);
    output_text(out, "sms-text", message.text.c_str(), mode, false);
    if (mode == output_xml)
        fprintf(out, "</sms%d>\n", number);
}

// A message leaves the modem only when it is in the spool.
static void hand_on(const received_message &message, const std::vector<stored_message> &stored,
                    int &silences)
{
    if (cellmodem_sms_writefile(message.sender, message.text) != 1) {
        log_message(log_error, "Failed to write message");
        return;
    }
    for (const size_t member : message.members) {
        if (silences == silences_max)
            remember(stored[member]);
        else
            (void)went_silent(delete_stored(stored[member]), silences);
    }
}

int gobi_getsms(cellmodem &modem, FILE *out, int mode)
{
    if (!modem.attached || gobi_handle() == 0) {
        log_message(log_warning, "Can not retrieve SMS while detached");
        return -1;
    }
    std::vector<stored_message> stored;
    const uint32_t code = read_stored(stored);
    if (code != qmi_ok) {
        log_message(log_debug, "Failed to read messages: %lu", code_value{code});
        return -1;
    }
    drop_spooled(stored);
    const std::vector<received_message> messages = receive(stored);
    if (mode == output_xml)
        fputs("<sms-list>\n", out);
    output_longlong(out, "sms-count", static_cast<int64_t>(messages.size()), mode, false);
    int silences = 0;
    int number = 0;
    for (const received_message &message : messages) {
        write_message(out, mode, ++number, message);
        hand_on(message, stored, silences);
    }
    if (mode == output_xml)
        fputs("</sms-list>\n", out);
    return 0;
}

// The PDUs of a text, in parts when it is long. 0, or -1 when it cannot be coded.
static int encode(bool cdma, const std::string &number, const char *smsc, const std::string &text,
                  std::vector<std::vector<uint8_t>> &pdus)
{
    // Receivers tell messages apart by these numbers, also those from before a restart.
    static auto last_reference = static_cast<uint16_t>(time(nullptr));
    const uint16_t reference = ++last_reference;
    const sms_split_reference narrow{static_cast<uint16_t>(reference & 0xFF), false};
    if (cdma) {
        pdu_cdma form;
        form.number = sms_address_from_text(number);
        form.message_id = reference;
        return sms_encode_cdma(form, text, narrow, pdus);
    }
    pdu_3gpp form;
    form.number = sms_address_from_text(number);
    if (smsc && *smsc)
        form.smsc = sms_address_from_text(smsc);
    return sms_encode_3gpp(form, text, narrow, pdus);
}

static void log_send_failure(uint32_t code)
{
    const uint32_t error = code >= qmi_modem_error ? code - qmi_modem_error : 0;
    log_message(log_error, "SMS Send failed - rv %lu - errorcode %lu", code_value{code},
                code_value{error});
}

int gobi_sendsms(cellmodem &modem, const char *path, const char *smsc)
{
    if (!modem.attached || gobi_handle() == 0) {
        log_message(log_warning, "Can not send SMS while detached");
        return -1;
    }
    std::string number, text;
    if (cellmodem_sms_readfile(path, number, number_bytes_max, text, text_bytes_max + 1) != 1) {
        log_message(log_error, "Failed to read SMS file: %s", path);
        return -1;
    }
    const bool cdma = gobi_is_cdma();
    log_message(log_debug, "Sending raw %s sms", cdma ? "3GPP2" : "3GPP");
    std::vector<std::vector<uint8_t>> pdus;
    if (encode(cdma, number, smsc, text_from_bytes(text), pdus) != 0) {
        log_send_failure(qmi_bad_argument);
        return -1;
    }
    const uint8_t format = cdma ? qmi_format_cdma : qmi_format_gsm;
    for (std::vector<uint8_t> &pdu : pdus) {
        const uint32_t code =
            qmi_wms_send(gobi_handle(), {.format = format, .pdu = {std::move(pdu)}});
        if (code != qmi_ok) {
            log_send_failure(code);
            return -1;
        }
    }
    return 0;
}

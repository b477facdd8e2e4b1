#include "sms/pdu_cdma.h"

#include "sms/address_cdma.h"
#include "sms/bits.h"
#include "sms/user_data_cdma.h"

#include <algorithm>
#include <array>

enum parameter_id : uint8_t {
    parameter_teleservice = 0,
    parameter_service_category = 1,
    parameter_originating_address = 2,
    parameter_destination_address = 4,
    parameter_bearer_reply = 6,
    parameter_cause = 7,
    parameter_bearer_data = 8,
};

enum subparameter_id : uint8_t {
    subparameter_message_id = 0x00,
    subparameter_user_data = 0x01,
    subparameter_sent = 0x03,
    subparameter_validity_time = 0x04,
    subparameter_deferred_time = 0x06,
    subparameter_callback = 0x0E,
    subparameter_multiple_user_data = 0x10,
    subparameter_deposit_index = 0x11,
};

// Subparameters of one octet, the value in its high bits.
struct value_row {
    uint8_t id;
    unsigned bits;
    bool bcd;
    std::optional<uint8_t> pdu_cdma::*value;
};

constexpr value_row values[] = {
    {0x02, 8, false, &pdu_cdma::user_response_code},
    {0x05, 8, false, &pdu_cdma::validity_relative},
    {0x07, 8, false, &pdu_cdma::deferred_relative},
    {0x08, 2, false, &pdu_cdma::priority},
    {0x09, 2, false, &pdu_cdma::privacy},
    {0x0A, 4, false, &pdu_cdma::reply_option},
    {0x0B, 8, true, &pdu_cdma::number_of_messages},
    {0x0C, 2, false, &pdu_cdma::alert},
    {0x0D, 8, false, &pdu_cdma::language},
    {0x0F, 2, false, &pdu_cdma::display_mode},
    {0x14, 8, false, &pdu_cdma::message_status},
    {0x15, 8, false, &pdu_cdma::failure_cause},
};

struct time_row {
    uint8_t id;
    std::optional<sms_time> pdu_cdma::*time;
};

constexpr time_row times[] = {
    {subparameter_sent, &pdu_cdma::sent},
    {subparameter_validity_time, &pdu_cdma::validity_time},
    {subparameter_deferred_time, &pdu_cdma::deferred_time},
};

constexpr size_t ids_end = 0x16; // behind every id that is read here

// Contents by id; nothing where there is none, the last one where there are several.
using contents = std::array<std::optional<std::span<const uint8_t>>, ids_end>;

static int read_contents(std::span<const uint8_t> octets, contents &found)
{
    octet_reader reader{octets};
    while (!reader.rest.empty()) {
        uint8_t id, size;
        std::span<const uint8_t> data;
        if (!reader.octet(id) || !reader.octet(size) || !reader.take(size, data))
            return -1;
        if (id < found.size())
            found[id] = data;
    }
    return 0;
}

static int read_message_id(std::span<const uint8_t> octets, pdu_cdma &message, bool &has_header)
{
    bit_reader reader{octets};
    uint8_t type;
    if (!reader.field(4, type) || !reader.field(16, message.message_id) ||
        !reader.field(1, has_header))
        return -1;
    message.bearer_message_type = type;
    return 0;
}

static int read_user_data(const contents &found, bool has_header, pdu_cdma &message)
{
    if (found[subparameter_user_data])
        return user_data_cdma_read(*found[subparameter_user_data], has_header, message.body);
    if (found[subparameter_multiple_user_data])
        return user_data_cdma_read_multiple(*found[subparameter_multiple_user_data], message.body);
    return 0;
}

// What describes the message must not cost its text: a subparameter that is too short, or a number
// or a time that is none, is as if it were not there.
static void read_descriptions(const contents &found, pdu_cdma &message)
{
    for (const value_row &row : values) {
        if (!found[row.id] || found[row.id]->empty())
            continue;
        const uint8_t octet = found[row.id]->front();
        message.*row.value =
            row.bcd ? bcd_value(octet) : std::optional<uint8_t>(octet >> (8 - row.bits));
    }
    for (const time_row &row : times) {
        if (found[row.id] && found[row.id]->size() >= time_cdma_octets)
            message.*row.time = time_cdma_read(*found[row.id]);
    }
    const auto &index = found[subparameter_deposit_index];
    if (index && index->size() >= 2)
        message.deposit_index = static_cast<uint16_t>((*index)[0] << 8 | (*index)[1]);
    const auto &callback = found[subparameter_callback];
    sms_address number;
    if (callback && address_cdma_read(*callback, address_cdma_callback, number) == 0)
        message.callback = number;
}

static int read_bearer_data(std::span<const uint8_t> octets, pdu_cdma &message)
{
    contents found;
    bool has_header = false;
    if (read_contents(octets, found) != 0 || !found[subparameter_message_id] ||
        read_message_id(*found[subparameter_message_id], message, has_header) != 0 ||
        read_user_data(found, has_header, message) != 0)
        return -1;
    read_descriptions(found, message);
    return 0;
}

static int read_number16(const contents &found, uint8_t id, std::optional<uint16_t> &number)
{
    if (!found[id])
        return 0;
    if (found[id]->size() < 2)
        return -1;
    number = static_cast<uint16_t>((*found[id])[0] << 8 | (*found[id])[1]);
    return 0;
}

static int read_addresses(const contents &found, pdu_cdma &message)
{
    const bool submit = found[parameter_destination_address].has_value();
    message.kind = submit ? pdu_cdma_submit : pdu_cdma_deliver;
    const auto &address =
        found[submit ? parameter_destination_address : parameter_originating_address];
    if (!address) // a broadcast comes from nobody
        return message.transport == pdu_cdma_point_to_point ? -1 : 0;
    return address_cdma_read(*address, address_cdma_transport, message.number);
}

static void read_transport_answers(const contents &found, pdu_cdma &message)
{
    const auto &reply = found[parameter_bearer_reply];
    if (reply && !reply->empty())
        message.bearer_reply_seq = reply->front() >> 2;
    const auto &cause = found[parameter_cause];
    if (!cause || cause->empty())
        return;
    pdu_cdma_cause &read = message.cause.emplace();
    read.reply_seq = cause->front() >> 2;
    read.error_class = cause->front() & 3;
    read.code = read.error_class && cause->size() > 1 ? (*cause)[1] : 0;
}

int pdu_cdma_decode(std::span<const uint8_t> pdu, pdu_cdma &message)
{
    octet_reader reader{pdu};
    contents found;
    uint8_t transport;
    message = {};
    if (!reader.octet(transport) || transport > pdu_cdma_acknowledge ||
        read_contents(reader.rest, found) != 0)
        return -1;
    message.transport = static_cast<pdu_cdma_transport>(transport);
    if (read_number16(found, parameter_teleservice, message.teleservice_id) != 0 ||
        read_number16(found, parameter_service_category, message.service_category) != 0 ||
        read_addresses(found, message) != 0)
        return -1;
    if (message.transport == pdu_cdma_point_to_point && !message.teleservice_id)
        return -1;
    read_transport_answers(found, message);
    if (!found[parameter_bearer_data])
        return 0;
    return read_bearer_data(*found[parameter_bearer_data], message);
}

// Writing. Contents that are empty are not written.

using new_contents = std::array<std::vector<uint8_t>, ids_end>;

static int write_contents(const new_contents &made, std::vector<uint8_t> &octets)
{
    for (size_t id = 0; id < made.size(); id++) {
        const std::vector<uint8_t> &data = made[id];
        if (data.empty())
            continue;
        if (data.size() > UINT8_MAX)
            return -1;
        octets.insert(octets.end(), {static_cast<uint8_t>(id), static_cast<uint8_t>(data.size())});
        octets.insert(octets.end(), data.begin(), data.end());
    }
    return 0;
}

static std::vector<uint8_t> number16(uint16_t number)
{
    return {static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number & 0xFF)};
}

static bool has_header(const pdu_cdma &message)
{
    return message.body.concat || !message.body.header.empty();
}

static std::vector<uint8_t> make_message_id(const pdu_cdma &message)
{
    const uint8_t type =
        message.kind == pdu_cdma_submit ? pdu_cdma_bearer_submit : pdu_cdma_bearer_deliver;
    bit_writer writer;
    writer.field(4, message.bearer_message_type.value_or(type));
    writer.field(16, message.message_id);
    writer.field(1, has_header(message));
    writer.field(3, 0);
    return writer.octets;
}

static int make_descriptions(const pdu_cdma &message, new_contents &made)
{
    for (const value_row &row : values) {
        const std::optional<uint8_t> &value = message.*row.value;
        if (!value)
            continue;
        if (row.bcd ? *value > 99 : *value >> row.bits != 0)
            return -1;
        made[row.id] = {row.bcd ? bcd_of(*value) : static_cast<uint8_t>(*value << (8 - row.bits))};
    }
    for (const time_row &row : times) {
        if (message.*row.time && time_cdma_write(*(message.*row.time), made[row.id]) != 0)
            return -1;
    }
    if (message.deposit_index)
        made[subparameter_deposit_index] = number16(*message.deposit_index);
    if (message.callback && address_cdma_write(*message.callback, address_cdma_callback,
                                               made[subparameter_callback]) != 0)
        return -1;
    return 0;
}

static int make_bearer_data(const pdu_cdma &message, std::vector<uint8_t> &octets)
{
    new_contents made;
    made[subparameter_message_id] = make_message_id(message);
    if (message.body.encoding != sms_encoding_none &&
        user_data_cdma_write(message.body, made[subparameter_user_data]) != 0)
        return -1;
    if (make_descriptions(message, made) != 0)
        return -1;
    return write_contents(made, octets);
}

int pdu_cdma_encode(const pdu_cdma &message, std::vector<uint8_t> &pdu)
{
    const uint8_t address = message.kind == pdu_cdma_submit ? parameter_destination_address
                                                            : parameter_originating_address;
    new_contents made;
    if (message.kind == pdu_cdma_submit && message.number.number.empty())
        return -1;
    if (message.teleservice_id || message.transport == pdu_cdma_point_to_point)
        made[parameter_teleservice] = number16(message.teleservice_id.value_or(
            has_header(message) ? pdu_cdma_enhanced_messaging : pdu_cdma_messaging));
    if (message.service_category)
        made[parameter_service_category] = number16(*message.service_category);
    if (message.bearer_reply_seq) {
        if (*message.bearer_reply_seq > 0x3F)
            return -1;
        made[parameter_bearer_reply] = {static_cast<uint8_t>(*message.bearer_reply_seq << 2)};
    }
    if (message.cause) {
        const pdu_cdma_cause &cause = *message.cause;
        if (cause.reply_seq > 0x3F || cause.error_class > 3)
            return -1;
        made[parameter_cause] = {static_cast<uint8_t>(cause.reply_seq << 2 | cause.error_class)};
        if (cause.error_class)
            made[parameter_cause].push_back(cause.code);
    }
    const bool anonymous = message.transport == pdu_cdma_broadcast && message.number.number.empty();
    if ((!anonymous &&
         address_cdma_write(message.number, address_cdma_transport, made[address]) != 0) ||
        make_bearer_data(message, made[parameter_bearer_data]) != 0)
        return -1;
    pdu.assign(1, message.transport);
    pdu.reserve(pdu_cdma_octets_max);
    return write_contents(made, pdu);
}

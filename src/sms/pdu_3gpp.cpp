#include "sms/pdu_3gpp.h"

#include "sms/address_3gpp.h"
#include "sms/bits.h"

#include <algorithm>

// The first octet of a TPDU.
enum first_octet : uint8_t {
    mti_mask = 0x03,
    mti_deliver = 0x00,
    mti_submit = 0x01,
    mti_status_report = 0x02,
    no_more_messages = 0x04,  // deliver, status report
    reject_duplicates = 0x04, // submit
    loop_prevention = 0x08,   // deliver, status report
    vpf_mask = 0x18,          // submit
    vpf_none = 0x00,
    vpf_enhanced = 0x08,
    vpf_relative = 0x10,
    vpf_absolute = 0x18,
    status_report = 0x20,
    user_data_header = 0x40,
    reply_path = 0x80, // deliver, submit
};

enum parameter_indicator : uint8_t { // status report
    has_pid = 0x01,
    has_dcs = 0x02,
    has_user_data = 0x04,
    has_more_indicators = 0x80,
};

// Data coding groups by the high half of the octet.

constexpr sms_encoding alphabets[] = {
    sms_encoding_gsm7, sms_encoding_octets, sms_encoding_utf16,
    sms_encoding_gsm7, // reserved
};

static void read_general_group(uint8_t dcs, pdu_3gpp_coding &coding)
{
    coding.encoding = dcs & 0x20 ? sms_encoding_octets : alphabets[dcs >> 2 & 3];
    if (dcs & 0x10)
        coding.message_class = dcs & 3;
}

static void read_waiting_group(uint8_t dcs, pdu_3gpp_coding &coding)
{
    sms_waiting waiting;
    waiting.kind = static_cast<sms_waiting_kind>(dcs & 3);
    waiting.active = dcs & 0x08;
    waiting.store = dcs >> 4 != 0xC;
    coding.waiting = waiting;
    coding.encoding = dcs >> 4 == 0xE ? sms_encoding_utf16 : sms_encoding_gsm7;
}

static void read_class_group(uint8_t dcs, pdu_3gpp_coding &coding)
{
    coding.encoding = dcs & 0x04 ? sms_encoding_octets : sms_encoding_gsm7;
    coding.message_class = dcs & 3;
}

static void read_reserved_group(uint8_t, pdu_3gpp_coding &) {}

constexpr void (*coding_groups[16])(uint8_t dcs, pdu_3gpp_coding &coding) = {
    read_general_group,  read_general_group,  read_general_group,  read_general_group,
    read_general_group,  read_general_group,  read_general_group,  read_general_group,
    read_reserved_group, read_reserved_group, read_reserved_group, read_reserved_group,
    read_waiting_group,  read_waiting_group,  read_waiting_group,  read_class_group,
};

pdu_3gpp_coding pdu_3gpp_read_dcs(uint8_t dcs)
{
    pdu_3gpp_coding coding;
    coding_groups[dcs >> 4](dcs, coding);
    return coding;
}

static int make_dcs(const pdu_3gpp &message, uint8_t &dcs)
{
    const sms_encoding encoding =
        message.body.encoding == sms_encoding_none ? sms_encoding_gsm7 : message.body.encoding;
    if (message.dcs) {
        dcs = *message.dcs;
        const bool empty = message.body.encoding == sms_encoding_none;
        return empty || pdu_3gpp_read_dcs(dcs).encoding == encoding ? 0 : -1;
    }
    const auto alphabet = std::find(std::begin(alphabets), std::end(alphabets), encoding);
    if (alphabet == std::end(alphabets) || message.message_class.value_or(0) > 3)
        return -1;
    dcs = static_cast<uint8_t>((alphabet - std::begin(alphabets)) << 2);
    if (message.message_class)
        dcs = static_cast<uint8_t>(dcs | 0x10 | *message.message_class);
    return 0;
}

// Relative validity periods: in each range the steps last equally long.
struct validity_range {
    uint8_t first, last;
    uint32_t first_s, step_s;
};

constexpr uint32_t minute_s = 60, hour_s = 60 * minute_s, day_s = 24 * hour_s, week_s = 7 * day_s;

constexpr validity_range validity_ranges[] = {
    {0, 143, 5 * minute_s, 5 * minute_s},
    {144, 167, 12 * hour_s + 30 * minute_s, 30 * minute_s},
    {168, 196, 2 * day_s, day_s},
    {197, 255, 5 * week_s, week_s},
};

static uint32_t relative_validity_s(uint8_t tp_vp)
{
    const auto *range = std::begin(validity_ranges);
    while (tp_vp > range->last)
        range++;
    return range->first_s + (tp_vp - uint32_t{range->first}) * range->step_s;
}

static int make_tp_vp(uint32_t validity_s, uint8_t &tp_vp)
{
    for (unsigned value = 0; value <= UINT8_MAX; value++) {
        tp_vp = static_cast<uint8_t>(value);
        if (relative_validity_s(tp_vp) >= validity_s)
            return 0;
    }
    return -1;
}

constexpr size_t validity_octets = 7; // of the enhanced and the absolute format

enum enhanced_format : uint8_t {
    enhanced_extension = 0x80,
    enhanced_format_mask = 0x07,
    enhanced_relative = 1,
    enhanced_seconds = 2,
    enhanced_hours = 3, // three octets of digits: hours, minutes, seconds
};

// A format that is not known leaves the period open.
static void read_enhanced_validity(std::span<const uint8_t> octets, pdu_3gpp &message)
{
    const auto value = octets.subspan(octets[0] & enhanced_extension ? 2 : 1);
    switch (octets[0] & enhanced_format_mask) {
    case enhanced_relative:
        message.validity_s = relative_validity_s(value[0]);
        break;
    case enhanced_seconds:
        message.validity_s = value[0];
        break;
    case enhanced_hours: {
        const auto hours = semi_octets_value(value[0]), minutes = semi_octets_value(value[1]),
                   seconds = semi_octets_value(value[2]);
        if (hours && minutes && seconds)
            message.validity_s = static_cast<uint32_t>((*hours * 60 + *minutes) * 60 + *seconds);
        break;
    }
    default:
        break;
    }
}

static int read_validity(octet_reader &reader, uint8_t format, pdu_3gpp &message)
{
    std::span<const uint8_t> octets;
    if (format == vpf_none)
        return 0;
    if (format == vpf_relative) {
        uint8_t tp_vp;
        if (!reader.octet(tp_vp))
            return -1;
        message.tp_vp = tp_vp;
        message.validity_s = relative_validity_s(tp_vp);
        return 0;
    }
    if (!reader.take(validity_octets, octets))
        return -1;
    if (format == vpf_absolute)
        message.validity_time = time_3gpp_read(octets);
    else
        read_enhanced_validity(octets, message);
    return 0;
}

static void read_coding(uint8_t dcs, pdu_3gpp &message)
{
    const pdu_3gpp_coding coding = pdu_3gpp_read_dcs(dcs);
    message.dcs = dcs;
    message.body.encoding = coding.encoding;
    message.message_class = coding.message_class;
    message.waiting = coding.waiting;
}

// The header may announce waiting messages too, and then says how many.
static void read_waiting_element(pdu_3gpp &message)
{
    const auto data = sms_header_element(message.body, sms_element_waiting);
    if (!data || data->size() != 2)
        return;
    sms_waiting waiting;
    const uint8_t kind = (*data)[0] & 0x7F;
    waiting.kind =
        kind < sms_waiting_other ? static_cast<sms_waiting_kind>(kind) : sms_waiting_other;
    waiting.store = (*data)[0] & 0x80;
    waiting.count = (*data)[1];
    waiting.active = (*data)[1] != 0;
    message.waiting = waiting;
}

static int read_user_data(octet_reader &reader, bool has_header, pdu_3gpp &message)
{
    uint8_t count;
    std::span<const uint8_t> octets;
    if (!reader.octet(count))
        return -1;
    const bool septets = charset_is_7bit(message.body.encoding);
    const size_t size = septets ? (count * size_t{7} + 7) / 8 : count;
    if (size > sms_user_data_octets_max || !reader.take(size, octets))
        return -1;
    if (sms_body_decode(message.body, octets, count, has_header) != 0)
        return -1;
    read_waiting_element(message);
    return 0;
}

static int read_time(octet_reader &reader, std::optional<sms_time> &time)
{
    std::span<const uint8_t> octets;
    if (!reader.take(time_3gpp_octets, octets))
        return -1;
    time = time_3gpp_read(octets);
    return 0;
}

static int read_pid_and_dcs(octet_reader &reader, pdu_3gpp &message)
{
    uint8_t pid, dcs;
    if (!reader.octet(pid) || !reader.octet(dcs))
        return -1;
    message.pid = pid;
    read_coding(dcs, message);
    return 0;
}

static int read_deliver(octet_reader &reader, uint8_t first, pdu_3gpp &message)
{
    message.more_messages = !(first & no_more_messages);
    message.loop_prevention = first & loop_prevention;
    message.reply_path = first & reply_path;
    if (address_3gpp_read(reader, message.number) != 0 || read_pid_and_dcs(reader, message) != 0 ||
        read_time(reader, message.sent) != 0)
        return -1;
    return read_user_data(reader, first & user_data_header, message);
}

static int read_submit(octet_reader &reader, uint8_t first, pdu_3gpp &message)
{
    message.reject_duplicates = first & reject_duplicates;
    message.reply_path = first & reply_path;
    if (!reader.octet(message.message_reference) ||
        address_3gpp_read(reader, message.number) != 0 || read_pid_and_dcs(reader, message) != 0 ||
        read_validity(reader, first & vpf_mask, message) != 0)
        return -1;
    return read_user_data(reader, first & user_data_header, message);
}

// A report may end behind its status; an indicator then announces what follows. Reserved
// indicators announce things behind the user data.
static int read_report_rest(octet_reader &reader, uint8_t first, pdu_3gpp &message)
{
    uint8_t indicator, next, pid, dcs = 0;
    if (!reader.octet(indicator))
        return 0;
    for (next = indicator; next & has_more_indicators;) {
        if (!reader.octet(next))
            return -1;
    }
    if (indicator & has_pid) {
        if (!reader.octet(pid))
            return -1;
        message.pid = pid;
    }
    if (indicator & has_dcs) {
        if (!reader.octet(dcs))
            return -1;
        read_coding(dcs, message);
    }
    if (!(indicator & has_user_data)) {
        message.body.encoding = sms_encoding_none;
        return 0;
    }
    if (!message.dcs)
        message.body.encoding = sms_encoding_gsm7;
    return read_user_data(reader, first & user_data_header, message);
}

static int read_status_report(octet_reader &reader, uint8_t first, pdu_3gpp &message)
{
    message.more_messages = !(first & no_more_messages);
    message.loop_prevention = first & loop_prevention;
    if (!reader.octet(message.message_reference) ||
        address_3gpp_read(reader, message.number) != 0 || read_time(reader, message.sent) != 0 ||
        read_time(reader, message.discharged) != 0 || !reader.octet(message.status))
        return -1;
    return read_report_rest(reader, first, message);
}

int pdu_3gpp_decode(std::span<const uint8_t> pdu, pdu_3gpp &message)
{
    struct kind_row {
        pdu_3gpp_kind kind;
        int (*read)(octet_reader &reader, uint8_t first, pdu_3gpp &message);
    };
    static constexpr kind_row kinds[] = {
        {pdu_3gpp_deliver, read_deliver},
        {pdu_3gpp_submit, read_submit},
        {pdu_3gpp_status_report, read_status_report},
    };

    octet_reader reader{pdu};
    uint8_t first;
    message = {};
    if (address_3gpp_read_smsc(reader, message.smsc) != 0 || !reader.octet(first) ||
        (first & mti_mask) >= std::size(kinds))
        return -1;
    const kind_row &row = kinds[first & mti_mask];
    message.kind = row.kind;
    message.status_report = first & status_report;
    return row.read(reader, first, message);
}

// Writing.

static uint8_t flag(bool on, uint8_t bit)
{
    return on ? bit : 0;
}

static uint8_t validity_format(const pdu_3gpp &message)
{
    if (message.validity_time)
        return vpf_absolute;
    return message.validity_s ? vpf_relative : vpf_none;
}

static uint8_t first_octet_of(const pdu_3gpp &message, bool header)
{
    const int common = flag(message.status_report, status_report) | flag(header, user_data_header);
    const int reply = flag(message.reply_path, reply_path);
    const int served = flag(!message.more_messages, no_more_messages) |
                       flag(message.loop_prevention, loop_prevention);
    switch (message.kind) {
    case pdu_3gpp_deliver:
        return static_cast<uint8_t>(mti_deliver | common | reply | served);
    case pdu_3gpp_submit:
        return static_cast<uint8_t>(mti_submit | common | reply | validity_format(message) |
                                    flag(message.reject_duplicates, reject_duplicates));
    case pdu_3gpp_status_report:
        break;
    }
    return static_cast<uint8_t>(mti_status_report | common | served);
}

static int write_time(const std::optional<sms_time> &time, std::vector<uint8_t> &pdu)
{
    return time ? time_3gpp_write(*time, pdu) : -1;
}

static int write_validity(const pdu_3gpp &message, std::vector<uint8_t> &pdu)
{
    uint8_t tp_vp;
    if (message.validity_time)
        return message.validity_s ? -1 : time_3gpp_write(*message.validity_time, pdu);
    if (!message.validity_s)
        return 0;
    if (make_tp_vp(*message.validity_s, tp_vp) != 0)
        return -1;
    pdu.push_back(tp_vp);
    return 0;
}

static int write_deliver(const pdu_3gpp &message, uint8_t dcs, std::vector<uint8_t> &pdu)
{
    if (address_3gpp_write(message.number, pdu) != 0)
        return -1;
    pdu.insert(pdu.end(), {message.pid.value_or(0), dcs});
    return write_time(message.sent, pdu);
}

static int write_submit(const pdu_3gpp &message, uint8_t dcs, std::vector<uint8_t> &pdu)
{
    pdu.push_back(message.message_reference);
    if (message.number.number.empty() || address_3gpp_write(message.number, pdu) != 0)
        return -1;
    pdu.insert(pdu.end(), {message.pid.value_or(0), dcs});
    return write_validity(message, pdu);
}

static int write_status_report(const pdu_3gpp &message, uint8_t dcs, std::vector<uint8_t> &pdu)
{
    pdu.push_back(message.message_reference);
    if (address_3gpp_write(message.number, pdu) != 0 || write_time(message.sent, pdu) != 0 ||
        write_time(message.discharged, pdu) != 0)
        return -1;
    pdu.push_back(message.status);
    const bool body = message.body.encoding != sms_encoding_none;
    const bool coding = body || message.dcs;
    if (!coding && !message.pid)
        return 0;
    pdu.push_back(static_cast<uint8_t>(flag(message.pid.has_value(), has_pid) |
                                       flag(coding, has_dcs) | flag(body, has_user_data)));
    if (message.pid)
        pdu.push_back(*message.pid);
    if (coding)
        pdu.push_back(dcs);
    return 0;
}

int pdu_3gpp_encode(const pdu_3gpp &message, std::vector<uint8_t> &pdu)
{
    static constexpr int (*writers[])(const pdu_3gpp &, uint8_t, std::vector<uint8_t> &) = {
        write_deliver, write_submit, write_status_report};

    std::vector<uint8_t> user_data;
    size_t count = 0;
    uint8_t dcs;
    pdu.clear();
    pdu.reserve(pdu_3gpp_octets_max);
    if (make_dcs(message, dcs) != 0 || address_3gpp_write_smsc(message.smsc, pdu) != 0 ||
        sms_body_encode(message.body, user_data, count) != 0 ||
        user_data.size() > sms_user_data_octets_max)
        return -1;
    const bool header = message.body.concat || !message.body.header.empty();
    pdu.push_back(first_octet_of(message, header));
    if (writers[message.kind](message, dcs, pdu) != 0)
        return -1;
    if (message.kind == pdu_3gpp_status_report && message.body.encoding == sms_encoding_none)
        return 0;
    pdu.push_back(static_cast<uint8_t>(count));
    pdu.insert(pdu.end(), user_data.begin(), user_data.end());
    return 0;
}

size_t pdu_3gpp_tpdu_offset(std::span<const uint8_t> pdu)
{
    return size_t{1} + pdu.front();
}

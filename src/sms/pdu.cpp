#include "sms/pdu.h"

#include "sms/bits.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

sms_address sms_address_from_text(std::string_view number)
{
    sms_address address;
    address.number = number;
    if (number.starts_with('+'))
        address.type = sms_number_international;
    return address;
}

static bool leap_year(int year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

bool sms_time_valid(const sms_time &time)
{
    constexpr int month_days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

    if (time.month < 1 || time.month > 12)
        return false;
    const int days = month_days[time.month - 1] + (time.month == 2 && leap_year(time.year));
    return time.day >= 1 && time.day <= days && time.hour >= 0 && time.hour < 24 &&
           time.minute >= 0 && time.minute < 60 && time.second >= 0 && time.second < 60;
}

int64_t sms_time_epoch(const sms_time &time)
{
    constexpr int days_before_month[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    constexpr int64_t days_to_1970 = 719162; // from the first day of the year 1

    const int past = time.year - 1;
    const int64_t days = int64_t{365} * past + past / 4 - past / 100 + past / 400 +
                         days_before_month[time.month - 1] +
                         (time.month > 2 && leap_year(time.year)) + time.day - 1 - days_to_1970;
    const int64_t minutes =
        (days * 24 + time.hour) * 60 + time.minute - time.zone_minutes.value_or(0);
    return minutes * 60 + time.second;
}

std::string sms_time_text(const sms_time &time)
{
    char text[80];
    int length = snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", time.year, time.month,
                          time.day, time.hour, time.minute, time.second);
    if (time.zone_minutes) {
        const int zone = abs(*time.zone_minutes);
        snprintf(text + length, sizeof text - static_cast<size_t>(length), "%c%02d:%02d",
                 *time.zone_minutes < 0 ? '-' : '+', zone / 60, zone % 60);
    }
    return text;
}

struct element {
    uint8_t id;
    std::span<const uint8_t> data;
};

// The elements of a header without its length octet: 1 with the next one, 0 at the end, -1 when it
// reaches beyond the header.
static int next_element(octet_reader &reader, element &found)
{
    uint8_t size;
    if (reader.rest.empty())
        return 0;
    if (!reader.octet(found.id) || !reader.octet(size) || !reader.take(size, found.data))
        return -1;
    return 1;
}

static std::span<const uint8_t> header_elements(const sms_body &body)
{
    const std::span<const uint8_t> header = body.header;
    return header.empty() ? header : header.subspan(1);
}

std::optional<std::span<const uint8_t>> sms_header_element(const sms_body &body, sms_element_id id)
{
    std::optional<std::span<const uint8_t>> data;
    octet_reader reader{header_elements(body)};
    for (element found; next_element(reader, found) == 1;) {
        if (found.id == id)
            data = found.data;
    }
    return data;
}

std::optional<sms_ports> sms_body_ports(const sms_body &body)
{
    std::optional<sms_ports> ports;
    octet_reader reader{header_elements(body)};
    for (element found; next_element(reader, found) == 1;) {
        const auto &data = found.data;
        if (found.id == sms_element_ports8 && data.size() == 2)
            ports = {data[0], data[1]};
        else if (found.id == sms_element_ports16 && data.size() == 4)
            ports = {static_cast<uint16_t>(data[0] << 8 | data[1]),
                     static_cast<uint16_t>(data[2] << 8 | data[3])};
    }
    return ports;
}

static bool concat_possible(const sms_concat &concat)
{
    return concat.seq >= 1 && concat.seq <= concat.total && (concat.wide || concat.ref <= 0xFF);
}

static bool is_concat(uint8_t id)
{
    return id == sms_element_concat8 || id == sms_element_concat16;
}

// An element of another length, or one that counts wrongly, is ignored, not an error: then the
// part is shown by itself. The last good one counts.
static void read_concat(const element &found, std::optional<sms_concat> &concat)
{
    const bool wide = found.id == sms_element_concat16;
    const auto &data = found.data;
    if (!is_concat(found.id) || data.size() != (wide ? 4u : 3u))
        return;
    sms_concat read;
    read.wide = wide;
    read.ref = wide ? static_cast<uint16_t>(data[0] << 8 | data[1]) : data[0];
    read.total = data[data.size() - 2];
    read.seq = data[data.size() - 1];
    if (concat_possible(read))
        concat = read;
}

static int read_header(sms_body &body)
{
    octet_reader reader{header_elements(body)};
    element found;
    int result;
    while ((result = next_element(reader, found)) == 1) {
        read_concat(found, body.concat);
        if (found.id == sms_element_single_shift && found.data.size() == 1)
            body.shift.single = found.data[0];
        else if (found.id == sms_element_locking_shift && found.data.size() == 1)
            body.shift.locking = found.data[0];
    }
    return result;
}

// The index of the first code unit behind a header, counted as in sms_body_decode.
static size_t first_unit(sms_encoding encoding, size_t header_octets)
{
    return charset_is_7bit(encoding) ? (header_octets * 8 + 6) / 7 : header_octets;
}

int sms_body_decode(sms_body &body, std::span<const uint8_t> octets, size_t count, bool has_header)
{
    body.header.clear();
    body.concat.reset();
    body.shift = {};
    if (has_header) {
        const size_t size = octets.empty() ? 0 : octets[0] + size_t{1};
        if (size == 0 || size > octets.size() || first_unit(body.encoding, size) > count)
            return -1;
        body.header.assign(octets.begin(), octets.begin() + static_cast<ptrdiff_t>(size));
        if (read_header(body) != 0)
            return -1;
    }
    const size_t first = first_unit(body.encoding, body.header.size());
    if (charset_unpack(body.encoding, octets, first, count - first, body.data) != 0)
        return -1;
    body.text = charset_decode(body.encoding, body.data, body.shift);
    return 0;
}

static int write_header(const sms_body &body, std::vector<uint8_t> &octets)
{
    octets.assign(1, 0);
    if (body.concat) {
        const sms_concat &concat = *body.concat;
        if (!concat_possible(concat))
            return -1;
        octets.push_back(concat.wide ? sms_element_concat16 : sms_element_concat8);
        octets.push_back(concat.wide ? 4 : 3);
        if (concat.wide)
            octets.push_back(static_cast<uint8_t>(concat.ref >> 8));
        octets.insert(octets.end(),
                      {static_cast<uint8_t>(concat.ref & 0xFF), concat.total, concat.seq});
    }
    octet_reader reader{header_elements(body)};
    element found;
    int result;
    while ((result = next_element(reader, found)) == 1) {
        if (body.concat && is_concat(found.id))
            continue;
        octets.insert(octets.end(), {found.id, static_cast<uint8_t>(found.data.size())});
        octets.insert(octets.end(), found.data.begin(), found.data.end());
    }
    if (result != 0 || octets.size() - 1 > UINT8_MAX)
        return -1;
    octets[0] = static_cast<uint8_t>(octets.size() - 1);
    return 0;
}

int sms_body_encode(const sms_body &body, std::vector<uint8_t> &octets, size_t &count)
{
    octets.clear();
    if ((body.concat || !body.header.empty()) && write_header(body, octets) != 0)
        return -1;
    std::vector<uint8_t> units;
    const bool septets = charset_is_7bit(body.encoding);
    // Text with national tables goes back out as the units it came with.
    if (body.text && body.shift == gsm7_shift{}) {
        if (charset_encode(body.encoding, *body.text, units) != 0)
            return -1;
    } else {
        units = body.data;
        if (septets && std::any_of(units.begin(), units.end(), [](uint8_t u) { return u > 0x7F; }))
            return -1;
    }
    const size_t first = first_unit(body.encoding, octets.size());
    charset_pack(body.encoding, units, first, octets);
    count = first + units.size();
    return 0;
}

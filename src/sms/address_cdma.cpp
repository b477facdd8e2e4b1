#include "sms/address_cdma.h"

#include <string_view>

// Values of 4-bit digits from 1 on; 0 and those behind the last one stand for nothing.
constexpr std::string_view digit_characters = "?1234567890*#";

constexpr uint8_t plan_telephone = 1;
constexpr size_t fields_max = UINT8_MAX;

enum number_type : uint8_t { type_unknown = 0, type_international = 1, type_national = 2 };

enum data_network_type : uint8_t { network_internet = 1, network_mail = 2 };

static int read_4bit_digits(bit_reader &reader, size_t count, std::string &digits)
{
    for (size_t i = 0; i < count; i++) {
        uint8_t digit;
        if (!reader.field(4, digit) || digit == 0 || digit >= digit_characters.size())
            return -1;
        digits.push_back(digit_characters[digit]);
    }
    return 0;
}

// Characters of a number or a mail address: printable ASCII.
static int read_characters(bit_reader &reader, size_t count, std::string &text)
{
    for (size_t i = 0; i < count; i++) {
        uint8_t character;
        if (!reader.field(8, character) || character < 0x20 || character > 0x7E)
            return -1;
        text.push_back(static_cast<char>(character));
    }
    return 0;
}

// The octets of an Internet address, in the usual decimal form.
static int read_internet_address(bit_reader &reader, size_t count, std::string &text)
{
    for (size_t i = 0; i < count; i++) {
        uint8_t octet;
        if (!reader.field(8, octet))
            return -1;
        text += (i ? "." : "") + std::to_string(octet);
    }
    return 0;
}

static int read_data_network_address(bit_reader &reader, uint8_t type, size_t count,
                                     sms_address &address)
{
    address.type = sms_number_alphanumeric;
    if (type == network_internet)
        return read_internet_address(reader, count, address.number);
    return read_characters(reader, count, address.number);
}

static sms_number_type type_of(uint8_t type)
{
    switch (type) {
    case type_international:
        return sms_number_international;
    case type_national:
        return sms_number_national;
    default:
        return sms_number_unknown;
    }
}

int address_cdma_read(std::span<const uint8_t> octets, address_cdma_form form, sms_address &address)
{
    bit_reader reader{octets};
    uint8_t eight_bit, data_network = 0, type = 0, plan = 0, count;
    address = {};
    if (!reader.field(1, eight_bit) ||
        (form == address_cdma_transport && !reader.field(1, data_network)) ||
        (eight_bit && !reader.field(3, type)) ||
        (eight_bit && !data_network && !reader.field(4, plan)) || !reader.field(8, count))
        return -1;
    if (!eight_bit)
        return read_4bit_digits(reader, count, address.number);
    if (data_network)
        return read_data_network_address(reader, type, count, address);
    address.toa = static_cast<uint8_t>(0x80 | type << 4 | plan);
    address.type = type_of(type);
    if (read_characters(reader, count, address.number) != 0)
        return -1;
    if (type == type_international && !address.number.empty() && address.number[0] != '+')
        address.number.insert(0, 1, '+');
    return 0;
}

static int write_4bit_digits(std::string_view digits, bit_writer &writer)
{
    for (char digit : digits) {
        const size_t value = digit_characters.find(digit);
        if (value == 0 || value == std::string_view::npos)
            return -1;
        writer.field(4, static_cast<uint32_t>(value));
    }
    return 0;
}

static int write_8bit_digits(std::string_view digits, bit_writer &writer)
{
    for (char digit : digits) {
        if (digit_characters.find(digit, 1) == std::string_view::npos)
            return -1;
        writer.field(8, static_cast<uint8_t>(digit));
    }
    return 0;
}

int address_cdma_write(const sms_address &address, address_cdma_form form,
                       std::vector<uint8_t> &octets)
{
    const bool eight_bit = address.type != sms_number_unknown || address.toa != 0;
    std::string_view digits = address.number;
    if (address.type == sms_number_international && digits.starts_with('+'))
        digits.remove_prefix(1);
    if (address.type == sms_number_alphanumeric || digits.size() > fields_max)
        return -1;

    const uint8_t type = address.toa                                ? address.toa >> 4 & 7
                         : address.type == sms_number_international ? type_international
                                                                    : type_national;
    bit_writer writer;
    writer.field(1, eight_bit);
    if (form == address_cdma_transport)
        writer.field(1, 0);
    if (eight_bit) {
        writer.field(3, type);
        writer.field(4, address.toa ? address.toa & 0xFu : plan_telephone);
    }
    writer.field(8, static_cast<uint32_t>(digits.size()));
    const int result =
        eight_bit ? write_8bit_digits(digits, writer) : write_4bit_digits(digits, writer);
    octets = std::move(writer.octets);
    return result;
}

std::optional<uint8_t> bcd_value(uint8_t octet)
{
    const int tens = octet >> 4, units = octet & 0xF;
    if (tens > 9 || units > 9)
        return std::nullopt;
    return static_cast<uint8_t>(tens * 10 + units);
}

uint8_t bcd_of(int value)
{
    return static_cast<uint8_t>((value / 10) << 4 | value % 10);
}

constexpr int first_year = 1996; // of the hundred that two digits can mean

std::optional<sms_time> time_cdma_read(std::span<const uint8_t> octets)
{
    constexpr int sms_time::*fields[] = {&sms_time::year, &sms_time::month,  &sms_time::day,
                                         &sms_time::hour, &sms_time::minute, &sms_time::second};
    static_assert(std::size(fields) == time_cdma_octets);

    sms_time time;
    for (size_t i = 0; i < std::size(fields); i++) {
        const std::optional<uint8_t> value = bcd_value(octets[i]);
        if (!value)
            return std::nullopt;
        time.*fields[i] = *value;
    }
    time.year += time.year >= first_year % 100 ? 1900 : 2000;
    return sms_time_valid(time) ? std::optional(time) : std::nullopt;
}

int time_cdma_write(const sms_time &time, std::vector<uint8_t> &octets)
{
    if (!sms_time_valid(time) || time.year < first_year || time.year >= first_year + 100)
        return -1;
    octets.clear();
    for (int value : {time.year % 100, time.month, time.day, time.hour, time.minute, time.second})
        octets.push_back(bcd_of(value));
    return 0;
}

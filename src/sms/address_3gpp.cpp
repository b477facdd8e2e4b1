#include "sms/address_3gpp.h"

#include <string_view>

constexpr size_t digits_max = 20;
constexpr size_t name_septets_max = digits_max * 4 / 7;
constexpr size_t smsc_octets_max = 1 + digits_max / 2;
constexpr uint8_t filler = 0xF;
constexpr std::string_view digit_characters = "0123456789*#abc";

enum type_of_number {
    ton_unknown = 0,
    ton_international = 1,
    ton_national = 2,
    ton_alphanumeric = 5,
};

// Whichever way it is read; the numbering plan is the telephone one but for names.
struct type_row {
    sms_number_type type;
    uint8_t ton;
    uint8_t toa;
};

constexpr type_row type_rows[] = {
    {sms_number_unknown, ton_unknown, 0x81},
    {sms_number_international, ton_international, 0x91},
    {sms_number_national, ton_national, 0xA1},
    {sms_number_alphanumeric, ton_alphanumeric, 0xD0},
};

static uint8_t ton_of(uint8_t toa)
{
    return toa >> 4 & 7;
}

static sms_number_type type_of(uint8_t toa)
{
    for (const type_row &row : type_rows) {
        if (row.ton == ton_of(toa))
            return row.type;
    }
    return sms_number_unknown;
}

static int read_name(std::span<const uint8_t> octets, size_t semi_octets, std::string &name)
{
    std::vector<uint8_t> septets;
    if (charset_unpack(sms_encoding_gsm7, octets, 0, semi_octets * 4 / 7, septets) != 0)
        return -1;
    name = charset_decode(sms_encoding_gsm7, septets).value_or("");
    return 0;
}

static uint8_t semi_octet(std::span<const uint8_t> octets, size_t index)
{
    return index % 2 ? octets[index / 2] >> 4 : octets[index / 2] & 0xF;
}

static int read_digits(std::span<const uint8_t> octets, size_t count, std::string &digits)
{
    for (size_t i = 0; i < count; i++) {
        const uint8_t digit = semi_octet(octets, i);
        if (digit == filler)
            return -1;
        digits.push_back(digit_characters[digit]);
    }
    return 0;
}

static int read_number(uint8_t toa, std::span<const uint8_t> octets, size_t semi_octets,
                       sms_address &address)
{
    address.toa = toa;
    address.type = type_of(toa);
    address.number.clear();
    if (address.type == sms_number_alphanumeric)
        return read_name(octets, semi_octets, address.number);
    if (address.type == sms_number_international && semi_octets > 0)
        address.number = "+";
    return read_digits(octets, semi_octets, address.number);
}

int address_3gpp_read(octet_reader &reader, sms_address &address)
{
    uint8_t semi_octets, toa;
    std::span<const uint8_t> octets;
    if (!reader.octet(semi_octets) || semi_octets > digits_max || !reader.octet(toa) ||
        !reader.take((semi_octets + 1u) / 2, octets))
        return -1;
    return read_number(toa, octets, semi_octets, address);
}

int address_3gpp_read_smsc(octet_reader &reader, std::optional<sms_address> &address)
{
    uint8_t size;
    std::span<const uint8_t> octets;
    address.reset();
    if (!reader.octet(size) || size > smsc_octets_max || !reader.take(size, octets))
        return -1;
    if (size == 0)
        return 0;
    const uint8_t toa = octets.front();
    octets = octets.subspan(1);
    size_t semi_octets = octets.size() * 2;
    // Some SIMs fill the rest of the field up.
    while (type_of(toa) != sms_number_alphanumeric && semi_octets > 0 &&
           semi_octet(octets, semi_octets - 1) == filler)
        semi_octets--;
    return read_number(toa, octets, semi_octets, address.emplace());
}

static uint8_t toa_for(const sms_address &address)
{
    if (address.toa != 0)
        return address.toa;
    for (const type_row &row : type_rows) {
        if (row.type == address.type)
            return row.toa;
    }
    return type_rows[0].toa;
}

static int write_digits(std::string_view digits, std::vector<uint8_t> &octets)
{
    for (size_t i = 0; i < digits.size(); i++) {
        const size_t digit = digit_characters.find(digits[i]);
        if (digit == std::string_view::npos)
            return -1;
        if (i % 2 == 0)
            octets.push_back(static_cast<uint8_t>(filler << 4 | digit));
        else
            octets.back() = static_cast<uint8_t>((octets.back() & 0xF) | digit << 4);
    }
    return 0;
}

// Appends the octets behind the type of address, and says how many semi-octets are used.
static int write_number(const sms_address &address, std::vector<uint8_t> &octets,
                        size_t &semi_octets)
{
    if (address.type == sms_number_alphanumeric) {
        std::vector<uint8_t> septets, packed;
        if (charset_encode(sms_encoding_gsm7, address.number, septets) != 0 ||
            septets.size() > name_septets_max)
            return -1;
        charset_pack(sms_encoding_gsm7, septets, 0, packed);
        octets.insert(octets.end(), packed.begin(), packed.end());
        semi_octets = (septets.size() * 7 + 3) / 4;
        return 0;
    }
    std::string_view digits = address.number;
    if (address.type == sms_number_international && digits.starts_with('+'))
        digits.remove_prefix(1);
    semi_octets = digits.size();
    return digits.size() > digits_max ? -1 : write_digits(digits, octets);
}

int address_3gpp_write(const sms_address &address, std::vector<uint8_t> &octets)
{
    const size_t start = octets.size();
    size_t semi_octets;
    octets.insert(octets.end(), {0, toa_for(address)});
    if (write_number(address, octets, semi_octets) != 0)
        return -1;
    octets[start] = static_cast<uint8_t>(semi_octets);
    return 0;
}

int address_3gpp_write_smsc(const std::optional<sms_address> &address, std::vector<uint8_t> &octets)
{
    const size_t start = octets.size();
    size_t semi_octets;
    octets.push_back(0);
    if (!address)
        return 0;
    octets.push_back(toa_for(*address));
    if (write_number(*address, octets, semi_octets) != 0)
        return -1;
    octets[start] = static_cast<uint8_t>(octets.size() - start - 1);
    return 0;
}

std::optional<int> semi_octets_value(uint8_t octet)
{
    const int tens = octet & 0xF, units = octet >> 4;
    if (tens > 9 || units > 9)
        return std::nullopt;
    return tens * 10 + units;
}

static uint8_t semi_octets_of(int value)
{
    return static_cast<uint8_t>((value % 10) << 4 | value / 10);
}

constexpr uint8_t zone_sign = 0x08; // in the octet of the zone, whose value is quarters of an hour
constexpr int zone_quarter_minutes = 15;
constexpr int century = 2000;

std::optional<sms_time> time_3gpp_read(std::span<const uint8_t> octets)
{
    constexpr int sms_time::*fields[] = {&sms_time::year, &sms_time::month,  &sms_time::day,
                                         &sms_time::hour, &sms_time::minute, &sms_time::second};
    static_assert(std::size(fields) + 1 == time_3gpp_octets);

    sms_time time;
    for (size_t i = 0; i < std::size(fields); i++) {
        const std::optional<int> value = semi_octets_value(octets[i]);
        if (!value)
            return std::nullopt;
        time.*fields[i] = *value;
    }
    time.year += century;
    const uint8_t zone = octets[std::size(fields)];
    const std::optional<int> quarters = semi_octets_value(zone & static_cast<uint8_t>(~zone_sign));
    if (!quarters || !sms_time_valid(time))
        return std::nullopt;
    time.zone_minutes = *quarters * zone_quarter_minutes * (zone & zone_sign ? -1 : 1);
    return time;
}

int time_3gpp_write(const sms_time &time, std::vector<uint8_t> &octets)
{
    const int zone = time.zone_minutes.value_or(0);
    const int quarters = (zone < 0 ? -zone : zone) / zone_quarter_minutes;
    if (!sms_time_valid(time) || time.year < century || time.year > century + 99 ||
        zone % zone_quarter_minutes != 0 || quarters > 79)
        return -1;
    for (int value :
         {time.year - century, time.month, time.day, time.hour, time.minute, time.second})
        octets.push_back(semi_octets_of(value));
    const uint8_t sign = zone < 0 ? zone_sign : 0;
    octets.push_back(static_cast<uint8_t>(semi_octets_of(quarters) | sign));
    return 0;
}

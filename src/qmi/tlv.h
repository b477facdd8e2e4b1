// The contents of QMI messages: a row of TLVs (type 1 byte, length 2, value), in any order. Reading
// borrows the caller's bytes and checks every length; writing collects into a vector.
//
// Facts: the public QMI message descriptions (libqmi).
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

constexpr size_t tlv_header_bytes = 1 + 2;
constexpr size_t tlv_value_bytes_max = 0xFFFF;

// Types below this are mandatory where a message has them, the others optional.
constexpr uint8_t tlv_optional_from = 0x10;
constexpr uint8_t tlv_result_type = 0x02; // in every response

struct tlv {
    uint8_t type = 0;
    std::span<const uint8_t> value;
};

// Takes the first TLV off the row. 1 when there was one, 0 at the end, -1 when it is cut.
[[nodiscard]] int tlv_next(std::span<const uint8_t> &rest, tlv &item);

// 0 when the last TLV ends where the bytes end, else -1.
[[nodiscard]] int tlv_check(std::span<const uint8_t> tlvs);

// The value of the first TLV of that type; nothing when there is none before the end or a cut one.
[[nodiscard]] std::optional<std::span<const uint8_t>> tlv_find(std::span<const uint8_t> tlvs,
                                                               uint8_t type);

// What a response says first: status 0 is success, otherwise `error` tells why not.
struct tlv_result {
    uint16_t status = 0;
    uint16_t error = 0;
};

// 0, or -1 when the response has no result or one that is too short.
[[nodiscard]] int tlv_read_result(std::span<const uint8_t> tlvs, tlv_result &result);

// The fields of a value, read one after the other. Each call says false, having moved nowhere, when
// fewer bytes are left than it needs.
struct tlv_fields {
    std::span<const uint8_t> rest;

    [[nodiscard]] bool octets(size_t count, std::span<const uint8_t> &taken)
    {
        if (rest.size() < count)
            return false;
        taken = rest.first(count);
        rest = rest.subspan(count);
        return true;
    }

    template <std::integral number_type>
    [[nodiscard]] bool number(number_type &value)
    {
        std::span<const uint8_t> taken;
        if (!octets(sizeof(value), taken))
            return false;
        using bits_type = std::make_unsigned_t<number_type>;
        bits_type bits = 0;
        for (size_t i = 0; i < sizeof(value); i++)
            bits = static_cast<bits_type>(bits | static_cast<bits_type>(taken[i]) << (8 * i));
        value = static_cast<number_type>(bits);
        return true;
    }

    [[nodiscard]] bool text(size_t count, std::string &value)
    {
        std::span<const uint8_t> taken;
        if (!octets(count, taken))
            return false;
        value.assign(taken.begin(), taken.end());
        return true;
    }

    // A text behind its length, which has the width of length_type.
    template <std::unsigned_integral length_type>
    [[nodiscard]] bool counted_text(std::string &value)
    {
        const tlv_fields before = *this;
        length_type length = 0;
        if (number(length) && text(length, value))
            return true;
        *this = before;
        return false;
    }
};

// Appends a number, low byte first.
template <std::integral number_type>
void tlv_put(std::vector<uint8_t> &bytes, number_type value)
{
    const auto bits = static_cast<uint64_t>(value);
    for (size_t i = 0; i < sizeof(value); i++)
        bytes.push_back(static_cast<uint8_t>(bits >> (8 * i)));
}

// Collects TLVs: begin, the fields of the value, and so on. A value that is too long is noticed at
// the end.
struct tlv_writer {
    std::vector<uint8_t> bytes;

    void begin(uint8_t type);
    void octets(std::span<const uint8_t> value);
    void text(std::string_view value);

    template <std::integral number_type>
    void number(number_type value)
    {
        tlv_put(bytes, value);
    }

    // A text behind its length; one that is longer than the length can say spoils the row.
    template <std::unsigned_integral length_type>
    void counted_text(std::string_view value)
    {
        spoiled = spoiled || value.size() > static_cast<length_type>(-1);
        number(static_cast<length_type>(value.size()));
        text(value);
    }

    // Completes the last TLV. 0, or -1 when some value or text was too long for its length field:
    // the bytes are then not to be sent.
    [[nodiscard]] int end();

    size_t open = 0; // where the present value begins; 0: none is open
    bool spoiled = false;
};

// Writing the TLVs of an answer in one line each.
#pragma once

#include "qmi/tlv.h"

#include <cstdint>
#include <string_view>

// One TLV of numbers, one behind the other; their types say how wide each is on the wire.
template <std::integral... Numbers>
void tlv_add(tlv_writer &writer, uint8_t type, Numbers... numbers)
{
    writer.begin(type);
    (writer.number(numbers), ...);
}

// One TLV that is nothing but a text.
inline void tlv_add_text(tlv_writer &writer, uint8_t type, std::string_view text)
{
    writer.begin(type);
    writer.text(text);
}

// The low bits of a number of the modem's state, which is checked to fit where it is set.
constexpr uint8_t u8(int64_t value)
{
    return static_cast<uint8_t>(value);
}
constexpr uint16_t u16(int64_t value)
{
    return static_cast<uint16_t>(value);
}
constexpr uint32_t u32(int64_t value)
{
    return static_cast<uint32_t>(value);
}
constexpr uint64_t u64(int64_t value)
{
    return static_cast<uint64_t>(value);
}

// A layout says how a record travels: a list of its fields in wire order. Numbers are little-endian
// and as wide as the record's member, a text is its whole NUL-filled field, a list is its elements
// behind a count. One coder reads all layouts; nothing else knows how bytes are ordered.
#pragma once

#include "swi/records.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

struct swi_layout;

enum class swi_field_kind : uint8_t { number, text, bytes, list, padding };

struct swi_field {
    swi_field_kind kind = swi_field_kind::padding;
    uint16_t offset = 0;       // in the record; of a list, of its first element
    uint16_t bytes = 0;        // on the wire; of a list, an element's size in the record
    uint16_t count_offset = 0; // list: where the record keeps the number of elements, 16 bits
    uint16_t count_max = 0;    // list
    const swi_layout *element = nullptr;
};

struct swi_layout {
    std::span<const swi_field> fields;
    uint16_t wire_bytes_min = 0; // with empty lists
    uint16_t wire_bytes_max = 0; // with full ones
};

constexpr uint16_t swi_list_count_bytes = 2;

constexpr swi_layout swi_make_layout(std::span<const swi_field> fields)
{
    swi_layout layout{fields, 0, 0};
    for (const swi_field &field : fields) {
        const bool list = field.kind == swi_field_kind::list;
        const int least = list ? swi_list_count_bytes : field.bytes;
        const int most = list ? least + field.count_max * field.element->wire_bytes_max : least;
        layout.wire_bytes_min = static_cast<uint16_t>(layout.wire_bytes_min + least);
        layout.wire_bytes_max = static_cast<uint16_t>(layout.wire_bytes_max + most);
    }
    return layout;
}

template <class Member>
constexpr swi_field swi_plain_field(size_t offset)
{
    swi_field field;
    field.offset = static_cast<uint16_t>(offset);
    field.bytes = static_cast<uint16_t>(sizeof(Member));
    if constexpr (std::is_integral_v<Member>) {
        static_assert(sizeof(Member) <= sizeof(uint32_t), "the coder's numbers have 32 bits");
        field.kind = swi_field_kind::number;
    } else if constexpr (std::is_same_v<std::remove_extent_t<Member>, char>)
        field.kind = swi_field_kind::text;
    else {
        static_assert(std::is_same_v<std::remove_extent_t<Member>, uint8_t>);
        field.kind = swi_field_kind::bytes;
    }
    return field;
}

constexpr swi_field swi_padding(uint16_t bytes)
{
    return {swi_field_kind::padding, 0, bytes, 0, 0, nullptr};
}

template <class Count, const swi_layout &Element>
constexpr swi_field swi_list_field(size_t offset, size_t element_bytes, size_t count_offset,
                                   size_t count_max)
{
    static_assert(std::is_same_v<Count, uint16_t>, "a list's count has 16 bits");
    static_assert(Element.wire_bytes_min == Element.wire_bytes_max, "elements have one size");
    return {swi_field_kind::list,
            static_cast<uint16_t>(offset),
            static_cast<uint16_t>(element_bytes),
            static_cast<uint16_t>(count_offset),
            static_cast<uint16_t>(count_max),
            &Element};
}

#define SWI_FIELD(record, member)                                                                  \
    swi_plain_field<decltype(record::member)>(offsetof(record, member))
#define SWI_LIST(record, member, count_member, element_layout)                                     \
    swi_list_field<decltype(record::count_member), element_layout>(                                \
        offsetof(record, member), sizeof(record{}.member[0]), offsetof(record, count_member),      \
        std::extent_v<decltype(record::member)>)

// Writes the record's wire form to the beginning of `out` and its length to *length. 0, or -1 when
// it does not fit or a list counts more elements than it can have.
[[nodiscard]] int swi_pack(const swi_layout &layout, const void *record, std::span<uint8_t> out,
                           size_t *length);

// Reads a record from its wire form. Bytes behind the last field are somebody's later addition and
// are not looked at; of a list that is longer than the record has room for, the beginning is taken.
// 0, or -1 when bytes are missing or a text has no end; the record is then half read.
[[nodiscard]] int swi_unpack(const swi_layout &layout, std::span<const uint8_t> bytes,
                             void *record);

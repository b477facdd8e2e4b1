#include "swi/layout.h"

#include <algorithm>
#include <cstring>

// Numbers go byte by byte: nothing is assumed about the alignment of received bytes or about the
// machine's own order.
static uint32_t load(const uint8_t *member, size_t bytes)
{
    uint8_t narrow = 0;
    uint16_t medium = 0;
    uint32_t wide = 0;
    switch (bytes) {
    case sizeof(narrow):
        memcpy(&narrow, member, sizeof(narrow));
        return narrow;
    case sizeof(medium):
        memcpy(&medium, member, sizeof(medium));
        return medium;
    default:
        memcpy(&wide, member, sizeof(wide));
        return wide;
    }
}

static void store(uint8_t *member, size_t bytes, uint32_t value)
{
    const auto narrow = static_cast<uint8_t>(value);
    const auto medium = static_cast<uint16_t>(value);
    switch (bytes) {
    case sizeof(narrow):
        memcpy(member, &narrow, sizeof(narrow));
        break;
    case sizeof(medium):
        memcpy(member, &medium, sizeof(medium));
        break;
    default:
        memcpy(member, &value, sizeof(value));
        break;
    }
}

struct wire_writer {
    std::span<uint8_t> left;
    size_t written = 0;

    uint8_t *take(size_t bytes)
    {
        if (bytes > left.size())
            return nullptr;
        uint8_t *place = left.data();
        left = left.subspan(bytes);
        written += bytes;
        return place;
    }

    int put_number(uint32_t value, size_t bytes)
    {
        uint8_t *place = take(bytes);
        for (size_t i = 0; place && i < bytes; i++)
            place[i] = static_cast<uint8_t>(value >> (8 * i));
        return place ? 0 : -1;
    }
};

struct wire_reader {
    std::span<const uint8_t> left;

    const uint8_t *take(size_t bytes)
    {
        if (bytes > left.size())
            return nullptr;
        const uint8_t *place = left.data();
        left = left.subspan(bytes);
        return place;
    }

    int get_number(uint32_t &value, size_t bytes)
    {
        const uint8_t *place = take(bytes);
        value = 0;
        for (size_t i = 0; place && i < bytes; i++)
            value |= static_cast<uint32_t>(place[i]) << (8 * i);
        return place ? 0 : -1;
    }
};

static int write_record(wire_writer &out, const swi_layout &layout, const uint8_t *record);

static int write_list(wire_writer &out, const swi_field &field, const uint8_t *record)
{
    const uint32_t count = load(record + field.count_offset, swi_list_count_bytes);
    if (count > field.count_max || out.put_number(count, swi_list_count_bytes) != 0)
        return -1;
    for (uint32_t i = 0; i < count; i++)
        if (write_record(out, *field.element, record + field.offset + i * field.bytes) != 0)
            return -1;
    return 0;
}

static int write_field(wire_writer &out, const swi_field &field, const uint8_t *record)
{
    const uint8_t *member = record + field.offset;
    if (field.kind == swi_field_kind::number)
        return out.put_number(load(member, field.bytes), field.bytes);
    if (field.kind == swi_field_kind::list)
        return write_list(out, field, record);
    uint8_t *place = out.take(field.bytes);
    if (!place)
        return -1;
    size_t used = 0;
    if (field.kind == swi_field_kind::bytes)
        used = field.bytes;
    else if (field.kind == swi_field_kind::text)
        used = strnlen(reinterpret_cast<const char *>(member), field.bytes - 1U);
    if (used > 0)
        memcpy(place, member, used);
    memset(place + used, 0, field.bytes - used);
    return 0;
}

static int write_record(wire_writer &out, const swi_layout &layout, const uint8_t *record)
{
    for (const swi_field &field : layout.fields)
        if (write_field(out, field, record) != 0)
            return -1;
    return 0;
}

int swi_pack(const swi_layout &layout, const void *record, std::span<uint8_t> out, size_t *length)
{
    wire_writer writer{out};
    if (write_record(writer, layout, static_cast<const uint8_t *>(record)) != 0)
        return -1;
    *length = writer.written;
    return 0;
}

static int read_record(wire_reader &in, const swi_layout &layout, uint8_t *record);

static int read_list(wire_reader &in, const swi_field &field, uint8_t *record)
{
    uint32_t count = 0;
    if (in.get_number(count, swi_list_count_bytes) != 0)
        return -1;
    const uint32_t kept = std::min<uint32_t>(count, field.count_max);
    store(record + field.count_offset, swi_list_count_bytes, kept);
    for (uint32_t i = 0; i < kept; i++)
        if (read_record(in, *field.element, record + field.offset + i * field.bytes) != 0)
            return -1;
    return in.take((count - kept) * field.element->wire_bytes_max) ? 0 : -1;
}

static int read_field(wire_reader &in, const swi_field &field, uint8_t *record)
{
    if (field.kind == swi_field_kind::list)
        return read_list(in, field, record);
    if (field.kind == swi_field_kind::number) {
        uint32_t value = 0;
        if (in.get_number(value, field.bytes) != 0)
            return -1;
        store(record + field.offset, field.bytes, value);
        return 0;
    }
    const uint8_t *place = in.take(field.bytes);
    if (!place)
        return -1;
    if (field.kind == swi_field_kind::padding)
        return 0;
    if (field.kind == swi_field_kind::text && !memchr(place, 0, field.bytes))
        return -1;
    memcpy(record + field.offset, place, field.bytes);
    return 0;
}

static int read_record(wire_reader &in, const swi_layout &layout, uint8_t *record)
{
    for (const swi_field &field : layout.fields)
        if (read_field(in, field, record) != 0)
            return -1;
    return 0;
}

int swi_unpack(const swi_layout &layout, std::span<const uint8_t> bytes, void *record)
{
    wire_reader reader{bytes};
    return read_record(reader, layout, static_cast<uint8_t *>(record));
}

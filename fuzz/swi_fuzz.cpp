// Any packet is read within its bounds or refused; what was read as a record can be packed again and
// gives the same record.

#include "swi/operations.h"
#include "swi/packet.h"

#include <array>
#include <cstdlib>
#include <cstring>

constexpr size_t record_bytes_max = 4096;

// A payload lies within its packet, at its end.
static void expect_tail(std::span<const uint8_t> whole, std::span<const uint8_t> tail)
{
    if (tail.size() > whole.size() || tail.data() + tail.size() != whole.data() + whole.size())
        abort();
}

static void read_record(const swi_layout &layout, std::span<const uint8_t> bytes)
{
    alignas(std::max_align_t) static std::array<uint8_t, record_bytes_max> record, again;
    static std::array<uint8_t, 2 * record_bytes_max> packed;
    record.fill(0);
    again.fill(0);
    if (swi_unpack(layout, bytes, record.data()) != 0)
        return;
    size_t length = 0;
    if (swi_pack(layout, record.data(), packed, &length) != 0 || length < layout.wire_bytes_min ||
        length > layout.wire_bytes_max)
        abort();
    // Behind the end of a text a packed record has zeros, so the bytes are compared from then on.
    static std::array<uint8_t, 2 * record_bytes_max> packed_again;
    size_t length_again = 0;
    if (swi_unpack(layout, std::span(packed).first(length), again.data()) != 0 ||
        swi_pack(layout, again.data(), packed_again, &length_again) != 0 ||
        length_again != length || memcmp(packed.data(), packed_again.data(), length) != 0)
        abort();
}

static void read_parameters(std::span<const uint8_t> parameters)
{
    for (const swi_operation &operation : swi_operations) {
        read_record(*operation.request, parameters);
        read_record(*operation.response, parameters);
    }
    for (const swi_notification_row &row : swi_notifications)
        read_record(*row.layout, parameters);
}

static void read_packet(std::span<const uint8_t> bytes)
{
    swi_header header;
    swi_object_header object;
    std::span<const uint8_t> payload;
    std::span<const uint8_t> parameters;
    if (swi_packet_read(bytes, header, payload) != 0)
        return;
    expect_tail(bytes, payload);
    if (swi_object_read(payload, object, parameters) != 0)
        return;
    expect_tail(payload, parameters);
    read_parameters(parameters);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    read_packet({data, size});
    read_parameters({data, size});
    return 0;
}

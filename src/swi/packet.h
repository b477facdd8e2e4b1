// Packets as bytes: the header of every packet and the object header of the most frequent kind, and
// back. Both ends of a channel use this, so neither can disagree with the other about a length.
#pragma once

#include "swi/wire.h"

#include <span>

// One packet being written: the header first, then whatever follows it, each part by its layout.
class swi_packet_writer
{
public:
    // Writes to `out`, which the writer does not own.
    swi_packet_writer(std::span<uint8_t> out, const swi_header &header) : out_(out), header_(header)
    {
    }

    // Appends a record, or bytes as they are. 0, or -1 when there is no room.
    [[nodiscard]] int add(const swi_layout &layout, const void *record);
    [[nodiscard]] int add_bytes(std::span<const uint8_t> bytes);
    template <class Record>
    [[nodiscard]] int add(const Record &record)
    {
        return add(swi_layout_of<Record>, &record);
    }

    // Writes the header and returns the whole packet; empty when there is no room for it.
    [[nodiscard]] std::span<const uint8_t> finish();

private:
    std::span<uint8_t> out_;
    swi_header header_;
    size_t used_ = swi_header_bytes;
};

// Reads a packet: its mark, version and lengths are right, and `payload` is what follows the
// header. 0, or -1 for anything else.
[[nodiscard]] int swi_packet_read(std::span<const uint8_t> bytes, swi_header &header,
                                  std::span<const uint8_t> &payload);

// Reads the object header of a payload; `parameters` is what follows it, exactly as long as it
// says. 0 or -1.
[[nodiscard]] int swi_object_read(std::span<const uint8_t> payload, swi_object_header &header,
                                  std::span<const uint8_t> &parameters);

// The row of a kind of packet, null for a number that is none.
[[nodiscard]] const swi_packet_kind *swi_packet_kind_find(unsigned id);

// Looks whether the table of packet kinds says what the layouts make of it. Null when it does,
// otherwise the text of the fault, valid until the next call, with its number in *data.
[[nodiscard]] const char *swi_packet_kinds_fault(std::span<const swi_packet_kind> kinds, int *data);

// Room for the parameters of a packet of this kind.
[[nodiscard]] size_t swi_parameters_max(unsigned kind);

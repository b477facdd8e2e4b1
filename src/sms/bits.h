// Checked reading of received octets, and writing of fields that end anywhere in an octet. A reader
// borrows its octets, and says false, having moved nowhere, when fewer are left than asked for.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

struct octet_reader {
    std::span<const uint8_t> rest;

    [[nodiscard]] bool take(size_t count, std::span<const uint8_t> &octets)
    {
        if (rest.size() < count)
            return false;
        octets = rest.first(count);
        rest = rest.subspan(count);
        return true;
    }

    [[nodiscard]] bool octet(uint8_t &value)
    {
        if (rest.empty())
            return false;
        value = rest.front();
        rest = rest.subspan(1);
        return true;
    }
};

// Fields high bit first, as 3GPP2 has them.
struct bit_reader {
    std::span<const uint8_t> octets;
    size_t position = 0; // in bits

    [[nodiscard]] size_t left() const { return octets.size() * 8 - position; }

    // A field of at most 32 bits.
    template <typename number>
    [[nodiscard]] bool field(unsigned bits, number &value)
    {
        if (left() < bits)
            return false;
        uint32_t sum = 0;
        while (bits > 0) {
            const auto offset = static_cast<unsigned>(position % 8);
            const unsigned width = std::min(bits, 8 - offset);
            const unsigned chunk = octets[position / 8] >> (8 - offset - width);
            sum = sum << width | (chunk & ((1u << width) - 1));
            position += width;
            bits -= width;
        }
        value = static_cast<number>(sum);
        return true;
    }
};

struct bit_writer {
    std::vector<uint8_t> octets;
    unsigned used = 8; // bits of the last octet

    void field(unsigned bits, uint32_t value)
    {
        while (bits > 0) {
            if (used == 8) {
                octets.push_back(0);
                used = 0;
            }
            const unsigned width = std::min(bits, 8 - used);
            bits -= width;
            used += width;
            const uint32_t chunk = value >> bits & ((1u << width) - 1);
            octets.back() = static_cast<uint8_t>(octets.back() | chunk << (8 - used));
        }
    }
};

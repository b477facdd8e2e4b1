#include "swi/packet.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

int swi_packet_writer::add(const swi_layout &layout, const void *record)
{
    size_t length = 0;
    if (used_ > out_.size() || swi_pack(layout, record, out_.subspan(used_), &length) != 0)
        return -1;
    used_ += length;
    return 0;
}

int swi_packet_writer::add_bytes(std::span<const uint8_t> bytes)
{
    if (used_ > out_.size() || bytes.size() > out_.size() - used_)
        return -1;
    std::copy(bytes.begin(), bytes.end(), out_.begin() + static_cast<std::ptrdiff_t>(used_));
    used_ += bytes.size();
    return 0;
}

std::span<const uint8_t> swi_packet_writer::finish()
{
    size_t length = 0;
    header_.payload_bytes = static_cast<uint16_t>(used_ - swi_header_bytes);
    if (used_ > out_.size() || used_ > swi_notification_bytes_max ||
        swi_pack(swi_layout_of<swi_header>, &header_, out_, &length) != 0)
        return {};
    return out_.first(used_);
}

int swi_packet_read(std::span<const uint8_t> bytes, swi_header &header,
                    std::span<const uint8_t> &payload)
{
    if (swi_unpack(swi_layout_of<swi_header>, bytes, &header) != 0 || header.mark != swi_mark ||
        header.version != swi_version || header.payload_bytes != bytes.size() - swi_header_bytes)
        return -1;
    payload = bytes.subspan(swi_header_bytes);
    return 0;
}

int swi_object_read(std::span<const uint8_t> payload, swi_object_header &header,
                    std::span<const uint8_t> &parameters)
{
    if (swi_unpack(swi_layout_of<swi_object_header>, payload, &header) != 0 ||
        header.parameter_bytes != payload.size() - swi_object_header_bytes)
        return -1;
    parameters = payload.subspan(swi_object_header_bytes);
    return 0;
}

const swi_packet_kind *swi_packet_kind_find(unsigned id)
{
    for (const swi_packet_kind &kind : swi_packet_kinds)
        if (kind.id == id)
            return &kind;
    return nullptr;
}

// What the layouts put in front of the parameters of each kind.
static size_t front_bytes(const swi_packet_kind &kind, bool response)
{
    if (kind.id == swi_kind_object)
        return swi_header_bytes + swi_layout_of<swi_object_header>.wire_bytes_min;
    const bool has_status = response && kind.id != swi_kind_air_server;
    return swi_header_bytes + (has_status ? swi_layout_of<swi_plain_response>.wire_bytes_min : 0);
}

const char *swi_packet_kinds_fault(std::span<const swi_packet_kind> kinds, int *data)
{
    struct direction {
        const char *suffix;
        swi_packet_sizes swi_packet_kind::*sizes;
        bool response;
        size_t total;
        bool optional;
    };
    static constexpr direction directions[] = {
        {"REQ", &swi_packet_kind::request, false, swi_response_bytes_max, false},
        {"RESP", &swi_packet_kind::response, true, swi_response_bytes_max, false},
        {"NOTIF", &swi_packet_kind::notification, false, swi_notification_bytes_max, true},
    };
    static char text[48];
    for (const swi_packet_kind &kind : kinds) {
        for (const direction &way : directions) {
            const swi_packet_sizes &sizes = kind.*way.sizes;
            *data = kind.id;
            if (way.optional && sizes.total == 0)
                continue;
            if (sizes.bytes != front_bytes(kind, way.response)) {
                snprintf(text, sizeof(text), "Update %s%sSZ", kind.name, way.suffix);
                return text;
            }
            if (sizes.total != way.total) {
                snprintf(text, sizeof(text), "%s%sTOTAL needs updating\n", kind.name, way.suffix);
                return text;
            }
        }
    }
    return nullptr;
}

size_t swi_parameters_max(unsigned kind)
{
    const swi_packet_kind *row = swi_packet_kind_find(kind);
    return row ? row->request.total - row->request.bytes : 0;
}

#include "qmi/qmux.h"

#include "qmi/tlv.h"

constexpr uint8_t sender_modem = 0x80;

// The kind byte: the control service counts its bits from another end than all the others.
struct kind_bytes {
    qmux_kind kind;
    uint8_t control, service;
};

constexpr kind_bytes kinds[] = {
    {qmux_request, 0x00, 0x00},
    {qmux_response, 0x01, 0x02},
    {qmux_indication, 0x02, 0x04},
};

static size_t inner_header_bytes(uint8_t service)
{
    return service == qmi_ctl ? qmux_ctl_header_bytes : qmux_service_header_bytes;
}

int qmux_frame_size(std::span<const uint8_t> bytes, size_t &size)
{
    size = 0;
    if (!bytes.empty() && bytes[0] != qmux_marker)
        return -1;
    if (bytes.size() < qmux_header_bytes)
        return 0;
    tlv_fields header{bytes.subspan(1)};
    uint16_t length = 0;
    uint8_t sender = 0;
    uint8_t service = 0;
    (void)(header.number(length) && header.number(sender) && header.number(service));
    if (1u + length < qmux_header_bytes + inner_header_bytes(service))
        return -1;
    size = 1u + length;
    return 0;
}

int qmux_decode(std::span<const uint8_t> frame, qmux_message &message)
{
    size_t size = 0;
    if (qmux_frame_size(frame, size) != 0 || size == 0 || size != frame.size())
        return -1;
    tlv_fields fields{frame.subspan(1 + 2)};
    uint8_t sender = 0;
    uint8_t kind = 0;
    if (!fields.number(sender) || !fields.number(message.service) ||
        !fields.number(message.client_id) || !fields.number(kind))
        return -1;
    message.from_modem = (sender & sender_modem) != 0;
    const kind_bytes *row = nullptr;
    for (const kind_bytes &candidate : kinds)
        if (kind == (message.service == qmi_ctl ? candidate.control : candidate.service))
            row = &candidate;
    if (!row)
        return -1;
    message.kind = row->kind;
    uint8_t narrow = 0;
    uint16_t tlv_bytes = 0;
    if (message.service == qmi_ctl ? !fields.number(narrow) : !fields.number(message.transaction))
        return -1;
    if (message.service == qmi_ctl)
        message.transaction = narrow;
    if (!fields.number(message.id) || !fields.number(tlv_bytes) || fields.rest.size() != tlv_bytes)
        return -1;
    message.tlvs = fields.rest;
    return 0;
}

int qmux_encode(const qmux_message &message, std::vector<uint8_t> &frame)
{
    frame.clear();
    const bool control = message.service == qmi_ctl;
    const size_t size =
        qmux_header_bytes + inner_header_bytes(message.service) + message.tlvs.size();
    if (size > qmux_frame_bytes_max || (control && message.transaction > 0xFF))
        return -1;
    frame.reserve(size);
    tlv_put(frame, qmux_marker);
    tlv_put(frame, static_cast<uint16_t>(size - 1));
    tlv_put(frame, message.from_modem ? sender_modem : uint8_t{0});
    tlv_put(frame, message.service);
    tlv_put(frame, message.client_id);
    tlv_put(frame, control ? kinds[message.kind].control : kinds[message.kind].service);
    if (control)
        tlv_put(frame, static_cast<uint8_t>(message.transaction));
    else
        tlv_put(frame, message.transaction);
    tlv_put(frame, message.id);
    tlv_put(frame, static_cast<uint16_t>(message.tlvs.size()));
    frame.insert(frame.end(), message.tlvs.begin(), message.tlvs.end());
    return 0;
}

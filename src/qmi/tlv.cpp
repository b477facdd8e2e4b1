#include "qmi/tlv.h"

int tlv_next(std::span<const uint8_t> &rest, tlv &item)
{
    if (rest.empty())
        return 0;
    tlv_fields fields{rest};
    uint16_t length = 0;
    if (!fields.number(item.type) || !fields.number(length) || !fields.octets(length, item.value))
        return -1;
    rest = fields.rest;
    return 1;
}

int tlv_check(std::span<const uint8_t> tlvs)
{
    tlv item;
    int taken = 1;
    while (taken == 1)
        taken = tlv_next(tlvs, item);
    return taken;
}

std::optional<std::span<const uint8_t>> tlv_find(std::span<const uint8_t> tlvs, uint8_t type)
{
    tlv item;
    while (tlv_next(tlvs, item) == 1)
        if (item.type == type)
            return item.value;
    return std::nullopt;
}

int tlv_read_result(std::span<const uint8_t> tlvs, tlv_result &result)
{
    const auto value = tlv_find(tlvs, tlv_result_type);
    if (!value)
        return -1;
    tlv_fields fields{*value};
    return fields.number(result.status) && fields.number(result.error) ? 0 : -1;
}

void tlv_writer::begin(uint8_t type)
{
    (void)end();
    tlv_put(bytes, type);
    tlv_put(bytes, uint16_t{0});
    open = bytes.size();
}

void tlv_writer::octets(std::span<const uint8_t> value)
{
    bytes.insert(bytes.end(), value.begin(), value.end());
}

void tlv_writer::text(std::string_view value)
{
    bytes.insert(bytes.end(), value.begin(), value.end());
}

int tlv_writer::end()
{
    if (open != 0) {
        const size_t length = bytes.size() - open;
        spoiled = spoiled || length > tlv_value_bytes_max;
        bytes[open - 2] = static_cast<uint8_t>(length);
        bytes[open - 1] = static_cast<uint8_t>(length >> 8);
        open = 0;
    }
    return spoiled ? -1 : 0;
}

#include "sim/qmi_faults.h"

#include "qmi/qmux.h"
#include "qmi/tlv.h"

#include <algorithm>
#include <array>
#include <vector>

static constexpr size_t service_at = 1 + 2 + 1;
static constexpr size_t client_at = service_at + 1;
static constexpr size_t transaction_at = qmux_header_bytes + 1;

// Where a TLV is in a frame.
struct tlv_place {
    uint8_t type;
    size_t at;
    size_t value_bytes;
};

struct spoilt_frame {
    std::string bytes;

    [[nodiscard]] bool control() const { return bytes[service_at] == 0; }
    [[nodiscard]] size_t message_at() const { return transaction_at + (control() ? 1 : 2); }
    [[nodiscard]] size_t tlvs_at() const { return message_at() + 2 + 2; }

    [[nodiscard]] std::vector<tlv_place> places() const
    {
        std::vector<tlv_place> found;
        const std::span<const uint8_t> all(reinterpret_cast<const uint8_t *>(bytes.data()),
                                           bytes.size());
        std::span<const uint8_t> rest = all.subspan(tlvs_at());
        tlv item;
        size_t at = tlvs_at();
        while (tlv_next(rest, item) == 1) {
            found.push_back({item.type, at, item.value.size()});
            at = all.size() - rest.size();
        }
        return found;
    }

    void put_number(size_t at, size_t number)
    {
        bytes[at] = static_cast<char>(number);
        bytes[at + 1] = static_cast<char>(number >> 8);
    }

    void cut(size_t at, size_t count)
    {
        bytes.erase(at, count);
        put_number(1, bytes.size() - 1);
        put_number(tlvs_at() - 2, bytes.size() - tlvs_at());
    }
};

// The TLV that was asked for, else the first mandatory one of the message's own.
static std::optional<tlv_place> choose(const spoilt_frame &frame, std::optional<int64_t> type)
{
    const std::vector<tlv_place> places = frame.places();
    const auto named = [&](const tlv_place &place) { return place.type == type; };
    const auto own = [](const tlv_place &place) { return place.type != tlv_result_type; };
    auto found = type ? std::find_if(places.begin(), places.end(), named)
                      : std::find_if(places.begin(), places.end(), own);
    if (!type && found == places.end())
        found = places.begin();
    return found == places.end() ? std::nullopt : std::optional(*found);
}

static void add_one(spoilt_frame &frame, size_t at)
{
    const auto byte = static_cast<uint8_t>(frame.bytes[at]);
    frame.bytes[at] = static_cast<char>(byte % 254 + 1); // neither 0 nor the broadcast
}

static void wrong_transaction(spoilt_frame &frame, std::optional<int64_t>)
{
    add_one(frame, transaction_at);
}

static void wrong_client(spoilt_frame &frame, std::optional<int64_t>)
{
    add_one(frame, client_at);
}

static void wrong_message(spoilt_frame &frame, std::optional<int64_t>)
{
    add_one(frame, frame.message_at());
}

static void tlv_overrun(spoilt_frame &frame, std::optional<int64_t> type)
{
    if (const auto place = choose(frame, type))
        frame.put_number(place->at + 1, frame.bytes.size());
}

static void tlv_short(spoilt_frame &frame, std::optional<int64_t> type)
{
    const auto place = choose(frame, type);
    if (!place || place->value_bytes == 0)
        return;
    frame.put_number(place->at + 1, place->value_bytes - 1);
    frame.cut(place->at + tlv_header_bytes + place->value_bytes - 1, 1);
}

static void tlv_missing(spoilt_frame &frame, std::optional<int64_t> type)
{
    if (const auto place = choose(frame, type))
        frame.cut(place->at, tlv_header_bytes + place->value_bytes);
}

struct spoiler {
    std::string_view name;
    void (*spoil)(spoilt_frame &, std::optional<int64_t>);
};

static constexpr std::array spoilers = {
    spoiler{"wrong_transaction", wrong_transaction},
    spoiler{"wrong_client", wrong_client},
    spoiler{"wrong_message", wrong_message},
    spoiler{"tlv_overrun", tlv_overrun},
    spoiler{"tlv_short", tlv_short},
    spoiler{"tlv_missing", tlv_missing},
};

std::string qmi_spoil(std::string_view fault_name, std::optional<int64_t> tlv,
                      std::string_view frame)
{
    spoilt_frame spoilt = {std::string(frame)};
    if (spoilt.bytes.size() < qmux_header_bytes + qmux_service_header_bytes)
        return spoilt.bytes;
    for (const spoiler &row : spoilers)
        if (row.name == fault_name)
            row.spoil(spoilt, tlv);
    return spoilt.bytes;
}

// The Gobi modem's short messages: two storages, what arrives, what is sent.

#include "sim/gobi.h"
#include "sim/qmi_tlvs.h"
#include "sms/pdu_3gpp.h"
#include "sms/pdu_cdma.h"

#include <algorithm>
#include <array>

static constexpr size_t sent_max = 10000;
static constexpr size_t routes_max = 16;

enum message_format : uint8_t { format_cdma = 0, format_gsm = 6 };
enum message_mode : uint8_t { mode_cdma = 0, mode_gsm = 1 };

static constexpr std::array storage_names = {"UIM", "NV"};
static constexpr std::array tag_names = {"read", "unread", "sent", "unsent"};
static constexpr std::array mode_names = {"cdma", "gsm"};

template <size_t Count>
static uint8_t number_of(const std::array<const char *, Count> &names, const std::string &name)
{
    const auto found = std::find(names.begin(), names.end(), name);
    return static_cast<uint8_t>(found - names.begin());
}

static uint8_t format_of(const gobi_message &message)
{
    return message.mode == "cdma" ? format_cdma : format_gsm;
}

// ---- storages

static int64_t slots_of(const gobi_state &state, const std::string &storage)
{
    return storage == "UIM" ? state.uim_slots : state.nv_slots;
}

int64_t gobi_store(gobi_modem &modem, gobi_message message)
{
    const auto taken = [&](int64_t index) {
        return std::any_of(modem.messages.begin(), modem.messages.end(), [&](const auto &other) {
            return other.storage == message.storage && other.index == index;
        });
    };
    const int64_t slots = slots_of(modem.state, message.storage);
    if (message.index < 0) {
        message.index = 0;
        while (message.index < slots && taken(message.index))
            message.index++;
    } else if (taken(message.index)) {
        return -1;
    }
    if (message.index >= slots)
        return -1;
    const int64_t index = message.index;
    modem.messages.push_back(std::move(message));
    return index;
}

// Whether a storage is one, and there.
static uint16_t check_storage(const gobi_modem &modem, uint8_t storage)
{
    if (storage >= storage_names.size())
        return qmi_error_invalid_argument;
    return storage == 0 && gobi_uim_state(modem.state) != 0 ? qmi_error_device_not_ready
                                                            : qmi_error_none;
}

// Which messages a request means.
struct message_filter {
    uint8_t storage = 0;
    std::optional<uint32_t> index;
    std::optional<uint8_t> tag;
    std::optional<uint8_t> mode;

    [[nodiscard]] bool takes(const gobi_message &message) const
    {
        return number_of(storage_names, message.storage) == storage &&
               (!index || message.index == *index) &&
               (!tag || number_of(tag_names, message.tag) == *tag) &&
               (!mode || number_of(mode_names, message.mode) == *mode);
    }
};

static std::optional<uint8_t> small_number(const qmi_call &call, uint8_t type)
{
    uint8_t number = 0;
    auto fields = call.find(type);
    return fields && fields->number(number) ? std::optional(number) : std::nullopt;
}

// Clients disagree about the numbers of the two filters: either tag 0x11 and mode 0x12, or tag 0x10
// and mode 0x11.
static uint16_t list_messages(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    message_filter filter;
    tlv_fields fields = *call.find(0x01);
    (void)fields.number(filter.storage);
    if (const uint16_t error = check_storage(modem, filter.storage))
        return error;
    filter.tag = small_number(call, 0x10);
    filter.mode = small_number(call, 0x12);
    if (!filter.mode)
        filter.mode = small_number(call, 0x11);
    else if (!filter.tag)
        filter.tag = small_number(call, 0x11);
    std::vector<const gobi_message *> listed;
    for (const gobi_message &message : modem.messages)
        if (filter.takes(message))
            listed.push_back(&message);
    const auto by_index = [](const gobi_message *left, const gobi_message *right) {
        return left->index < right->index;
    };
    std::sort(listed.begin(), listed.end(), by_index);
    tlv_add(answer, 0x01, static_cast<uint32_t>(listed.size()));
    for (const gobi_message *message : listed) {
        answer.number(u32(message->index));
        answer.number(number_of(tag_names, message->tag));
    }
    return qmi_error_none;
}

// The message at the storage and place that the fields name, in that mode if one is given.
static gobi_message *find_message(gobi_modem &modem, tlv_fields &fields,
                                  std::optional<uint8_t> mode, uint16_t &error)
{
    message_filter filter;
    uint32_t index = 0;
    (void)(fields.number(filter.storage) && fields.number(index));
    filter.index = index;
    filter.mode = mode;
    error = check_storage(modem, filter.storage);
    if (error != qmi_error_none)
        return nullptr;
    for (gobi_message &message : modem.messages)
        if (filter.takes(message))
            return &message;
    error = qmi_error_no_entry;
    return nullptr;
}

static uint16_t read_message(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    tlv_fields fields = *call.find(0x01);
    uint16_t error = qmi_error_none;
    const gobi_message *message = find_message(modem, fields, small_number(call, 0x10), error);
    if (!message)
        return error;
    const std::vector<uint8_t> octets = gobi_octets(message->pdu);
    tlv_add(answer, 0x01, number_of(tag_names, message->tag), format_of(*message),
            static_cast<uint16_t>(octets.size()));
    answer.octets(octets);
    return qmi_error_none;
}

static uint16_t modify_tag(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint16_t error = qmi_error_none;
    gobi_message *message = find_message(modem, fields, small_number(call, 0x10), error);
    uint8_t tag = 0;
    (void)fields.number(tag);
    if (!message)
        return error;
    if (tag >= tag_names.size())
        return qmi_error_invalid_argument;
    message->tag = tag_names[tag];
    return qmi_error_none;
}

static uint16_t delete_messages(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    message_filter filter;
    tlv_fields fields = *call.find(0x01);
    (void)fields.number(filter.storage);
    if (const uint16_t error = check_storage(modem, filter.storage))
        return error;
    uint32_t index = 0;
    if (auto given = call.find(0x10)) {
        if (!given->number(index))
            return qmi_error_malformed;
        filter.index = index;
    }
    filter.tag = small_number(call, 0x11);
    filter.mode = small_number(call, 0x12);
    const size_t gone = std::erase_if(
        modem.messages, [&](const gobi_message &message) { return filter.takes(message); });
    return gone == 0 && filter.index ? qmi_error_no_entry : qmi_error_none;
}

// ---- from clients

static bool read_raw(tlv_fields &fields, uint8_t &format, std::vector<uint8_t> &octets)
{
    uint16_t count = 0;
    std::span<const uint8_t> taken;
    if (!fields.number(format) || !fields.number(count) || !fields.octets(count, taken))
        return false;
    octets.assign(taken.begin(), taken.end());
    return true;
}

static uint16_t write_message(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    tlv_fields fields = *call.find(0x01);
    uint8_t storage = 0;
    uint8_t format = 0;
    std::vector<uint8_t> octets;
    if (!fields.number(storage) || !read_raw(fields, format, octets))
        return qmi_error_malformed;
    if (const uint16_t error = check_storage(modem, storage))
        return error;
    gobi_message message;
    message.storage = storage_names[storage];
    message.tag = "unsent";
    message.mode = format == format_cdma ? "cdma" : "gsm";
    message.pdu = gobi_hex(octets);
    const int64_t index = gobi_store(modem, std::move(message));
    if (index < 0)
        return qmi_error_device_storage_full;
    tlv_add(answer, 0x01, u32(index));
    return qmi_error_none;
}

// What a PDU says to whom; false if the network would not take it.
static bool read_submit(uint8_t format, const std::vector<uint8_t> &octets, gobi_message &message)
{
    pdu_3gpp gsm;
    pdu_cdma cdma;
    if (format == format_gsm) {
        message.mode = "gsm";
        if (pdu_3gpp_decode(octets, gsm) != 0 || gsm.kind != pdu_3gpp_submit)
            return false;
        message.from = gsm.number.number;
        message.text = gsm.body.text.value_or("");
        return true;
    }
    message.mode = "cdma";
    if (format != format_cdma || pdu_cdma_decode(octets, cdma) != 0 || cdma.kind != pdu_cdma_submit)
        return false;
    message.from = cdma.number.number;
    message.text = cdma.body.text.value_or("");
    return true;
}

static uint16_t fail_sending(const gobi_state &state, uint8_t format, tlv_writer &answer)
{
    if (state.send_error == qmi_error_wms_cause_code && format == format_cdma) {
        tlv_add(answer, 0x10, u16(state.send_rp_cause));
        tlv_add(answer, 0x11, uint8_t{1});
    } else if (state.send_error == qmi_error_wms_cause_code) {
        tlv_add(answer, 0x12, u16(state.send_rp_cause), u8(state.send_tp_cause));
    }
    return u16(state.send_error);
}

static uint16_t send_message(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    gobi_state &state = modem.state;
    tlv_fields fields = *call.find(0x01);
    uint8_t format = 0;
    gobi_message message;
    std::vector<uint8_t> octets;
    if (!read_raw(fields, format, octets))
        return qmi_error_malformed;
    if (!gobi_may_call(state))
        return qmi_error_network_not_ready;
    if (state.send_error != 0)
        return fail_sending(state, format, answer);
    if (!read_submit(format, octets, message))
        return qmi_error_wms_encoding;
    state.message_reference = state.message_reference % 0xFF + 1;
    message.index = state.message_reference;
    message.tag = "sent";
    message.pdu = gobi_hex(octets);
    if (modem.sent.size() < sent_max)
        modem.sent.push_back(std::move(message));
    tlv_add(answer, 0x01, u16(state.message_reference));
    return qmi_error_none;
}

// ---- settings

static uint16_t get_protocol(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, uint8_t{modem.state.modem == "CDMA" ? mode_cdma : mode_gsm});
    return qmi_error_none;
}

static uint16_t set_routes(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint16_t count = 0;
    std::vector<gobi_route> routes;
    (void)fields.number(count);
    for (int i = 0; i < count && routes.size() <= routes_max; i++) {
        gobi_route route = {};
        if (!fields.number(route.type) || !fields.number(route.message_class) ||
            !fields.number(route.storage) || !fields.number(route.action))
            return qmi_error_malformed;
        if (route.action > 3)
            return qmi_error_invalid_argument;
        routes.push_back(route);
    }
    if (routes.size() > routes_max)
        return qmi_error_argument_too_long;
    for (const gobi_route &route : routes) {
        const auto same = [&](const gobi_route &other) {
            return other.type == route.type && other.message_class == route.message_class;
        };
        const auto old = std::find_if(modem.routes.begin(), modem.routes.end(), same);
        if (old == modem.routes.end())
            modem.routes.push_back(route);
        else
            *old = route;
    }
    modem.transfer_reports = small_number(call, 0x10).value_or(0) != 0;
    return qmi_error_none;
}

static uint16_t get_routes(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, static_cast<uint16_t>(modem.routes.size()));
    for (const gobi_route &route : modem.routes) {
        answer.number(route.type);
        answer.number(route.message_class);
        answer.number(route.storage);
        answer.number(route.action);
    }
    tlv_add(answer, 0x10, uint8_t{modem.transfer_reports});
    return qmi_error_none;
}

static uint16_t get_smsc(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const std::string &smsc = modem.state.smsc;
    if (smsc.empty())
        return qmi_error_not_provisioned;
    tlv_add_text(answer, 0x01, smsc[0] == '+' ? "145" : "129");
    answer.counted_text<uint8_t>(smsc);
    return qmi_error_none;
}

static uint16_t set_smsc(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    const auto digits = call.find(0x01)->rest;
    static constexpr size_t digits_max = 21;
    if (digits.size() > digits_max)
        return qmi_error_argument_too_long;
    modem.state.smsc.assign(digits.begin(), digits.end());
    return qmi_error_none;
}

// What a client that gets messages passed through says about one.
static uint16_t acknowledge(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint32_t transaction = 0;
    (void)fields.number(transaction);
    const bool known = transaction != 0 && transaction <= modem.transfer_transaction;
    return known ? qmi_error_none : qmi_error_invalid_argument;
}

// ---- from the network

static uint8_t action_for(const gobi_modem &modem, const gobi_message &message)
{
    static constexpr uint8_t class_none = 4;
    static constexpr uint8_t class_cdma = 5;
    const uint8_t wanted = message.mode == "cdma" ? class_cdma : class_none;
    for (const gobi_route &route : modem.routes)
        if (route.type == 0 && route.message_class == wanted)
            return route.action;
    return 1;
}

static void report(qmi_server &server, const tlv_writer &tlvs)
{
    for (const qmi_client *client : server.clients_of(qmi_wms)) {
        const auto wish = client->reports.find(0x10);
        if (wish != client->reports.end() && !wish->second.empty() && wish->second[0] != 0)
            server.indicate(*client, 0x0001, tlvs.bytes);
    }
}

static void pass_through(gobi_modem &modem, const gobi_message &message, bool acknowledged,
                         qmi_server &server)
{
    const std::vector<uint8_t> octets = gobi_octets(message.pdu);
    const bool gsm = message.mode == "gsm" && !octets.empty();
    const size_t skipped = gsm ? std::min<size_t>(octets[0] + 1U, octets.size()) : 0;
    const std::span<const uint8_t> rest = std::span(octets).subspan(skipped);
    tlv_writer tlvs;
    tlv_add(tlvs, 0x11, uint8_t{acknowledged ? uint8_t{0} : uint8_t{1}},
            ++modem.transfer_transaction, format_of(message), static_cast<uint16_t>(rest.size()));
    tlvs.octets(rest);
    if (tlvs.end() == 0)
        report(server, tlvs);
}

void gobi_take_messages(gobi_modem &modem, qmi_server &server)
{
    if (!gobi_may_call(modem.state))
        return; // the network keeps them
    std::vector<gobi_message> waiting;
    for (gobi_message &message : modem.arriving) {
        const uint8_t action = action_for(modem, message);
        if (action >= 2) {
            pass_through(modem, message, action == 3, server);
        } else if (action == 1) {
            const gobi_message copy = message;
            const int64_t index = gobi_store(modem, copy);
            if (index < 0) {
                waiting.push_back(copy);
                continue;
            }
            tlv_writer tlvs;
            tlv_add(tlvs, 0x10, number_of(storage_names, copy.storage), u32(index));
            tlv_add(tlvs, 0x12, number_of(mode_names, copy.mode));
            if (tlvs.end() == 0)
                report(server, tlvs);
        }
    }
    modem.arriving = std::move(waiting);
}

static constexpr std::array rows = {
    gobi_row{0x0000, {"Reset"}, gobi_reset_client},
    gobi_row{0x0001, {"Set event report"}, gobi_set_event_report},
    gobi_row{0x0020, {"Raw send", 3}, send_message},
    gobi_row{0x0021, {"Raw write", 4}, write_message},
    gobi_row{0x0022, {"Raw read", 5}, read_message},
    gobi_row{0x0023, {"Modify tag", 6}, modify_tag},
    gobi_row{0x0024, {"Delete", 1}, delete_messages},
    gobi_row{0x0030, {"Get message protocol"}, get_protocol},
    gobi_row{0x0031, {"List messages", 1}, list_messages},
    gobi_row{0x0032, {"Set routes", 2}, set_routes},
    gobi_row{0x0033, {"Get routes"}, get_routes},
    gobi_row{0x0034, {"Get service centre address"}, get_smsc},
    gobi_row{0x0035, {"Set service centre address", 1}, set_smsc},
    gobi_row{0x0037, {"Send acknowledgement", 6}, acknowledge},
};

std::span<const gobi_row> gobi_wms_rows()
{
    return rows;
}

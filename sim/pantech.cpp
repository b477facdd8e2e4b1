#include "sim/pantech.h"

#include "sim/bytes.h"
#include "sim/wmc.h"

#include <algorithm>
#include <array>
#include <memory>

static constexpr size_t id_bytes = 11;
static constexpr int64_t reply_bytes_max = 4096;

using field = state_field<pantech_state>;

// clang-format off
static constexpr std::array pantech_table = {
    field{"manufacturer", &pantech_state::manufacturer},
    field{"model",        &pantech_state::model},
    field{"firmware",     &pantech_state::firmware},
    field{"hardware",     &pantech_state::hardware},
    field{"min",          &pantech_state::min},
    field{"meid",         &pantech_state::meid},
    field{"imei",         &pantech_state::imei},
    field{"iccid",        &pantech_state::iccid},
    field{"sim_mcc",      &pantech_state::sim_mcc},
    field{"sim_mnc",      &pantech_state::sim_mnc},
    field{"home_sid",     &pantech_state::home_sid,     nullptr, 0, 255},
    field{"prefmode",     &pantech_state::prefmode,     nullptr, 0, 255},
    field{"apn",          &pantech_state::apn},
    field{"service",      &pantech_state::service,      "LTE|CDMA"},
    field{"signal",       &pantech_state::signal,       nullptr, 0, 255},
    field{"signal_other", &pantech_state::signal_other, nullptr, 0, 255},
    field{"operator",     &pantech_state::operator_name},
    field{"ipv4",         &pantech_state::ipv4},
    field{"ipv6",         &pantech_state::ipv6},
    field{"sms_id",       &pantech_state::sms_id},
    field{"sms_number",   &pantech_state::sms_number},
    field{"sms_text",     &pantech_state::sms_text},
    field{"sms_length",   &pantech_state::sms_length,   nullptr, -1, 255},
    field{"send_result",  &pantech_state::send_result,  nullptr, 0, 255},
    field{"sent_count",   &pantech_state::sent_count,   nullptr, 0, INT32_MAX},
    field{"sent_number",  &pantech_state::sent_number},
    field{"sent_smsc",    &pantech_state::sent_smsc},
    field{"sent_text",    &pantech_state::sent_text},
};

static constexpr std::array override_table = {
    state_field<pantech_override>{"prefix_hex", &pantech_override::prefix_hex},
    state_field<pantech_override>{"at",         &pantech_override::at,     nullptr, 0, reply_bytes_max},
    state_field<pantech_override>{"data_hex",   &pantech_override::data_hex},
    state_field<pantech_override>{"length",     &pantech_override::length, nullptr, -1, reply_bytes_max},
};
// clang-format on

std::span<const state_field<pantech_state>> pantech_fields()
{
    return pantech_table;
}

// ---- replies

// Where the texts and numbers of the state are in a reply.
struct text_place {
    size_t offset;
    size_t width;
    std::string pantech_state::*text;
};

struct byte_place {
    size_t offset;
    int64_t pantech_state::*value;
};

// clang-format off
static constexpr text_place info_texts[] = {
    {29,  63, &pantech_state::manufacturer},
    {93,  63, &pantech_state::model},
    {157, 63, &pantech_state::firmware},
    {221, 63, &pantech_state::hardware},
    {413, 21, &pantech_state::min},
    {513, 15, &pantech_state::meid},
    {533, 21, &pantech_state::imei},
    {571, 21, &pantech_state::iccid},
    {597, 15, &pantech_state::sim_mcc},
    {613, 15, &pantech_state::sim_mnc},
};
static constexpr byte_place info_bytes[] = {
    {435, &pantech_state::home_sid},
    {529, &pantech_state::prefmode},
};
static constexpr text_place status_texts[] = {
    {75, 67, &pantech_state::operator_name},
};
static constexpr byte_place status_bytes[] = {
    {26,  &pantech_state::signal_other},
    {143, &pantech_state::signal},
};
static constexpr text_place address_texts[] = {
    {26, 15, &pantech_state::ipv4},
    {50, 39, &pantech_state::ipv6},
};
static constexpr text_place message_texts[] = {
    {1041, 17,  &pantech_state::sms_number},
    {1169, 160, &pantech_state::sms_text},
};
// clang-format on

static constexpr size_t apn_offset = 10;
static constexpr size_t apn_width = 263;
static constexpr size_t message_id_offset = 1113;
static constexpr size_t message_length_offset = 1165;

static void put(std::string &reply, size_t offset, std::string_view bytes)
{
    reply.replace(offset, bytes.size(), bytes);
}

static void put_texts(std::string &reply, const pantech_state &state,
                      std::span<const text_place> places)
{
    for (const text_place &place : places)
        put(reply, place.offset, std::string_view(state.*place.text).substr(0, place.width));
}

static void put_bytes(std::string &reply, const pantech_state &state,
                      std::span<const byte_place> places)
{
    for (const byte_place &place : places)
        reply[place.offset] = static_cast<char>(state.*place.value);
}

static void reply_info(const pantech_state &state, std::string &reply)
{
    put_texts(reply, state, info_texts);
    put_bytes(reply, state, info_bytes);
}

static void reply_addresses(const pantech_state &state, std::string &reply)
{
    put_texts(reply, state, address_texts);
}

static void reply_status(const pantech_state &state, std::string &reply)
{
    if (state.service != "LTE")
        wmc_resize_reply(reply, reply.size() - 1);
    put_texts(reply, state, status_texts);
    put_bytes(reply, state, status_bytes);
}

// As long as the name needs, unlike all others.
static void reply_apn(const pantech_state &state, std::string &reply)
{
    const std::string_view apn = std::string_view(state.apn).substr(0, apn_width);
    put(reply, apn_offset, apn);
    wmc_resize_reply(reply, apn_offset + apn.size() + 1 + wmc_terminator.size());
}

static void reply_message(const pantech_state &state, std::string &reply)
{
    if (state.sms_number.empty())
        return;
    std::string id;
    bytes_from_hex(state.sms_id, id);
    put(reply, message_id_offset, id);
    put_texts(reply, state, message_texts);
    const size_t length =
        state.sms_length >= 0 ? static_cast<size_t>(state.sms_length) : state.sms_text.size();
    reply[message_length_offset] = static_cast<char>(std::min<size_t>(length, 255));
}

static void reply_sent(const pantech_state &state, std::string &reply)
{
    reply[2] = static_cast<char>(state.send_result);
}

struct command {
    uint8_t code;
    size_t reply_bytes;
    void (*fill)(const pantech_state &state, std::string &reply); // null: there is nothing to say
};

static constexpr std::array commands = {
    command{0x06, 644, reply_info},     command{0x0A, 93, reply_addresses},
    command{0x0B, 154, reply_status},   command{0x11, 9, nullptr},
    command{0x13, 1536, reply_message}, command{0x4D, 277, reply_apn},
    command{0x54, 11, nullptr},         command{wmc_send_code, 9, reply_sent},
};

static const command *find_command(uint8_t code)
{
    const auto *found = std::find_if(commands.begin(), commands.end(),
                                     [code](const command &row) { return row.code == code; });
    return found == commands.end() ? nullptr : found;
}

static void put_hex(std::string &reply, size_t offset, const std::string &hex)
{
    std::string bytes;
    bytes_from_hex(hex, bytes);
    if (reply.size() < offset + bytes.size())
        reply.resize(offset + bytes.size());
    put(reply, offset, bytes);
}

static std::string make_reply(const pantech_modem &modem, const command &asked)
{
    std::string reply = wmc_blank_reply(asked.code, asked.reply_bytes);
    if (asked.fill)
        asked.fill(modem.state, reply);
    const auto found = modem.overrides.find(asked.code);
    if (found == modem.overrides.end())
        return reply;
    const pantech_override &change = found->second;
    put_hex(reply, 0, change.prefix_hex);
    if (!change.data_hex.empty())
        put_hex(reply, static_cast<size_t>(change.at), change.data_hex);
    if (change.length >= 0)
        wmc_resize_reply(reply, static_cast<size_t>(change.length));
    return reply;
}

// ---- what arrives

static int take_message(pantech_state &state, std::string_view line, std::string &refusal)
{
    wmc_message message;
    if (wmc_read_message(line, message, refusal) != 0)
        return -1;
    if (state.send_result != 0)
        return 0;
    state.sent_count++;
    state.sent_number = json_presentable(message.number);
    state.sent_smsc = json_presentable(message.smsc);
    state.sent_text = json_presentable(message.text);
    return 0;
}

static at_reply run_wmc(pantech_modem &modem, std::string_view line, std::string &refusal)
{
    wmc_request request;
    if (wmc_read(line, request, refusal) != 0)
        return at_error();
    const command *asked = find_command(request.code);
    if (!asked) {
        refusal = "unknown command";
        return at_error();
    }
    if (asked->code == wmc_send_code && take_message(modem.state, line, refusal) != 0)
        return at_error();
    at_reply reply;
    reply.information = make_reply(modem, *asked);
    reply.raw = true;
    return reply;
}

static at_reply run_nothing(pantech_modem &, std::string_view)
{
    return {};
}

static at_reply run_identity(pantech_modem &modem, std::string_view)
{
    static constexpr const char layout[] = "Manufacturer: {manufacturer}\r\n"
                                           "Model: {model}\r\n"
                                           "Revision: {firmware}\r\n"
                                           "IMEI: {imei}";
    return at_information(layout_expand(layout, [&modem](std::string_view name) {
        return state_print(modem.state, pantech_fields(), name);
    }));
}

static constexpr std::array at_commands = {
    at_command<pantech_modem>{"E0", false, run_nothing},
    at_command<pantech_modem>{"I", false, run_identity},
    at_command<pantech_modem>{"", false, run_nothing},
};

at_reply pantech_execute(pantech_modem &modem, std::string_view line, std::string &refusal)
{
    refusal.clear();
    if (line.starts_with(wmc_prefix))
        return run_wmc(modem, line, refusal);
    return at_dispatch(std::span<const at_command<pantech_modem>>(at_commands), modem, line);
}

// ---- the state

static std::string code_name(uint8_t code)
{
    return sim_format("0x%02X", code);
}

static int check_hex(const std::string &hex, const char *key, json_refusal &refusal)
{
    std::string bytes;
    if (bytes_from_hex(hex, bytes) != 0)
        return json_refuse(refusal, key, "must be pairs of hexadecimal digits");
    return 0;
}

// An override replaces the one there is for its command; an empty one takes it away.
static int merge_override(pantech_modem &modem, const char *name, json_t *value,
                          json_refusal &refusal)
{
    const auto *found = std::find_if(commands.begin(), commands.end(), [name](const command &row) {
        return code_name(row.code) == name;
    });
    if (found == commands.end())
        return json_refuse(refusal, name, "no command of the modem");
    refusal = {{}, "must be an object"};
    pantech_override change;
    if (!json_is_object(value) ||
        state_merge(change, std::span<const state_field<pantech_override>>(override_table), value,
                    refusal) != 0 ||
        check_hex(change.prefix_hex, "prefix_hex", refusal) != 0 ||
        check_hex(change.data_hex, "data_hex", refusal) != 0)
        return json_refuse_inside(refusal, name);
    if (json_object_size(value) == 0)
        modem.overrides.erase(found->code);
    else
        modem.overrides[found->code] = std::move(change);
    return 0;
}

static int merge_overrides(pantech_modem &modem, json_t *replies, json_refusal &refusal)
{
    if (!json_is_object(replies))
        return json_refuse(refusal, "replies", "must be an object");
    for (void *at = json_object_iter(replies); at; at = json_object_iter_next(replies, at))
        if (merge_override(modem, json_object_iter_key(at), json_object_iter_value(at), refusal) !=
            0)
            return json_refuse_inside(refusal, "replies");
    return 0;
}

int pantech_merge_state(pantech_modem &modem, json_t *state, json_refusal &refusal)
{
    pantech_modem changed = modem;
    const json_ref fields(json_copy(state));
    json_t *replies = json_object_get(state, "replies");
    json_object_del(fields.get(), "replies");
    if (state_merge(changed.state, pantech_fields(), fields.get(), refusal) != 0 ||
        (replies && merge_overrides(changed, replies, refusal) != 0))
        return -1;
    std::string id;
    if (bytes_from_hex(changed.state.sms_id, id) != 0 || id.size() != id_bytes)
        return json_refuse(refusal, "sms_id", "must be 11 pairs of hexadecimal digits");
    modem = std::move(changed);
    return 0;
}

json_ref pantech_dump_state(const pantech_modem &modem)
{
    json_ref object = state_dump(modem.state, pantech_fields());
    json_t *replies = json_object();
    for (const auto &[code, change] : modem.overrides)
        json_object_set_new(
            replies, code_name(code).c_str(),
            state_dump(change, std::span<const state_field<pantech_override>>(override_table))
                .release());
    json_object_set_new(object.get(), "replies", replies);
    return object;
}

// ---- the family

// The one modem of this process.
static pantech_modem the_modem;
static sim_services *the_services;
static std::unique_ptr<at_modem> the_port;

static at_reply execute(std::string_view line)
{
    std::string refusal;
    at_reply reply = pantech_execute(the_modem, line, refusal);
    if (!refusal.empty())
        the_services->log.note("refused: " + refusal);
    return reply;
}

static constexpr at_hooks pantech_hooks = {
    .execute = execute,
    .request_name = wmc_request_name,
};

static int pantech_start(sim_services &services, std::string &reason)
{
    the_services = &services;
    the_port = std::make_unique<at_modem>(services, std::vector<std::string>{"/dev/cellcommand01"},
                                          pantech_hooks);
    return the_port->open(reason);
}

static void pantech_stop()
{
    the_port.reset();
}

static int pantech_merge(json_t *state, json_refusal &refusal)
{
    return pantech_merge_state(the_modem, state, refusal);
}

static json_ref pantech_dump()
{
    return pantech_dump_state(the_modem);
}

static void pantech_act(const fault &alone)
{
    the_port->act(alone);
}

static constexpr const char *pantech_markers[] = {"cellmodem_is_pantech", "cellmodem_is_lte",
                                                  nullptr};

const sim_family pantech_family = {
    .name = "pantech",
    .summary = "LTE and CDMA modem, WMC frames on /dev/cellcommand01",
    .markers = pantech_markers,
    .start = pantech_start,
    .stop = pantech_stop,
    .merge_state = pantech_merge,
    .dump_state = pantech_dump,
    .act = pantech_act,
};

#include "sms/vectors.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

constexpr size_t lines_min = 250;

// Every file sms-vectors*.jsonl beside the tests, and the one that TESSERA_SMS_VECTORS names, if any.
static std::vector<std::filesystem::path> vector_files()
{
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(TESSERA_TEST_DATA))
        if (entry.path().filename().string().starts_with("sms-vectors") &&
            entry.path().extension() == ".jsonl")
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    if (const char *more = getenv("TESSERA_SMS_VECTORS"))
        files.emplace_back(more);
    return files;
}

std::vector<json_owner> load_vectors()
{
    std::vector<json_owner> vectors;
    for (const std::filesystem::path &file : vector_files()) {
        std::ifstream lines(file);
        EXPECT_TRUE(lines) << file;
        for (std::string line; std::getline(lines, line);) {
            vectors.emplace_back(json_loads(line.c_str(), 0, nullptr));
            EXPECT_TRUE(vectors.back()) << file << ": " << line;
        }
    }
    EXPECT_GE(vectors.size(), lines_min);
    return vectors;
}

bool is_3gpp(const json_t *vector)
{
    return string_of(vector, "kind").starts_with("3gpp");
}

std::string string_of(const json_t *object, const char *key)
{
    const char *text = json_string_value(json_object_get(object, key));
    return text ? text : "";
}

static std::vector<uint8_t> octets_of_hex(const std::string &hex)
{
    std::vector<uint8_t> octets(hex.size() / 2);
    for (size_t i = 0; i < octets.size(); i++)
        octets[i] = static_cast<uint8_t>(std::stoul(hex.substr(2 * i, 2), nullptr, 16));
    return octets;
}

std::vector<uint8_t> octets_of(const json_t *vector)
{
    return octets_of_hex(string_of(vector, "pdu_hex"));
}

std::string hex_of(std::span<const uint8_t> octets)
{
    std::string hex;
    for (uint8_t octet : octets) {
        char pair[3];
        snprintf(pair, sizeof pair, "%02X", octet);
        hex += pair;
    }
    return hex;
}

// Names of the encodings; the second standard's where it has another one.
struct encoding_name {
    sms_encoding encoding;
    const char *name_3gpp;
    const char *name_cdma;
};

constexpr encoding_name encoding_names[] = {
    {sms_encoding_none, nullptr, nullptr},     {sms_encoding_gsm7, "gsm7", "gsm7"},
    {sms_encoding_octets, "8bit", "octet"},    {sms_encoding_utf16, "ucs2", "utf16"},
    {sms_encoding_latin1, "latin1", "latin1"}, {sms_encoding_ascii7, "ascii7", "ascii7"},
    {sms_encoding_ia5, "ia5", "ia5"},          {sms_encoding_other, "other", "other"},
};

constexpr const char *type_names[] = {"unknown", "international", "national", "alphanumeric"};
constexpr const char *ton_names[] = {"unknown",          "international", "national",
                                     "network-specific", "subscriber",    "alphanumeric",
                                     "abbreviated",      "reserved"};
constexpr const char *kind_names[] = {"3gpp-deliver", "3gpp-submit", "3gpp-status-report"};

static void set(json_t *object, const char *key, json_t *value)
{
    ASSERT_EQ(json_object_set_new(object, key, value), 0) << key;
}

static void set(json_t *object, const char *key, const std::string &text)
{
    set(object, key, json_stringn(text.data(), text.size()));
}

static void set(json_t *object, const char *key, bool value)
{
    set(object, key, json_boolean(value));
}

template <typename number>
static void set(json_t *object, const char *key, const std::optional<number> &value)
{
    set(object, key, value ? json_integer(*value) : json_null());
}

static void set(json_t *object, const char *key, const std::optional<sms_time> &time)
{
    set(object, key, time ? json_string(sms_time_text(*time).c_str()) : json_null());
}

static void describe_body(const sms_body &body, bool cdma, json_t *out)
{
    const encoding_name &name = encoding_names[body.encoding];
    const char *encoding = cdma ? name.name_cdma : name.name_3gpp;
    set(out, "encoding", encoding ? json_string(encoding) : json_null());
    const bool data = body.encoding == sms_encoding_octets || body.encoding == sms_encoding_other;
    set(out, "data_hex", data ? json_string(hex_of(body.data).c_str()) : json_null());
    set(out, "text", body.text ? json_stringn(body.text->data(), body.text->size()) : json_null());
    if (body.concat) {
        set(out, "concat",
            json_pack("{sisisi}", "ref", body.concat->ref, "total", body.concat->total, "seq",
                      body.concat->seq));
        set(out, "ref_bits", json_integer(body.concat->wide ? 16 : 8));
    } else {
        set(out, "concat", json_null());
    }
    if (!body.header.empty())
        set(out, "udh_hex", hex_of(body.header));
    if (const auto ports = sms_body_ports(body))
        set(out, "ports", json_pack("{sisi}", "dst", ports->destination, "src", ports->source));
}

static void describe_number(const sms_address &address, json_t *out)
{
    set(out, "number", address.number);
    set(out, "number_type", json_string(type_names[address.type]));
    set(out, "toa", json_integer(address.toa));
    set(out, "ton", json_string(ton_names[address.toa >> 4 & 7]));
}

json_owner describe(const pdu_3gpp &message)
{
    json_owner out(json_object());
    set(out.get(), "kind", json_string(kind_names[message.kind]));
    set(out.get(), "smsc", message.smsc ? json_string(message.smsc->number.c_str()) : json_null());
    describe_number(message.number, out.get());
    set(out.get(), "timestamp", message.sent);
    set(out.get(), "discharge_timestamp", message.discharged);
    set(out.get(), "pid", message.pid);
    set(out.get(), "dcs", message.dcs);
    set(out.get(), "class", message.message_class);
    set(out.get(), "message_reference", json_integer(message.message_reference));
    set(out.get(), "status", json_integer(message.status));
    set(out.get(), "tp_vp", message.tp_vp);
    set(out.get(), "validity_minutes",
        message.validity_s ? json_integer(*message.validity_s / 60) : json_null());
    set(out.get(), "validity_timestamp", message.validity_time);
    set(out.get(), "status_report", message.status_report);
    set(out.get(), "more_messages", message.more_messages);
    set(out.get(), "reject_duplicates", message.reject_duplicates);
    set(out.get(), "reply_path", message.reply_path);
    set(out.get(), "loop_prevention", message.loop_prevention);
    if (message.waiting) {
        json_t *waiting = json_pack("{sisbsb}", "kind", message.waiting->kind, "active",
                                    message.waiting->active, "store", message.waiting->store);
        if (message.waiting->count)
            set(waiting, "count", message.waiting->count);
        set(out.get(), "waiting", waiting);
    }
    describe_body(message.body, false, out.get());
    return out;
}

json_owner describe(const pdu_cdma &message)
{
    json_owner out(json_object());
    const bool submit = message.kind == pdu_cdma_submit;
    set(out.get(), "kind", json_string(submit ? "cdma-submit" : "cdma-deliver"));
    set(out.get(), "smsc", json_null());
    describe_number(message.number, out.get());
    set(out.get(), "timestamp", message.sent);
    set(out.get(), "teleservice_id", message.teleservice_id);
    set(out.get(), "service_category", message.service_category);
    set(out.get(), "bearer_reply_seq", message.bearer_reply_seq);
    if (message.cause)
        set(out.get(), "cause",
            json_pack("{sisisi}", "reply_seq", message.cause->reply_seq, "error_class",
                      message.cause->error_class, "code", message.cause->code));
    set(out.get(), "bearer_message_type", message.bearer_message_type);
    set(out.get(), "message_id", json_integer(message.message_id));
    set(out.get(), "validity_timestamp", message.validity_time);
    set(out.get(), "deferred_timestamp", message.deferred_time);
    set(out.get(), "validity_relative", message.validity_relative);
    set(out.get(), "deferred_relative", message.deferred_relative);
    set(out.get(), "user_response_code", message.user_response_code);
    set(out.get(), "priority", message.priority);
    set(out.get(), "privacy", message.privacy);
    set(out.get(), "reply_option", message.reply_option);
    set(out.get(), "number_of_messages", message.number_of_messages);
    set(out.get(), "alert", message.alert);
    set(out.get(), "language", message.language);
    set(out.get(), "display_mode", message.display_mode);
    set(out.get(), "deposit_index", message.deposit_index);
    set(out.get(), "message_status", message.message_status);
    if (message.callback) {
        set(out.get(), "callback", message.callback->number);
        set(out.get(), "callback_type", json_string(type_names[message.callback->type]));
    }
    describe_body(message.body, true, out.get());
    return out;
}

static long extra_number(const json_t *vector, const char *key)
{
    return static_cast<long>(
        json_integer_value(json_object_get(json_object_get(vector, "extra"), key)));
}

static bool has_extra(const json_t *vector, const char *key)
{
    return json_object_get(json_object_get(vector, "extra"), key) != nullptr;
}

static sms_address address_of(const json_t *vector)
{
    sms_address address = sms_address_from_text(string_of(vector, "number"));
    if (string_of(vector, "number_type") == "national")
        address.type = sms_number_national;
    return address;
}

static sms_body body_of(const json_t *vector)
{
    sms_body body;
    const std::string encoding = string_of(vector, "encoding");
    for (const encoding_name &name : encoding_names) {
        if (name.name_3gpp && (encoding == name.name_3gpp || encoding == name.name_cdma))
            body.encoding = name.encoding;
    }
    if (json_is_string(json_object_get(vector, "text")))
        body.text = string_of(vector, "text");
    body.data = octets_of_hex(string_of(vector, "data_hex"));
    if (const json_t *concat = json_object_get(vector, "concat"); json_is_object(concat)) {
        const auto number = [&](const char *key) {
            return json_integer_value(json_object_get(concat, key));
        };
        body.concat = {static_cast<uint16_t>(number("ref")), static_cast<uint8_t>(number("total")),
                       static_cast<uint8_t>(number("seq")), extra_number(vector, "ref_bits") == 16};
    }
    return body;
}

static sms_time time_of(const std::string &text)
{
    sms_time time;
    char sign = '+';
    int hours = 0, minutes = 0;
    EXPECT_EQ(sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d%c%d:%d", &time.year, &time.month, &time.day,
                     &time.hour, &time.minute, &time.second, &sign, &hours, &minutes),
              9);
    time.zone_minutes = (hours * 60 + minutes) * (sign == '-' ? -1 : 1);
    return time;
}

pdu_3gpp message_3gpp(const json_t *vector)
{
    const json_t *extra = json_object_get(vector, "extra");
    pdu_3gpp message;
    message.number = address_of(vector);
    if (const std::string smsc = string_of(vector, "smsc"); !smsc.empty()) {
        message.smsc = sms_address_from_text(smsc);
        message.smsc->toa = static_cast<uint8_t>(extra_number(vector, "smsc_toa"));
    }
    message.message_reference = static_cast<uint8_t>(extra_number(vector, "message_reference"));
    message.pid = static_cast<uint8_t>(extra_number(vector, "pid"));
    message.status_report = json_is_true(json_object_get(extra, "status_report"));
    message.reject_duplicates = json_is_true(json_object_get(extra, "reject_duplicates"));
    if (has_extra(vector, "class"))
        message.message_class = static_cast<uint8_t>(extra_number(vector, "class"));
    if (has_extra(vector, "validity_minutes"))
        message.validity_s = static_cast<uint32_t>(extra_number(vector, "validity_minutes") * 60);
    if (has_extra(vector, "validity_timestamp"))
        message.validity_time = time_of(string_of(extra, "validity_timestamp"));
    message.body = body_of(vector);
    return message;
}

pdu_cdma message_cdma(const json_t *vector)
{
    pdu_cdma message;
    message.number = address_of(vector);
    if (has_extra(vector, "teleservice_id"))
        message.teleservice_id = static_cast<uint16_t>(extra_number(vector, "teleservice_id"));
    message.message_id = static_cast<uint16_t>(extra_number(vector, "message_id"));
    message.body = body_of(vector);
    return message;
}

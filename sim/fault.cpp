#include "sim/fault.h"

#include "sim/bytes.h"
#include "sim/journal.h"
#include "sim/report.h"

#include <algorithm>
#include <array>

static constexpr int64_t time_ms_max = 24L * 3600 * 1000;
static constexpr int64_t answer_bytes_max = 1 << 20;
static constexpr int64_t requests_max = 1000000;

struct fault_kind {
    const char *name;
    const char *keys;  // what it understands besides match, skip, count, at_ms and do
    const char *needs; // what must be given, either of two separated by '|'; null: nothing
    bool refuses;      // the request is not carried out
    bool acts_alone;   // at a time and without a request it simply happens
    delivery (*deliver)(const fault &, std::string_view, const fault_dialect &);
};

static size_t cut(const fault &f, std::string_view answer, size_t otherwise)
{
    return f.bytes ? std::min(answer.size(), static_cast<size_t>(*f.bytes)) : otherwise;
}

static delivery one_write(std::string bytes)
{
    return {{{0, std::move(bytes)}}, std::nullopt, false};
}

static delivery deliver_silence(const fault &, std::string_view, const fault_dialect &)
{
    return {};
}

static delivery deliver_late(const fault &f, std::string_view answer, const fault_dialect &)
{
    return {{{f.delay_ms, std::string(answer)}}, std::nullopt, false};
}

static delivery deliver_half(const fault &f, std::string_view answer, const fault_dialect &)
{
    return one_write(std::string(answer.substr(0, cut(f, answer, answer.size() / 2))));
}

static delivery deliver_garbage(const fault &f, std::string_view answer, const fault_dialect &)
{
    std::string bytes = f.has_data ? f.data : bytes_noise(static_cast<size_t>(f.bytes.value_or(0)));
    if (f.then_answer)
        bytes += answer;
    return one_write(std::move(bytes));
}

static delivery deliver_error(const fault &f, std::string_view, const fault_dialect &dialect)
{
    return one_write(f.has_data ? f.data : dialect.error(f.text));
}

static delivery deliver_hangup(const fault &f, std::string_view answer, const fault_dialect &)
{
    delivery plan;
    plan.end = hangup{f.return_ms, f.reboot};
    if (const size_t length = cut(f, answer, 0))
        plan.steps.push_back({0, std::string(answer.substr(0, length))});
    return plan;
}

static delivery deliver_double(const fault &, std::string_view answer, const fault_dialect &)
{
    return one_write(std::string(answer) + std::string(answer));
}

static delivery deliver_unsolicited(const fault &f, std::string_view answer,
                                    const fault_dialect &dialect)
{
    return one_write(dialect.unsolicited(f.text) + std::string(answer));
}

static delivery deliver_split(const fault &f, std::string_view answer, const fault_dialect &)
{
    const size_t at = cut(f, answer, answer.size() / 2);
    return {{{0, std::string(answer.substr(0, at))}, {f.delay_ms, std::string(answer.substr(at))}},
            std::nullopt,
            false};
}

static delivery deliver_pad(const fault &f, std::string_view answer, const fault_dialect &)
{
    const auto wanted = static_cast<size_t>(f.bytes.value_or(0));
    const std::string filler(wanted > answer.size() ? wanted - answer.size() : 0, '.');
    return one_write(f.at_end ? std::string(answer) + filler : filler + std::string(answer));
}

static delivery deliver_spoilt(const fault &f, std::string_view answer,
                               const fault_dialect &dialect)
{
    return one_write(dialect.spoil ? dialect.spoil(f, answer) : std::string(answer));
}

static delivery deliver_out_of_order(const fault &, std::string_view answer, const fault_dialect &)
{
    delivery plan = one_write(std::string(answer));
    plan.held = true;
    return plan;
}

static delivery deliver_burst(const fault &f, std::string_view answer, const fault_dialect &dialect)
{
    if (dialect.burst)
        dialect.burst(f.number);
    return one_write(std::string(answer));
}

// clang-format off
static constexpr std::array fault_kinds = {
    fault_kind{"silence",     "",                         nullptr,          false, false, deliver_silence},
    fault_kind{"late",        "delay_ms",                 "delay_ms",       false, false, deliver_late},
    fault_kind{"half",        "bytes",                    nullptr,          false, false, deliver_half},
    fault_kind{"garbage",     "data_hex bytes then_answer", "data_hex|bytes", false, true, deliver_garbage},
    fault_kind{"error",       "text data_hex",            "text|data_hex",  true,  false, deliver_error},
    fault_kind{"hangup",      "bytes return_ms reboot",   nullptr,          false, true,  deliver_hangup},
    fault_kind{"double",      "",                         nullptr,          false, false, deliver_double},
    fault_kind{"unsolicited", "text",                     "text",           false, true,  deliver_unsolicited},
    fault_kind{"split",       "bytes delay_ms",           "delay_ms",       false, false, deliver_split},
    fault_kind{"pad",         "bytes at_end",             "bytes",          false, false, deliver_pad},
    fault_kind{"rejected",    "",                         nullptr,          true,  false, deliver_spoilt},
    fault_kind{"wrong_kind",  "",                         nullptr,          false, false, deliver_spoilt},
    fault_kind{"short",       "",                         nullptr,          false, false, deliver_spoilt},
    fault_kind{"burst",       "number",                   nullptr,          false, true,  deliver_burst},
    fault_kind{"out_of_order", "",                        nullptr,          false, false, deliver_out_of_order},
    fault_kind{"wrong_transaction", "",                   nullptr,          false, false, deliver_spoilt},
    fault_kind{"wrong_client", "",                        nullptr,          false, false, deliver_spoilt},
    fault_kind{"wrong_message", "",                       nullptr,          false, false, deliver_spoilt},
    fault_kind{"tlv_overrun", "tlv",                      nullptr,          false, false, deliver_spoilt},
    fault_kind{"tlv_short",   "tlv",                      nullptr,          false, false, deliver_spoilt},
    fault_kind{"tlv_missing", "tlv",                      nullptr,          false, false, deliver_spoilt},
};
// clang-format on

static std::vector<std::string_view> words(std::string_view text, char between)
{
    std::vector<std::string_view> found;
    while (!text.empty()) {
        const size_t end = std::min(text.find(between), text.size());
        found.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return found;
}

static int read_optional(const json_t *row, const char *key, int64_t max,
                         std::optional<int64_t> &out, json_refusal &refusal)
{
    int64_t number = -1;
    if (json_read(row, key, 0, max, number, refusal) != 0)
        return -1;
    if (number >= 0)
        out = number;
    return 0;
}

static int read_data(const json_t *row, fault &out, json_refusal &refusal)
{
    std::string hex;
    if (json_read(row, "data_hex", hex, refusal) != 0)
        return -1;
    out.has_data = json_object_get(row, "data_hex") != nullptr;
    if (bytes_from_hex(hex, out.data) != 0)
        return json_refuse(refusal, "data_hex", "must be pairs of hexadecimal digits");
    return 0;
}

static int find_kind(const json_t *row, fault &out, json_refusal &refusal)
{
    std::string name;
    if (json_read(row, "do", name, refusal) != 0)
        return -1;
    for (const fault_kind &kind : fault_kinds)
        if (name == kind.name)
            out.kind = &kind;
    if (out.kind)
        return 0;
    if (name.empty())
        return json_refuse(refusal, "do", "what to do is missing");
    std::string known;
    for (const fault_kind &kind : fault_kinds)
        known += std::string(known.empty() ? "" : ", ") + kind.name;
    return json_refuse(refusal, "do", "unknown fault '" + name + "', known are " + known);
}

static int check_row(json_t *row, const fault_kind &kind, json_refusal &refusal)
{
    std::vector<std::string> names = {"match", "skip", "count", "at_ms", "do"};
    for (const std::string_view key : words(kind.keys, ' '))
        names.emplace_back(key);
    std::vector<const char *> known;
    for (const std::string &name : names)
        known.push_back(name.c_str());
    if (json_check_keys(row, known, refusal) != 0) {
        refusal.reason += std::string(" for the fault '") + kind.name + "'";
        return -1;
    }
    if (!kind.needs)
        return 0;
    for (const std::string_view key : words(kind.needs, '|'))
        if (json_object_get(row, std::string(key).c_str()))
            return 0;
    return json_refuse(refusal, std::string(words(kind.needs, '|').front()),
                       std::string("the fault '") + kind.name + "' needs " + kind.needs);
}

int fault_parse(json_t *row, fault &out, json_refusal &refusal)
{
    refusal = {{}, "must be an object"};
    if (!json_is_object(row))
        return -1;
    fault f;
    if (find_kind(row, f, refusal) != 0 || check_row(row, *f.kind, refusal) != 0 ||
        json_read(row, "match", f.match, refusal) != 0 ||
        json_read(row, "skip", 0, requests_max, f.skip, refusal) != 0 ||
        json_read(row, "count", 0, requests_max, f.count, refusal) != 0 ||
        read_optional(row, "at_ms", time_ms_max, f.at_ms, refusal) != 0 ||
        json_read(row, "delay_ms", 0, time_ms_max, f.delay_ms, refusal) != 0 ||
        read_optional(row, "bytes", answer_bytes_max, f.bytes, refusal) != 0 ||
        read_data(row, f, refusal) != 0 || json_read(row, "text", f.text, refusal) != 0 ||
        json_read(row, "then_answer", f.then_answer, refusal) != 0 ||
        json_read(row, "at_end", f.at_end, refusal) != 0 ||
        read_optional(row, "return_ms", time_ms_max, f.return_ms, refusal) != 0 ||
        json_read(row, "reboot", f.reboot, refusal) != 0 ||
        read_optional(row, "tlv", 255, f.tlv, refusal) != 0 ||
        json_read(row, "number", 1, requests_max, f.number, refusal) != 0)
        return -1;
    out = std::move(f);
    return 0;
}

const char *fault_name(const fault &f)
{
    return f.kind->name;
}

bool fault_refuses(const fault &f)
{
    return f.kind->refuses;
}

delivery fault_deliver(const fault &f, std::string_view answer, const fault_dialect &dialect)
{
    return f.kind->deliver(f, answer, dialect);
}

void fault_engine::add(const std::vector<fault> &faults)
{
    for (const fault &f : faults) {
        if (f.at_ms)
            timers_.push_back(loop_.after(*f.at_ms, [this, f] { start(f); }));
        else
            armed_.push_back(f);
    }
}

void fault_engine::start(const fault &f)
{
    if (!f.kind->acts_alone || !f.match.empty()) {
        armed_.push_back(f);
        return;
    }
    log_.note(std::string("fault ") + fault_name(f));
    if (alone_)
        alone_(f);
}

void fault_engine::clear()
{
    armed_.clear();
    for (const sim_timer &timer : timers_)
        loop_.cancel(timer);
    timers_.clear();
}

std::optional<fault> fault_engine::take(std::string_view request, const fault_dialect &dialect)
{
    for (auto at = armed_.begin(); at != armed_.end(); ++at) {
        if (!(dialect.matches ? dialect.matches(request, at->match)
                              : request.starts_with(at->match)))
            continue;
        if (at->skip > 0) {
            at->skip--;
            continue;
        }
        fault taken = *at;
        if (at->count > 0 && --at->count == 0)
            armed_.erase(at);
        return taken;
    }
    return std::nullopt;
}

delivery fault_engine::answer(std::string_view request, const fault_dialect &dialect,
                              const std::function<std::string()> &execute)
{
    const std::optional<fault> f = take(request, dialect);
    if (!f)
        return one_write(execute());
    log_.note(std::string("fault ") + fault_name(*f));
    const std::string answer = fault_refuses(*f) ? std::string() : execute();
    return fault_deliver(*f, answer, dialect);
}

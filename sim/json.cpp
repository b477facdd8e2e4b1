#include "sim/json.h"

#include "sim/bytes.h"
#include "sim/report.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

static constexpr size_t text_bytes_max = 65536;

int json_refuse(json_refusal &refusal, std::string key, std::string reason)
{
    refusal.path = {std::move(key)};
    refusal.reason = std::move(reason);
    return -1;
}

int json_refuse_inside(json_refusal &refusal, std::string key)
{
    refusal.path.insert(refusal.path.begin(), std::move(key));
    return -1;
}

static bool is_number(std::string_view step)
{
    return !step.empty() && step.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string json_refusal_text(const json_refusal &refusal)
{
    std::string text;
    for (const std::string &step : refusal.path) {
        if (is_number(step))
            text += "[" + step + "]";
        else
            text += (text.empty() ? "" : ".") + step;
    }
    return text.empty() ? refusal.reason : text + ": " + refusal.reason;
}

// Walks text that Jansson has accepted, so it need not look for faults; it only never leaves it.
struct json_walker {
    std::string_view text;
    size_t at = 0;
    int line = 1;

    [[nodiscard]] char here() const { return at < text.size() ? text[at] : '\0'; }

    void step()
    {
        if (here() == '\n')
            line++;
        at++;
    }

    void skip_blanks()
    {
        while (at < text.size() &&
               std::string_view(" \t\r\n,:").find(here()) != std::string_view::npos)
            step();
    }

    std::string_view take_string()
    {
        const size_t start = ++at;
        while (at < text.size() && here() != '"')
            at += here() == '\\' ? 2 : 1;
        const std::string_view inside = text.substr(start, std::min(at, text.size()) - start);
        at++;
        return inside;
    }

    void skip_value()
    {
        int depth = 0;
        do {
            skip_blanks();
            if (here() == '"') {
                take_string();
                continue;
            }
            if (here() == '{' || here() == '[')
                depth++;
            else if (here() == '}' || here() == ']')
                depth--;
            else
                while (at + 1 < text.size() &&
                       std::string_view(" \t\r\n,:]}").find(text[at + 1]) == std::string_view::npos)
                    at++;
            step();
        } while (depth > 0 && at < text.size());
    }

    // From the start of a value to the start of the named one inside it.
    bool enter(std::string_view name)
    {
        skip_blanks();
        const char open = here();
        if (open != '{' && open != '[')
            return false;
        step();
        size_t wanted = 0;
        if (open == '[')
            std::from_chars(name.data(), name.data() + name.size(), wanted);
        for (size_t index = 0; at < text.size(); index++) {
            skip_blanks();
            if (here() == '}' || here() == ']')
                return false;
            if (open == '{' ? take_string() == name : index == wanted)
                return true;
            skip_value();
        }
        return false;
    }
};

int json_line_of(std::string_view text, std::span<const std::string> path)
{
    json_walker walker = {text};
    walker.skip_blanks();
    int line = walker.line;
    for (const std::string &step : path) {
        if (!walker.enter(step))
            break;
        line = walker.line;
    }
    return line;
}

int json_check_keys(json_t *object, std::span<const char *const> known, json_refusal &refusal)
{
    for (void *at = json_object_iter(object); at; at = json_object_iter_next(object, at)) {
        const char *key = json_object_iter_key(at);
        const auto same = [key](const char *name) { return std::string_view(name) == key; };
        if (std::none_of(known.begin(), known.end(), same))
            return json_refuse(refusal, key, "unknown key");
    }
    return 0;
}

int json_read(const json_t *object, const char *key, int64_t min, int64_t max, int64_t &out,
              json_refusal &refusal)
{
    const json_t *value = json_object_get(object, key);
    if (!value)
        return 0;
    if (!json_is_integer(value) || json_integer_value(value) < min ||
        json_integer_value(value) > max)
        return json_refuse(refusal, key,
                           sim_format("must be a whole number from %lld to %lld",
                                      static_cast<long long>(min), static_cast<long long>(max)));
    out = json_integer_value(value);
    return 0;
}

int json_read(const json_t *object, const char *key, bool &out, json_refusal &refusal)
{
    const json_t *value = json_object_get(object, key);
    if (!value)
        return 0;
    if (!json_is_boolean(value))
        return json_refuse(refusal, key, "must be true or false");
    out = json_is_true(value);
    return 0;
}

int json_read(const json_t *object, const char *key, std::string &out, json_refusal &refusal)
{
    const json_t *value = json_object_get(object, key);
    if (!value)
        return 0;
    if (!json_is_string(value) || json_string_length(value) > text_bytes_max)
        return json_refuse(refusal, key,
                           sim_format("must be a text of at most %zu bytes", text_bytes_max));
    out.assign(json_string_value(value), json_string_length(value));
    return 0;
}

std::string json_text(const json_t *value)
{
    char *dumped = json_dumps(value, JSON_COMPACT | JSON_PRESERVE_ORDER | JSON_ENCODE_ANY |
                                         JSON_REAL_PRECISION(12));
    std::string text = dumped ? dumped : "";
    free(dumped);
    return text;
}

std::string json_presentable(const std::string &bytes)
{
    const json_ref text(json_stringn(bytes.data(), bytes.size()));
    return text ? bytes : bytes_escape(bytes);
}

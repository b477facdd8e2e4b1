// A modem's state as a table: one row per field says its name in a scenario, where it is kept and
// what it may hold. Reading a scenario, showing the state and printing a field in an answer all go
// by the same rows.
#pragma once

#include "sim/json.h"
#include "sim/report.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

template <class State>
struct state_field {
    const char *name = nullptr;
    std::variant<bool State::*, int64_t State::*, double State::*, std::string State::*> member;
    const char *choices = nullptr; // a text: what it may be, separated by '|'; null: anything
    int64_t min = 0;               // a number
    int64_t max = 0;
};

static constexpr size_t state_text_bytes_max = 255;

// Whether `text` is one of the words of `choices`.
inline bool state_choice(std::string_view choices, std::string_view text)
{
    while (true) {
        const size_t end = choices.find('|');
        if (choices.substr(0, end) == text)
            return true;
        if (end == std::string_view::npos)
            return false;
        choices.remove_prefix(end + 1);
    }
}

inline int state_read(const json_t *object, const char *name, const char *, int64_t, int64_t,
                      bool &out, json_refusal &refusal)
{
    return json_read(object, name, out, refusal);
}

inline int state_read(const json_t *object, const char *name, const char *, int64_t min,
                      int64_t max, int64_t &out, json_refusal &refusal)
{
    return json_read(object, name, min, max, out, refusal);
}

inline int state_read(const json_t *object, const char *name, const char *, int64_t min,
                      int64_t max, double &out, json_refusal &refusal)
{
    const json_t *value = json_object_get(object, name);
    if (!value)
        return 0;
    const double number = json_number_value(value);
    if (!json_is_number(value) || !(number >= static_cast<double>(min)) ||
        !(number <= static_cast<double>(max)))
        return json_refuse(refusal, name,
                           sim_format("must be a number from %lld to %lld",
                                      static_cast<long long>(min), static_cast<long long>(max)));
    out = number;
    return 0;
}

inline int state_read(const json_t *object, const char *name, const char *choices, int64_t,
                      int64_t max, std::string &out, json_refusal &refusal)
{
    const size_t bytes_max = max > 0 ? static_cast<size_t>(max) : state_text_bytes_max;
    std::string text = out;
    if (json_read(object, name, text, refusal) != 0)
        return -1;
    if (text.size() > bytes_max)
        return json_refuse(refusal, name, sim_format("must have at most %zu bytes", bytes_max));
    if (choices && !state_choice(choices, text))
        return json_refuse(refusal, name, "'" + text + "' is none of " + std::string(choices));
    out = std::move(text);
    return 0;
}

inline json_t *state_json(bool value)
{
    return json_boolean(value);
}
inline json_t *state_json(int64_t value)
{
    return json_integer(value);
}
inline json_t *state_json(double value)
{
    return json_real(value);
}
inline json_t *state_json(const std::string &value)
{
    return json_stringn(value.data(), value.size());
}

inline std::string state_text(bool value)
{
    return value ? "1" : "0";
}
inline std::string state_text(int64_t value)
{
    return std::to_string(value);
}
inline std::string state_text(double value)
{
    return sim_format("%.1f", value);
}
inline std::string state_text(const std::string &value)
{
    return value;
}

// Changes in `state` what `object` names. All or nothing: -1 with the refusal set and `state` as it
// was if a key is unknown or a value is not what its field may hold.
template <class State>
int state_merge(State &state, std::span<const state_field<State>> fields, json_t *object,
                json_refusal &refusal)
{
    std::vector<const char *> known;
    for (const auto &field : fields)
        known.push_back(field.name);
    if (json_check_keys(object, known, refusal) != 0)
        return -1;
    State changed = state;
    for (const auto &field : fields) {
        const auto read = [&](auto member) {
            return state_read(object, field.name, field.choices, field.min, field.max,
                              changed.*member, refusal);
        };
        if (std::visit(read, field.member) != 0)
            return -1;
    }
    state = std::move(changed);
    return 0;
}

template <class State>
json_ref state_dump(const State &state, std::span<const state_field<State>> fields)
{
    json_ref object(json_object());
    for (const auto &field : fields) {
        const auto value = [&](auto member) { return state_json(state.*member); };
        json_object_set_new(object.get(), field.name, std::visit(value, field.member));
    }
    return object;
}

// A field as it is printed in an answer; empty if there is no such field.
template <class State>
std::string state_print(const State &state, std::span<const state_field<State>> fields,
                        std::string_view name)
{
    for (const auto &field : fields)
        if (name == field.name)
            return std::visit([&](auto member) { return state_text(state.*member); }, field.member);
    return {};
}

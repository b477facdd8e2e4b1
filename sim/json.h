// JSON as the simulator reads it: a scenario is checked before anything of it is used, and whoever
// wrote a wrong one is told the place and the reason. The parsing itself is Jansson's.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <jansson.h>

struct json_release {
    void operator()(json_t *value) const { json_decref(value); }
};

// Owns one reference.
using json_ref = std::unique_ptr<json_t, json_release>;

// Where (keys, and numbers for array elements, from the outermost inwards) and why.
struct json_refusal {
    std::vector<std::string> path;
    std::string reason;
};

// Sets a refusal at `key` and returns -1, for `return json_refuse(...)`.
int json_refuse(json_refusal &refusal, std::string key, std::string reason);

// Says that the refusal so far is inside `key`, and returns -1.
int json_refuse_inside(json_refusal &refusal, std::string key);

// "faults[2].do: what is wrong".
std::string json_refusal_text(const json_refusal &refusal);

// The line, counted from 1, where `path` is in `text`, which must be valid JSON. What is missing
// is looked for as far as it goes: a key that is not there gives the line of its object.
int json_line_of(std::string_view text, std::span<const std::string> path);

// The readers below return 0, or -1 with the refusal set. A key that is not there is no error and
// leaves the output as it was.
int json_check_keys(json_t *object, std::span<const char *const> known, json_refusal &refusal);
int json_read(const json_t *object, const char *key, int64_t min, int64_t max, int64_t &out,
              json_refusal &refusal);
int json_read(const json_t *object, const char *key, bool &out, json_refusal &refusal);
int json_read(const json_t *object, const char *key, std::string &out, json_refusal &refusal);

// Compact text, keys in their order.
std::string json_text(const json_t *value);

// Bytes as a text that JSON takes: what is no UTF-8 is shown as the journal shows it.
std::string json_presentable(const std::string &bytes);

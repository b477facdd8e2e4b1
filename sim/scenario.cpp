#include "sim/scenario.h"

#include <array>

static constexpr int64_t delay_ms_max = 24L * 3600 * 1000;
static constexpr int64_t ports_max = 1000;

static int parse_state(json_t *value, scenario &out, json_refusal &refusal)
{
    if (!json_is_object(value))
        return json_refuse(refusal, "state", "must be an object");
    out.state.reset(json_incref(value));
    return 0;
}

static int parse_faults(json_t *value, scenario &out, json_refusal &refusal)
{
    if (!json_is_array(value))
        return json_refuse(refusal, "faults", "must be an array");
    for (size_t i = 0; i < json_array_size(value); i++) {
        fault f;
        if (fault_parse(json_array_get(value, i), f, refusal) != 0) {
            json_refuse_inside(refusal, std::to_string(i));
            return json_refuse_inside(refusal, "faults");
        }
        out.faults.push_back(std::move(f));
    }
    return 0;
}

static int parse_shell(json_t *value, scenario &out, json_refusal &refusal)
{
    std::vector<shell_rule> rules;
    if (shell_rules_parse(value, rules, refusal) != 0)
        return json_refuse_inside(refusal, "shell");
    out.shell.reset(json_incref(value));
    return 0;
}

static int parse_config(json_t *value, scenario &out, json_refusal &refusal)
{
    static constexpr const char *keys[] = {"ports", "nmea", "fixfreq"};
    refusal = {{}, "must be an object"};
    root_config config;
    if (!json_is_object(value) || json_check_keys(value, keys, refusal) != 0 ||
        json_read(value, "ports", 1, ports_max, config.ports, refusal) != 0 ||
        json_read(value, "nmea", config.nmea, refusal) != 0 ||
        json_read(value, "fixfreq", 0, INT32_MAX, config.fixfreq, refusal) != 0)
        return json_refuse_inside(refusal, "config");
    if (config.nmea != "on" && config.nmea != "off") {
        json_refuse(refusal, "nmea", "must be \"on\" or \"off\"");
        return json_refuse_inside(refusal, "config");
    }
    out.config = std::move(config);
    return 0;
}

static int parse_clear(json_t *value, scenario &out, json_refusal &refusal)
{
    out.clear_faults = json_is_true(value);
    return json_is_boolean(value) ? 0
                                  : json_refuse(refusal, "clear_faults", "must be true or false");
}

static int parse_get(json_t *value, scenario &out, json_refusal &refusal)
{
    if (!json_is_string(value) || std::string_view(json_string_value(value)) != "state")
        return json_refuse(refusal, "get", "must be \"state\"");
    out.get = "state";
    return 0;
}

struct scenario_key {
    const char *name;
    bool only_datagram;
    int (*parse)(json_t *, scenario &, json_refusal &);
};

static constexpr std::array scenario_keys = {
    scenario_key{"state", false, parse_state},       scenario_key{"faults", false, parse_faults},
    scenario_key{"shell", false, parse_shell},       scenario_key{"config", false, parse_config},
    scenario_key{"clear_faults", true, parse_clear}, scenario_key{"get", true, parse_get},
};

static int parse_key(const char *name, json_t *value, scenario_source source, scenario &out,
                     json_refusal &refusal)
{
    for (const scenario_key &key : scenario_keys)
        if (std::string_view(key.name) == name &&
            (!key.only_datagram || source == scenario_source::datagram))
            return key.parse(value, out, refusal);
    return json_refuse(refusal, name, "unknown key");
}

int scenario_parse(json_t *object, scenario_source source, scenario &out, json_refusal &refusal)
{
    refusal = {{}, "must be an object"};
    if (!json_is_object(object))
        return -1;
    out = {};
    for (void *at = json_object_iter(object); at; at = json_object_iter_next(object, at))
        if (parse_key(json_object_iter_key(at), json_object_iter_value(at), source, out, refusal) !=
            0)
            return -1;
    return 0;
}

int scenario_parse_text(std::string_view text, scenario_source source, scenario &out,
                        json_refusal &refusal, int &line)
{
    json_error_t error = {};
    const json_ref object(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &error));
    if (!object) {
        line = error.line;
        refusal = {{}, error.text};
        return -1;
    }
    if (scenario_parse(object.get(), source, out, refusal) == 0)
        return 0;
    line = json_line_of(text, refusal.path);
    return -1;
}

int shell_rules_parse(json_t *array, std::vector<shell_rule> &out, json_refusal &refusal)
{
    static constexpr const char *keys[] = {"match", "status", "delay_ms"};
    refusal = {{}, "must be an array of objects"};
    out.clear();
    if (!json_is_array(array))
        return -1;
    for (size_t i = 0; i < json_array_size(array); i++) {
        json_t *row = json_array_get(array, i);
        shell_rule rule;
        refusal = {{}, "must be an object"};
        if (!json_is_object(row) || json_check_keys(row, keys, refusal) != 0 ||
            json_read(row, "match", rule.match, refusal) != 0 ||
            json_read(row, "status", 0, 255, rule.status, refusal) != 0 ||
            json_read(row, "delay_ms", 0, delay_ms_max, rule.delay_ms, refusal) != 0)
            return json_refuse_inside(refusal, std::to_string(i));
        out.push_back(std::move(rule));
    }
    return 0;
}

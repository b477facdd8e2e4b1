// A scenario is refused with the line and the reason, and nothing of a wrong one is taken.

#include "sim/scenario.h"

#include <string>

#include <gtest/gtest.h>

// "LINE: path: reason", or "" if it is accepted.
static std::string refusal_of(const std::string &text)
{
    scenario given;
    json_refusal refusal;
    int line = 0;
    if (scenario_parse_text(text, scenario_source::file, given, refusal, line) == 0)
        return "";
    return std::to_string(line) + ": " + json_refusal_text(refusal);
}

TEST(scenario_parse, names_line_and_key_of_what_is_wrong)
{
    const struct {
        const char *text;
        const char *place; // what the refusal begins with
    } rows[] = {
        {"", "1: "},
        {"{\n\"faults\": [}", "2: "},
        {"[]", "1: must be an object"},
        {"{\"state\": {},\n\"state\": {}}", "2: duplicate"},
        {"{\n\"sate\": {}}", "2: sate: unknown key"},
        {"{\"state\": []}", "1: state: must be an object"},
        {"{\"clear_faults\": true}", "1: clear_faults: unknown key"},
        {"{\"faults\": {}}", "1: faults: must be an array"},
        {"{\"state\": {\"a\": [1, {\"do\": \"}\\\"]\"}]},\n \"faults\": [\n"
         "  {\"do\": \"silence\"},\n  {\"match\": \"x\",\n   \"do\": \"explode\"}]}",
         "5: faults[1].do: unknown fault 'explode'"},
        {"{\"faults\": [3]}", "1: faults[0]: must be an object"},
        {"{\"faults\": [\n{}]}", "2: faults[0].do: what to do is missing"},
        {"{\"faults\": [{\"do\": \"late\"}]}", "1: faults[0].delay_ms: "},
        {"{\"faults\": [{\"do\": \"pad\"}]}", "1: faults[0].bytes: "},
        {"{\"faults\": [{\"do\": \"garbage\"}]}", "1: faults[0].data_hex: "},
        {"{\"faults\": [{\"do\": \"garbage\", \"data_hex\": \"0g\"}]}", "1: faults[0].data_hex: "},
        {"{\"faults\": [{\"do\": \"garbage\", \"data_hex\": \"123\"}]}", "1: faults[0].data_hex: "},
        {"{\"faults\": [{\"do\": \"half\", \"bytes\": -1}]}", "1: faults[0].bytes: "},
        {"{\"faults\": [{\"do\": \"half\", \"bytes\": 1e99}]}", "1: faults[0].bytes: "},
        {"{\"faults\": [{\"do\": \"silence\", \"count\": \"1\"}]}", "1: faults[0].count: "},
        {"{\"faults\": [{\"do\": \"silence\", \"text\": \"x\"}]}",
         "1: faults[0].text: unknown key for the fault 'silence'"},
        {"{\"shell\": [{}, {\"status\": 256}]}", "1: shell[1].status: "},
        {"{\"shell\": [{\"stats\": 1}]}", "1: shell[0].stats: unknown key"},
        {"{\"config\": {\"ports\": 0}}", "1: config.ports: "},
        {"{\"config\": {\"nmea\": \"yes\"}}", "1: config.nmea: "},
    };
    for (const auto &[text, place] : rows) {
        const std::string refusal = refusal_of(text);
        EXPECT_TRUE(refusal.starts_with(place)) << text << "\n" << refusal;
    }
}

TEST(scenario_parse, takes_all_of_a_good_one)
{
    scenario given;
    json_refusal refusal;
    int line = 0;
    ASSERT_EQ(0, scenario_parse_text(R"({"state": {"any": 1}, "clear_faults": true,
        "faults": [{"do": "half"}, {"do": "late", "delay_ms": 5}], "get": "state",
        "shell": [{"match": "m", "status": 7, "delay_ms": 3}], "config": {"ports": 9}})",
                                     scenario_source::datagram, given, refusal, line))
        << json_refusal_text(refusal);
    EXPECT_EQ(R"({"any":1})", json_text(given.state.get()));
    EXPECT_EQ(2U, given.faults.size());
    EXPECT_TRUE(given.clear_faults);
    EXPECT_EQ("state", given.get);
    EXPECT_EQ(9, given.config->ports);
    EXPECT_EQ("on", given.config->nmea);
    std::vector<shell_rule> rules;
    ASSERT_EQ(0, shell_rules_parse(given.shell.get(), rules, refusal));
    ASSERT_EQ(1U, rules.size());
    EXPECT_EQ("m", rules[0].match);
    EXPECT_EQ(7, rules[0].status);
    EXPECT_EQ(3, rules[0].delay_ms);
}

// Every beginning of a valid scenario is refused, and none of them is read beyond its end.
TEST(scenario_parse, refuses_every_truncation)
{
    const std::string text = R"({"faults":[{"do":"late","delay_ms":5}],"state":{"a":[1,"b"]}})";
    for (size_t length = 0; length < text.size(); length++)
        EXPECT_NE("", refusal_of(text.substr(0, length))) << length;
    EXPECT_EQ("", refusal_of(text));
}

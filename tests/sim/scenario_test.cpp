// A scenario is refused with the line and the reason, and nothing of a wrong one is taken.

#include "sim/scenario.h"

#include <string>

#include <gtest/gtest.h>

// "LINE: path: reason", or "" if it is accepted.
static std::string refusal_of(const std::string &text,
                              scenario_source source = scenario_source::file)
{
    scenario given;
    json_refusal refusal;
    int line = 0;
    if (scenario_parse_text(text, source, given, refusal, line) == 0)
        return "";
    return std::to_string(line) + ": " + json_refusal_text(refusal);
}

struct refusal_case {
    const char *text;
    const char *place; // what the refusal begins with
};

class refused_scenarios : public testing::TestWithParam<refusal_case>
{
};

TEST_P(refused_scenarios, name_line_and_key)
{
    const std::string refusal = refusal_of(GetParam().text);
    EXPECT_TRUE(refusal.starts_with(GetParam().place)) << GetParam().text << "\n" << refusal;
}

INSTANTIATE_TEST_SUITE_P(
    all, refused_scenarios,
    testing::Values(
        refusal_case{"", "1: "}, refusal_case{"{\n\"faults\": [}", "2: "},
        refusal_case{"[]", "1: must be an object"},
        refusal_case{"{\"state\": {},\n\"state\": {}}", "2: duplicate"},
        refusal_case{"{\n\"sate\": {}}", "2: sate: unknown key"},
        refusal_case{"{\"state\": []}", "1: state: must be an object"},
        refusal_case{"{\"clear_faults\": true}", "1: clear_faults: unknown key"},
        refusal_case{"{\"faults\": {}}", "1: faults: must be an array"},
        refusal_case{"{\"state\": {\"a\": [1, {\"do\": \"}\\\"]\"}]},\n \"faults\": [\n"
                     "  {\"do\": \"silence\"},\n  {\"match\": \"x\",\n   \"do\": \"explode\"}]}",
                     "5: faults[1].do: unknown fault 'explode'"},
        refusal_case{"{\"faults\": [3]}", "1: faults[0]: must be an object"},
        refusal_case{"{\"faults\": [\n{}]}", "2: faults[0].do: what to do is missing"},
        refusal_case{"{\"faults\": [{\"do\": \"late\"}]}", "1: faults[0].delay_ms: "},
        refusal_case{"{\"faults\": [{\"do\": \"pad\"}]}", "1: faults[0].bytes: "},
        refusal_case{"{\"faults\": [{\"do\": \"garbage\"}]}", "1: faults[0].data_hex: "},
        refusal_case{"{\"faults\": [{\"do\": \"garbage\", \"data_hex\": \"0g\"}]}",
                     "1: faults[0].data_hex: "},
        refusal_case{"{\"faults\": [{\"do\": \"garbage\", \"data_hex\": \"123\"}]}",
                     "1: faults[0].data_hex: "},
        refusal_case{"{\"faults\": [{\"do\": \"half\", \"bytes\": -1}]}", "1: faults[0].bytes: "},
        refusal_case{"{\"faults\": [{\"do\": \"half\", \"bytes\": 1e99}]}", "1: faults[0].bytes: "},
        refusal_case{"{\"faults\": [{\"do\": \"silence\", \"count\": \"1\"}]}",
                     "1: faults[0].count: "},
        refusal_case{"{\"faults\": [{\"do\": \"silence\", \"text\": \"x\"}]}",
                     "1: faults[0].text: unknown key for the fault 'silence'"},
        refusal_case{"{\"shell\": [{}, {\"status\": 256}]}", "1: shell[1].status: "},
        refusal_case{"{\"shell\": [{\"stats\": 1}]}", "1: shell[0].stats: unknown key"},
        refusal_case{"{\"config\": {\"ports\": 0}}", "1: config.ports: "},
        refusal_case{"{\"config\": {\"nmea\": \"yes\"}}", "1: config.nmea: "}));

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

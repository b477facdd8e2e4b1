// The records of Gobi modems as a client gets them: of every kind of modem, and of one that has little.

#include "support/appliance.h"

#include <algorithm>
#include <cctype>
#include <pugixml.hpp>
#include <sstream>

class gobi_records_appliance : public appliance
{
protected:
    void bring_up(const std::string &state = "{}")
    {
        time_scale = "0.5"; // a busy machine may take a second for an answer
        start_sim("gobi", R"({"state": )" + state + "}");
        start_daemon();
    }

    void set_state(const std::string &state) { tell_sim(R"({"state": )" + state + "}"); }

    std::string status(const std::string &key)
    {
        std::istringstream lines(tessera({"-s"}).out);
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with(key + " "))
                return line.substr(key.size() + 1);
        return "(none)";
    }
};

// A modem of the kind that its parameter names, with a session.
class gobi_kinds : public gobi_records_appliance, public testing::WithParamInterface<std::string>
{
protected:
    void SetUp() override
    {
        gobi_records_appliance::SetUp();
        bring_up(R"({"modem": ")" + GetParam() + "\"}");
        ASSERT_EQ(tessera({"--dip_connect", "--apn=internet"}).code, 0);
    }

    void expect_golden(const char *how)
    {
        std::string name = "gobi-" + GetParam();
        std::transform(name.begin(), name.end(), name.begin(), tolower);
        const client_result lines = tessera({"-i", "-s"});
        EXPECT_EQ(lines.out, golden(name + ".txt")) << how;
        EXPECT_EQ(lines.code, 0);
        EXPECT_EQ(tessera({"-i", "-s", "-x"}).out, golden(name + ".xml")) << how;
    }
};

TEST_P(gobi_kinds, have_both_records_in_both_forms_however_they_answer)
{
    expect_golden("at once");
    set_state(R"({"answer_ms": 10})");
    expect_golden("later");
    set_state(R"({"in_series": true})");
    expect_golden("one after the other");
    set_state(R"({"under_way_max": 3})");
    expect_golden("refusing too many");
    EXPECT_EQ(count(daemon_log(), "QMI modem takes one request at a time"), 1);
    set_state(R"({"in_series": false, "under_way_max": 1})");
    expect_golden("asked one by one");
}

TEST_P(gobi_kinds, have_both_records_of_a_modem_that_drops_what_is_too_much)
{
    set_state(R"({"answer_ms": 10, "under_way_max": 2, "drops_surplus": true})");
    expect_golden("silently");
    EXPECT_EQ(count(daemon_log(), "QMI modem takes one request at a time"), 1);
}

INSTANTIATE_TEST_SUITE_P(modems, gobi_kinds, testing::Values("LTE", "UMTS", "CDMA"),
                         [](const auto &row) { return row.param; });

TEST_F(gobi_records_appliance, what_is_not_there_is_left_out)
{
    bring_up(R"({"sim": "absent", "coverage": "", "msisdn": "", "boot_version": "",
                 "carrier_build": ""})");
    EXPECT_EQ(tessera({"--connstatus"}).code, 1);
    EXPECT_EQ(tessera({"-i", "-s"}).out, golden("gobi-bare.txt"));
    set_state(R"({"sim": "present", "coverage": "lte", "pin1_enabled": true})");
    EXPECT_EQ(status("sim-status"), "SIM Locked");
    EXPECT_EQ(status("sim-lock"), "SIM_LOCK_PIN");
    EXPECT_EQ(status("service-mode"), "No Service");
    EXPECT_EQ(tessera({"--simunlock", "--pin=1234"}).code, 0);
    EXPECT_EQ(status("sim-lock"), "SIM_READY");
    EXPECT_EQ(status("service-mode"), "LTE");
    EXPECT_EQ(tessera({"--radio=off"}).code, 0);
    EXPECT_EQ(status("signal-quality"), "(none)");
}

TEST_F(gobi_records_appliance, hostile_texts_arrive_in_well_formed_xml)
{
    const std::string hostile = R"("<a href='x'>&lt;\u0001\u001b[2J\r\n]]></manufacturer>é\uffff")";
    bring_up(R"({"manufacturer": )" + hostile + R"(, "model": )" + hostile + R"(, "hardware": )" +
             hostile + R"(, "revision": )" + hostile + R"(, "imsi": )" + hostile +
             R"(, "msisdn": )" + hostile + R"(, "carrier_build": )" + hostile + "}");
    const client_result result = tessera({"-i", "-s", "-x"});
    EXPECT_EQ(result.code, 0);
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\n";
    ASSERT_TRUE(result.out.starts_with(head));
    pugi::xml_document document;
    const std::string body = "<both>" + result.out.substr(head.size()) + "</both>";
    ASSERT_TRUE(
        document.load_string(body.c_str(), pugi::parse_default & ~unsigned{pugi::parse_eol}))
        << body;
    const auto both = document.child("both");
    const std::string shown = "<a href='x'>&lt;??[2J\r\n]]></manufacturer>é?";
    for (const char *key : {"manufacturer", "product", "hardware", "amss-version"})
        EXPECT_EQ(both.child("info").child(key).text().get(), shown) << key;
    for (const char *key : {"sim-imsi", "phone-number1", "preferred-carrier"})
        EXPECT_EQ(both.child("status").child(key).text().get(), shown) << key;
    EXPECT_EQ(tessera({"-i", "-s"}).code, 0);
}

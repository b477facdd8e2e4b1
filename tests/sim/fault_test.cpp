// How answers leave: every kind of fault, which request it takes, and in which order things arrive.

#include "sim/at_modem.h"
#include "sim/fault.h"
#include "sim/journal.h"
#include "sim/outbox.h"
#include "sim/report.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

static std::string shout(const std::string &text)
{
    return "<" + text + ">";
}

static constexpr fault_dialect dialect = {.error = shout, .unsolicited = shout};

static fault parsed(const std::string &json)
{
    const json_ref row(json_loads(json.c_str(), 0, nullptr));
    fault f;
    json_refusal refusal;
    EXPECT_EQ(0, fault_parse(row.get(), f, refusal)) << json << json_refusal_text(refusal);
    return f;
}

// "bytes", "+100:bytes" for a later piece, "!200" for a hang-up that returns after 200 ms.
static std::string shown(const delivery &plan)
{
    std::string text;
    for (const delivery_step &step : plan.steps) {
        if (step.delay_ms != 0)
            text += sim_format("+%lld:", static_cast<long long>(step.delay_ms));
        text += step.bytes;
    }
    if (!plan.end)
        return text;
    text += '!';
    text += plan.end->return_ms ? std::to_string(*plan.end->return_ms) : "never";
    return text + (plan.end->reboot ? " reboot" : "");
}

TEST(fault_deliver, each_kind_changes_how_the_answer_leaves)
{
    const struct {
        const char *row, *leaves;
    } rows[] = {
        {R"({"do":"silence"})", ""},
        {R"({"do":"late","delay_ms":70})", "+70:answer"},
        {R"({"do":"half"})", "ans"},
        {R"({"do":"half","bytes":5})", "answe"},
        {R"({"do":"half","bytes":500})", "answer"},
        {R"({"do":"garbage","data_hex":"FF 7e"})", "\xFF~"},
        {R"({"do":"garbage","data_hex":"21","then_answer":true})", "!answer"},
        {R"({"do":"error","text":"ERROR"})", "<ERROR>"},
        {R"({"do":"error","data_hex":"4142"})", "AB"},
        {R"({"do":"hangup"})", "!never"},
        {R"({"do":"hangup","bytes":2,"return_ms":9})", "an!9"},
        {R"({"do":"hangup","return_ms":0,"reboot":true})", "!0 reboot"},
        {R"({"do":"double"})", "answeranswer"},
        {R"({"do":"unsolicited","text":"RING"})", "<RING>answer"},
        {R"({"do":"split","delay_ms":30})", "ans+30:wer"},
        {R"({"do":"split","delay_ms":30,"bytes":1})", "a+30:nswer"},
        {R"({"do":"pad","bytes":9})", "...answer"},
        {R"({"do":"pad","bytes":9,"at_end":true})", "answer..."},
        {R"({"do":"pad","bytes":3})", "answer"},
    };
    for (const auto &[row, leaves] : rows)
        EXPECT_EQ(leaves, shown(fault_deliver(parsed(row), "answer", dialect))) << row;
}

TEST(fault_deliver, noise_is_the_same_in_every_run_and_not_ascii)
{
    const fault f = parsed(R"({"do":"garbage","bytes":64})");
    const std::string noise = shown(fault_deliver(f, "answer", dialect));
    EXPECT_EQ(64U, noise.size());
    EXPECT_EQ(noise, shown(fault_deliver(f, "answer", dialect)));
    EXPECT_TRUE(std::any_of(noise.begin(), noise.end(), [](char c) { return c & 0x80; }));
}

class engine : public testing::Test
{
protected:
    void add(const std::string &row) { faults_.add({parsed(row)}); }

    std::string ask(const std::string &request)
    {
        return shown(faults_.answer(request, dialect, [&] {
            executed_++;
            return request + "!";
        }));
    }

    sim_loop loop_;
    journal log_;
    fault_engine faults_{loop_, log_};
    int executed_ = 0;
};

TEST_F(engine, takes_requests_that_begin_with_the_match_skips_and_counts)
{
    add(R"({"match":"AT!G","skip":1,"count":2,"do":"silence"})");
    EXPECT_EQ("AT!GSTATUS?!", ask("AT!GSTATUS?"));
    EXPECT_EQ("AT!", ask("AT"));
    EXPECT_EQ("", ask("AT!GSTATUS?"));
    EXPECT_EQ("", ask("AT!G"));
    EXPECT_EQ("AT!G!", ask("AT!G"));
}

TEST_F(engine, count_zero_lasts_until_it_is_cleared)
{
    add(R"({"count":0,"do":"silence"})");
    for (int i = 0; i < 5; i++)
        EXPECT_EQ("", ask("A"));
    faults_.clear();
    EXPECT_EQ("A!", ask("A"));
}

TEST_F(engine, the_first_that_is_ready_acts)
{
    add(R"({"skip":1,"do":"double"})");
    add(R"({"do":"half"})");
    EXPECT_EQ("A", ask("A"));
    EXPECT_EQ("B!B!", ask("B"));
}

TEST_F(engine, an_error_keeps_the_request_from_being_carried_out_and_silence_does_not)
{
    add(R"({"do":"error","text":"E"})");
    add(R"({"do":"silence"})");
    EXPECT_EQ("<E>", ask("A"));
    EXPECT_EQ(0, executed_);
    EXPECT_EQ("", ask("A"));
    EXPECT_EQ(1, executed_);
}

TEST_F(engine, timed_faults_act_alone_or_wait_for_a_request_from_then_on)
{
    std::string alone;
    faults_.set_alone([&](const fault &f) { alone += fault_name(f); });
    add(R"({"at_ms":1,"do":"garbage","bytes":3})");
    faults_.clear(); // and the times with them
    add(R"({"at_ms":1,"do":"hangup"})");
    add(R"({"at_ms":1,"do":"half"})");
    add(R"({"at_ms":1,"match":"X","do":"hangup"})");
    EXPECT_EQ("A!", ask("A"));
    loop_.after(5, [&] { loop_.stop(); });
    ASSERT_EQ(0, loop_.run());
    EXPECT_EQ("hangup", alone);
    EXPECT_EQ("A", ask("A"));
    EXPECT_EQ("!never", ask("X"));
}

TEST(outbox_order, a_late_answer_is_overtaken_and_dies_with_its_line)
{
    sim_loop loop;
    std::string sent;
    outbox box(
        loop, [&](std::string_view bytes) { sent += bytes; }, [&](const hangup &) { sent += "!"; });
    box.deliver({{{200, "lost"}}, std::nullopt});
    box.clear();
    box.deliver({{{3, "late"}}, hangup{}});
    box.deliver({{{0, "early,"}}, std::nullopt});
    EXPECT_EQ("early,", sent);
    loop.after(260, [&] { loop.stop(); });
    ASSERT_EQ(0, loop.run());
    EXPECT_EQ("early,late!", sent);
}

TEST(outbox_order, a_held_answer_leaves_behind_the_next_one)
{
    sim_loop loop;
    std::string sent;
    outbox box(
        loop, [&](std::string_view bytes) { sent += bytes; }, [](const hangup &) {});
    const fault held = parsed(R"({"do":"out_of_order"})");
    box.deliver(fault_deliver(held, "1", dialect));
    box.deliver({}); // silence is no answer to leave behind
    EXPECT_EQ("", sent);
    box.deliver({{{0, "2"}}, std::nullopt, false});
    box.deliver({{{0, "3"}}, std::nullopt, false});
    EXPECT_EQ("213", sent);
    box.deliver(fault_deliver(held, "4", dialect));
    box.clear();
    box.deliver({{{0, "5"}}, std::nullopt, false});
    EXPECT_EQ("2135", sent);
}

// Faults are data: what goes wrong with which request or at what time. A family asks the engine
// how an answer is to leave; it never knows which fault it is playing. Nothing here knows what the
// bytes of an answer mean: the two texts that depend on it come from the family's dialect.
#pragma once

#include "sim/json.h"
#include "sim/loop.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class journal;
struct fault_kind;

struct fault {
    const fault_kind *kind = nullptr;
    std::string match;            // prefix of the request; empty: any
    int64_t skip = 0;             // matching requests to let pass first
    int64_t count = 1;            // requests it then acts on; 0: for ever
    std::optional<int64_t> at_ms; // it exists from this time on; none: at once
    int64_t delay_ms = 0;         // late, split
    std::optional<int64_t> bytes; // half, garbage, hangup, split, pad
    std::string data;             // garbage, error
    bool has_data = false;
    std::string text;                 // error, unsolicited
    bool then_answer = false;         // garbage: the answer follows
    bool at_end = false;              // pad: filler behind the answer instead of in front of it
    std::optional<int64_t> return_ms; // hangup: none means for ever
    bool reboot = false;              // hangup
    std::optional<int64_t> tlv;       // the faults of TLVs: which one
    int64_t number = 1;               // burst
};

// The line to the daemon breaks; it comes back after `return_ms`, if at all.
struct hangup {
    std::optional<int64_t> return_ms;
    bool reboot = false;
};

// How one answer leaves: pieces, each so long after the one before, each one write; then, perhaps,
// the line breaks. An answer that is held leaves right behind the next one on its line.
struct delivery_step {
    int64_t delay_ms = 0;
    std::string bytes;
};

struct delivery {
    std::vector<delivery_step> steps;
    std::optional<hangup> end;
    bool held = false;
};

// How a family prints the texts that a scenario gives.
struct fault_dialect {
    std::string (*error)(const std::string &text) = nullptr;
    std::string (*unsolicited)(const std::string &text) = nullptr;
    // For families of packets or frames, null for others: an answer spoilt as this fault has it, so
    // many unsolicited packets at once, and whether a fault with this `match` means the request
    // (null: the request begins with it).
    std::string (*spoil)(const fault &f, std::string_view answer) = nullptr;
    void (*burst)(int64_t number) = nullptr;
    bool (*matches)(std::string_view request, std::string_view match) = nullptr;
};

// Reads one element of "faults". 0, or -1 with the refusal set.
int fault_parse(json_t *row, fault &out, json_refusal &refusal);

const char *fault_name(const fault &f);

// Whether the request fails instead of being carried out: the modem's state stays as it was.
bool fault_refuses(const fault &f);

// How `answer` leaves under this fault. A fault that acts alone gets an empty answer.
delivery fault_deliver(const fault &f, std::string_view answer, const fault_dialect &dialect);

class fault_engine
{
public:
    fault_engine(sim_loop &loop, journal &log) : loop_(loop), log_(log) {}

    // Who plays the timed faults that need no request: a hang-up, garbage, an unsolicited line.
    void set_alone(std::function<void(const fault &)> alone) { alone_ = std::move(alone); }

    // Times count from here.
    void add(const std::vector<fault> &faults);
    void clear();

    // Carries one request out and says how its answer leaves. The first fault that matches and has
    // let enough requests pass acts; `execute` is not called if that fault refuses the request.
    delivery answer(std::string_view request, const fault_dialect &dialect,
                    const std::function<std::string()> &execute);

private:
    std::optional<fault> take(std::string_view request, const fault_dialect &dialect);
    void start(const fault &f);

    sim_loop &loop_;
    journal &log_;
    std::function<void(const fault &)> alone_;
    std::vector<fault> armed_;
    std::vector<sim_timer> timers_;
};

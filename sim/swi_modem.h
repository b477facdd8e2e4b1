// What the simulated modems behind the SDK's server have in common: they are found, identified, reset
// and booted alike, and send a notification for each change of what clients may listen to, whoever
// caused it. A family brings its state, its operations and the values that it reports. There is one
// modem in a process.
#pragma once

#include "sim/state_fields.h"
#include "sim/swi_server.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

// The part of a family's state that is the same for all. A family's state derives from it and
// brings the values of a believable modem.
struct swi_modem_state {
    std::string product;
    int64_t type_code = 0;
    std::string hardware;
    std::string boot;
    std::string firmware;
    bool serving = true;    // the server program lives, or can be started
    bool air_server = true; // the server reaches the modem
    int64_t boot_ms = 0;    // after a reset, before it answers again
    bool report = true;     // whoever enables a notification is told the present value

    std::string registration = "home"; // what the network grants
    std::string call = "none";
};

static constexpr int64_t swi_state_ms_max = 24L * 3600 * 1000;
static constexpr int64_t swi_state_word_max = 0xFFFFFFFF;

// clang-format off
template <class State>
constexpr std::array<state_field<State>, 10> swi_modem_fields = {{
    {"product",      &State::product},
    {"type_code",    &State::type_code,    nullptr, 0, swi_state_word_max},
    {"hardware",     &State::hardware},
    {"boot",         &State::boot},
    {"firmware",     &State::firmware},
    {"serving",      &State::serving},
    {"air_server",   &State::air_server},
    {"boot_ms",      &State::boot_ms,      nullptr, 0, swi_state_ms_max},
    {"report",       &State::report},
    {"registration", &State::registration, "home|roaming|searching|denied|none"},
}};
// clang-format on

// One table of two, for rows that are partly shared.
template <class Row, size_t A, size_t B>
constexpr std::array<Row, A + B> table_join(const std::array<Row, A> &a,
                                            const std::array<Row, B> &b)
{
    return [&]<size_t... I, size_t... J>(std::index_sequence<I...>, std::index_sequence<J...>)
    {
        return std::array<Row, A + B>{a[I]..., b[J]...};
    }
    (std::make_index_sequence<A>(), std::make_index_sequence<B>());
}

// What the network gave the modem, whatever that needs besides.
bool swi_modem_granted(const swi_modem_state &state);

// A code as the scenario gives it, or what follows from the rest of the state where it is -1.
uint32_t swi_given_or(int64_t given, uint32_t otherwise);

// Calls `take` with each of a list's parts that are separated by `between`.
template <class Take>
void swi_each_part(std::string_view list, char between, Take take)
{
    while (!list.empty()) {
        const size_t end = std::min(list.find(between), list.size());
        take(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
}

// A number of at most 16 bits; what is none counts as 0.
uint16_t swi_list_number(std::string_view text);

// ---- operations

// Fills a field with as much of a text as fits.
template <size_t N>
void swi_put_text(char (&field)[N], std::string_view text)
{
    text = text.substr(0, text.find('\0'));
    (void)swi_set_text(field, text.substr(0, N - 1));
}

// Operations that ask for one field of the state, which the family's function `State` refers to.
template <auto State, auto Member>
swi_reply swi_reply_text(const swi_nothing &, swi_text &text)
{
    swi_put_text(text.text, State().*Member);
    return {};
}

template <auto State, auto Member>
swi_reply swi_reply_number(const swi_nothing &, swi_number &number)
{
    number.value = static_cast<uint32_t>(State().*Member);
    return {};
}

template <auto State>
swi_reply swi_reply_air_server(const swi_nothing &, swi_air_server_status &status)
{
    status.unavailable = State().air_server ? 0 : 1;
    return {};
}

template <auto State, swi_selector Technology>
swi_reply swi_reply_modem_type(const swi_nothing &, swi_modem_type &type)
{
    type.type_code = static_cast<uint32_t>(State().type_code);
    type.technology = Technology;
    swi_put_text(type.product, State().product);
    return {};
}

// Reboots when the answer has left.
swi_reply swi_modem_reset(const swi_nothing &, swi_nothing &);

// The rows that every family's table begins with.
template <auto State, swi_selector Technology>
constexpr std::array<swi_handler, 5> swi_modem_handlers = {
    swi_handle<swi_op_air_server, swi_reply_air_server<State>>(),
    swi_handle<swi_op_modem_type, swi_reply_modem_type<State, Technology>>(),
    swi_handle<swi_op_get_hardware_version, swi_reply_text<State, &swi_modem_state::hardware>>(),
    swi_handle<swi_op_get_boot_version, swi_reply_text<State, &swi_modem_state::boot>>(),
    swi_handle<swi_op_get_firmware_version, swi_reply_text<State, &swi_modem_state::firmware>>(),
};

// ---- the modem

struct swi_modem_slots {
    swi_modem_state *state = nullptr;
    std::span<const swi_handler> handlers;
    // Makes the state that of a modem that is powered up, and says for how long it then boots.
    int64_t (*power_up)() = nullptr;
    // Makes the state agree with itself and reports what changed; after anything that may have
    // changed it.
    void (*settle)() = nullptr;
    // Reports the present value of one notification.
    void (*report)(uint32_t id) = nullptr;
};

// 0, or -1 with the reason. `slots` outlive the modem.
int swi_modem_start(sim_services &services, const swi_modem_slots &slots, std::string &reason);
void swi_modem_stop();

// After a scenario changed the state; also before the start.
void swi_modem_merged();

// Plays a fault that needs no request.
void swi_modem_act(const fault &alone);

// Null while the modem answers nothing, so that nobody is told anything either.
swi_server *swi_modem_listeners();

// ---- notifications

// One value of a family's view of its state, and the word that tells it.
template <class View>
struct swi_reported {
    uint32_t id;
    uint32_t View::*value;
    std::variant<uint32_t swi_notification::*, uint16_t swi_notification::*> word;
};

// A call's events are sent to whoever listens to its status.
void swi_notify_call(swi_server &server, std::string_view call);

// Remembers what was reported last. A view has a member for each row and the text `call`.
template <class View>
class swi_reporter
{
public:
    explicit swi_reporter(std::span<const swi_reported<View>> rows) : rows_(rows) {}

    void changes(const View &view)
    {
        const View before = std::exchange(reported_, view);
        swi_server *server = swi_modem_listeners();
        if (!server)
            return;
        for (const auto &row : rows_)
            if (before.*row.value != view.*row.value)
                notify(*server, row);
        if (before.call != view.call)
            swi_notify_call(*server, view.call);
    }

    void one(uint32_t id) const
    {
        swi_server *server = swi_modem_listeners();
        for (const auto &row : rows_)
            if (server && row.id == id)
                notify(*server, row);
    }

private:
    void notify(swi_server &server, const swi_reported<View> &row) const
    {
        swi_notification values;
        values.type = row.id;
        const auto fill = [&](auto word) {
            using number = std::remove_reference_t<decltype(values.*word)>;
            values.*word = static_cast<number>(reported_.*row.value);
        };
        std::visit(fill, row.word);
        server.notify(values);
    }

    std::span<const swi_reported<View>> rows_;
    View reported_;
};

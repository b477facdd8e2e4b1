#include "sim/swi_modem.h"

#include <charconv>
#include <memory>

// The one modem of this process.
static const swi_modem_slots *the_slots;
static sim_services *the_services;
static std::unique_ptr<swi_server> the_server;
static bool the_answering = true;
static bool the_serving = true; // as the server was told last
static sim_timer the_boot;

bool swi_modem_granted(const swi_modem_state &state)
{
    return state.registration == "home" || state.registration == "roaming";
}

uint32_t swi_given_or(int64_t given, uint32_t otherwise)
{
    return given >= 0 ? static_cast<uint32_t>(given) : otherwise;
}

uint16_t swi_list_number(std::string_view text)
{
    uint16_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

// ---- boot

static void boot()
{
    the_answering = false;
    the_server->forget_enabled();
    const int64_t boot_ms = the_slots->power_up();
    the_slots->settle();
    the_services->loop.cancel(the_boot);
    the_boot = the_services->loop.after(boot_ms, [] { the_answering = true; });
}

swi_reply swi_modem_reset(const swi_nothing &, swi_nothing &)
{
    the_services->loop.after(0, boot);
    return {};
}

// ---- notifications

swi_server *swi_modem_listeners()
{
    return the_answering ? the_server.get() : nullptr;
}

void swi_notify_call(swi_server &server, std::string_view call)
{
    static constexpr std::pair<std::string_view, uint32_t> events[] = {
        {"none", swi_notify_call_disconnected},
        {"connecting", swi_notify_call_connecting},
        {"connected", swi_notify_call_connected},
        {"incoming", swi_notify_call_incoming},
    };
    swi_notification values;
    for (const auto &[name, id] : events)
        if (name == call)
            values.type = id;
    server.notify(values, swi_notify_call_status);
}

static void on_enabled(uint32_t id)
{
    if (the_slots->state->report)
        the_slots->report(id);
}

// ---- the modem

static bool answering()
{
    return the_answering;
}

int swi_modem_start(sim_services &services, const swi_modem_slots &slots, std::string &reason)
{
    the_services = &services;
    the_slots = &slots;
    the_slots->settle();
    the_server = std::make_unique<swi_server>(services, swi_modem_hooks{.handlers = slots.handlers,
                                                                        .answering = answering,
                                                                        .enabled = on_enabled,
                                                                        .reboot = boot});
    the_serving = slots.state->serving;
    if (!the_serving)
        the_server->set_serving(false);
    return the_server->open(reason);
}

void swi_modem_stop()
{
    the_server.reset();
}

void swi_modem_merged()
{
    if (!the_server)
        return;
    the_slots->settle();
    if (std::exchange(the_serving, the_slots->state->serving) != the_slots->state->serving)
        the_server->set_serving(the_slots->state->serving);
}

void swi_modem_act(const fault &alone)
{
    the_server->act(alone);
}

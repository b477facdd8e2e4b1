// The server side of the SDK's channels for a simulated modem: five pairs of sockets, requests
// decoded and answered by the modem's table of handlers, notifications for whoever enabled them.
// Every request passes the fault engine. The channels are there while a `swisdk` process is.
#pragma once

#include "sim/family.h"
#include "sim/outbox.h"
#include "sim/packet_line.h"
#include "swi/operations.h"

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

// What the modem says about a request besides the response's record.
struct swi_reply {
    uint32_t status = swi_status_ok;
    uint32_t own_result = 0; // for operations that have one
    std::string text;        // of a refusal
};

inline swi_reply swi_refuse(std::string text)
{
    return {swi_status_error, 0, std::move(text)};
}

// One operation of a modem: `call` fills the response record from the request record.
struct swi_handler {
    swi_operation_id operation;
    swi_reply (*call)(const void *request, void *response);
};

template <auto Function>
struct swi_handler_thunk;

template <class Request, class Response, swi_reply (*Function)(const Request &, Response &)>
struct swi_handler_thunk<Function> {
    static constexpr const swi_layout *request = &swi_layout_of<Request>;
    static constexpr const swi_layout *response = &swi_layout_of<Response>;
    static swi_reply call(const void *request_record, void *response_record)
    {
        return Function(*static_cast<const Request *>(request_record),
                        *static_cast<Response *>(response_record));
    }
};

// A row of a modem's table; the compiler checks that the function's records are the operation's.
template <swi_operation_id Id, auto Function>
constexpr swi_handler swi_handle()
{
    static_assert(swi_operations[Id].request == swi_handler_thunk<Function>::request);
    static_assert(swi_operations[Id].response == swi_handler_thunk<Function>::response);
    return {Id, swi_handler_thunk<Function>::call};
}

struct swi_modem_hooks {
    std::span<const swi_handler> handlers;
    bool (*answering)() = nullptr;          // false: the modem is booting, nothing is carried out
    void (*enabled)(uint32_t id) = nullptr; // somebody wants this notification from now on
    void (*reboot)() = nullptr;             // a power cycle
};

class swi_server
{
public:
    swi_server(sim_services &services, const swi_modem_hooks &hooks);
    ~swi_server();
    swi_server(const swi_server &) = delete;
    swi_server &operator=(const swi_server &) = delete;

    // Puts /bin/swisdk into the root and waits for it to be started. 0, or -1 with the reason.
    int open(std::string &reason);

    // Sends a notification to every client that enabled it, or `enabled_by`.
    void notify(const swi_notification &values, uint32_t enabled_by = 0);

    // The modem rebooted and knows of no notifications that were enabled.
    void forget_enabled();

    // Kills the server program and lets nobody start it, or lets them start it again.
    void set_serving(bool serving);

    // Sends bytes as they are to every client's notification channel.
    void notify_bytes(std::string_view bytes);

    // Sends so many notifications at once, numbered from 0.
    void burst(int64_t number);

    // Plays a fault that needs no request.
    void act(const fault &alone);

private:
    struct listener {
        unique_fd socket;
        std::string path;
    };
    struct pair {
        listener request_listener, notification_listener;
        std::unique_ptr<packet_line> request, notification;
        std::unique_ptr<outbox> answers;
        std::set<uint32_t> enabled;
    };

    int listen_at(const std::string &path, listener &out);
    void serve();
    void stop_serving();
    void accept_server();
    void accept_client(pair &of, bool request);
    void request(pair &from, std::string_view bytes);
    const swi_handler *find_handler(uint16_t kind, const swi_object_header &object) const;
    std::string execute(pair &from, const swi_object_header &object, const swi_handler *handler,
                        const void *record);
    void hang_up(const hangup &end);

    sim_services &services_;
    swi_modem_hooks hooks_;
    std::array<pair, swi_channel_pairs.size()> pairs_;
    listener server_listener_;
    std::unique_ptr<packet_line> server_; // the living swisdk process
    bool refusing_ = false;               // after a hang-up, until its return
};

#include "backends/sierra/cns.h"

#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/tarnwick.h"
#include "publish/state.h"
#include "swi/calls.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <arpa/inet.h>
#include <pthread.h>
#include <unistd.h>

constexpr const char *server_path = "/bin/swisdk";
constexpr const char *data_interface = "dialout0";
constexpr int modem_type_timeout_ms = 3000;
constexpr int air_server_timeout_ms = 3000;
constexpr int air_server_retry_s = 5;
constexpr int restore_wait_max = 63; // counts of about a second
constexpr int thread_retry_ms = 1000;
constexpr int interfaces_max = 64;

static struct {
    std::atomic<bool> started = false;
    std::atomic<bool> thread_ready = false;
    std::atomic<bool> call_notifications_enabled = false;
    bool call_notifications_wanted = false; // they were enabled once, so somebody listens
    bool thread_created = false;
    pthread_t notification_thread;
} session;

// ---- start

static void *notification_thread(void *)
{
    session.thread_ready = true;
    const int result = swi_wait_notification();
    if (result != swi_ok)
        log_message(log_fatal, "SwiWaitNotification failed: %d", result);
    return nullptr;
}

// At the end of the process: nothing that is torn down then may still have a thread in it.
static void end_session()
{
    swi_api_close();
    if (session.thread_created && !pthread_equal(pthread_self(), session.notification_thread))
        pthread_join(session.notification_thread, nullptr);
}

[[noreturn]] static void give_up(int result)
{
    switch (result) {
    case swi_failed:
        log_message(log_fatal, "Sierra Wireless API Open failed");
        break;
    case swi_busy:
        log_message(log_fatal, "Sierra Wireless API Open failed, busy");
        break;
    case swi_system_error:
        log_message(log_fatal, "Sierra Wireless API Open failed with system error");
        break;
    default:
        log_message(log_fatal, "Unrecognized error: %d", result);
        break;
    }
    std::exit(EXIT_FAILURE);
}

// Waits until the server reaches the modem, for at most so many counts. Should the server die
// meanwhile, the wait goes on with its successor. 0, or -1 after the time or once termination was
// requested.
static int await_air_server(int counts_max)
{
    swi_air_server_status status;
    for (int counter = 0; !clock_stopped(); counter += air_server_retry_s) {
        if (swi_air_server_check(status, air_server_timeout_ms) == swi_ok)
            return 0;
        log_message(log_error, "Sierra Wireless Air Server unavailable");
        if (counter > counts_max - air_server_retry_s)
            return -1;
        clock_sleep_ms(air_server_retry_s * 1000);
        (void)swi_api_reopen();
    }
    return -1;
}

static void identify(sierra_identity &identity)
{
    swi_modem_type type;
    if (swi_get_modem_type(type, modem_type_timeout_ms) != swi_ok)
        return;
    identity.type_code = type.type_code;
    memcpy(identity.product, type.product, sizeof(identity.product));
    log_message(log_debug, "Detected sierra-wireless modem: '%s' 0x%x", identity.product,
                identity.type_code);
}

static int create_thread()
{
    if (session.thread_created)
        return 0;
    const int error =
        pthread_create(&session.notification_thread, nullptr, notification_thread, nullptr);
    if (error != 0) {
        log_message(log_fatal, "Failed to create notification thread: %d: %s", error,
                    strerror(error));
        return -1;
    }
    session.thread_created = true;
    return 0;
}

int sierra_cns_start(sierra_identity &identity)
{
    if (session.started) {
        log_message(log_info, "Sierra CnS back-end may only be started once");
        const int restored = sierra_cns_restore(identity);
        return create_thread() != 0 ? -1 : std::max(0, restored);
    }
    if (access(rooted(server_path).c_str(), R_OK | X_OK) != 0) {
        log_message(log_fatal, "No such file: %s\n", server_path);
        return -1;
    }
    swi_start_parameters parameters;
    static_assert(sizeof("/bin/swisdk") == sizeof(parameters.server_path));
    memcpy(parameters.server_path, server_path, sizeof(parameters.server_path));
    parameters.launch = 1;
    const int result = swi_api_open(parameters);
    if (result == swi_ok)
        std::atexit(end_session);
    else if (!clock_stopped())
        give_up(result);
    if (clock_stopped() || await_air_server(INT_MAX) != 0)
        return -1;
    identify(identity);
    session.started = true;
    return create_thread();
}

// 1 when the channels were opened again, 0 when they were alive, -1 when it failed.
static int reopen()
{
    if (swi_api_alive())
        return 0;
    sierra_cns_forget_notifications(); // a new server knows nothing of them
    const int result = swi_api_reopen();
    if (result != swi_ok) {
        log_message(log_warning, "Sierra Wireless API could not be opened again: %d", result);
        return -1;
    }
    return await_air_server(restore_wait_max) == 0 ? 1 : -1;
}

int sierra_cns_restore(sierra_identity &identity)
{
    if (!session.started)
        return 0;
    const int result = reopen();
    if (result >= 0 && identity.product[0] == '\0')
        identify(identity); // it was silent when it was asked first
    return result;
}

int sierra_cns_await_thread()
{
    if (!session.thread_created)
        return -1;
    while (!session.thread_ready && !clock_stopped()) {
        log_message(log_debug, "Waiting for thread...\n");
        clock_sleep_ms(thread_retry_ms);
    }
    return session.thread_ready ? 0 : -1;
}

int sierra_cns_stop_notifications()
{
    log_message(log_info, "Canceling sierra API notification thread");
    return 0;
}

// ---- liveness and the data call

bool sierra_cns_answers(int &result)
{
    swi_number esn;
    result = swi_get_esn(esn, sierra_timeout_ms);
    return result == swi_ok || result == swi_not_applicable;
}

int sierra_cns_ping(cellmodem &modem)
{
    int result;
    if (sierra_cns_answers(result)) {
        (void)publish_device_state(modem, device_responding);
        return 0;
    }
    if (clock_stopped())
        return -1; // cut short, which says nothing of the modem
    (void)publish_device_state(modem, device_unresponsive);
    log_message(log_warning, "Failed to ping sierra wireless modem: %d", result);
    return -1;
}

static bool find_interface(const tarnwick_interface *records, int count)
{
    for (int i = 0; i < count; i++) {
        char address[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &records[i].ipv4, address, sizeof(address));
        char name[sizeof(records[i].name) + 1] = "";
        memcpy(name, records[i].name, sizeof(records[i].name));
        log_message(log_debug, "Found interface: %s address: %s", name, address);
        if (strcmp(name, data_interface) == 0)
            return true;
    }
    return false;
}

int sierra_cns_find_ppp_interface(cellmodem &modem)
{
    const std::unique_ptr<tarnwick_interface[]> records(new (std::nothrow)
                                                            tarnwick_interface[interfaces_max]());
    if (!records) {
        log_message(log_error, "Failed to allocate net iface buffer");
        (void)publish_session_state(modem, session_disconnected);
        return -1;
    }
    const int count =
        tarnwick_network_getinterfaces(records.get(), interfaces_max, tarnwick_interfaces_ppp);
    log_message(log_debug, "Found %d ppp interfaces", count);
    if (count <= 0)
        log_message(log_debug, "Could not locate PPP interface");
    const bool found =
        find_interface(records.get(), count < interfaces_max ? count : interfaces_max);
    (void)publish_session_state(modem, found ? session_connected : session_disconnected);
    return found ? 0 : -1;
}

// ---- call notifications

struct call_notification {
    uint32_t id;
    const char *name;
};

constexpr call_notification call_notifications[] = {
    {swi_notify_call_status, "call status notifications"},
    {swi_notify_caller_id, "caller-id notification"},
    {swi_notify_call_privacy, "call privacy notification"},
    {swi_notify_call_error, "call error notification"},
};

int sierra_cns_enable_call_notifications()
{
    if (session.call_notifications_enabled)
        return 0;
    log_message(log_debug, "Enabling call status notifications");
    if (sierra_cns_await_thread() != 0)
        return -1;
    for (const call_notification &row : call_notifications) {
        const int result = swi_enable_notification(row.id, sierra_timeout_ms);
        if (result != swi_ok) {
            log_message(log_error, "Failed setting %s: %d", row.name, result);
            return -1;
        }
    }
    session.call_notifications_enabled = true;
    session.call_notifications_wanted = true;
    return 0;
}

int sierra_cns_renew_call_notifications()
{
    return session.call_notifications_wanted ? sierra_cns_enable_call_notifications() : 0;
}

void sierra_cns_forget_notifications()
{
    session.call_notifications_enabled = false;
}

bool sierra_cns_dispatch(std::span<const sierra_notification_handler> handlers, cellmodem &modem,
                         const swi_notification &notification)
{
    for (const sierra_notification_handler &row : handlers) {
        if (row.type == notification.type) {
            row.handle(modem, notification);
            return true;
        }
    }
    return false;
}

// ---- result codes

char *sierra_cns_rcode_name(int code, char *buffer, size_t size)
{
    static constexpr const char *names[] = {
        "SWI_RCODE_OK",
        "SWI_RCODE_NOT_SUP",
        "SWI_RCODE_SMALL_BUF",
        "SWI_RCODE_CLOSED",
        "SWI_RCODE_INVALID_PAR",
        "SWI_RCODE_FAILED",
        "SWI_RCODE_UNEXPECTED_RESP",
    };
    if (code >= 0 && static_cast<size_t>(code) < std::size(names))
        snprintf(buffer, size, "%s", names[code]);
    else
        snprintf(buffer, size, "SWI_RCODE: %d", code);
    return buffer;
}

struct error_range {
    uint32_t first;
    uint32_t last;
    int error_class;
};

// The gaps between the ranges are of class 0, the lone ones at 14 and around 225 included.
constexpr error_range error_ranges[] = {
    {0, 6, 1},     {7, 13, 2},    {15, 23, 2},   {75, 78, 2},   {100, 100, 2}, {101, 105, 1},
    {150, 155, 2}, {200, 200, 2}, {201, 204, 1}, {225, 225, 1}, {226, 226, 2}, {227, 229, 1},
    {250, 250, 2}, {251, 254, 1}, {275, 276, 2}, {300, 303, 2}, {600, 600, 1},
};

int sierra_cns_check_error(int code)
{
    constexpr size_t name_size = 15;
    if (code != swi_ok && code != swi_cns_error) {
        char name[name_size];
        log_message(log_error, "Sierra Wireless Error: %d: %s", code,
                    sierra_cns_rcode_name(code, name, sizeof(name)));
    }
    const auto number = static_cast<uint32_t>(code);
    for (const error_range &range : error_ranges)
        if (number >= range.first && number <= range.last)
            return range.error_class;
    return 0;
}

// The SDK session that the Sierra CnS families share: opened once per process by the first attach,
// with a thread that waits for notifications until the process ends. A family's notification callback
// runs on that thread; all else here is the main thread's, except where a remark says otherwise.
//
// The server program may die under the session. The session then stays what it is, every request
// fails, and the next start or restore opens the channels again below it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct cellmodem;
struct swi_notification;

constexpr int sierra_timeout_ms = 60000; // what the modems take at worst for an ordinary request

// What the server says about the modem it found.
struct sierra_identity {
    uint32_t type_code = 0;
    char product[24] = "";
};
static_assert(sizeof(sierra_identity) == 28);

// Opens the session and fills the identity, or restores the session if it was opened before. 0, 1 when
// the channels were restored, or -1. A first start waits for the modem as long as it takes, and a
// server that cannot be opened then ends the process. A session that could not be restored is no
// failure here: requests fail until a later start succeeds.
int sierra_cns_start(sierra_identity &identity);

// Opens the channels of a started session again if their server died, and waits about a minute for
// the modem. Identifies the modem if that failed before. 1 when the server died: the families'
// notifications must be enabled again; 0 when nothing was to be done, -1 when it failed.
int sierra_cns_restore(sierra_identity &identity);

// Waits until the notification thread runs. 0, or -1 without a thread or once termination was
// requested.
[[nodiscard]] int sierra_cns_await_thread();

// Says that the thread ends, which it does not: it lives as long as the process. 0.
int sierra_cns_stop_notifications();

// Asks the modem for something harmless and publishes whether it answered. 0 or -1.
int sierra_cns_ping(cellmodem &modem);

// The same question without publishing anything: whether the modem answers it within the time-out.
// The result is the SDK's.
[[nodiscard]] bool sierra_cns_answers(int &result);

// Looks for the interface that carries the data call and publishes the session state. 0 when it is
// there, -1 otherwise. Safe from both threads; of two calls at the same time either may be the last.
int sierra_cns_find_ppp_interface(cellmodem &modem);

// Enables the notifications about calls unless they are. 0 or -1.
int sierra_cns_enable_call_notifications();

// Enables them again if they were enabled before and forgotten since. 0 or -1.
int sierra_cns_renew_call_notifications();

// Notes that the modem or its server began anew, or may have: neither then remembers what was
// enabled.
void sierra_cns_forget_notifications();

// What a family does with one type of notification.
struct sierra_notification_handler {
    uint32_t type;
    void (*handle)(cellmodem &modem, const swi_notification &notification);
};

// Calls the handler of the notification's type; false when the table has none.
bool sierra_cns_dispatch(std::span<const sierra_notification_handler> handlers, cellmodem &modem,
                         const swi_notification &notification);

// Writes the name of an SDK result to the buffer, at most size - 1 characters; returns the buffer.
char *sierra_cns_rcode_name(int code, char *buffer, size_t size);

// Logs an SDK error and says which class it is of: 2, 1 or 0.
int sierra_cns_check_error(int code);

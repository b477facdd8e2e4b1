// The SDK client: one API per process, open from the first success on. Requests are synchronous, one
// at a time, and answered or given up within their time-out; notifications are read by whoever calls
// swi_wait_notification, as a rule a thread of its own, and handed to one callback.
//
// The result of each function is a swi_result unless a remark says otherwise. Time-outs are
// milliseconds under the rules of clock_answer_timeout_ms. The operations themselves are in
// swi/calls.h.
#pragma once

#include "swi/operations.h"
#include "swi/result.h"

// How the API is opened: the server program's path, which travels as it stands and is rooted where
// it is started, and whether to start it when nobody serves the channels.
struct swi_start_parameters {
    char server_path[12] = "";
    uint32_t launch = 0;
};

// Opens the channels, starting the server if need be. swi_ok; swi_failed; swi_busy when the channels
// could not be opened; swi_system_error without a path, without the launch flag, or when the server
// cannot be started. An API that is open stays so: swi_ok.
int swi_api_open(const swi_start_parameters &parameters);

// Whether both channels of an open API still have a server at their other end.
[[nodiscard]] bool swi_api_alive();

// Opens the channels of an open API again after its server died, starting it if need be; nothing
// happens while they are alive. Whoever waits for notifications goes on with the new channel. The
// notifications must be enabled again: a new server knows none. Results as of swi_api_open.
int swi_api_reopen();

// Closes the API at the end of the process; swi_wait_notification returns swi_ok.
void swi_api_close();

// Carries one operation out: the table's row says how. `request` is the row's request record,
// `response` the record that is filled on success. How long the payload was is not handed back: a
// record is filled whole or not at all, and a list in it has its own count.
int swi_request(const swi_operation &operation, const void *request, void *response,
                int timeout_ms);

// The words of the last request's swi_cns_error, empty if it had another result, copied to the buffer, cut to size - 1 bytes.
int swi_last_error_text(char *buffer, size_t size);

// ---- notifications

using swi_callback = void (*)(const swi_notification &notification, void *context);

// Registers the one callback, which then runs on the thread that waits for notifications; its
// predecessor is replaced. Returns when no call of the predecessor is running any more, so it must
// not be called from a callback. The two words are the modem families' own.
int swi_register_callback(swi_callback callback, void *context, int32_t first, int32_t second);
int swi_deregister_callback();

// Has the server send notifications of that id. Ids that are always on succeed without a request.
int swi_enable_notification(uint32_t id, int timeout_ms);

// Reads notifications and calls the callback with each. Returns only when the API is not open
// (swi_not_open), when nothing can be received any more (swi_failed), or swi_ok once the process is
// told to end or the API is closed. A server that dies ends nothing: the wait goes on with the next.
int swi_wait_notification();

// ---- faults of the library itself

// Logs the fault and ends the process: going on would mean to act on what is not understood.
[[noreturn]] void swi_fatal(const char *text, int data);

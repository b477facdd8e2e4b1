// Calls of a CDMA modem. The modem notifies when one begins and ends; the session state then follows
// the presence of the PPP interface.

#include "backends/sierra/cdma_family.h"
#include "cellmodem/cellmodem.h"
#include "platform/log.h"
#include "publish/state.h"
#include "swi/calls.h"

#include <mutex>

constexpr uint32_t call_type_voice = 0;
constexpr uint32_t call_type_data = 257;

// Two threads look for the interface. Whoever looked last must also publish last.
static struct {
    std::mutex mutex;
    bool begun = false;   // the call that is being placed was notified to connect
    bool settled = false; // what became of it is published already
} call;

void cdma_follow_call(cellmodem &modem)
{
    const std::lock_guard lock(call.mutex);
    (void)sierra_cns_find_ppp_interface(modem);
}

void cdma_call_connecting()
{
    const std::lock_guard lock(call.mutex);
    call.begun = true;
}

// A call without its interface is still on its way.
void cdma_call_connected(cellmodem &modem)
{
    const std::lock_guard lock(call.mutex);
    if (sierra_cns_find_ppp_interface(modem) == 0)
        call.settled = true;
}

// The end of a call that was not seen to begin is that of an earlier one.
void cdma_call_disconnected(cellmodem &modem)
{
    const std::lock_guard lock(call.mutex);
    (void)sierra_cns_find_ppp_interface(modem);
    call.settled = call.settled || call.begun;
}

static void expect_call()
{
    const std::lock_guard lock(call.mutex);
    call.begun = false;
    call.settled = false;
}

int sierra_cdma_connect(cellmodem &modem, const char *number, bool voice)
{
    log_message(log_info, "sierra_cdma_connect(%s, voice = %d)", number, voice);
    swi_call_request request;
    request.call_type = voice ? call_type_voice : call_type_data;
    if (swi_set_text(request.number, number) != 0) {
        log_message(log_error, "The number to dial has more than %zu characters",
                    sizeof(request.number) - 1);
        return -1;
    }
    if (sierra_cns_enable_call_notifications() != 0)
        return -1;
    expect_call();
    const int result = swi_set_call_originate(request, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_error, "SwiSetCallOriginateCmd failed: %d", result);
        (void)publish_session_state(modem, session_disconnected);
        return -1;
    }
    // A quick call is up, or over, before its command returns.
    const std::lock_guard lock(call.mutex);
    if (!call.settled)
        (void)publish_session_state(modem, session_connecting);
    return 0;
}

int sierra_cdma_disconnect(cellmodem &)
{
    if (sierra_cns_enable_call_notifications() != 0)
        return -1;
    const int result = swi_set_call_disconnect(sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_error, "SwiSetCallDisconnectCmd Failed: %d", result);
        return -1;
    }
    return 0;
}

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
    unsigned times_followed = 0;
} call;

void cdma_follow_call(cellmodem &modem)
{
    const std::lock_guard lock(call.mutex);
    call.times_followed++;
    (void)sierra_cns_find_ppp_interface(modem);
}

static unsigned times_followed()
{
    const std::lock_guard lock(call.mutex);
    return call.times_followed;
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
    const unsigned before = times_followed();
    const int result = swi_set_call_originate(request, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_error, "SwiSetCallOriginateCmd failed: %d", result);
        (void)publish_session_state(modem, session_disconnected);
        return -1;
    }
    // A quick call is up, or over, before its command returns.
    const std::lock_guard lock(call.mutex);
    if (call.times_followed == before)
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

#include "publish/state.h"

#include "cellmodem/cellmodem.h"
#include "platform/log.h"
#include "publish/output.h"
#include "publish/push.h"

#include <cstdio>
#include <mutex>

const char *device_state_name(int state)
{
    switch (state) {
    case device_responding:
        return "RESPONDING";
    case device_unresponsive:
        return "UNRESPONSIVE";
    default:
        return "UNKNOWN";
    }
}

const char *session_state_name(int state)
{
    switch (state) {
    case session_connecting:
        return "CONNECTING";
    case session_connected:
        return "CONNECTED";
    case session_disconnected:
        return "DISCONNECTED";
    case session_invalid:
        return "INVALID";
    default:
        return "UNKNOWN";
    }
}

// Two threads that publish the same change must push it once.
static std::mutex publish_mutex;

struct status_key {
    char text[96];
    explicit status_key(const char *name)
    {
        snprintf(text, sizeof(text), "%s.%s", status_prefix, name);
    }
};

int publish_attached(cellmodem &modem, bool attached)
{
    const std::lock_guard lock(publish_mutex);
    if (modem.attached == attached)
        return 0;
    const status_key key("attached");
    log_message(log_info, "%s -> %d", key.text, attached);
    const int pushed = push_long(key.text, attached, push_fails);
    modem.attached = attached;
    if (pushed == 0)
        return 0;
    log_message(log_error, "Failed to write new modem attached state to infod");
    return -1;
}

static int publish_name(std::atomic<int> &field, int state, const char *name,
                        const char *(*state_name)(int), const char *failure)
{
    const std::lock_guard lock(publish_mutex);
    const int old = field;
    if (old == state)
        return 0;
    const status_key key(name);
    log_message(log_info, "%s changed from %s -> %s", key.text, state_name(old), state_name(state));
    const int pushed = push_text(key.text, state_name(state), push_fails);
    field = state;
    if (pushed == 0)
        return 0;
    log_message(log_error, "%s", failure);
    return -1;
}

int publish_device_state(cellmodem &modem, int state)
{
    return publish_name(modem.device_state, state, "device-state", device_state_name,
                        "Failed to write new modem state to infod");
}

int publish_session_state(cellmodem &modem, int state)
{
    return publish_name(modem.session_state, state, "session-state", session_state_name,
                        "Failed to write new session state to infod");
}

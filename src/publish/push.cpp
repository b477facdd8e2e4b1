#include "publish/push.h"

#include "platform/infod.h"
#include "platform/log.h"

#include <cerrno>
#include <cstring>

// Opens a session, lets `put` add its value and closes it.
template <class Put>
static int push_one(Put put)
{
    int handle = -1;
    errno = 0;
    const int opened = infod_push_multiple_start(&handle);
    if (opened != 0) {
        log_message(log_error, "Could not open infod socket: %d: %s (%d)", errno, strerror(errno),
                    opened);
        return -1;
    }
    int result = put(handle);
    if (handle != -1 && infod_push_multiple_end(handle) != 0)
        result = -1;
    return result == 0 ? 0 : -1;
}

int push_text(const char *key, const char *value)
{
    return push_one([=](int handle) { return infod_push_multiple_text(handle, key, 1, value); });
}

int push_long(const char *key, long value)
{
    return push_one([=](int handle) { return infod_push_multiple_long(handle, key, 1, value); });
}

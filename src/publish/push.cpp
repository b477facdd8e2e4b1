#include "publish/push.h"

#include "platform/infod.h"

#include <cerrno>
#include <mutex>

constexpr int no_handle = -1;
constexpr int no_session = -1;

// The appliance's library does not say that two threads may have sessions at once.
static std::mutex session_mutex;

// Opens a session, lets `put` add its value and closes it.
template <class Put>
static int push_one(push_without_handle without_handle, Put put)
{
    const std::lock_guard lock(session_mutex);
    int handle = no_handle;
    errno = 0;
    if (const int code = infod_push_multiple_start(&handle); code != 0)
        return code;
    if (handle == no_handle && without_handle == push_fails)
        return no_session;
    const int put_code = put(handle);
    const int end_code = handle != no_handle ? infod_push_multiple_end(handle) : 0;
    return put_code != 0 ? put_code : end_code;
}

int push_text(const char *key, const char *value, push_without_handle without_handle)
{
    return push_one(without_handle,
                    [=](int handle) { return infod_push_multiple_text(handle, key, 1, value); });
}

int push_long(const char *key, long value, push_without_handle without_handle)
{
    return push_one(without_handle,
                    [=](int handle) { return infod_push_multiple_long(handle, key, 1, value); });
}

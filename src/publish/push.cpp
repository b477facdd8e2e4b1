#include "publish/push.h"

#include "platform/infod.h"

#include <cerrno>

// Opens a session, lets `put` add its value and closes it.
template <class Put>
static int push_one(Put put)
{
    int handle = -1;
    errno = 0;
    if (const int code = infod_push_multiple_start(&handle); code != 0)
        return code;
    const int put_code = put(handle);
    const int end_code = handle != -1 ? infod_push_multiple_end(handle) : 0;
    return put_code != 0 ? put_code : end_code;
}

int push_text(const char *key, const char *value)
{
    return push_one([=](int handle) { return infod_push_multiple_text(handle, key, 1, value); });
}

int push_long(const char *key, long value)
{
    return push_one([=](int handle) { return infod_push_multiple_long(handle, key, 1, value); });
}

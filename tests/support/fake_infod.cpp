#include "support/fake_infod.h"

#include "platform/infod.h"

#include <cerrno>

static fake_infod nobody_looks;
static fake_infod *current = &nobody_looks;

fake_infod::fake_infod()
{
    current = this;
}

fake_infod::~fake_infod()
{
    current = &nobody_looks;
}

int infod_push_multiple_start(int *handle)
{
    if (current->start_result != 0) {
        errno = current->start_errno;
        return current->start_result;
    }
    if (current->sessions_open++ > 0)
        current->overlaps++;
    *handle = current->handle;
    return 0;
}

int infod_push_multiple_text(int, const char *key, int, const char *text)
{
    current->pushed.push_back(std::string("text ") + key + "=" + text);
    return 0;
}

int infod_push_multiple_long(int, const char *key, int, long value)
{
    current->pushed.push_back(std::string("long ") + key + "=" + std::to_string(value));
    return 0;
}

int infod_push_multiple_end(int)
{
    current->sessions_open--;
    return current->end_result;
}

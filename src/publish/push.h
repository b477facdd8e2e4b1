// One value to infod, in a session of its own. Sessions of two threads never overlap.
#pragma once

// What becomes of a value whose session was opened without a handle (-1): a record's is pushed all
// the same, a change of state counts as not pushed.
enum push_without_handle { push_goes_on, push_fails };

// 0 when infod took the value; otherwise its code, nonzero, with errno.
int push_text(const char *key, const char *value, push_without_handle without_handle);
int push_long(const char *key, long value, push_without_handle without_handle);

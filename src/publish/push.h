// One value to infod, in a session of its own.
#pragma once

// 0 when infod took the value; otherwise its code, nonzero, with errno.
int push_text(const char *key, const char *value);
int push_long(const char *key, long value);

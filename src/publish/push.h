// One value to infod, in a session of its own.
#pragma once

// 0 when the session opened and took the value; -1 after logging why the session did not open.
int push_text(const char *key, const char *value);
int push_long(const char *key, long value);

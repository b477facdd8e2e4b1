// The appliance's information service, as its client library declares it. On the appliance the
// library itself is linked; elsewhere standalone/infod.cpp keeps the values in a database.
//
// A push is a session: start, one or more values, end. The values of a session become visible
// together at its end. Sessions of two threads do not overlap: start waits for the other's end.
#pragma once

extern "C" {

// Opens a session and stores its handle. 0, or nonzero with errno when the store cannot be reached
// (missing, read-only, held by another program).
int infod_push_multiple_start(int *handle);

// Adds one value under `key`; `count` is the number of values, always 1 here. 0, or nonzero with
// errno.
int infod_push_multiple_text(int handle, const char *key, int count, const char *text);
int infod_push_multiple_long(int handle, const char *key, int count, long value);

// Ends the session of the handle and publishes its values. 0, or nonzero with errno: they are lost.
int infod_push_multiple_end(int handle);
}

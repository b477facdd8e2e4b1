// The appliance's platform library, as the daemon uses it. On the appliance the library itself is
// linked; elsewhere standalone/tarnwick.cpp does the same with plain Linux means.
#pragma once

#include <cstdint>

struct xmldb;

// Which interfaces tarnwick_network_getinterfaces lists.
enum { tarnwick_interfaces_ppp = 4 };

// One network interface: the library's layout, 164 bytes.
struct tarnwick_interface {
    char name[28];
    uint32_t ipv4; // network order
    unsigned char other[132];
};
static_assert(sizeof(tarnwick_interface) == 164);

extern "C" {

// Takes the lock (the pid file) of that name for the life of the process. 0, or -1 with errno when
// another living process has it or it cannot be written.
int tarnwick_lockfile_create(const char *name);
int tarnwick_pidfile_create(const char *name);

// Removes the file if this process created it or its owner is dead; otherwise leaves it. 0 or -1.
int tarnwick_lockfile_clear(const char *name);
int tarnwick_pidfile_clear(const char *name);

// Runs a program and stores its exit status; flags is 0. 0 when it ran, -1 when it could not.
int tarnwick_proc_exec(const char *path, const char *const argv[], int *exit_status, int flags);

// Runs a shell command line. Its exit status, or -1 when it did not run.
int tarnwick_system(const char *line);

// The number of serial ports that the configuration names, 0 when it names none.
int tarnwick_serial_count(struct xmldb *db);

// Fills up to `count` records with the interfaces of that kind; returns how many, or -1.
int tarnwick_network_getinterfaces(tarnwick_interface *records, int count, int kind);
}

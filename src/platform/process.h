// Running other programs and waiting for their end. The wait ends early once termination was
// requested; the program is then left to finish by itself.
#pragma once

// Runs the program at the fixed path `path` (rooted) with the null-terminated argument vector and
// stores its exit status (128 + n for signal n). 0 when it ran to its end, -1 when it could not be
// started or the wait ended early; *exit_status is then left alone.
[[nodiscard]] int process_run(const char *path, const char *const argv[], int *exit_status);

// Runs a command line through the shell: $TESSERA_ROOT/bin/sh below a root, otherwise the first of
// /bin/bash, /bin/busybox sh and /bin/sh that exists, because some lines use bash's "&>". Returns
// the exit status, or -1 when nothing ran to its end. A status other than 0 is logged at debug.
int process_shell(const char *line);

// Starts the program at the fixed path `path` (rooted) in the background: in a session of its own,
// with /dev/null as its standard streams, and as nobody's child, so that it may outlive the daemon.
// 0 once it runs, with its process id in *pid; -1 with errno when it could not be started, *pid
// as it was.
[[nodiscard]] int process_start(const char *path, const char *const argv[], long *pid);

// True when a process of that id lives, whoever owns it; one that ended and waits to be reaped does
// not. Ids below 1 name no process.
[[nodiscard]] bool process_alive(long pid);

// The decimal process id on the first line of a text, or -1.
[[nodiscard]] long process_parse_pid(const char *text);

// The decimal process id on the first line of the fixed path `path` (rooted), or -1.
[[nodiscard]] long process_read_pid(const char *path);

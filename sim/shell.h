// The root's /bin/sh: it records every command line with its exit status and plays the few programs
// that the daemon's lines name, all within the root. Nothing of the host is ever run, apart from
// the root's own scripts.
#pragma once

// The program under the name `sh`: `sh -c LINE`. The result is the exit status.
int shell_main(int argc, char **argv);

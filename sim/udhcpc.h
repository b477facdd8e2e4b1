// The DHCP client that the root's shell plays: a process in a session of its own that holds a pid
// file, runs the script once with "bound" and counts how often it is told to renew.
#pragma once

#include <string>

// What its command line says; the paths are those of the host.
struct udhcpc_job {
    std::string root;
    std::string interface;
    std::string pid_path;
    std::string script_path;
};

// Starts it and returns once it is there and its script has run: 0, or the exit status 1 when one
// is there already or it could not start.
int udhcpc_start(const udhcpc_job &job);

// Whether a played client holds this pid file.
bool udhcpc_holds(const std::string &pid_path);

// Waits until none holds the file any more; false if that takes longer than a second.
bool udhcpc_wait_gone(const std::string &pid_path);

// Ends every client that is played in this root.
void udhcpc_stop_all(const std::string &root);

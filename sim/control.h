// The control socket: whoever may write into the root can change the modem while it is served. A
// datagram is a scenario object; its answer is {"ok": true}, {"ok": false, "error": "..."}, or the
// state if that was asked for.
#pragma once

#include "platform/unique_fd.h"
#include "sim/loop.h"

#include <functional>
#include <string>
#include <string_view>

class control_socket
{
public:
    // `answer` gets a datagram and returns what is sent back.
    control_socket(sim_loop &loop, std::function<std::string(std::string_view)> answer)
        : loop_(loop), answer_(std::move(answer))
    {
    }
    ~control_socket() { close(); }
    control_socket(const control_socket &) = delete;
    control_socket &operator=(const control_socket &) = delete;

    // Serves at var/run/tessera-sim.ctl below `root`, in place of a stale socket. 0, or -1 with errno.
    int open(const std::string &root);
    void close();

private:
    void ready();

    sim_loop &loop_;
    std::function<std::string(std::string_view)> answer_;
    std::string path_;
    unique_fd socket_;
};

// Sends one datagram to the simulator of `root` and prints its answer. The result is the exit
// status: 0, or 1 if it was refused or nobody answered.
int control_tell(const std::string &root, const std::string &datagram);

// A modem's serial port: a pseudo-terminal whose other end the daemon opens through links in the
// root's /dev. The port keeps an end of the daemon's side open, raw and without echo: so nothing
// that the modem says is echoed back at it before the daemon has set the line up, and a daemon that
// closes the port is no hang-up.
#pragma once

#include "platform/unique_fd.h"
#include "sim/fault.h"
#include "sim/journal.h"
#include "sim/loop.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

class pty_port
{
public:
    // `links` are absolute paths; a link that is there already is replaced, a file is not.
    // `received` gets what the daemon writes. `left` is called when the daemon, dead or alive, has
    // closed the port and nobody has opened it again; all it had written has been received then.
    pty_port(sim_loop &loop, journal &log, std::vector<std::string> links,
             std::function<void(std::string_view)> received, std::function<void()> left);
    ~pty_port() { close(); }
    pty_port(const pty_port &) = delete;
    pty_port &operator=(const pty_port &) = delete;

    // 0, or -1 with the reason.
    int open(std::string &reason);

    // Closes it and removes the links. An open port is a hang-up for the daemon.
    void close();

    // Queues bytes behind those that the daemon's side has not had room for; a closed port drops them.
    void write(std::string_view bytes);

    // Breaks the line once the daemon has read what was written (or will not read it), and makes a
    // new one `end.return_ms` later; `back` is called then.
    void hang_up(const hangup &end, std::function<void()> back);

private:
    int open_pair(std::string &reason);
    int make_links(const std::string &device, std::string &reason);
    void watch_master();
    void watch_openings(const std::string &device);
    void master_ready(short events);
    void receive();
    void flush();
    void openings_ready();
    bool read_openings(bool &opened, bool &closed);
    void break_when_read(int64_t give_up_ms, std::function<void()> then);

    sim_loop &loop_;
    journal &log_;
    std::vector<std::string> links_;
    std::function<void(std::string_view)> received_;
    std::function<void()> left_;
    unique_fd master_;
    unique_fd slave_;
    unique_fd openings_;
    std::string unsent_;
    std::vector<sim_timer> timers_;
};

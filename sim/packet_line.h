// One connection of packets: what cannot leave at once waits its turn, so that a slow reader loses
// nothing and delays nobody else.
#pragma once

#include "platform/unique_fd.h"
#include "sim/loop.h"

#include <deque>
#include <functional>
#include <string>
#include <string_view>

class packet_line
{
public:
    // `received` gets each packet, `ended` is called once when the other end is gone; it may
    // destroy this object.
    packet_line(sim_loop &loop, unique_fd fd, std::function<void(std::string_view)> received,
                std::function<void()> ended);
    ~packet_line();
    packet_line(const packet_line &) = delete;
    packet_line &operator=(const packet_line &) = delete;

    void send(std::string_view packet);

private:
    void ready(short events);
    bool flush();
    void watch();

    sim_loop &loop_;
    unique_fd fd_;
    std::function<void(std::string_view)> received_;
    std::function<void()> ended_;
    std::deque<std::string> waiting_;
};

// One connection of bytes: what cannot leave at once waits its turn, so that a slow reader delays
// nobody else.
#pragma once

#include "platform/unique_fd.h"
#include "sim/loop.h"

#include <functional>
#include <string>
#include <string_view>

class stream_line
{
public:
    // `received` gets what arrives, `ended` is called once when the other end is gone. Both may
    // destroy this object.
    stream_line(sim_loop &loop, unique_fd fd, std::function<void(std::string_view)> received,
                std::function<void()> ended);
    ~stream_line();
    stream_line(const stream_line &) = delete;
    stream_line &operator=(const stream_line &) = delete;

    // Bytes for a reader that does not read are kept up to a megabyte, then dropped.
    void send(std::string_view bytes);

private:
    void ready(short events);
    void flush();
    void watch();

    sim_loop &loop_;
    unique_fd fd_;
    std::function<void(std::string_view)> received_;
    std::function<void()> ended_;
    std::string unsent_;
};

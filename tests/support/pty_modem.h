// A scripted modem behind a pseudo-terminal at /dev/cellcommand01 of a root, for tests of the port
// itself: answers come from a list, in order, whatever the command was.
#pragma once

#include "platform/unique_fd.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

class temp_root;

class pty_modem
{
public:
    // Answers each command (up to its carriage return) with the next of the answers; without one
    // left it stays silent.
    pty_modem(const temp_root &root, std::vector<std::string> answers);
    ~pty_modem();

    // Stops answering and hangs up.
    void vanish();
    // The commands received so far, without their carriage returns. Valid after vanish().
    [[nodiscard]] const std::vector<std::string> &commands() const { return commands_; }

private:
    void serve();

    unique_fd master_, slave_;
    std::vector<std::string> answers_;
    std::vector<std::string> commands_;
    std::atomic<bool> ending_ = false;
    std::thread thread_;
};

// A whole reply of a Pantech modem: start, code, zero bytes, end.
std::string blank_reply(uint8_t code, size_t bytes);

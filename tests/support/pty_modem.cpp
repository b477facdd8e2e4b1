#include "support/pty_modem.h"

#include "support/temp_root.h"

#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>

pty_modem::pty_modem(const temp_root &root, std::vector<std::string> answers)
    : answers_(std::move(answers))
{
    master_.reset(posix_openpt(O_RDWR | O_NOCTTY));
    grantpt(master_.get());
    unlockpt(master_.get());
    const std::string slave = ptsname(master_.get());
    slave_.reset(open(slave.c_str(), O_RDWR | O_NOCTTY));
    termios raw = {};
    raw.c_cflag = CS8 | CREAD | CLOCAL;
    tcsetattr(slave_.get(), TCSANOW, &raw);
    std::filesystem::remove(root.place("/dev/cellcommand01"));
    std::filesystem::create_symlink(slave, root.place("/dev/cellcommand01"));
    thread_ = std::thread([this] { serve(); });
}

pty_modem::~pty_modem()
{
    vanish();
}

void pty_modem::vanish()
{
    ending_ = true;
    if (thread_.joinable())
        thread_.join();
    slave_.reset();
    master_.reset();
}

void pty_modem::serve()
{
    std::string pending;
    size_t next = 0;
    while (!ending_) {
        pollfd waited = {master_.get(), POLLIN, 0};
        if (poll(&waited, 1, 5) <= 0)
            continue;
        char byte;
        if (read(master_.get(), &byte, 1) != 1)
            continue;
        if (byte != '\r') {
            pending += byte;
            continue;
        }
        commands_.push_back(pending);
        pending.clear();
        if (next < answers_.size()) {
            const std::string &answer = answers_[next++];
            for (size_t sent = 0; sent < answer.size();) {
                const ssize_t count =
                    write(master_.get(), answer.data() + sent, answer.size() - sent);
                if (count <= 0)
                    return;
                sent += static_cast<size_t>(count);
            }
        }
    }
}

std::string blank_reply(uint8_t code, size_t bytes)
{
    std::string reply(bytes, '\0');
    reply[0] = '\xC8';
    reply[1] = static_cast<char>(code);
    return reply.replace(bytes - 3, 3, "00~");
}

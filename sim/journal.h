// The record of everything that was asked and answered: `/var/log/modem.log` of the root, one line
// each, written at once, so that a test or a person can look while the modem is served.
//
//   > AT+CFUN=1\r          what arrived
//   < \r\nOK\r\n           what was sent, when it was sent
//   = fault silence        what happened besides
#pragma once

#include "platform/unique_fd.h"

#include <string>
#include <string_view>

class journal
{
public:
    // Opens `path` for appending. -1 with errno set if that fails; without it, lines go nowhere.
    int open(const std::string &path);

    void received(std::string_view bytes) { line('>', bytes); }
    void sent(std::string_view bytes) { line('<', bytes); }
    void note(std::string_view text) { line('=', text); }

private:
    void line(char mark, std::string_view bytes);

    unique_fd file_;
};

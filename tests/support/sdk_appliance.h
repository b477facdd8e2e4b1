// An appliance whose modem is behind the SDK's server program.
#pragma once

#include "support/appliance.h"

class sdk_appliance : public appliance
{
protected:
    explicit sdk_appliance(std::string family) : family_(std::move(family)) {}

    // Modem and daemon.
    void bring_up(const std::string &state = "{}");

    void set_state(const std::string &state) { tell_sim(R"({"state": )" + state + "}"); }
    void add_fault(const std::string &fault) { tell_sim(R"({"faults": [)" + fault + "]}"); }

    // How often the modem was asked for that.
    [[nodiscard]] int asked(const std::string &request) const;

    // The value of a key in the present status or information, or "(none)".
    std::string status(const std::string &key);
    std::string info(const std::string &key);

    // What infod holds below the status.
    [[nodiscard]] std::string infod(const std::string &key);
    void wait_for_session(const std::string &state);

    // The process id of the root's server program.
    [[nodiscard]] pid_t server_pid() const;

private:
    std::string value_of(const char *option, const std::string &key);

    std::string family_;
};

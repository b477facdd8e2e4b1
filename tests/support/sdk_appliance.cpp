#include "support/sdk_appliance.h"

#include <sstream>

void sdk_appliance::bring_up(const std::string &state)
{
    start_sim(family_, R"({"state": )" + state + "}");
    start_daemon();
}

int sdk_appliance::asked(const std::string &request) const
{
    return count(modem_log(), "> " + request);
}

std::string sdk_appliance::value_of(const char *option, const std::string &key)
{
    std::istringstream lines(tessera({option}).out);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(key + " "))
            return line.substr(key.size() + 1);
    return "(none)";
}

std::string sdk_appliance::status(const std::string &key)
{
    return value_of("-s", key);
}

std::string sdk_appliance::info(const std::string &key)
{
    return value_of("-i", key);
}

std::string sdk_appliance::infod(const std::string &key)
{
    const std::string name = "config.cellmodem.tessera.status." + key;
    const std::string out = run_program("infod-get", {name}).out;
    return out.starts_with(name + " ") ? out.substr(name.size() + 1) : out;
}

void sdk_appliance::wait_for_session(const std::string &state)
{
    wait_for("session " + state, [&] { return infod("session-state") == state + "\n"; });
}

pid_t sdk_appliance::server_pid() const
{
    const std::string all = modem_log();
    const size_t at = all.rfind("= swisdk started, process ");
    return at == all.npos ? -1 : std::stoi(all.substr(at + 26));
}

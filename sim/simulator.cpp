#include "sim/simulator.h"

#include "platform/unique_fd.h"
#include "sim/control.h"
#include "sim/family.h"
#include "sim/report.h"
#include "sim/root.h"
#include "sim/scenario.h"
#include "sim/udhcpc.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/signalfd.h>

// A directory that is locked has a simulator; the lock goes with the process, however it ends.
static int lock_root(const std::string &root, unique_fd &lock)
{
    lock.reset(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock && flock(lock.get(), LOCK_EX | LOCK_NB) == 0)
        return 0;
    if (errno == EWOULDBLOCK)
        sim_report("%s is served by another simulator", root.c_str());
    else
        sim_report("Could not lock %s: %s", root.c_str(), strerror(errno));
    return -1;
}

static int watch_signals(sim_services &services, unique_fd &signals)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0)
        return -1;
    signals.reset(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals)
        return -1;
    services.loop.watch(signals.get(), POLLIN, [&services](short) { services.loop.stop(); });
    return 0;
}

static int program_path(std::string &program)
{
    std::array<char, PATH_MAX> buffer;
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length <= 0)
        return -1;
    program.assign(buffer.data(), static_cast<size_t>(length));
    return 0;
}

static std::string pid_path(const sim_services &services)
{
    return services.root + "/var/run/tessera-sim.pid";
}

static std::string shell_rules_path(const sim_services &services)
{
    return services.root + "/var/run/shell-status.json";
}

// Everything but the state, which has been merged.
static int apply(sim_services &services, const scenario &given, std::string &reason)
{
    if (given.shell &&
        file_replace(shell_rules_path(services), json_text(given.shell.get()) + "\n") != 0) {
        reason = "Could not write " + shell_rules_path(services) + ": " + strerror(errno);
        return -1;
    }
    if (given.config && root_write_config(services.root, *given.config) != 0) {
        reason = std::string("Could not write the configuration: ") + strerror(errno);
        return -1;
    }
    if (given.clear_faults)
        services.faults.clear();
    services.faults.add(given.faults);
    return 0;
}

static std::string refused(const std::string &reason)
{
    const json_ref answer(json_pack("{s:b,s:s}", "ok", 0, "error", reason.c_str()));
    return answer ? json_text(answer.get()) : R"({"ok":false,"error":"not UTF-8"})";
}

static std::string control_answer(sim_services &services, const sim_family &family,
                                  std::string_view datagram)
{
    scenario given;
    json_refusal refusal;
    int line = 0;
    if (scenario_parse_text(datagram, scenario_source::datagram, given, refusal, line) != 0)
        return refused(json_refusal_text(refusal));
    std::string reason;
    if (given.state && family.merge_state(given.state.get(), refusal) != 0) {
        json_refuse_inside(refusal, "state");
        return refused(json_refusal_text(refusal));
    }
    if (apply(services, given, reason) != 0)
        return refused(reason);
    services.log.note("told " + std::string(datagram));
    if (!given.get.empty())
        return json_text(family.dump_state().get());
    return R"({"ok":true})";
}

static int load_scenario(const simulator_options &options, scenario &given)
{
    if (options.scenario.empty())
        return 0;
    std::string text;
    if (file_read(options.scenario, text) != 0) {
        sim_report("%s: %s", options.scenario.c_str(), strerror(errno));
        return -1;
    }
    json_refusal refusal;
    int line = 0;
    int result = scenario_parse_text(text, scenario_source::file, given, refusal, line);
    if (result == 0 && given.state) {
        result = options.family->merge_state(given.state.get(), refusal);
        json_refuse_inside(refusal, "state");
        line = json_line_of(text, refusal.path);
    }
    if (result != 0)
        sim_report("%s:%d: %s", options.scenario.c_str(), line, json_refusal_text(refusal).c_str());
    return result;
}

static int start(sim_services &services, const simulator_options &options, const scenario &given,
                 control_socket &control, std::string &reason)
{
    std::string program;
    if (program_path(program) != 0) {
        reason = "Could not find the program's own path";
        return -1;
    }
    if (root_fill(services.root, *options.family, program, reason) != 0)
        return -1;
    if (services.log.open(services.root + "/var/log/modem.log") != 0) {
        reason = "Could not open the journal: " + std::string(strerror(errno));
        return -1;
    }
    unlink(shell_rules_path(services).c_str());
    services.faults.set_alone(options.family->act);
    if (options.family->start(services, reason) != 0 || apply(services, given, reason) != 0)
        return -1;
    if (control.open(services.root) != 0) {
        reason = "Could not open the control socket: " + std::string(strerror(errno));
        return -1;
    }
    return 0;
}

static int serve(sim_services &services, const simulator_options &options)
{
    if (file_replace(pid_path(services), std::to_string(getpid()) + "\n") != 0) {
        sim_report("Could not write %s: %s", pid_path(services).c_str(), strerror(errno));
        return -1;
    }
    services.log.note(std::string("ready ") + options.family->name);
    printf("ready: family %s, root %s, process %ld\n", options.family->name, services.root.c_str(),
           static_cast<long>(getpid()));
    fflush(stdout);
    const int result = services.loop.run();
    if (result != 0)
        sim_report("Could not wait: %s", strerror(errno));
    services.log.note("end");
    unlink(pid_path(services).c_str());
    return result;
}

sim_exit simulator_run(const simulator_options &options)
{
    scenario given;
    if (load_scenario(options, given) != 0)
        return sim_exit_refused;

    sim_services services;
    services.qmi_proxy = options.qmi_proxy;
    unique_fd lock;
    unique_fd signals;
    std::string reason;
    if (root_create(options.root, services.root, reason) != 0) {
        sim_report("%s", reason.c_str());
        return sim_exit_failed;
    }
    if (lock_root(services.root, lock) != 0)
        return sim_exit_failed;
    // One that was killed has left its own, and it would look as if this one were ready.
    unlink(pid_path(services).c_str());
    if (watch_signals(services, signals) != 0) {
        sim_report("Could not watch signals: %s", strerror(errno));
        return sim_exit_failed;
    }

    control_socket control(services.loop, [&](std::string_view datagram) {
        return control_answer(services, *options.family, datagram);
    });
    int result = start(services, options, given, control, reason);
    if (result != 0)
        sim_report("%s", reason.c_str());
    else
        result = serve(services, options);
    control.close();
    options.family->stop();
    udhcpc_stop_all(services.root);
    return result == 0 ? sim_exit_done : sim_exit_failed;
}

#include "sim/udhcpc.h"

#include "platform/unique_fd.h"
#include "sim/root.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <glob.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

static constexpr long look_ns = 100 * 1000 * 1000;
static constexpr long step_ns = 5 * 1000 * 1000;
static constexpr int gone_steps = 200;

// The lock says that the file's owner lives: a number in a file may be anybody's by now.
static unique_fd hold(const std::string &pid_path)
{
    for (int attempt = 0; attempt < 3; attempt++) {
        unique_fd file(open(pid_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!file || flock(file.get(), LOCK_EX | LOCK_NB) != 0)
            return {};
        struct stat held = {};
        struct stat named = {};
        if (fstat(file.get(), &held) == 0 && stat(pid_path.c_str(), &named) == 0 &&
            held.st_ino == named.st_ino && held.st_dev == named.st_dev)
            return file;
    }
    return {};
}

bool udhcpc_holds(const std::string &pid_path)
{
    const unique_fd file(open(pid_path.c_str(), O_RDWR | O_CLOEXEC));
    return file && flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

bool udhcpc_wait_gone(const std::string &pid_path)
{
    for (int step = 0; step < gone_steps; step++) {
        if (!udhcpc_holds(pid_path))
            return true;
        const struct timespec pause = {0, step_ns};
        nanosleep(&pause, nullptr);
    }
    return false;
}

static bool simulator_lives(const std::string &root)
{
    const long pid = file_read_pid(root + "/var/run/tessera-sim.pid");
    return pid > 0 && (kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

static void run_script(const udhcpc_job &job)
{
    if (access(job.script_path.c_str(), X_OK) != 0)
        return;
    const pid_t child = fork();
    if (child == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        setenv("TESSERA_ROOT", job.root.c_str(), 1);
        setenv("interface", job.interface.c_str(), 1);
        execl(job.script_path.c_str(), job.script_path.c_str(), "bound",
              static_cast<char *>(nullptr));
        _exit(127);
    }
    if (child > 0)
        waitpid(child, nullptr, 0);
}

static std::string renewals_path(const udhcpc_job &job)
{
    return job.root + "/var/run/udhcpc-" + job.interface + ".renewals";
}

static void serve(const udhcpc_job &job, const sigset_t &signals)
{
    const struct timespec pause = {0, look_ns};
    for (long renewals = 0;;) {
        const int got = sigtimedwait(&signals, nullptr, &pause);
        if (got == SIGTERM || (got < 0 && errno == EAGAIN && !simulator_lives(job.root)))
            return;
        if (got == SIGUSR1)
            file_replace(renewals_path(job), std::to_string(++renewals) + "\n");
    }
}

// Only the standard descriptors are taken away, as a real client does: one that the daemon should
// not have handed down stays open here too, and shows.
[[noreturn]] static void play(const udhcpc_job &job, unique_fd held, unique_fd ready)
{
    const unique_fd nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
    for (int fd = 0; fd <= 2; fd++)
        dup2(nowhere.get(), fd);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, nullptr);

    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(held.get(), 0) != 0 ||
        write(held.get(), pid.data(), pid.size()) != static_cast<ssize_t>(pid.size()) ||
        file_replace(renewals_path(job), "0\n") != 0) {
        unlink(job.pid_path.c_str());
        _exit(1);
    }
    run_script(job);
    if (write(ready.get(), "r", 1) == 1)
        ready.reset();
    serve(job, signals);
    unlink(job.pid_path.c_str());
    _exit(0);
}

int udhcpc_start(const udhcpc_job &job)
{
    unique_fd held = hold(job.pid_path);
    int ends[2];
    if (!held || pipe(ends) != 0)
        return 1;
    unique_fd ready_in(ends[0]);
    unique_fd ready_out(ends[1]);
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    const pid_t child = fork();
    if (child < 0)
        return 1;
    if (child == 0) {
        setsid();
        ready_in.reset();
        if (fork() == 0)
            play(job, std::move(held), std::move(ready_out));
        _exit(0);
    }
    ready_out.reset();
    waitpid(child, nullptr, 0);
    char byte = 0;
    ssize_t got = 0;
    while ((got = read(ready_in.get(), &byte, 1)) < 0 && errno == EINTR)
        continue;
    return got == 1 ? 0 : 1;
}

void udhcpc_stop_all(const std::string &root)
{
    glob_t found = {};
    if (glob((root + "/var/run/udhcpc-*.pid").c_str(), 0, nullptr, &found) == 0) {
        for (size_t i = 0; i < found.gl_pathc; i++) {
            const std::string path = found.gl_pathv[i];
            const long pid = file_read_pid(path);
            if (pid > 0 && udhcpc_holds(path) && kill(static_cast<pid_t>(pid), SIGTERM) == 0)
                udhcpc_wait_gone(path);
        }
    }
    globfree(&found);
}

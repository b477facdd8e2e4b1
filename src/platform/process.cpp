#include "platform/process.h"

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/unique_fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

static void on_child_signal(int)
{
    clock_wake();
}

// The handler does nothing but end the wait below; without SA_NOCLDSTOP and SA_RESTART every
// stopped child would disturb the daemon.
static void watch_children()
{
    static const int installed = [] {
        struct sigaction action = {};
        action.sa_handler = on_child_signal;
        action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
        return sigaction(SIGCHLD, &action, nullptr);
    }();
    (void)installed;
}

static int wait_for_child(pid_t child, int *exit_status)
{
    // A wake-up can be taken by another wait of the main thread, so the time between two looks is
    // bounded; as a rule the wake-up comes first.
    constexpr int look_again_ms = 50;
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child) {
            *exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return 0;
        }
        if ((ended < 0 && errno != EINTR) || clock_stopped())
            return -1;
        pollfd nothing = {-1, 0, 0};
        (void)clock_poll(nothing, look_again_ms);
    }
}

// What the child starts with: no standard input, and the signals that the daemon ignores or
// catches as they were.
static int spawn(const std::string &program, const char *const argv[], pid_t &child)
{
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawn(&child, program.c_str(), &actions, &attributes,
                                  const_cast<char *const *>(argv), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    errno = error;
    return error == 0 ? 0 : -1;
}

static int run(const std::string &program, const char *const argv[], int *exit_status)
{
    watch_children();
    pid_t child = -1;
    if (spawn(program, argv, child) != 0)
        return -1;
    return wait_for_child(child, exit_status);
}

int process_run(const char *path, const char *const argv[], int *exit_status)
{
    return run(rooted(path), argv, exit_status);
}

// What follows a fork in a process with threads: calls that are safe in a signal handler, no others.
static void detach_from_daemon()
{
    setsid();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigaction(SIGPIPE, &standard, nullptr);
    const int nothing = open("/dev/null", O_RDWR);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++)
        dup2(nothing, fd);
    if (nothing > STDERR_FILENO)
        close(nothing);
}

// What the two processes of a start say through the pipe; either may be first. Each is one write.
struct start_report {
    pid_t pid;
    int error;
};

[[noreturn]] static void become(const char *program, char *const argv[], int report_fd)
{
    detach_from_daemon();
    const pid_t second = fork();
    if (second == 0)
        execv(program, argv);
    const start_report report = {second, second > 0 ? 0 : errno};
    [[maybe_unused]] const ssize_t written = write(report_fd, &report, sizeof(report));
    _exit(second > 0 ? 0 : 127); // the program is nobody's child now
}

int process_start(const char *path, const char *const argv[], long *pid)
{
    const std::string program = rooted(path);
    int ends[2];
    if (pipe(ends) != 0)
        return -1;
    unique_fd reader(ends[0]);
    unique_fd writer(ends[1]);
    fcntl(reader.get(), F_SETFD, FD_CLOEXEC);
    fcntl(writer.get(), F_SETFD, FD_CLOEXEC);
    const pid_t first = fork();
    if (first == 0)
        become(program.c_str(), const_cast<char *const *>(argv), writer.get());
    if (first < 0)
        return -1;
    writer.reset();
    while (waitpid(first, nullptr, 0) < 0 && errno == EINTR)
        ;
    // The pipe ends when the program begins or could not begin.
    int error = 0;
    long started = -1;
    start_report report;
    ssize_t length;
    while ((length = read(reader.get(), &report, sizeof(report))) > 0 ||
           (length < 0 && errno == EINTR)) {
        if (length != sizeof(report))
            continue;
        if (report.pid > 0)
            started = report.pid;
        if (report.error != 0)
            error = report.error;
    }
    // A child that could not become the program may live for another moment: its id says nothing.
    if (error == 0)
        *pid = started;
    errno = error;
    return error == 0 ? 0 : -1;
}

struct shell {
    const char *program;
    std::array<const char *, 2> words; // argv[0] and an applet name, if any
};

static const shell &choose_shell()
{
    static constexpr shell shells[] = {
        {"/bin/bash", {"bash", nullptr}},
        {"/bin/busybox", {"busybox", "sh"}},
        {"/bin/sh", {"sh", nullptr}},
    };
    if (!paths_root())
        for (const shell &candidate : shells)
            if (access(candidate.program, X_OK) == 0)
                return candidate;
    return shells[std::size(shells) - 1];
}

int process_shell(const char *line)
{
    const shell &chosen = choose_shell();
    std::array<const char *, 5> argv = {};
    size_t count = 0;
    for (const char *word : chosen.words)
        if (word)
            argv[count++] = word;
    argv[count++] = "-c";
    argv[count] = line;

    int status = -1;
    if (run(rooted(chosen.program), argv.data(), &status) != 0) {
        if (!clock_stopped())
            log_message(log_debug, "Could not run: %s: %s", line, strerror(errno));
        return -1;
    }
    if (status != 0)
        log_message(log_debug, "Exit status %d of: %s", status, line);
    return status;
}

// Whether a process has ended and only waits to be reaped: somebody else's orphan may wait for long.
static bool is_zombie(long pid)
{
    char path[32];
    snprintf(path, sizeof(path), "/proc/%ld/stat", pid);
    const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(path, "re"), fclose);
    char line[256] = "";
    if (!file || !fgets(line, sizeof(line), file.get()))
        return false;
    // The state follows the program's name, which stands in brackets and may hold any character.
    const char *name_end = strrchr(line, ')');
    return name_end && (strncmp(name_end, ") Z", 3) == 0 || strncmp(name_end, ") X", 3) == 0);
}

bool process_alive(long pid)
{
    if (pid < 1 || pid > INT_MAX)
        return false;
    return (kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM) && !is_zombie(pid);
}

long process_parse_pid(const char *text)
{
    char *end = nullptr;
    const long pid = std::strtol(text, &end, 10);
    const bool whole = end != text && (*end == '\0' || *end == '\n');
    return whole && pid > 0 && pid <= INT_MAX ? pid : -1;
}

long process_read_pid(const char *path)
{
    const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(rooted(path).c_str(), "re"), fclose);
    char line[32] = "";
    return file && fgets(line, sizeof(line), file.get()) ? process_parse_pid(line) : -1;
}

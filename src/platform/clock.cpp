#include "platform/clock.h"

#include "platform/paths.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

constexpr int answer_timeout_min_ms = 250;
constexpr int scaled_from_ms = 1000;

// The stop pipe is filled once and never read: it stays readable for every later wait. The wake
// pipe is emptied by clock_poll.
static int stop_pipe[2] = {-1, -1};
static int wake_pipe[2] = {-1, -1};
static std::atomic<bool> stopped = false;
static_assert(std::atomic<bool>::is_always_lock_free, "written by a signal handler");

static int open_pipe(int (&ends)[2])
{
    if (ends[0] >= 0)
        return 0;
    if (pipe(ends) != 0)
        return -1;
    for (const int fd : ends) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    return 0;
}

int clock_init()
{
    return open_pipe(stop_pipe) == 0 && open_pipe(wake_pipe) == 0 ? 0 : -1;
}

int64_t clock_now_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

static double time_scale()
{
    const char *text = std::getenv("TESSERA_TIME_SCALE");
    if (!text || !paths_root())
        return 1.0;
    char *end = nullptr;
    const double scale = std::strtod(text, &end);
    return end != text && *end == '\0' && scale >= 0.001 && scale <= 1.0 ? scale : 1.0;
}

int clock_scaled_ms(int ms)
{
    return ms <= 0 ? ms : std::max(1, static_cast<int>(std::lround(ms * time_scale())));
}

int clock_answer_timeout_ms(int ms)
{
    return std::max(clock_scaled_ms(ms), std::min(ms, answer_timeout_min_ms));
}

// Polls `first` and whatever pipe comes with it. The pipe's descriptor may be -1: poll skips it.
static int poll_with(pollfd &first, int pipe_fd, int timeout_ms, bool &pipe_ready)
{
    pollfd fds[3] = {first, {stop_pipe[0], POLLIN, 0}, {pipe_fd, POLLIN, 0}};
    const int count = poll(fds, 3, timeout_ms);
    first.revents = fds[0].revents;
    pipe_ready = count > 0 && (fds[1].revents != 0 || fds[2].revents != 0);
    return count;
}

// The part that all waits share: 1 when `fd` is ready, 0 after the time or a stop, -1 with errno.
static int wait_for(int fd, int timeout_ms)
{
    const int64_t deadline = clock_now_ms() + timeout_ms;
    pollfd waited = {fd, POLLIN, 0};
    int left = timeout_ms;
    for (;;) {
        bool stop = false;
        const int count = poll_with(waited, -1, left, stop);
        if (count > 0)
            return stop ? 0 : 1;
        if (count < 0 && errno != EINTR)
            return -1;
        left = static_cast<int>(std::max<int64_t>(0, deadline - clock_now_ms()));
        if (count == 0 && left == 0)
            return 0;
    }
}

void clock_sleep_ms(int ms)
{
    const int duration = ms >= scaled_from_ms ? clock_scaled_ms(ms) : ms;
    if (duration > 0 && !clock_stopped())
        (void)wait_for(-1, duration);
}

void clock_pause_us(int us)
{
    // The kernel's default slack of 50 us would add half again to a sleep of 100 us. It is set for
    // the sleep alone, because programs that are started inherit it.
    timespec left = {us / 1000000, us % 1000000 * 1000L};
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
        ;
    prctl(PR_SET_TIMERSLACK, 0UL, 0UL, 0UL, 0UL);
}

int clock_wait_readable(int fd, int timeout_ms)
{
    if (clock_stopped())
        return 0;
    if (fd < 0) {
        errno = EBADF;
        return -1;
    }
    return wait_for(fd, timeout_ms);
}

int clock_poll(pollfd &poll_fd, int timeout_ms)
{
    bool woken = false;
    const int count = poll_with(poll_fd, wake_pipe[0], timeout_ms, woken);
    if (!woken)
        return count;
    char drained[64];
    while (read(wake_pipe[0], drained, sizeof(drained)) > 0)
        ;
    errno = EINTR;
    return -1;
}

int wait_until(const std::function<int()> &check, int total_ms, int step_ms)
{
    if (!check || check() == 0)
        return 0;
    for (int left = total_ms; left > 0; left -= step_ms) {
        (void)wait_for(-1, clock_scaled_ms(step_ms));
        if (check() == 0)
            return 0;
        if (clock_stopped() || step_ms <= 0)
            return -1;
    }
    return -1;
}

static void signal_pipe(int fd)
{
    const int saved_errno = errno;
    const char byte = 0;
    // A full pipe is as readable as one with room: nothing is lost when this fails.
    [[maybe_unused]] const ssize_t written = write(fd, &byte, 1);
    errno = saved_errno;
}

void clock_stop()
{
    stopped = true;
    signal_pipe(stop_pipe[1]);
}

bool clock_stopped()
{
    return stopped;
}

void clock_wake()
{
    signal_pipe(wake_pipe[1]);
}

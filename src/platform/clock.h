// Time: every sleep, wait and deadline of the program goes through here. Two things happen to a
// wait on the way. With a time scale set it shrinks, so that tests of long waits are quick; and it
// ends at once when termination was requested, so that the daemon never outstays a SIGTERM.
//
// Termination and wake-ups reach a wait through pipes, not through the interruption of a system
// call: a signal that arrives between a test and the wait that follows is not lost.
#pragma once

#include <cstdint>
#include <functional>

struct pollfd;

// Prepares the pipes. Called once by the daemon's main thread; waits work without it, but then
// nothing ends them early. 0, or -1 with errno.
int clock_init();

// Milliseconds of a clock that only goes forward.
[[nodiscard]] int64_t clock_now_ms();

// A duration after the time scale: TESSERA_TIME_SCALE (0.001 to 1) counts only below a TESSERA_ROOT.
[[nodiscard]] int clock_scaled_ms(int ms);

// The time-out for a modem's answer: scaled, but never below 250 ms, because the answer itself
// takes the time it takes.
[[nodiscard]] int clock_answer_timeout_ms(int ms);

// Sleeps; a second or more is scaled. Returns early once termination was requested.
void clock_sleep_ms(int ms);

// A short pause inside a protocol, exact, never scaled, not ended by anything. Below a tenth of a
// second.
void clock_pause_us(int us);

// Waits until `fd` has input (or was hung up), for at most timeout_ms as it stands. 1 when it has,
// 0 after the time or once termination was requested, -1 with errno.
[[nodiscard]] int clock_wait_readable(int fd, int timeout_ms);

// poll(2) on one descriptor for the main thread, for at most timeout_ms as it stands. -1 with EINTR
// after clock_wake() or clock_stop(), also when they were called before this wait began.
[[nodiscard]] int clock_poll(pollfd &poll_fd, int timeout_ms);

// Waits for `check` to return 0: at once, then after each step until total_ms are used up. Returns
// 0 as soon as it does (or when there is no check), -1 after the last one. Both times are scaled.
// Once termination was requested it returns -1 after at most one more check.
int wait_until(const std::function<int()> &check, int total_ms, int step_ms);

// Requests termination: every wait of every thread ends, now and from now on. Async-signal-safe.
void clock_stop();
[[nodiscard]] bool clock_stopped();

// Ends the main thread's present or next clock_poll. Async-signal-safe.
void clock_wake();

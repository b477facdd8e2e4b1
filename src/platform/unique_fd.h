// The owner of a file descriptor: closes it when it goes out of scope.
#pragma once

#include <utility>

#include <unistd.h>

class unique_fd
{
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    // Gives the descriptor up without closing it.
    int release() { return std::exchange(fd_, -1); }

    // Closes what it owns, if anything, and owns `fd` from now on. The result is close(2)'s.
    int reset(int fd = -1)
    {
        const int old = std::exchange(fd_, fd);
        return old >= 0 && old != fd ? close(old) : 0;
    }

private:
    int fd_ = -1;
};

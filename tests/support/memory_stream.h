// A stream that collects what is written to it.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

class memory_stream
{
public:
    memory_stream() : file_(open_memstream(&buffer_, &length_)) {}
    ~memory_stream()
    {
        fclose(file_);
        free(buffer_);
    }
    memory_stream(const memory_stream &) = delete;
    memory_stream &operator=(const memory_stream &) = delete;

    [[nodiscard]] FILE *get() const { return file_; }
    [[nodiscard]] std::string text() const
    {
        fflush(file_);
        return {buffer_, length_};
    }

private:
    char *buffer_ = nullptr;
    size_t length_ = 0;
    FILE *file_;
};

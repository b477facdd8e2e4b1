#include "sim/report.h"

#include <cstdarg>
#include <cstdio>

__attribute__((format(printf, 1, 0))) static std::string format_list(const char *format,
                                                                     va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return {};
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

void sim_report(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const std::string text = format_list(format, arguments);
    va_end(arguments);
    fprintf(stderr, "tessera-sim: %s\n", text.c_str());
}

std::string sim_format(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = format_list(format, arguments);
    va_end(arguments);
    return text;
}

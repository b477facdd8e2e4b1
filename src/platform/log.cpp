#include "platform/log.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include <log4c.h>
#include <log4c/appender_type_stream.h>
#include <log4c/appender_type_syslog.h>

// log4c's own layouts cut a line at about a kilobyte and lose its end; a modem's whole response is
// longer. Control bytes become escapes, so that what a modem says cannot look like a line of ours.
static std::string rendered;

static void append_escaped(const char *text)
{
    for (const char *p = text; *p; p++) {
        const auto byte = static_cast<unsigned char>(*p);
        char escape[8];
        if (byte >= 0x20 && byte != 0x7F) {
            rendered.push_back(*p);
            continue;
        }
        if (byte == '\n' || byte == '\r' || byte == '\t')
            snprintf(escape, sizeof(escape), "\\%c", byte == '\n' ? 'n' : byte == '\r' ? 'r' : 't');
        else
            snprintf(escape, sizeof(escape), "\\x%02X", byte);
        rendered += escape;
    }
}

static const char *format_syslog(const log4c_layout_t *, const log4c_logging_event_t *event)
{
    rendered.clear();
    append_escaped(event->evt_msg);
    return rendered.c_str();
}

static const char *format_stream(const log4c_layout_t *, const log4c_logging_event_t *event)
{
    char start[96];
    tm local = {};
    const time_t seconds = event->evt_timestamp.tv_sec;
    localtime_r(&seconds, &local);
    const size_t length = strftime(start, sizeof(start), "%Y%m%d %H:%M:%S", &local);
    snprintf(start + length, sizeof(start) - length, ".%03d %-8s ",
             static_cast<int>(event->evt_timestamp.tv_usec / 1000),
             log4c_priority_to_string(event->evt_priority));
    rendered.assign(start).append(event->evt_category).append("- ");
    append_escaped(event->evt_msg);
    return rendered.append("\n").c_str();
}

constexpr log4c_layout_type_t syslog_layout = {"tessera-syslog", format_syslog};
constexpr log4c_layout_type_t stream_layout = {"tessera-stream", format_stream};

static struct {
    std::mutex mutex; // log4c renders into buffers that its objects share
    log4c_category_t *category = nullptr;
    std::atomic<int> threshold = log_info;
    std::atomic<log_sink> sink = nullptr;
} state;

int log_open(const char *name)
{
    const std::lock_guard lock(state.mutex);
    const char *kind = std::getenv("TESSERA_LOG");
    const bool stream = kind && strcmp(kind, "stream") == 0;

    // The types are named directly: log4c_init would also read log4crc files from wherever the
    // daemon was started. The stream appender must be called "stderr" to be standard error.
    log4c_category_t *category = log4c_category_get(name);
    log4c_appender_t *appender = log4c_appender_get(stream ? "stderr" : name);
    if (!category || !appender)
        return -1;
    log4c_appender_set_type(appender,
                            stream ? &log4c_appender_type_stream : &log4c_appender_type_syslog);
    const log4c_layout_type_t &kind_of_layout = stream ? stream_layout : syslog_layout;
    log4c_layout_t *layout = log4c_layout_get(kind_of_layout.name);
    if (!layout)
        return -1;
    log4c_layout_set_type(layout, &kind_of_layout);
    log4c_appender_set_layout(appender, layout);
    log4c_category_set_appender(category, appender);
    log4c_category_set_priority(category, state.threshold);
    state.category = category;
    return 0;
}

void log_set_threshold(int priority)
{
    const std::lock_guard lock(state.mutex);
    state.threshold = priority;
    if (state.category)
        log4c_category_set_priority(state.category, priority);
}

void log_set_sink(log_sink sink)
{
    state.sink = sink;
}

static void write_line(int priority, char *text, size_t length)
{
    if (length > 0 && text[length - 1] == '\n')
        text[length - 1] = '\0';
    if (const log_sink sink = state.sink) {
        sink(priority, text);
        return;
    }
    const std::lock_guard lock(state.mutex);
    if (state.category)
        log4c_category_log(state.category, priority, "%s", text);
    fflush(stdout);
    fflush(stderr);
}

void log_message(int priority, const char *format, ...)
{
    if (priority > state.threshold)
        return;
    const int saved_errno = errno;
    char short_text[512];
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(short_text, sizeof(short_text), format, arguments);
    va_end(arguments);
    if (length >= 0 && static_cast<size_t>(length) < sizeof(short_text)) {
        write_line(priority, short_text, static_cast<size_t>(length));
    } else if (length >= 0) {
        const size_t size = static_cast<size_t>(length) + 1;
        if (char *text = static_cast<char *>(malloc(size))) {
            vsnprintf(text, size, format, again);
            write_line(priority, text, size - 1);
            free(text);
        }
    }
    va_end(again);
    errno = saved_errno;
}

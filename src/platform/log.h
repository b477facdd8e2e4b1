// The program's one way to say something: a log4c category with one appender, syslog's unless
// TESSERA_LOG says "stream" (standard error). Safe from every thread; errno stays what it was.
#pragma once

// Priorities as log4c numbers them; a smaller number is more urgent. Fatal passes every threshold.
enum log_priority {
    log_fatal = 0,
    log_error = 300,
    log_warning = 400,
    log_info = 600,
    log_debug = 700,
};

// Receives each line that passes the threshold, without its line end.
using log_sink = void (*)(int priority, const char *text);

// Opens the category of that name (the program's invocation name) with a threshold of log_info.
// Until then, and in programs that never call it, lines go to the sink of log_set_sink or nowhere.
// Returns 0, or -1 when log4c has no memory for it: the program can run on, silently.
int log_open(const char *name);

// Lets lines up to this priority pass from now on.
void log_set_threshold(int priority);

// Sends all lines to `sink` instead, for tests; null ends that.
void log_set_sink(log_sink sink);

// Writes one line. A line feed at the end of the text is not part of the line; other control
// characters are written as escapes.
__attribute__((format(printf, 2, 3))) void log_message(int priority, const char *format, ...);

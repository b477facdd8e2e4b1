// What the simulator has to say to the person or the script that started it: one line on standard
// error, with the program's name in front. The traffic with the daemon goes to the journal instead.
#pragma once

#include <string>

// Writes one line; `format` has no line feed at its end.
void sim_report(const char *format, ...) __attribute__((format(printf, 1, 2)));

// printf into a string.
std::string sim_format(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Bytes as text and back: what the journal shows, what a scenario gives, and the layouts that a
// modem's answers are printed with.
#pragma once

#include <functional>
#include <string>
#include <string_view>

// One line of printable ASCII: `\r`, `\n`, `\t`, `\\` and `\xHH` for the rest.
std::string bytes_escape(std::string_view bytes);

// Reads pairs of hexadecimal digits, blanks between pairs allowed. -1 if it is anything else.
int bytes_from_hex(std::string_view hex, std::string &bytes);

// `count` bytes that look random and are the same in every run, values above 0x7F among them.
std::string bytes_noise(size_t count);

// Replaces every `{name}` of `layout` by value("name"), and `{name:15}` by the same padded with
// blanks to 15 characters. A layout is program text: a brace without its partner stays as it is.
std::string layout_expand(std::string_view layout,
                          const std::function<std::string(std::string_view)> &value);

// Text from outside. Inside the program all text is UTF-8; what a modem says becomes UTF-8 once,
// where it enters, so that output, spool and infod carry the same text.
#pragma once

#include <string>
#include <string_view>

// True when the bytes are well-formed UTF-8 (shortest forms only, no surrogates, up to U+10FFFF).
[[nodiscard]] bool text_is_utf8(std::string_view bytes);

// The text of bytes whose encoding nobody stated: UTF-8 if they are that as a whole, otherwise
// Latin-1 as a whole.
[[nodiscard]] std::string text_from_bytes(std::string_view bytes);

// The text of Latin-1 bytes.
[[nodiscard]] std::string text_from_latin1(std::string_view bytes);

// The longest beginning of a UTF-8 text that has at most `bytes_max` bytes and divides no character.
[[nodiscard]] std::string_view text_cut(std::string_view text, size_t bytes_max);

// True when the text holds a control character (below 0x20, or 0x7F).
[[nodiscard]] bool text_has_control(std::string_view text);

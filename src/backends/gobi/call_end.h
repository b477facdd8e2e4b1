// Why a data session was not started or did not last, in words.
//
// Facts: the call end reasons of the public QMI message descriptions (libqmi).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// "CODE: NAME" for the reason that the modem gave; without one, for the code of the request, which
// has no name here.
[[nodiscard]] std::string gobi_call_end_text(std::optional<uint16_t> reason, uint32_t code);

// QMI answers spoilt on purpose: each fault changes one thing in a frame and leaves all others,
// lengths included, as they have to be.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Spoils a response frame as the fault of that name has it; `tlv` says which TLV for the faults
// that are about one. A frame in which there is nothing to spoil stays as it is.
std::string qmi_spoil(std::string_view fault_name, std::optional<int64_t> tlv,
                      std::string_view frame);

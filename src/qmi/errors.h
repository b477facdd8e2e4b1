// The names of the modem's error numbers, for the log.
//
// Facts: the public QMI message descriptions (libqmi).
#pragma once

#include <cstdint>

constexpr uint16_t qmi_error_malformed = 1;
constexpr uint16_t qmi_error_no_memory = 2;
constexpr uint16_t qmi_error_invalid_client_id = 7;
constexpr uint16_t qmi_error_device_in_use = 23;
constexpr uint16_t qmi_error_insufficient_resources = 68;
constexpr uint16_t qmi_error_disabled = 69;
constexpr uint16_t qmi_error_operation_in_progress = 118;

// The name, or "unnamed".
[[nodiscard]] const char *qmi_error_name(uint16_t error);

// What the link is made of, for those who send and await in other ways than one by one. Whoever needs
// an answer includes qmi/link.h only.
#pragma once

#include "qmi/link.h"

#include <optional>

// What a request is recognised by in its answer.
struct qmi_awaited {
    uint8_t service;
    uint8_t client_id;
    uint16_t transaction;
    uint16_t id;
};

struct qmi_answer {
    size_t index = 0; // which of the expected ones it answers
    bool readable = false;
    std::vector<uint8_t> tlvs; // of a readable one
};

// Checks the handle, takes off what has come meanwhile and gives client ids back that came too late.
// 0, or a code; a lost connection is told by what is sent next.
[[nodiscard]] uint32_t qmi_make_ready(uint32_t handle);

[[nodiscard]] bool qmi_connected();

[[nodiscard]] bool qmi_is_client(uint8_t service);

// Becomes a client of the service, if the link is not one yet: 0 or a code.
[[nodiscard]] uint32_t qmi_allocate(uint8_t service);

// Sends a request and says what its answer is recognised by: 0 or a code.
[[nodiscard]] uint32_t qmi_send(const qmi_request &request, std::span<const uint8_t> tlvs,
                                qmi_awaited &expected);

// The first answer to one of `expected`; nothing when the time is over, the connection is lost or
// termination was requested.
[[nodiscard]] std::optional<qmi_answer> qmi_await(std::span<const qmi_awaited> expected,
                                                  int64_t deadline_ms);

// What came of a request: without an answer, and with one, whose TLVs go to `response`. A code.
uint32_t qmi_silence(const qmi_request &request);
[[nodiscard]] uint32_t qmi_take(const qmi_request &request, qmi_answer &answer,
                                std::vector<uint8_t> &response);

// The way to the modem: a connection to the multiplexing daemon QMUXD, whose socket carries QMUX
// frames for the modem and back. A request, or several that do not depend on each other, travels, is
// waited for and ends exactly once, with one of the codes below. Answers that come after their
// time-out, answers to others and indications never pass for the answer that is awaited.
// docs/qmi-link.md describes the socket.
//
// A service answers clients only; the link becomes one when a service is first asked for something,
// and gives the client ids back when it is closed. After a connection is lost every request ends
// with qmi_not_sent until the owner has closed and opened the link again.
//
// There is one link in a process, used by one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Results of every request, as the program's log shows them.
enum qmi_code : uint32_t {
    qmi_ok = 0,
    qmi_no_handle = 1,      // the handle is 0: no link is open
    qmi_unknown_handle = 2, // the handle of a link that was closed
    qmi_bad_argument = 4,   // a field of the request has no value that could be sent
    qmi_too_long = 5,       // a field of the request does not fit its length
    qmi_not_sent = 12,      // not sent, or no answer within the time-out
    qmi_no_reset_answer = 13,
    qmi_modem_error = 1000, // and above: the modem's error number is added; the number itself when
                            // the answer cannot be read
};

constexpr const char *qmi_connect_path = "/var/qmux_connect_socket";
constexpr const char *qmi_client_path_format = "/var/qmux_client_socket%7lu"; // with the process id

constexpr int qmi_timeout_ms = 2000;

// No message of a modem is a quarter as long; what announces more is not framed.
constexpr size_t qmi_frame_bytes_max = 16384;

// So many requests travel at a time, at most. A modem takes about as many into its queue, and more
// would not make it faster.
constexpr size_t qmi_under_way_max = 8;

// One request.
struct qmi_request {
    const char *name; // for the log
    uint8_t service;  // any but the control service
    uint16_t id;
    int timeout_ms = qmi_timeout_ms;
    uint32_t silence_code = qmi_not_sent; // the result when it was sent and no answer came
};

// Opens the link and stores its handle, which is never 0. `device` is for the log. 0, or a code; an
// open link is closed first.
[[nodiscard]] uint32_t qmi_open(const char *device, uint32_t &handle);

// Gives the client ids back and closes the link. 0, or a code when the modem did not take them or
// the connection was lost; the link is closed in any case.
uint32_t qmi_close(uint32_t handle);

// Sends a request with these TLVs, waits for its answer and stores the answer's TLVs, well-formed,
// also when it reports an error. 0 or a code; without an answer `response` is empty.
[[nodiscard]] uint32_t qmi_send_wait(uint32_t handle, const qmi_request &request,
                                     std::span<const uint8_t> tlvs, std::vector<uint8_t> &response);

// One of several requests: what is sent, and what came of it.
struct qmi_exchange {
    qmi_request request;
    std::vector<uint8_t> tlvs;
    uint32_t code = qmi_not_sent;
    std::vector<uint8_t> response; // as qmi_send_wait stores it
};

// Sends requests that do not depend on each other, several at a time, and waits until each has its
// code; the answers may come in any order. For requests that change nothing: one that the modem
// refused because it had too many, or had forgotten its client, is sent once more. A modem that
// takes only one at a time is known as such from then on until the link is closed.
//
// The modem may work on one after the other, so a time-out (the longest of the requests') begins anew
// with each answer: all together wait no longer than they would one by one.
//
// Some modems drop what is too much for them without a word. So when some requests of a batch were
// answered, those that were not are sent once more, alone, until two have stayed silent again. Such a
// message is not sent twice any more until it is answered. A modem for which that helped in two
// batches is known as one that takes one request at a time.
void qmi_send_wait_all(uint32_t handle, std::span<qmi_exchange> exchanges);

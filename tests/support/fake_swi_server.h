// The SDK's server for unit tests: serves the first pair of channels of the test's root in a thread
// and answers each request with the packets that the test's function returns.
#pragma once

#include "platform/unique_fd.h"
#include "swi/operations.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

using packet = std::vector<uint8_t>;
using packets = std::vector<packet>;

struct fake_request {
    swi_header header;
    swi_object_header object; // of the first kind of packet
    packet parameters;
};

class fake_swi_server
{
public:
    using answer_function = std::function<packets(const fake_request &)>;

    // Serves at once. Without a function every request succeeds with parameters that are all 0.
    explicit fake_swi_server(answer_function answer = {});
    ~fake_swi_server();
    fake_swi_server(const fake_swi_server &) = delete;
    fake_swi_server &operator=(const fake_swi_server &) = delete;

    void set_answer(answer_function answer);

    // Sends a packet to the client's notification channel once there is one.
    void notify(const packet &bytes);
    // Sends an unexpected packet on the request channel.
    void interject(const packet &bytes);

    // Closes everything, as a killed process would; serves again.
    void die();
    void serve();

    std::atomic<bool> busy = false;             // greet with "busy"
    std::atomic<uint8_t> version = swi_version; // greet with this version

    [[nodiscard]] std::vector<fake_request> requests();
    // The ids that were enabled, in order.
    [[nodiscard]] std::vector<uint32_t> enabled();

private:
    void run();
    void accept_from(const unique_fd &listener, unique_fd &client);
    void read_request();

    answer_function answer_;
    std::vector<fake_request> requests_;
    std::mutex mutex_;
    std::condition_variable changed_;
    unique_fd request_listener_, notification_listener_, request_, notification_;
    unique_fd stop_reader_, stop_writer_;
    std::thread thread_;
};

// A response to that request.
packet respond(const fake_request &to, uint32_t status, std::span<const uint8_t> parameters = {});

// One of success with parameters that are all 0.
packet succeed(const fake_request &to);

template <class Record>
packet respond_with(const fake_request &to, const Record &record,
                    const uint32_t *own_result = nullptr)
{
    packet bytes(swi_response_bytes_max);
    size_t own = 0;
    size_t length = 0;
    if (own_result && swi_pack(swi_layout_of<swi_number>, own_result, bytes, &own) != 0)
        return {};
    if (swi_pack(swi_layout_of<Record>, &record, std::span(bytes).subspan(own), &length) != 0)
        return {};
    return respond(to, swi_status_ok, std::span<const uint8_t>(bytes).first(own + length));
}

// A notification of an object; `words` follow the headers.
packet notification(uint32_t id, const std::vector<uint32_t> &words,
                    uint16_t parameter = swi_parameter_object);

// Requests: every operation, every result, and everything that may come instead of a response.

#include "support/swi_fixture.h"
#include "swi/packet.h"

#include <algorithm>
#include <cstring>

class swi_requests : public swi_fixture
{
protected:
    swi_requests() { EXPECT_EQ(open_api(), swi_ok); }

    static int get_signal()
    {
        swi_rssi_ber signal;
        return swi_get_rssi_ber(signal, timeout_ms);
    }

    // Answers with the status and, if it has one, the text.
    void refuse_with(uint32_t status, const std::string &text = "")
    {
        server.set_answer([=](const fake_request &request) {
            return packets{respond(request, status, packet(text.begin(), text.end()))};
        });
    }

    fake_swi_server server;
};

// ---- the table

// Bytes that are a valid record of the layout and different in every field.
static packet pattern(const swi_layout &layout, uint8_t &seed)
{
    packet bytes;
    for (const swi_field &field : layout.fields) {
        if (field.kind == swi_field_kind::list) {
            constexpr int elements = 3;
            bytes.insert(bytes.end(), {elements, 0});
            for (int i = 0; i < elements; i++) {
                const packet element = pattern(*field.element, seed);
                bytes.insert(bytes.end(), element.begin(), element.end());
            }
            continue;
        }
        const bool padding = field.kind == swi_field_kind::padding;
        for (int i = 0; i < field.bytes; i++)
            bytes.push_back(padding ? uint8_t{0} : static_cast<uint8_t>(++seed % 127 + 1));
        if (field.kind == swi_field_kind::text)
            bytes.back() = 0;
    }
    return bytes;
}

class swi_every_operation : public swi_requests, public testing::WithParamInterface<int>
{
};

TEST_P(swi_every_operation, carries_its_request_there_and_its_response_back)
{
    const swi_operation &operation = swi_operations[static_cast<size_t>(GetParam())];
    uint8_t seed = 0;
    const packet request_bytes = pattern(*operation.request, seed);
    const packet response_bytes = pattern(*operation.response, seed);
    alignas(8) std::array<uint8_t, 4096> request = {};
    alignas(8) std::array<uint8_t, 4096> response = {};
    ASSERT_EQ(swi_unpack(*operation.request, request_bytes, request.data()), 0);
    server.set_answer([&](const fake_request &given) {
        packet parameters(operation.own_result ? sizeof(uint32_t) : 0);
        parameters.insert(parameters.end(), response_bytes.begin(), response_bytes.end());
        return packets{respond(given, swi_status_ok, parameters)};
    });
    ASSERT_EQ(swi_request(operation, request.data(), response.data(), timeout_ms), swi_ok)
        << operation.name;

    const fake_request seen = server.requests().back();
    EXPECT_EQ(seen.header.kind, operation.kind);
    EXPECT_EQ(seen.object.object, operation.object);
    const bool of_object = operation.kind == swi_kind_object;
    EXPECT_EQ(seen.object.operation, of_object ? operation.operation : 0);
    EXPECT_EQ(seen.parameters, request_bytes) << operation.name;
    packet again(4096);
    size_t length = 0;
    ASSERT_EQ(swi_pack(*operation.response, response.data(), again, &length), 0);
    again.resize(length);
    EXPECT_EQ(again, response_bytes) << operation.name;
}

INSTANTIATE_TEST_SUITE_P(table, swi_every_operation, testing::Range<int>(0, swi_operation_count));

// ---- results

TEST_F(swi_fixture, without_an_open_api_nothing_is_asked)
{
    fake_swi_server server;
    swi_number esn;
    char text[8];
    EXPECT_EQ(swi_get_esn(esn, timeout_ms), swi_not_open);
    EXPECT_EQ(swi_enable_notification(swi_notify_rssi, timeout_ms), swi_not_open);
    EXPECT_EQ(swi_last_error_text(text, sizeof(text)), swi_not_open);
    EXPECT_EQ(swi_register_callback(nullptr, nullptr, -1, 0), swi_not_open);
    EXPECT_EQ(swi_wait_notification(), swi_not_open);
    EXPECT_EQ(swi_api_reopen(), swi_not_open);
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(swi_requests, the_status_of_the_modem_becomes_a_result)
{
    const struct {
        uint32_t status;
        int result;
    } rows[] = {{0, 0},   {1, 7}, {2, 11}, {3, 600}, {4, 1},         {5, 5},
                {6, 600}, {7, 8}, {8, 5},  {9, 5},   {0xFFFFFFFF, 5}};
    swi_nothing nothing;
    for (const auto &row : rows) {
        refuse_with(row.status, row.status == 0 ? std::string(8, '\0') : "");
        EXPECT_EQ(get_signal(), row.result) << row.status;
        EXPECT_EQ(swi_request(swi_operations[swi_op_reset_gsm], &nothing, &nothing, timeout_ms),
                  row.result)
            << row.status;
    }
}

TEST_F(swi_requests, the_words_of_a_refusal_can_be_fetched)
{
    char text[swi_error_text_max] = "?";
    EXPECT_EQ(swi_last_error_text(text, sizeof(text)), swi_ok);
    EXPECT_STREQ(text, "");
    refuse_with(swi_status_error, "Incorrect PIN, 2 tries left");
    EXPECT_EQ(get_signal(), swi_cns_error);
    EXPECT_EQ(swi_last_error_text(text, sizeof(text)), swi_ok);
    EXPECT_STREQ(text, "Incorrect PIN, 2 tries left");
    EXPECT_EQ(swi_last_error_text(text, 5), swi_ok);
    EXPECT_STREQ(text, "Inco");
    refuse_with(swi_status_error_text, std::string(500, 'x'));
    EXPECT_EQ(get_signal(), swi_cns_error);
    EXPECT_EQ(swi_last_error_text(text, sizeof(text)), swi_ok);
    EXPECT_EQ(std::string(text), std::string(swi_error_text_max - 1, 'x'));
    server.set_answer({});
    EXPECT_EQ(get_signal(), swi_ok);
    EXPECT_EQ(swi_last_error_text(text, sizeof(text)), swi_ok);
    EXPECT_STREQ(text, "") << "the last request was not refused";
}

TEST_F(swi_requests, an_operation_may_have_a_result_of_its_own)
{
    uint32_t own = swi_tracking_on;
    server.set_answer([&](const fake_request &request) {
        return packets{respond_with(request, swi_nothing(), &own)};
    });
    EXPECT_EQ(swi_set_lbs_pd_track({}, timeout_ms), swi_tracking_on);
    own = 0;
    EXPECT_EQ(swi_set_lbs_pd_track({}, timeout_ms), swi_ok);
    // Even a refused read says how long the message is.
    server.set_answer([](const fake_request &request) {
        const uint32_t small_buffer = swi_small_buffer;
        swi_sms_message message;
        message.text_bytes = 300;
        return packets{respond_with(request, message, &small_buffer)};
    });
    swi_sms_message message;
    EXPECT_EQ(swi_read_sms({}, message, timeout_ms), swi_small_buffer);
    EXPECT_EQ(message.text_bytes, 300);
}

TEST_F(swi_requests, an_operation_for_other_modems_is_refused_without_a_request)
{
    swi_number number;
    EXPECT_EQ(swi_get_carrier_id(number, timeout_ms), swi_ok) << "the modem is not known yet";
    uint32_t technology = swi_gsm_modems;
    server.set_answer([&](const fake_request &request) {
        return packets{request.header.kind == swi_kind_device_info
                           ? respond_with(request, swi_modem_type{.technology = technology})
                           : succeed(request)};
    });
    swi_modem_type type;
    ASSERT_EQ(swi_get_modem_type(type, timeout_ms), swi_ok);
    const size_t before = server.requests().size();
    EXPECT_EQ(swi_get_carrier_id(number, timeout_ms), swi_not_applicable);
    EXPECT_EQ(swi_reset_cdma(timeout_ms), swi_not_applicable);
    EXPECT_EQ(server.requests().size(), before);
    EXPECT_EQ(swi_get_esn(number, timeout_ms), swi_ok);
    EXPECT_EQ(get_signal(), swi_ok);
    technology = swi_cdma_modems;
    ASSERT_EQ(swi_get_modem_type(type, timeout_ms), swi_ok);
    EXPECT_EQ(swi_get_carrier_id(number, timeout_ms), swi_ok);
    EXPECT_EQ(get_signal(), swi_not_applicable);
    technology = 77; // a server that says nonsense refuses nobody
    ASSERT_EQ(swi_get_modem_type(type, timeout_ms), swi_ok);
    EXPECT_EQ(get_signal(), swi_ok);
}

// ---- instead of a response

TEST_F(swi_requests, a_wrong_response_has_its_result)
{
    const struct {
        const char *what;
        size_t at; // the byte that is another one
        uint8_t value;
        int result;
    } rows[] = {
        {"another version", 2, swi_version + 1, swi_malformed_header},
        {"rejected", 3, swi_message_rejected, swi_malformed_header},
        {"a request as an answer", 3, swi_message_request, swi_malformed_header},
        {"another kind of packet", 4, swi_kind_port_name, swi_unexpected_response},
        {"another object", swi_header_bytes, 0xFF, swi_unexpected_response},
    };
    for (const auto &row : rows) {
        server.set_answer([&](const fake_request &request) {
            packet bytes = succeed(request);
            bytes[row.at] = row.value;
            return packets{bytes};
        });
        EXPECT_EQ(get_signal(), row.result) << row.what;
        server.set_answer({});
        EXPECT_EQ(get_signal(), swi_ok) << "after " << row.what;
    }
    size_t parameter_bytes = 7;
    server.set_answer([&](const fake_request &request) {
        return packets{respond(request, swi_status_ok, packet(parameter_bytes))};
    });
    EXPECT_EQ(get_signal(), swi_failed) << "short parameters";
    parameter_bytes = swi_response_bytes_max;
    EXPECT_EQ(get_signal(), swi_malformed_header) << "more than the buffer holds";
}

TEST_F(swi_requests, every_truncation_and_garbage_of_every_length_is_an_error)
{
    size_t length = 0;
    size_t whole = SIZE_MAX;
    server.set_answer([&](const fake_request &request) {
        packet bytes = respond_with(request, swi_rssi_ber());
        whole = bytes.size();
        bytes.resize(length);
        return packets{bytes};
    });
    for (; length < whole; length++)
        ASSERT_EQ(get_signal(), swi_malformed_header) << length;
    server.set_answer([&](const fake_request &) {
        packet bytes;
        for (size_t i = 0; i < length; i++)
            bytes.push_back(static_cast<uint8_t>(i * 167 + length));
        return packets{bytes};
    });
    for (length = 0; length <= 2 * swi_response_bytes_max; length += 13)
        ASSERT_EQ(get_signal(), swi_malformed_header) << length;
}

TEST_F(swi_requests, every_flipped_bit_is_survived)
{
    size_t bit = 0;
    server.set_answer([&](const fake_request &request) {
        packet bytes = respond_with(request, swi_rssi_ber());
        bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] ^ 1U << bit % 8);
        return packets{bytes};
    });
    // The bits of the sequence number make the answer one to another request: a wait for each.
    const size_t sequence_from = 8 * 8, sequence_to = 12 * 8;
    for (bit = 0; bit < 36 * 8; bit++) {
        if (bit < sequence_from || bit >= sequence_to || bit == sequence_from)
            (void)get_signal();
    }
    server.set_answer({});
    EXPECT_EQ(get_signal(), swi_ok);
}

TEST_F(swi_requests, a_late_response_is_not_taken_for_the_next_one)
{
    server.set_answer([](const fake_request &) { return packets(); });
    EXPECT_EQ(get_signal(), swi_no_response);
    swi_rssi_ber old;
    old.rssi = -111;
    const packet late = respond_with(server.requests().back(), old);
    // It arrives while nobody asks, and once more in front of the right answer.
    server.interject(late);
    server.set_answer([&](const fake_request &request) {
        swi_rssi_ber present;
        present.rssi = -71;
        return packets{late, respond_with(request, present)};
    });
    swi_rssi_ber signal;
    EXPECT_EQ(swi_get_rssi_ber(signal, timeout_ms), swi_ok);
    EXPECT_EQ(signal.rssi, -71);
    EXPECT_TRUE(log.has("dropped a late response"));
}

// ---- the death of the server

TEST_F(swi_requests, a_server_that_dies_ends_the_request_and_can_be_reopened)
{
    EXPECT_TRUE(swi_api_alive());
    EXPECT_EQ(swi_api_reopen(), swi_ok) << "nothing to do";
    server.set_answer([](const fake_request &) { return packets(); });
    std::thread killer([this] {
        wait_for([this] { return !server.requests().empty(); });
        server.die();
    });
    EXPECT_EQ(get_signal(), swi_no_response);
    killer.join();
    wait_for([] { return !swi_api_alive(); });
    EXPECT_EQ(get_signal(), swi_no_response) << "between requests";
    EXPECT_EQ(swi_api_reopen(), swi_system_error) << "there is no program to start";
    EXPECT_EQ(get_signal(), swi_no_response);
    server.set_answer({});
    server.serve();
    EXPECT_EQ(swi_api_reopen(), swi_ok);
    EXPECT_TRUE(swi_api_alive());
    EXPECT_EQ(get_signal(), swi_ok);
}

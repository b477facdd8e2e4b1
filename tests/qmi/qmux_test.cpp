#include "qmi/qmux.h"
#include "qmi/tlv.h"
#include "support/fake_qmuxd.h"

#include <gtest/gtest.h>

using bytes = std::vector<uint8_t>;

struct frame_row {
    const char *name;
    const char *hex;
    bool from_modem;
    uint8_t service, client_id;
    qmux_kind kind;
    uint16_t transaction, id;
    size_t tlv_bytes;
};

// Frames as they travel between public clients and modems.
static const frame_row frame_rows[] = {
    {"model_request", "01 0c 00 00 02 01 00 02 00 22 00 00 00", false, qmi_dms, 1, qmux_request, 2,
     0x22, 0},
    {"model_response",
     "01 1b 00 80 02 01 02 02 00 22 00 0f 00 02 04 00 00 00 00 00 01 05 00 4c 54 45 2d 31", true,
     qmi_dms, 1, qmux_response, 2, 0x22, 15},
    {"client_id_request", "01 0f 00 00 00 00 00 01 22 00 04 00 01 01 00 02", false, qmi_ctl, 0,
     qmux_request, 1, 0x22, 4},
    {"client_id_response",
     "01 17 00 80 00 00 01 01 22 00 0c 00 02 04 00 00 00 00 00 01 02 00 02 01", true, qmi_ctl, 0,
     qmux_response, 1, 0x22, 12},
    {"connected_indication", "01 15 00 80 01 01 04 00 00 22 00 09 00 01 02 00 02 00 12 01 00 04",
     true, qmi_wds, 1, qmux_indication, 0, 0x22, 9},
    {"sync_indication", "01 0b 00 80 00 00 02 00 27 00 00 00", true, qmi_ctl, 0, qmux_indication, 0,
     0x27, 0},
};

class qmux_frames : public testing::TestWithParam<frame_row>
{
};

TEST_P(qmux_frames, decode_to_their_fields_and_encode_to_their_bytes)
{
    const frame_row &row = GetParam();
    const bytes frame = octets_of(row.hex);
    qmux_message message;
    ASSERT_EQ(qmux_decode(frame, message), 0);
    EXPECT_EQ(message.from_modem, row.from_modem);
    EXPECT_EQ(message.service, row.service);
    EXPECT_EQ(message.client_id, row.client_id);
    EXPECT_EQ(message.kind, row.kind);
    EXPECT_EQ(message.transaction, row.transaction);
    EXPECT_EQ(message.id, row.id);
    EXPECT_EQ(message.tlvs.size(), row.tlv_bytes);
    bytes again;
    ASSERT_EQ(qmux_encode(message, again), 0);
    EXPECT_EQ(again, frame);
}

TEST_P(qmux_frames, are_refused_when_cut_or_lengthened)
{
    bytes frame = octets_of(GetParam().hex);
    qmux_message message;
    for (size_t cut = 0; cut < frame.size(); cut++) {
        const std::span<const uint8_t> part = std::span(frame).first(cut);
        EXPECT_EQ(qmux_decode(part, message), -1) << cut;
        size_t size = 99;
        EXPECT_EQ(qmux_frame_size(part, size), 0);
        EXPECT_EQ(size, cut < qmux_header_bytes ? 0 : frame.size());
    }
    frame.push_back(0);
    EXPECT_EQ(qmux_decode(frame, message), -1);
    frame[1]++; // the frame is longer, its TLVs are not
    EXPECT_EQ(qmux_decode(frame, message), -1);
}

INSTANTIATE_TEST_SUITE_P(public_frames, qmux_frames, testing::ValuesIn(frame_rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(qmux, a_byte_that_begins_no_frame_is_noticed_at_once)
{
    size_t size = 0;
    EXPECT_EQ(qmux_frame_size(octets_of("02"), size), -1);
    EXPECT_EQ(qmux_frame_size(octets_of("01 0a 00 80 00 00"), size), -1) << "no room for a header";
    EXPECT_EQ(qmux_frame_size(octets_of("01 0b 00 80 02 01"), size), -1) << "a service needs more";
    EXPECT_EQ(qmux_frame_size(octets_of("01 ff ff 80 02 01"), size), 0);
    EXPECT_EQ(size, qmux_frame_bytes_max);
}

TEST(qmux, inner_faults_are_refused)
{
    qmux_message message;
    for (const char *hex : {
             "01 0c 00 80 02 01 03 02 00 22 00 00 00",             // no such kind
             "01 0b 00 80 00 00 04 00 27 00 00 00",                // not one of the control service
             "01 10 00 80 02 01 02 02 00 22 00 03 00 01 01 00 07", // fewer TLVs than bytes
         })
        EXPECT_EQ(qmux_decode(octets_of(hex), message), -1) << hex;
    for (const char *hex : {
             "01 0d 00 80 02 01 02 02 00 22 00 01 00 01",          // half a TLV
             "01 10 00 80 02 01 02 02 00 22 00 04 00 01 02 00 07", // one beyond the end
         }) {
        const bytes frame = octets_of(hex);
        ASSERT_EQ(qmux_decode(frame, message), 0) << "the header says whose it is";
        EXPECT_EQ(tlv_check(message.tlvs), -1);
    }
}

TEST(qmux, what_does_not_fit_is_not_encoded)
{
    bytes frame{1, 2, 3};
    const bytes most(qmux_frame_bytes_max - qmux_header_bytes - qmux_service_header_bytes);
    const bytes more(most.size() + 1);
    qmux_message message{.service = qmi_dms, .tlvs = more};
    EXPECT_EQ(qmux_encode(message, frame), -1);
    EXPECT_TRUE(frame.empty());
    message.tlvs = most;
    EXPECT_EQ(qmux_encode(message, frame), 0);
    EXPECT_EQ(frame.size(), qmux_frame_bytes_max);
    message = {.service = qmi_ctl, .transaction = 256};
    EXPECT_EQ(qmux_encode(message, frame), -1);
}

TEST(tlv, values_are_found_whatever_their_order)
{
    const bytes row = octets_of("10 00 00 02 04 00 01 00 0c 00 01 02 00 34 12");
    EXPECT_EQ(tlv_check(row), 0);
    const auto value = tlv_find(row, 0x01);
    ASSERT_TRUE(value);
    tlv_fields fields{*value};
    uint16_t number = 0;
    EXPECT_TRUE(fields.number(number));
    EXPECT_EQ(number, 0x1234);
    EXPECT_TRUE(tlv_find(row, 0x10)) << "an empty value is one";
    EXPECT_FALSE(tlv_find(row, 0x11));
    tlv_result result;
    EXPECT_EQ(tlv_read_result(row, result), 0);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, 12);
    for (size_t cut : {1u, 2u, 4u, 14u}) {
        EXPECT_EQ(tlv_check(std::span(row).first(cut)), -1) << cut;
        EXPECT_FALSE(tlv_find(std::span(row).first(cut), 0x01));
    }
    EXPECT_EQ(tlv_read_result(octets_of("02 03 00 00 00 00"), result), -1);
    EXPECT_EQ(tlv_read_result({}, result), -1);
}

TEST(tlv, fields_stop_at_the_end_without_moving)
{
    const bytes value = octets_of("fe ff ff ff 02 61 62 03 00 63");
    tlv_fields fields{value};
    int32_t number = 0;
    std::string text;
    EXPECT_TRUE(fields.number(number));
    EXPECT_EQ(number, -2);
    EXPECT_TRUE(fields.counted_text<uint8_t>(text));
    EXPECT_EQ(text, "ab");
    EXPECT_FALSE(fields.counted_text<uint16_t>(text)) << "three announced, one there";
    EXPECT_FALSE(fields.number(number));
    EXPECT_EQ(fields.rest.size(), 3u);
    EXPECT_TRUE(fields.text(3, text));
    EXPECT_FALSE(fields.text(1, text));
}

TEST(tlv, texts_too_long_for_their_length_spoil_the_row)
{
    for (const size_t length : {255u, 256u}) {
        tlv_writer row;
        row.begin(0x01);
        row.counted_text<uint8_t>(std::string(length, 'x'));
        EXPECT_EQ(row.end(), length == 255 ? 0 : -1);
        row.begin(0x02);
        EXPECT_EQ(row.end(), length == 255 ? 0 : -1) << "and it stays so";
    }
    tlv_writer row;
    row.begin(0x01);
    row.text(std::string(tlv_value_bytes_max + 1, 'x'));
    EXPECT_EQ(row.end(), -1);
}

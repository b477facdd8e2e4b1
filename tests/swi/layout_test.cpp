#include "swi/layout.h"
#include "swi/operations.h"
#include "swi/packet.h"

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using bytes = std::vector<uint8_t>;

template <class Record>
static bytes packed(const Record &record)
{
    bytes out(4096);
    size_t length = 0;
    EXPECT_EQ(swi_pack(swi_layout_of<Record>, &record, out, &length), 0);
    out.resize(length);
    return out;
}

TEST(layouts, numbers_are_little_endian_and_texts_fill_their_field)
{
    swi_gsm_imsi imsi;
    imsi.mcc = 0x0310;
    imsi.mnc = 0x0026;
    ASSERT_EQ(swi_set_text(imsi.msin, "1234567890"), 0);
    EXPECT_EQ(packed(imsi),
              (bytes{0x10, 0x03, 0x26, 0x00, '1', '2', '3', '4', '5', '6', '7', '8', '9', '0', 0}));
    swi_header header;
    header.message = swi_message_request;
    header.kind = swi_kind_reset;
    header.sequence = 0x01020304;
    EXPECT_EQ(packed(header), (bytes{'A', 'M', 1, 1, 4, 0, 0, 0, 4, 3, 2, 1, 0, 0, 0, 0}));
}

TEST(layouts, the_longest_records_have_their_sizes)
{
    EXPECT_EQ(packed(swi_phonebook_request()).size(), 204u);
    EXPECT_EQ(packed(swi_air_server_status()).size(), 1008u);
}

TEST(layouts, a_list_is_kept_as_far_as_there_is_room)
{
    bytes wire = {8, 0};
    for (uint8_t cell = 0; cell < 8; cell++)
        wire.insert(wire.end(), {cell, 0, 0, 0, 20, 1});
    swi_rscp_ecio cells;
    ASSERT_EQ(swi_unpack(swi_layout_of<swi_rscp_ecio>, wire, &cells), 0);
    EXPECT_EQ(cells.count, swi_cells_max);
    EXPECT_EQ(cells.cells[5].rscp, 5);
    EXPECT_EQ(cells.cells[5].ecio, 276);
    wire.pop_back();
    EXPECT_EQ(swi_unpack(swi_layout_of<swi_rscp_ecio>, wire, &cells), -1)
        << "the elements that are not kept must be there, too";
    cells.count = swi_cells_max + 1;
    size_t length = 0;
    EXPECT_EQ(swi_pack(swi_layout_of<swi_rscp_ecio>, &cells, wire, &length), -1);
}

TEST(layouts, a_text_without_an_end_is_refused)
{
    bytes wire = packed(swi_text());
    std::fill(wire.begin(), wire.end(), 'x');
    swi_text text;
    EXPECT_EQ(swi_unpack(swi_layout_of<swi_text>, wire, &text), -1);
    wire.back() = 0;
    EXPECT_EQ(swi_unpack(swi_layout_of<swi_text>, wire, &text), 0);
    EXPECT_EQ(std::string(text.text), std::string(63, 'x'));
}

TEST(layouts, every_truncation_of_every_record_is_refused)
{
    std::array<uint8_t, 4096> record = {};
    for (const swi_operation &operation : swi_operations) {
        for (const swi_layout *layout : {operation.request, operation.response}) {
            const bytes wire(layout->wire_bytes_min);
            EXPECT_EQ(swi_unpack(*layout, wire, record.data()), 0) << operation.name;
            for (size_t length = 0; length < wire.size(); length++)
                EXPECT_EQ(swi_unpack(*layout, std::span(wire).first(length), record.data()), -1)
                    << operation.name << " cut to " << length;
        }
    }
}

TEST(packets, a_header_that_does_not_fit_its_bytes_is_refused)
{
    std::array<uint8_t, 64> buffer;
    swi_packet_writer writer(buffer, swi_header());
    ASSERT_EQ(writer.add(swi_number{7}), 0);
    const std::span<const uint8_t> good = writer.finish();
    swi_header header;
    std::span<const uint8_t> payload;
    ASSERT_EQ(swi_packet_read(good, header, payload), 0);
    EXPECT_EQ(payload.size(), 4u);
    for (size_t length = 0; length < good.size(); length++)
        EXPECT_EQ(swi_packet_read(good.first(length), header, payload), -1) << length;
    for (const size_t at : {0u, 1u, 2u, 12u, 13u}) { // mark, version, length
        bytes bad(good.begin(), good.end());
        bad[at] ^= 0x40;
        EXPECT_EQ(swi_packet_read(bad, header, payload), -1) << at;
    }
    bytes longer(good.begin(), good.end());
    longer.push_back(0);
    EXPECT_EQ(swi_packet_read(longer, header, payload), -1);
}

TEST(packets, the_table_of_kinds_is_checked_against_the_layouts)
{
    int data = 0;
    EXPECT_EQ(swi_packet_kinds_fault(swi_packet_kinds, &data), nullptr);
    auto kinds = swi_packet_kinds;
    kinds[0].request.bytes++;
    EXPECT_STREQ(swi_packet_kinds_fault(kinds, &data), "Update AMCNSREQSZ");
    EXPECT_EQ(data, swi_kind_object);
    kinds = swi_packet_kinds;
    kinds[0].response.total = 4096;
    EXPECT_STREQ(swi_packet_kinds_fault(kinds, &data), "AMCNSRESPTOTAL needs updating\n");
    kinds = swi_packet_kinds;
    kinds[1].notification.bytes = 0;
    EXPECT_STREQ(swi_packet_kinds_fault(kinds, &data), "Update AMAIRSRVNOTIFSZ");
    EXPECT_EQ(data, swi_kind_air_server);
}

// The messages that only ask: what they send, and how their answers are read whole, cut and odd.

#include "qmi/messages.h"
#include "qmi/qmux.h"
#include "qmi/questions.h"
#include "support/fake_qmuxd.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

using texts = std::vector<std::string>;
using octets = std::vector<uint8_t>;

// A record and what it says, for all questions alike.
static struct {
    uint8_t byte;
    int8_t bearer;
    uint16_t word;
    std::string text;
    qmi_runtime_settings settings;
    qmi_mip_profile mip;
    qmi_capabilities capabilities;
    qmi_firmware_revisions revisions;
    qmi_voice_numbers numbers;
    qmi_serial_numbers serials;
    qmi_pin_states pins;
    qmi_images images;
    qmi_serving_system system;
    qmi_active_bands bands;
    qmi_system_selection selection;
    qmi_signal_info signal;
} got;

template <class number>
static std::string say(const std::optional<number> &value)
{
    return value ? std::to_string(*value) : "-";
}

static std::string say(const std::optional<std::string> &value)
{
    return value.value_or("-");
}

static std::string say(const std::optional<qmi_pin_status> &pin)
{
    return pin ? std::to_string(pin->status) + "/" + std::to_string(pin->verify_left) + "/" +
                     std::to_string(pin->unblock_left)
               : "-";
}

static std::string say(const std::optional<qmi_ipv6_prefix> &prefix)
{
    return prefix ? digits_of({prefix->address.begin(), prefix->address.end()}) + "/" +
                        std::to_string(prefix->length)
                  : "-";
}

template <class count>
static std::string say(const qmi_list<count, uint8_t> &list)
{
    return digits_of(list.items);
}

static std::string say_images()
{
    std::string all;
    for (const qmi_image &image : got.images.preferred.items)
        all += std::to_string(image.type) + ":" +
               digits_of({image.unique_id.begin(), image.unique_id.end()}) + ":" +
               image.build_id.text + " ";
    return all;
}

static std::string say_system()
{
    const qmi_serving_system &s = got.system;
    return std::to_string(s.registration) + " " + say(s.roaming) + " " + say(s.default_roaming) +
           " " + (s.data_services ? say(*s.data_services) : "-") + " " +
           (s.plmn ? std::to_string(s.plmn->mcc) + "." + std::to_string(s.plmn->mnc) +
                         s.plmn->name.text
                   : "-") +
           " " + (s.cdma ? std::to_string(s.cdma->sid) + "." + std::to_string(s.cdma->nid) : "-");
}

static std::string say_bands()
{
    std::string all;
    for (const qmi_active_band &band : got.bands.bands.items)
        all += std::to_string(band.radio) + ":" + std::to_string(band.band) + ":" +
               std::to_string(band.channel) + " ";
    return all;
}

static std::string say_selection()
{
    const qmi_system_selection &s = got.selection;
    return say(s.mode_mask) + " " + say(s.band_mask) + " " + say(s.lte_band_mask) + " " +
           (s.acquisition_order ? say(*s.acquisition_order) : "-");
}

static std::string say_signal()
{
    const qmi_signal_info &s = got.signal;
    const auto code = [](const std::optional<qmi_code_signal> &one) {
        return one ? std::to_string(one->rssi) + "/" + std::to_string(one->ecio) : "-";
    };
    return code(s.cdma) + " " +
           (s.hdr ? std::to_string(s.hdr->rssi) + "/" + std::to_string(s.hdr->ecio) + "/" +
                        std::to_string(s.hdr->sinr) + "/" + std::to_string(s.hdr->io)
                  : "-") +
           " " + say(s.gsm_rssi) + " " + code(s.wcdma) + " " +
           (s.lte ? std::to_string(s.lte->rssi) + "/" + std::to_string(s.lte->rsrq) + "/" +
                        std::to_string(s.lte->rsrp) + "/" + std::to_string(s.lte->snr)
                  : "-");
}

struct question_row {
    const char *name;
    uint8_t service;
    uint16_t id;
    const char *request; // TLVs
    const char *answer;  // TLVs behind the result
    const char *value;
    const char *nothing; // what a fresh record says
    qmi_question (*ask)();
    std::string (*say)();
};

static std::string say_text()
{
    return got.text;
}

template <auto ask_text>
static qmi_question ask_text_of()
{
    return ask_text(got.text);
}

static const question_row question_rows[] = {
    {"packet_status", qmi_wds, 0x22, "", "01 0100 02", "2", "0",
     [] { return qmi_wds_packet_status(got.byte); }, [] { return std::to_string(got.byte); }},
    {"runtime_settings", qmi_wds, 0x2D, "10 0400 00030000",
     "1e 0400 0200400a 20 0400 0100400a 21 0400 f8ffffff "
     "25 1100 20010db8000000000000000000000002 40 26 1100 20010db8000000000000000000000001 30",
     "171966466 171966465 4294967288 20010db8000000000000000000000002/64 "
     "20010db8000000000000000000000001/48",
     "- - - - -", [] { return qmi_wds_runtime_settings(got.settings); },
     [] {
         const qmi_runtime_settings &s = got.settings;
         return say(s.ipv4_address) + " " + say(s.ipv4_gateway) + " " + say(s.ipv4_subnet) + " " +
                say(s.ipv6_address) + " " + say(s.ipv6_gateway);
     }},
    {"data_bearer", qmi_wds, 0x37, "", "01 0100 ff", "-1", "0",
     [] { return qmi_wds_data_bearer(got.bearer); }, [] { return std::to_string(got.bearer); }},
    {"active_mip_profile", qmi_wds, 0x3C, "", "01 0100 05", "5", "0",
     [] { return qmi_wds_active_mip_profile(got.byte); }, [] { return std::to_string(got.byte); }},
    {"mip_profile", qmi_wds, 0x3E, "01 0100 05", "10 0100 01 15 0300 614062", "1 a@b", "- ",
     [] { return qmi_wds_mip_profile(5, got.mip); },
     [] { return say(got.mip.enabled) + " " + got.mip.nai; }},
    {"capabilities", qmi_dms, 0x20, "", "01 0e00 00000001 00000002 03 02 03 080504",
     "16777216 33554432 080504", "0 0 ", [] { return qmi_dms_capabilities(got.capabilities); },
     [] {
         const qmi_capabilities &c = got.capabilities;
         return std::to_string(c.send_bits_max) + " " + std::to_string(c.receive_bits_max) + " " +
                say(c.radios);
     }},
    {"manufacturer", qmi_dms, 0x21, "", "01 0300 516e63", "Qnc", "",
     ask_text_of<qmi_dms_manufacturer>, say_text},
    {"model", qmi_dms, 0x22, "", "01 0300 4c5445", "LTE", "", ask_text_of<qmi_dms_model>, say_text},
    {"firmware_revisions", qmi_dms, 0x23, "", "01 0100 61 10 0100 62 11 0100 63", "a b c", " - -",
     [] { return qmi_dms_firmware_revisions(got.revisions); },
     [] {
         return got.revisions.amss + " " + say(got.revisions.boot) + " " + say(got.revisions.pri);
     }},
    {"voice_numbers", qmi_dms, 0x24, "", "01 0200 3135 10 0200 3136", "15 16", " -",
     [] { return qmi_dms_voice_numbers(got.numbers); },
     [] { return got.numbers.voice + " " + say(got.numbers.identification); }},
    {"serial_numbers", qmi_dms, 0x25, "", "10 0100 65 11 0100 69 12 0100 6d", "e i m", "- - -",
     [] { return qmi_dms_serial_numbers(got.serials); },
     [] {
         const qmi_serial_numbers &s = got.serials;
         return say(s.esn) + " " + say(s.imei) + " " + say(s.meid);
     }},
    {"pin_status", qmi_dms, 0x2B, "", "11 0300 01030a 12 0300 040008", "1/3/10 4/0/8", "- -",
     [] { return qmi_dms_pin_status(got.pins); },
     [] { return say(got.pins.pin1) + " " + say(got.pins.pin2); }},
    {"hardware_revision", qmi_dms, 0x2C, "", "01 0200 4857", "HW", "",
     ask_text_of<qmi_dms_hardware_revision>, say_text},
    {"operating_mode", qmi_dms, 0x2D, "", "01 0100 07", "7", "0",
     [] { return qmi_dms_operating_mode(got.byte); }, [] { return std::to_string(got.byte); }},
    {"prl_version", qmi_dms, 0x30, "", "01 0200 adee", "61101", "0",
     [] { return qmi_dms_prl_version(got.word); }, [] { return std::to_string(got.word); }},
    {"activation_state", qmi_dms, 0x31, "", "01 0200 0a00", "10", "0",
     [] { return qmi_dms_activation_state(got.word); }, [] { return std::to_string(got.word); }},
    {"iccid", qmi_dms, 0x3C, "", "01 0200 3839", "89", "", ask_text_of<qmi_dms_iccid>, say_text},
    {"imsi", qmi_dms, 0x43, "", "01 0300 303031", "001", "", ask_text_of<qmi_dms_imsi>, say_text},
    {"uim_state", qmi_dms, 0x44, "", "01 0100 01", "1", "0",
     [] { return qmi_dms_uim_state(got.byte); }, [] { return std::to_string(got.byte); }},
    {"firmware_preference", qmi_dms, 0x47, "",
     "01 2a00 02 00 000102030405060708090a0b0c0d0e0f 02 4657"
     " 01 ffffffffffffffffffffffffffffffff 03 505249",
     "0:000102030405060708090a0b0c0d0e0f:FW 1:ffffffffffffffffffffffffffffffff:PRI ", "",
     [] { return qmi_dms_firmware_preference(got.images); }, say_images},
    {"serving_system", qmi_nas, 0x24, "",
     "01 0600 01 01 01 02 01 08 10 0100 00 11 0300 02 0b 05 12 0700 0601 0200 02 4e6f"
     " 13 0400 2b10 ffff 16 0100 01",
     "1 0 1 0b05 262.2No 4139.65535", "0 - - - - -",
     [] { return qmi_nas_serving_system(got.system); }, say_system},
    {"active_bands", qmi_nas, 0x31, "", "01 0b00 02 08 7a00 0e06 ff 0000 8001",
     "8:122:1550 -1:0:384 ", "", [] { return qmi_nas_active_bands(got.bands); }, say_bands},
    {"system_selection", qmi_nas, 0x34, "",
     "11 0200 1c00 12 0800 8003000000000080 15 0800 4400000000000000 1c 0400 03 080504",
     "28 9223372036854776704 68 080504", "- - - -",
     [] { return qmi_nas_system_selection(got.selection); }, say_selection},
    {"signal_info", qmi_nas, 0x4F, "",
     "10 0300 b0 0f00 11 0800 ae 0900 05 b1ffffff 12 0100 b4 13 0300 b8 0b00"
     " 14 0600 bd f7 9fff 6000",
     "-80/15 -82/9/5/-79 -76 -72/11 -67/-9/-97/96", "- - - - -",
     [] { return qmi_nas_signal_info(got.signal); }, say_signal},
};

static void PrintTo(const question_row &row, std::ostream *out)
{
    *out << row.name;
}

class qmi_questions : public testing::TestWithParam<question_row>
{
protected:
    // A new record for each reading.
    bool read(const octets &tlvs, bool success = true)
    {
        got = {};
        const qmi_question question = GetParam().ask();
        return question.read(tlvs, success, question.answer);
    }

    log_capture log;
};

TEST_P(qmi_questions, read_their_answers_whole)
{
    const question_row &row = GetParam();
    const qmi_question question = row.ask();
    EXPECT_EQ(question.request.service, row.service);
    EXPECT_EQ(question.request.id, row.id);
    EXPECT_EQ(question.request.timeout_ms, 2000);
    EXPECT_EQ(digits_of(question.tlvs), digits_of(octets_of(row.request)));
    octets answer = octets_of(row.answer);
    ASSERT_EQ(tlv_check(answer), 0) << "the table's own mistake";
    EXPECT_TRUE(read(answer));
    EXPECT_EQ(row.say(), row.value);
    const octets unknown = {0xF7, 2, 0, 1, 2};
    answer.insert(answer.begin(), unknown.begin(), unknown.end());
    EXPECT_TRUE(read(answer)) << "beside what nobody knows";
    EXPECT_EQ(row.say(), row.value);
    EXPECT_TRUE(read(answer, false)) << "a failure has nothing of this";
    EXPECT_EQ(row.say(), row.nothing);
}

// Each TLV in turn, cut to each length: it is left out, or the whole answer is unreadable.
TEST_P(qmi_questions, read_nothing_beyond_the_end)
{
    const question_row &row = GetParam();
    const octets answer = octets_of(row.answer);
    std::span<const uint8_t> rest = answer;
    tlv item;
    while (tlv_next(rest, item) == 1) {
        const octets before(answer.data(), item.value.data() - tlv_header_bytes);
        for (size_t length = 0; length < item.value.size(); length++) {
            octets cut = before;
            cut.insert(cut.end(), {item.type, static_cast<uint8_t>(length), 0});
            cut.insert(cut.end(), item.value.begin(),
                       item.value.begin() + static_cast<std::ptrdiff_t>(length));
            cut.insert(cut.end(), rest.begin(), rest.end());
            const bool readable = read(cut);
            EXPECT_NE(row.say(), row.value) << "TLV " << int{item.type} << " of " << length;
            if (!readable) {
                EXPECT_EQ(row.say(), row.nothing);
            }
        }
        octets without = before;
        without.insert(without.end(), rest.begin(), rest.end());
        const bool needed = item.type < tlv_optional_from || (row.id == 0x3E && item.type == 0x15);
        EXPECT_EQ(read(without), !needed) << "without TLV " << int{item.type};
    }
}

INSTANTIATE_TEST_SUITE_P(table, qmi_questions, testing::ValuesIn(question_rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(qmi_ask_all, gives_each_question_its_code_and_record)
{
    setenv("TESSERA_TIME_SCALE", "0.4", 1); // 800 ms, for a busy machine
    const temp_root root;
    const log_capture log;
    fake_qmuxd qmuxd(root);
    uint32_t handle = 0;
    ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    std::string model = "old";
    std::string imsi = "old";
    uint16_t prl = 7;
    uint8_t mode = 7;
    qmuxd.answer(qmi_dms, 0x22, "01 0300 4c5445");
    qmuxd.behave(qmi_dms, 0x43, {qmuxd_reply::error, 37});
    qmuxd.behave(qmi_dms, 0x30, {qmuxd_reply::silence, 0, 2});
    qmuxd.answer(qmi_dms, 0x2D, "01 0000");
    qmi_question questions[] = {qmi_dms_model(model), qmi_dms_imsi(imsi), qmi_dms_prl_version(prl),
                                qmi_dms_operating_mode(mode)};
    qmi_ask_all(handle, questions);
    EXPECT_EQ(questions[0].code, qmi_ok);
    EXPECT_EQ(model, "LTE");
    EXPECT_EQ(questions[1].code, qmi_modem_error + 37);
    EXPECT_EQ(imsi, "old");
    EXPECT_EQ(questions[2].code, qmi_not_sent);
    EXPECT_EQ(prl, 7);
    EXPECT_EQ(questions[3].code, qmi_modem_error);
    EXPECT_EQ(mode, 7) << "what cannot be read changes nothing";
    EXPECT_EQ(log.count("700 DMS Get Operating Mode: something is missing in the answer"), 1);
    EXPECT_EQ(qmi_close(handle), qmi_ok);
}

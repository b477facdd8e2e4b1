// The Gobi modem: what its messages answer, that what one changes the others show, and what a client
// of its socket sees.

#include "sim/bytes.h"
#include "sim/gobi.h"
#include "sim/qmi_faults.h"
#include "sim/report.h"
#include "support/temp_root.h"

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

// TLVs as the journal prints them: "01=0A0B 10=FF".
static std::vector<uint8_t> tlvs_of(const std::string &text)
{
    tlv_writer writer;
    std::istringstream words(text);
    std::string word;
    std::string bytes;
    while (words >> word) {
        EXPECT_EQ(0, bytes_from_hex(word.substr(0, 2), bytes)) << text;
        writer.begin(static_cast<uint8_t>(bytes[0]));
        EXPECT_EQ(0, bytes_from_hex(word.substr(3), bytes)) << text;
        writer.text(bytes);
    }
    EXPECT_EQ(0, writer.end());
    return writer.bytes;
}

static std::string shown(std::span<const uint8_t> tlvs)
{
    std::string text;
    tlv item;
    while (tlv_next(tlvs, item) == 1)
        text += sim_format(" %02X=", item.type) + gobi_hex(item.value);
    return text;
}

static json_ref json_of(const std::string &text)
{
    json_error_t error;
    json_ref value(json_loads(text.c_str(), 0, &error));
    EXPECT_TRUE(value) << text << ": " << error.text;
    return value;
}

// ---- the modem by itself

class gobi : public testing::Test
{
protected:
    void SetUp() override { become("LTE"); }

    void become(const char *kind)
    {
        modem_ = {};
        ASSERT_TRUE(gobi_preset(modem_, kind));
        modem_.power_up = modem_.state;
        modem_.power_up_profiles = modem_.profiles;
    }

    void tell(const std::string &state)
    {
        json_refusal refusal;
        EXPECT_EQ(0, gobi_merge(modem_, json_of(state).get(), refusal))
            << json_refusal_text(refusal);
    }

    std::string refused(const std::string &state)
    {
        json_refusal refusal;
        EXPECT_EQ(-1, gobi_merge(modem_, json_of(state).get(), refusal)) << state;
        return json_refusal_text(refusal);
    }

    // "ok 01=05" or "error 12 10=0209".
    std::string ask(uint8_t service, uint16_t id, const std::string &request = "")
    {
        client_.service = service;
        client_.id = 1;
        const std::vector<uint8_t> tlvs = tlvs_of(request);
        tlv_writer answer;
        const uint16_t error = gobi_execute(modem_, {client_, id, tlvs}, answer);
        EXPECT_EQ(0, answer.end());
        gobi_settle(modem_);
        return (error ? "error " + std::to_string(error) : "ok") + shown(answer.bytes);
    }

    // One TLV of an answer, in hexadecimal.
    std::string ask_for(uint8_t type, uint8_t service, uint16_t id, const std::string &request = "")
    {
        const std::string answer = ask(service, id, request);
        const size_t at = answer.find(sim_format(" %02X=", type));
        if (at == std::string::npos)
            return "none";
        return answer.substr(at + 4, answer.find(' ', at + 4) - at - 4);
    }

    gobi_modem modem_;
    qmi_client client_;
};

static std::string hex(const std::string &text)
{
    return gobi_hex({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

TEST_F(gobi, says_who_it_is)
{
    EXPECT_EQ("ok 01=" + hex("MC7700"), ask(qmi_dms, 0x22));
    EXPECT_EQ("ok 01=80F0FA0200E1F505030203080504", ask(qmi_dms, 0x20));
    EXPECT_EQ(hex("356853050370859"), ask_for(0x11, qmi_dms, 0x25));
    EXPECT_EQ("none", ask_for(0x12, qmi_dms, 0x25));
    become("CDMA");
    EXPECT_EQ("ok 10=" + hex("80A2B3C4") + " 12=" + hex("A1000012345678"), ask(qmi_dms, 0x25));
    EXPECT_EQ("ok 01=ADEE 10=00", ask(qmi_dms, 0x30));
    EXPECT_EQ("error 71", ask(qmi_dms, 0x99));
}

TEST_F(gobi, counts_wrong_pins_until_only_the_puk_helps)
{
    tell(R"({"pin1_enabled":true})");
    const std::string wrong = "01=010400000000", right = "01=010431323334";
    EXPECT_EQ("ok 01=01", ask(qmi_dms, 0x44));
    EXPECT_EQ("error 37", ask(qmi_dms, 0x43));
    EXPECT_EQ("00", ask_for(0x01, qmi_nas, 0x24).substr(0, 2));
    EXPECT_EQ("error 12 10=020A", ask(qmi_dms, 0x28, wrong));
    EXPECT_EQ("error 12 10=010A", ask(qmi_dms, 0x28, wrong));
    EXPECT_EQ("error 35 10=000A", ask(qmi_dms, 0x28, wrong));
    EXPECT_EQ("error 35 10=000A", ask(qmi_dms, 0x28, right));
    EXPECT_EQ("04000A", ask_for(0x11, qmi_dms, 0x2B));
    const std::string new_pin = "0439393939";
    EXPECT_EQ("error 12 10=0009", ask(qmi_dms, 0x29, "01=0108" + hex("00000000") + new_pin));
    EXPECT_EQ("ok", ask(qmi_dms, 0x29, "01=0108" + hex("12345678") + new_pin));
    EXPECT_EQ("02030A", ask_for(0x11, qmi_dms, 0x2B));
    EXPECT_EQ("01", ask_for(0x01, qmi_nas, 0x24).substr(0, 2));
    EXPECT_EQ("9999", modem_.state.pin1);
}

TEST_F(gobi, blocks_the_pin_for_good_when_the_puk_is_used_up)
{
    tell(R"({"pin1_enabled":true,"pin1_retries":0,"puk1_retries":1})");
    const std::string unblock = "01=0108" + hex("00000000") + "0439393939";
    EXPECT_EQ("error 36 10=0000", ask(qmi_dms, 0x29, unblock));
    EXPECT_EQ("050000", ask_for(0x11, qmi_dms, 0x2B));
    EXPECT_EQ("error 36 10=0000", ask(qmi_dms, 0x28, "01=010431323334"));
}

TEST_F(gobi, takes_a_pin_only_as_long_as_pins_are)
{
    tell(R"({"pin1_enabled":true})");
    EXPECT_EQ("error 48 10=030A", ask(qmi_dms, 0x28, "01=0100"));
    EXPECT_EQ("error 48 10=030A", ask(qmi_dms, 0x28, "01=0103313233"));
    EXPECT_EQ("error 19 10=030A", ask(qmi_dms, 0x28, "01=0109" + hex("123456789")));
    EXPECT_EQ("error 1", ask(qmi_dms, 0x28, "01=01083132"));
    EXPECT_EQ("error 11", ask(qmi_dms, 0x28, "01=030431323334"));
    EXPECT_EQ("ok", ask(qmi_dms, 0x27, "01=01000431323334"));
    EXPECT_EQ("03030A", ask_for(0x11, qmi_dms, 0x2B));
    tell(R"({"sim":"absent"})");
    EXPECT_EQ("ok 01=02", ask(qmi_dms, 0x44));
    EXPECT_EQ("error 37", ask(qmi_dms, 0x28, "01=010431323334"));
}

TEST_F(gobi, resets_only_out_of_offline)
{
    EXPECT_EQ("error 60", ask(qmi_dms, 0x2E, "01=04"));
    EXPECT_EQ("ok", ask(qmi_dms, 0x2E, "01=03"));
    EXPECT_EQ("ok 01=03 10=0000 11=00", ask(qmi_dms, 0x2D));
    EXPECT_EQ("error 60", ask(qmi_dms, 0x2E, "01=00"));
    EXPECT_FALSE(modem_.restart);
    EXPECT_EQ("ok", ask(qmi_dms, 0x2E, "01=04"));
    EXPECT_TRUE(modem_.restart);
    gobi_reboot(modem_);
    EXPECT_EQ("ok 01=00 11=00", ask(qmi_dms, 0x2D));
}

// The bytes of public clients.
TEST_F(gobi, reads_what_public_clients_send)
{
    EXPECT_EQ("ok",
              ask(qmi_nas, 0x33, "1E=03080504 15=1810000000000000 12=8003000000000000 11=1C00"));
    EXPECT_EQ("1C00", ask_for(0x11, qmi_nas, 0x34));
    EXPECT_EQ("8003000000000000", ask_for(0x12, qmi_nas, 0x34));
    EXPECT_EQ("1810000000000000", ask_for(0x15, qmi_nas, 0x34));
    EXPECT_EQ("03080504", ask_for(0x1C, qmi_nas, 0x34));
    EXPECT_EQ("ok", ask(qmi_wds, 0x28,
                        "1D=01 1C=70 1B=75 14=696E7465726E6574 11=03 10=70726F66696C65 01=0001"));
    EXPECT_EQ("ok 10=70726F66696C65 14=696E7465726E6574 1B=75 1C=70 11=03 1D=01",
              ask(qmi_wds, 0x2B, "01=0001"));
    EXPECT_EQ("ok", ask(qmi_wds, 0x4B, "01=0001"));
    EXPECT_EQ(hex("profile1"), ask_for(0x10, qmi_wds, 0x2B, "01=0001"));
    EXPECT_EQ("error 81 E0=0500", ask(qmi_wds, 0x2B, "01=0009"));
}

TEST_F(gobi, is_served_by_what_it_prefers_and_what_is_there)
{
    EXPECT_EQ("010101020108", ask_for(0x01, qmi_nas, 0x24));
    EXPECT_EQ("ok 14=BDF79FFF6000", ask(qmi_nas, 0x4F));
    EXPECT_EQ("01087A000E06", ask_for(0x01, qmi_nas, 0x31));
    EXPECT_EQ("ok", ask(qmi_nas, 0x33, "11=0C00"));
    EXPECT_EQ("010101020105", ask_for(0x01, qmi_nas, 0x24));
    EXPECT_EQ("ok 13=B80B00", ask(qmi_nas, 0x4F));
    EXPECT_EQ("ok", ask(qmi_nas, 0x33, "11=1C00 1E=020405"));
    EXPECT_EQ("010101020104", ask_for(0x01, qmi_nas, 0x24));
    EXPECT_EQ("ok", ask(qmi_nas, 0x33, "1E=0108 15=0100000000000000"));
    EXPECT_EQ("010101020105", ask_for(0x01, qmi_nas, 0x24)) << "LTE is not in the band it is on";
    tell(R"({"coverage":""})");
    EXPECT_EQ("ok 01=020202000100", ask(qmi_nas, 0x24));
    become("CDMA");
    EXPECT_EQ("01010101020201", ask_for(0x01, qmi_nas, 0x24));
    EXPECT_EQ("2B10FFFF", ask_for(0x13, qmi_nas, 0x24));
    EXPECT_EQ("ok 11=AE090005B1FFFFFF 10=B00F00", ask(qmi_nas, 0x4F));
}

struct registration_case {
    const char *state;
    const char *answer;
};

TEST_F(gobi, registers_as_the_network_lets_it)
{
    static constexpr registration_case cases[] = {
        {R"({"registration":"none"})", "00"},         {R"({"registration":"home"})", "01"},
        {R"({"registration":"roaming"})", "01"},      {R"({"registration":"searching"})", "02"},
        {R"({"registration":"denied"})", "03"},       {R"({"registration":"unknown"})", "04"},
        {R"({"registration_raw":8})", "08"},          {R"({"registration_raw":-1,"mode":1})", "00"},
        {R"({"registration":"home","mode":0})", "01"}};
    for (const registration_case &one : cases) {
        tell(one.state);
        EXPECT_EQ(one.answer, ask_for(0x01, qmi_nas, 0x24).substr(0, 2)) << one.state;
    }
    EXPECT_EQ("01", ask_for(0x10, qmi_nas, 0x24));
    tell(R"({"registration":"roaming"})");
    EXPECT_EQ("00", ask_for(0x10, qmi_nas, 0x24));
}

TEST_F(gobi, has_a_session_from_start_to_stop)
{
    EXPECT_EQ("error 15", ask(qmi_wds, 0x2D));
    EXPECT_EQ("error 15 10=FF", ask(qmi_wds, 0x37));
    EXPECT_EQ("error 26", ask(qmi_wds, 0x21, "01=01000010"));
    EXPECT_EQ("ok 01=01000010", ask(qmi_wds, 0x20, "19=04 18=70 17=75 16=03 14=696E7465726E6574"));
    EXPECT_EQ("ok 01=02", ask(qmi_wds, 0x22));
    EXPECT_EQ("ok 01=0A", ask(qmi_wds, 0x37));
    EXPECT_EQ("error 26", ask(qmi_wds, 0x20));
    EXPECT_EQ("ok 1E=0200400A 20=0100400A 21=F8FFFFFF", ask(qmi_wds, 0x2D, "10=00030000"));
    EXPECT_EQ("error 9", ask(qmi_wds, 0x21, "01=02000010"));
    EXPECT_EQ("ok", ask(qmi_wds, 0x21, "01=01000010"));
    EXPECT_EQ("ok 01=01", ask(qmi_wds, 0x22));
    EXPECT_EQ("error 15 10=0A", ask(qmi_wds, 0x37));
}

TEST_F(gobi, gives_both_addresses_to_a_session_of_both_kinds)
{
    EXPECT_EQ("ok 01=01000010", ask(qmi_wds, 0x20, "31=01"));
    EXPECT_EQ("0200400A", ask_for(0x1E, qmi_wds, 0x2D));
    EXPECT_EQ("20010DB800000000000000000000000240", ask_for(0x25, qmi_wds, 0x2D));
    EXPECT_EQ("20010DB800000000000000000000000140", ask_for(0x26, qmi_wds, 0x2D));
    client_.ip_family = 6;
    EXPECT_EQ("none", ask_for(0x1E, qmi_wds, 0x2D));
}

TEST_F(gobi, says_why_a_call_fails)
{
    struct failure {
        const char *state;
        const char *request;
        const char *answer;
    };
    static constexpr failure failures[] = {
        {R"({"mode":1})", "", "error 14 10=0300 11=0300D107"},
        {R"({"mode":0,"accept_apn":"private"})", "14=61", "error 14 10=F503 11=06001B00"},
        {R"({"accept_apn":"","accept_user":"u","accept_password":"p"})", "16=01 17=75 18=71",
         "error 14 10=0A00 11=06001D00"},
        {R"({"accept_user":"","network_ip":"ipv6"})", "19=04", "error 14 10=F603 11=06001C00"},
        {R"({"call_end_reason":1005})", "", "error 14 10=ED03"},
        {R"({"call_end_reason":0})", "31=09", "error 10"},
    };
    for (const failure &one : failures) {
        tell(one.state);
        EXPECT_EQ(one.answer, ask(qmi_wds, 0x20, one.request)) << one.state;
    }
    EXPECT_EQ("ok 01=01", ask(qmi_wds, 0x22));
}

TEST_F(gobi, loses_the_session_with_the_network)
{
    EXPECT_EQ("ok 01=01000010", ask(qmi_wds, 0x20));
    EXPECT_EQ("ok", ask(qmi_dms, 0x2E, "01=01"));
    EXPECT_EQ("ok 01=01", ask(qmi_wds, 0x22));
    EXPECT_EQ(3, modem_.end_reason);
    EXPECT_EQ("ok", ask(qmi_dms, 0x2E, "01=00"));
    tell(R"({"session":true})");
    EXPECT_EQ("ok 01=02", ask(qmi_wds, 0x22));
    tell(R"({"session":false})");
    EXPECT_EQ(1003, modem_.end_reason);
}

TEST_F(gobi, switches_positions_on_and_off)
{
    EXPECT_EQ("error 69", ask(qmi_pds, 0x21, "01=00"));
    EXPECT_EQ("ok", ask(qmi_pds, 0x21, "01=01"));
    EXPECT_EQ("ok", ask(qmi_pds, 0x31, "01=01"));
    EXPECT_EQ("ok 01=0102", ask(qmi_pds, 0x20));
    EXPECT_EQ("ok", ask(qmi_pds, 0x21, "01=00"));
    EXPECT_EQ("ok", ask(qmi_pds, 0x31, "01=00"));
    EXPECT_EQ("ok 01=0001", ask(qmi_pds, 0x20));
}

TEST_F(gobi, keeps_messages_in_two_storages)
{
    tell(R"({"messages":[{"pdu":"0102"},{"pdu":"03","storage":"NV","tag":"read"},
                         {"pdu":"04","mode":"cdma"},{"pdu":"05","index":7}]})");
    const std::string gsm = "12=01 11=01 ";
    EXPECT_EQ("ok 01=02000000000000000107000000"
              "01",
              ask(qmi_wms, 0x31, gsm + "01=00"));
    EXPECT_EQ("ok 01=010000000100000001", ask(qmi_wms, 0x31, "11=00 01=00")) << "mode in 0x11";
    EXPECT_EQ("ok 01=010000000000000000", ask(qmi_wms, 0x31, "01=01"));
    EXPECT_EQ("ok 01=010602000102", ask(qmi_wms, 0x22, "10=01 01=0000000000"));
    EXPECT_EQ("ok 01=0100010004", ask(qmi_wms, 0x22, "10=00 01=0001000000"));
    EXPECT_EQ("error 50", ask(qmi_wms, 0x22, "10=01 01=0001000000"));
    EXPECT_EQ("ok", ask(qmi_wms, 0x23, "01=000700000000"));
    EXPECT_EQ("ok", ask(qmi_wms, 0x24, "12=01 10=00000000 01=00"));
    EXPECT_EQ("error 50", ask(qmi_wms, 0x24, "12=01 10=00000000 01=00"));
    EXPECT_EQ("ok 01=010000000700000000", ask(qmi_wms, 0x31, "12=01 01=00"));
    EXPECT_EQ("ok 01=00000000", ask(qmi_wms, 0x21, "01=00060100FF"));
    tell(R"({"uim_slots":3})");
    EXPECT_EQ("ok 01=02000000", ask(qmi_wms, 0x21, "01=00060100FF"));
    EXPECT_EQ("error 51", ask(qmi_wms, 0x21, "01=00060100FF"));
    tell(R"({"sim":"absent"})");
    EXPECT_EQ("error 52", ask(qmi_wms, 0x31, "01=00"));
    EXPECT_EQ("error 48", ask(qmi_wms, 0x31, "01=02"));
}

TEST_F(gobi, sends_only_what_the_network_would_take)
{
    // "hello" to +12345.
    const std::string good = "01=06"
                             "1000"
                             "0001000591214"
                             "3F5"
                             "000005E8329BFD06";
    EXPECT_EQ("ok 01=0100", ask(qmi_wms, 0x20, good));
    ASSERT_EQ(1U, modem_.sent.size());
    EXPECT_EQ("+12345", modem_.sent[0].from);
    EXPECT_EQ("hello", modem_.sent[0].text);
    EXPECT_EQ("error 58", ask(qmi_wms, 0x20, "01=0602000001"));
    EXPECT_EQ("error 1", ask(qmi_wms, 0x20, "01=06050000"));
    tell(R"({"send_error":54,"send_rp_cause":41,"send_tp_cause":7})");
    EXPECT_EQ("error 54 12=290007", ask(qmi_wms, 0x20, good));
    tell(R"({"send_error":0,"registration":"denied"})");
    EXPECT_EQ("error 53", ask(qmi_wms, 0x20, good));
    EXPECT_EQ(1U, modem_.sent.size());
}

TEST_F(gobi, refuses_states_that_it_cannot_have)
{
    EXPECT_NE(std::string::npos, refused(R"({"modem":"5G"})").find("modem"));
    EXPECT_NE(std::string::npos, refused(R"({"coverage":"lte,wimax"})").find("coverage"));
    EXPECT_NE(std::string::npos, refused(R"({"acquisition_order":"8,,5"})").find("acquisition"));
    EXPECT_NE(std::string::npos, refused(R"({"ipv4":"10.0.0"})").find("ipv4"));
    EXPECT_EQ("messages[1].pdu: must be pairs of hexadecimal digits",
              refused(R"({"mode":1,"messages":[{"pdu":"00"},{"pdu":"0"}]})"));
    EXPECT_NE(std::string::npos, refused(R"({"profiles":[{"index":1,"x":1}]})").find("[0].x"));
    EXPECT_EQ(0, modem_.state.mode) << "what is refused changes nothing";
    EXPECT_TRUE(modem_.messages.empty());
    tell(R"({"modem":"CDMA","model":"own"})");
    EXPECT_EQ("cdma,evdo", std::string(modem_.state.radios));
    EXPECT_EQ("own", modem_.state.model);
}

// Whatever the values are, an answer comes that fits its lengths.
TEST_F(gobi, survives_any_value_of_any_length)
{
    tell(R"({"messages":[{"pdu":"0102"}],"session":true})");
    for (const uint8_t service : {qmi_wds, qmi_dms, qmi_nas, qmi_wms, qmi_pds}) {
        client_.service = service;
        for (uint16_t id = 0; id < 0x80; id++) {
            const gobi_row *row = gobi_find(service, id);
            if (!row)
                continue;
            for (size_t bytes = row->info.mandatory_bytes; bytes < 300; bytes += 1 + bytes / 3)
                for (const int fill : {0x00, 0x01, 0xFF}) {
                    const std::vector<uint8_t> value(bytes, static_cast<uint8_t>(fill));
                    tlv_writer request;
                    tlv_writer answer;
                    for (uint8_t type = 0x01; type < 0x26; type++) {
                        request.begin(type);
                        request.octets(value);
                    }
                    ASSERT_EQ(0, request.end());
                    (void)gobi_execute(modem_, {client_, id, request.bytes}, answer);
                    EXPECT_EQ(0, answer.end()) << row->info.name;
                }
        }
    }
}

// ---- spoilt frames

struct spoilt_case {
    const char *fault;
    std::optional<int64_t> tlv;
    const char *becomes;
};

// An answer of DMS with the result, 01=4C54 and 10=05.
static const char good_frame[] = "011D0080020102020022001100020400000000000102004C541002000506";

class spoilt : public testing::TestWithParam<spoilt_case>
{
};

TEST_P(spoilt, frames_differ_in_one_thing)
{
    const std::vector<uint8_t> frame = gobi_octets(good_frame);
    const std::string bytes(frame.begin(), frame.end());
    EXPECT_EQ(GetParam().becomes, hex(qmi_spoil(GetParam().fault, GetParam().tlv, bytes)));
}

INSTANTIATE_TEST_SUITE_P(
    all, spoilt,
    testing::Values(
        spoilt_case{"wrong_transaction",
                    {},
                    "011D0080020102030022001100020400000000000102004C541002000506"},
        spoilt_case{
            "wrong_client", {}, "011D0080020202020022001100020400000000000102004C541002000506"},
        spoilt_case{
            "wrong_message", {}, "011D0080020102020023001100020400000000000102004C541002000506"},
        spoilt_case{
            "tlv_overrun", {}, "011D008002010202002200110002040000000000011E004C541002000506"},
        spoilt_case{"tlv_short", 0x10,
                    "011C0080020102020022001000020400000000000102004C5410010005"},
        spoilt_case{"tlv_missing", {}, "01180080020102020022000C00020400000000001002000506"},
        spoilt_case{"tlv_missing", 0x02, "01160080020102020022000A000102004C541002000506"},
        spoilt_case{"tlv_missing", 0x77,
                    "011D0080020102020022001100020400000000000102004C541002000506"},
        spoilt_case{"double", {}, "011D0080020102020022001100020400000000000102004C541002000506"}));

// ---- the socket

// A client that says what it gets in the words of the journal.
class qmi_peer
{
public:
    explicit qmi_peer(const std::string &path)
    {
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path.c_str(), path.size());
        fd_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        connected_ =
            connect(fd_.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
    }

    [[nodiscard]] bool connected() const { return connected_; }

    void send_bytes(const std::vector<uint8_t> &bytes)
    {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    static std::vector<uint8_t> frame(uint8_t service, uint8_t client, uint16_t transaction,
                                      uint16_t id, const std::string &tlvs)
    {
        const std::vector<uint8_t> body = tlvs_of(tlvs);
        qmux_message message;
        message.service = service;
        message.client_id = client;
        message.transaction = transaction;
        message.id = id;
        message.tlvs = body;
        std::vector<uint8_t> bytes;
        EXPECT_EQ(0, qmux_encode(message, bytes));
        return bytes;
    }

    void request(uint8_t service, uint8_t client, uint16_t transaction, uint16_t id,
                 const std::string &tlvs = "")
    {
        send_bytes(frame(service, client, transaction, id, tlvs));
    }

    // "response 2/1 3 0022 02=00000000 01=.."; "end" when the line is closed.
    std::string next()
    {
        std::vector<uint8_t> head = read_bytes(qmux_header_bytes);
        size_t size = 0;
        if (head.size() < qmux_header_bytes)
            return head.empty() ? "end" : "end after " + std::to_string(head.size());
        EXPECT_EQ(0, qmux_frame_size(head, size));
        const std::vector<uint8_t> rest = read_bytes(size - head.size());
        head.insert(head.end(), rest.begin(), rest.end());
        if (head.size() < size)
            return "end after " + std::to_string(head.size());
        qmux_message message;
        if (qmux_decode(head, message) != 0 || tlv_check(message.tlvs) != 0)
            return "malformed";
        EXPECT_TRUE(message.from_modem);
        return sim_format("%s %u/%u %u %04X",
                          message.kind == qmux_response ? "response" : "indication",
                          message.service, message.client_id, message.transaction, message.id) +
               shown(message.tlvs);
    }

    // The client id that a service gives.
    std::string allocate(uint8_t service)
    {
        request(qmi_ctl, 0, 1, 0x22, sim_format("01=%02X", service));
        return next();
    }

private:
    std::vector<uint8_t> read_bytes(size_t count)
    {
        std::vector<uint8_t> bytes(count);
        size_t got = 0;
        while (got < count) {
            struct pollfd polled = {fd_.get(), POLLIN, 0};
            if (poll(&polled, 1, 10000) != 1) {
                ADD_FAILURE() << "nothing came";
                break;
            }
            const ssize_t length = recv(fd_.get(), bytes.data() + got, count - got, 0);
            if (length <= 0)
                break;
            got += static_cast<size_t>(length);
        }
        bytes.resize(got);
        return bytes;
    }

    unique_fd fd_;
    bool connected_ = false;
};

// A served modem; what a test does to it happens on the thread that serves it.
class gobi_socket : public testing::Test
{
protected:
    void SetUp() override
    {
        json_refusal refusal;
        std::string reason;
        services_.root = root_.path();
        for (const char *directory : {"/var", "/var/run", "/var/run/.modem"})
            mkdir((services_.root + directory).c_str(), 0755);
        // Twice another kind of modem is a fresh one.
        ASSERT_EQ(0, gobi_family.merge_state(json_of(R"({"modem":"UMTS"})").get(), refusal));
        ASSERT_EQ(0, gobi_family.merge_state(json_of(R"({"modem":"LTE"})").get(), refusal));
        ASSERT_EQ(0, gobi_family.start(services_, reason)) << reason;
        services_.faults.set_alone(gobi_family.act);
        int ends[2];
        ASSERT_EQ(0, pipe(ends));
        wake_read_.reset(ends[0]);
        wake_write_.reset(ends[1]);
        services_.loop.watch(wake_read_.get(), POLLIN, [this](short) { run_action(); });
        thread_ = std::thread([this] { services_.loop.run(); });
    }

    void TearDown() override
    {
        in_loop([this] { services_.loop.stop(); });
        thread_.join();
        gobi_family.stop();
    }

    void in_loop(std::function<void()> action)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        action_ = std::move(action);
        EXPECT_EQ(1, write(wake_write_.get(), "x", 1));
        done_.wait(lock, [this] { return !action_; });
    }

    void tell(const std::string &state)
    {
        in_loop([&] {
            json_refusal refusal;
            EXPECT_EQ(0, gobi_family.merge_state(json_of(state).get(), refusal))
                << json_refusal_text(refusal);
        });
    }

    void add_fault(const std::string &row)
    {
        fault f;
        json_refusal refusal;
        ASSERT_EQ(0, fault_parse(json_of(row).get(), f, refusal)) << json_refusal_text(refusal);
        in_loop([&] { services_.faults.add({f}); });
    }

    int64_t state_number(const char *key)
    {
        int64_t number = -1;
        in_loop([&] {
            number = json_integer_value(json_object_get(gobi_family.dump_state().get(), key));
        });
        return number;
    }

    [[nodiscard]] std::string path() const { return services_.root + "/var/qmux_connect_socket"; }

private:
    void run_action()
    {
        char byte = 0;
        EXPECT_EQ(1, read(wake_read_.get(), &byte, 1));
        const std::lock_guard<std::mutex> lock(mutex_);
        action_();
        action_ = nullptr;
        done_.notify_one();
    }

    temp_root root_;
    sim_services services_;
    unique_fd wake_read_, wake_write_;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable done_;
    std::function<void()> action_;
};

TEST_F(gobi_socket, gives_client_ids_and_takes_them_back)
{
    qmi_peer peer(path());
    EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0201", peer.allocate(qmi_dms));
    EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0202", peer.allocate(qmi_dms));
    EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0301", peer.allocate(qmi_nas));
    EXPECT_EQ("response 0/0 1 0022 02=01001F00", peer.allocate(99));
    peer.request(qmi_ctl, 0, 2, 0x23, "01=0201");
    EXPECT_EQ("response 0/0 2 0023 02=00000000 01=0201", peer.next());
    peer.request(qmi_ctl, 0, 3, 0x23, "01=0201");
    EXPECT_EQ("response 0/0 3 0023 02=01000700", peer.next());
    peer.request(qmi_dms, 1, 4, 0x22);
    EXPECT_EQ("response 2/1 4 0022 02=01000700", peer.next());
    tell(R"({"client_ids":1})");
    EXPECT_EQ("response 0/0 1 0022 02=01000500", peer.allocate(qmi_nas));
    peer.request(qmi_ctl, 0, 5, 0x27);
    EXPECT_EQ("response 0/0 5 0027 02=00000000", peer.next());
    EXPECT_EQ(0, state_number("clients"));
}

TEST_F(gobi_socket, checks_requests_before_the_modem_sees_them)
{
    qmi_peer peer(path());
    peer.allocate(qmi_dms);
    peer.request(qmi_dms, 1, 1, 0x99);
    EXPECT_EQ("response 2/1 1 0099 02=01004700", peer.next());
    peer.request(qmi_dms, 1, 2, 0x28);
    EXPECT_EQ("response 2/1 2 0028 02=01001100", peer.next());
    peer.request(qmi_dms, 1, 3, 0x28, "01=01");
    EXPECT_EQ("response 2/1 3 0028 02=01000100", peer.next());
    peer.request(qmi_ctl, 0, 4, 0xFF00, "01=2F");
    EXPECT_EQ("response 0/0 4 FF00 02=01004700", peer.next()) << "this is not the proxy";
}

TEST_F(gobi_socket, finds_frames_however_they_arrive)
{
    qmi_peer peer(path());
    peer.allocate(qmi_dms);
    const std::vector<uint8_t> model = qmi_peer::frame(qmi_dms, 1, 2, 0x22, "");
    for (const uint8_t byte : model)
        peer.send_bytes({byte});
    EXPECT_EQ("response 2/1 2 0022 02=00000000 01=" + hex("MC7700"), peer.next());
    std::vector<uint8_t> two = model;
    two.insert(two.end(), model.begin(), model.end());
    peer.send_bytes(two);
    EXPECT_EQ(peer.next(), peer.next());
    std::vector<uint8_t> wrong = model;
    wrong[11] = 9; // TLVs that are not there
    peer.send_bytes(wrong);
    peer.request(qmi_dms, 1, 3, 0x2D);
    EXPECT_EQ("response 2/1 3 002D 02=00000000 01=00 11=00", peer.next());
    peer.send_bytes({0x02});
    EXPECT_EQ("end", peer.next());
}

TEST_F(gobi_socket, serves_several_clients_and_cleans_up_behind_each)
{
    qmi_peer first(path());
    {
        qmi_peer second(path());
        first.allocate(qmi_dms);
        EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0202", second.allocate(qmi_dms));
        second.request(qmi_dms, 2, 1, 0x2E, "01=01");
        EXPECT_EQ("response 2/2 1 002E 02=00000000", second.next());
        EXPECT_EQ(2, state_number("clients"));
    }
    first.request(qmi_dms, 1, 1, 0x2D);
    EXPECT_EQ("response 2/1 1 002D 02=00000000 01=01 11=00", first.next());
    while (state_number("clients") != 1)
        std::this_thread::yield();
}

TEST_F(gobi_socket, tells_what_another_client_has_changed)
{
    qmi_peer watcher(path());
    qmi_peer other(path());
    watcher.allocate(qmi_nas);
    watcher.allocate(qmi_wds);
    watcher.allocate(qmi_dms);
    watcher.request(qmi_dms, 1, 9, 0x01, "14=01");
    EXPECT_EQ("response 2/1 9 0001 02=00000000", watcher.next());
    other.allocate(qmi_wds);
    other.request(qmi_wds, 2, 5, 0x20, "19=04");
    EXPECT_EQ("response 1/2 5 0020 02=00000000 01=01000010", other.next());
    EXPECT_EQ("indication 1/2 0 0022 01=0200 12=04", other.next());
    EXPECT_EQ("indication 1/1 0 0022 01=0200 12=04", watcher.next());
    tell(R"({"mode":1})");
    EXPECT_EQ("indication 3/255 0 0024 01=000202000100", watcher.next());
    EXPECT_EQ("indication 1/1 0 0022 01=0100 10=0300", watcher.next());
    EXPECT_EQ("indication 2/1 0 0001 14=01", watcher.next());
}

TEST_F(gobi_socket, ends_a_session_with_the_client_that_started_it)
{
    qmi_peer watcher(path());
    qmi_peer other(path());
    watcher.allocate(qmi_wds);
    other.allocate(qmi_wds);
    other.request(qmi_wds, 2, 5, 0x20);
    other.next();
    EXPECT_EQ("indication 1/1 0 0022 01=0200 12=04", watcher.next());
    other.request(qmi_ctl, 0, 6, 0x23, "01=0102");
    EXPECT_EQ("indication 1/1 0 0022 01=0100 10=0200", watcher.next());
}

TEST_F(gobi_socket, announces_messages_that_arrive)
{
    qmi_peer peer(path());
    peer.allocate(qmi_wms);
    peer.request(qmi_wms, 1, 2, 0x01, "10=01");
    peer.next();
    tell(R"({"deliver":[{"from":"+12345","text":"hello"}]})");
    EXPECT_EQ("indication 5/1 0 0001 10=0000000000 12=01", peer.next());
    peer.request(qmi_wms, 1, 3, 0x22, "01=0000000000");
    const std::string read = peer.next();
    EXPECT_EQ(0U, read.find("response 5/1 3 0022 02=00000000 01=0106")) << read;
    EXPECT_NE(std::string::npos, read.find("E8329BFD06")) << read;
    peer.request(qmi_wms, 1, 4, 0x32, "01=01000004FF02"); // from now on they pass through
    peer.next();
    tell(R"({"deliver":[{"pdu":"01020304"}]})");
    EXPECT_EQ("indication 5/1 0 0001 11=0101000000060200"
              "0304",
              peer.next());
}

TEST_F(gobi_socket, overtakes_a_slow_start_unless_it_works_in_series)
{
    qmi_peer peer(path());
    peer.allocate(qmi_wds);
    tell(R"({"connect_ms":50})");
    peer.request(qmi_wds, 1, 1, 0x20);
    peer.request(qmi_wds, 1, 2, 0x34);
    EXPECT_EQ("response 1/1 2 0034 02=00000000 01=00 10=00", peer.next());
    EXPECT_EQ("response 1/1 1 0020 02=00000000 01=01000010", peer.next());
    EXPECT_EQ("indication 1/1 0 0022 01=0200 12=04", peer.next());
    tell(R"({"session":false,"in_series":true})");
    EXPECT_EQ("indication 1/1 0 0022 01=0100 10=EB03", peer.next());
    peer.request(qmi_wds, 1, 3, 0x20);
    peer.request(qmi_wds, 1, 4, 0x34);
    EXPECT_EQ("response 1/1 3 0020 02=00000000 01=02000010", peer.next());
    peer.next();
    EXPECT_EQ("response 1/1 4 0034 02=00000000 01=00 10=00", peer.next());
}

TEST_F(gobi_socket, abandons_a_start_and_refuses_more_than_it_can_do)
{
    qmi_peer peer(path());
    peer.allocate(qmi_wds);
    tell(R"({"connect_ms":3600000,"under_way_max":1})");
    peer.request(qmi_wds, 1, 1, 0x20);
    peer.request(qmi_wds, 1, 2, 0x22);
    EXPECT_EQ("response 1/1 2 0022 02=01001700", peer.next());
    tell(R"({"drops_surplus":true})");
    peer.request(qmi_wds, 1, 5, 0x22);
    peer.allocate(qmi_dms); // has an answer, the one before it has none
    tell(R"({"under_way_max":0})");
    peer.request(qmi_wds, 1, 3, 0x02, "01=0100");
    EXPECT_EQ("response 1/1 1 0020 02=01000400", peer.next());
    EXPECT_EQ("response 1/1 3 0002 02=00000000", peer.next());
    peer.request(qmi_wds, 1, 4, 0x02, "01=0100");
    EXPECT_EQ("response 1/1 4 0002 02=01001600", peer.next());
}

TEST_F(gobi_socket, resets_and_forgets_its_clients)
{
    qmi_peer peer(path());
    peer.allocate(qmi_dms);
    peer.request(qmi_dms, 1, 1, 0x2E, "01=03");
    peer.next();
    peer.request(qmi_dms, 1, 2, 0x2E, "01=04");
    EXPECT_EQ("response 2/1 2 002E 02=00000000", peer.next());
    EXPECT_EQ("indication 0/0 0 0027", peer.next());
    peer.request(qmi_dms, 1, 3, 0x2D);
    EXPECT_EQ("response 2/1 3 002D 02=01000700", peer.next());
    peer.allocate(qmi_dms);
    peer.request(qmi_dms, 1, 4, 0x2D);
    EXPECT_EQ("response 2/1 4 002D 02=00000000 01=00 11=00", peer.next());
}

TEST_F(gobi_socket, plays_faults_by_number_or_name)
{
    qmi_peer peer(path());
    peer.allocate(qmi_dms);
    add_fault(R"({"match":"DMS 0x002D","do":"error","text":"52"})");
    add_fault(R"({"match":"Get model","do":"wrong_transaction"})");
    add_fault(R"({"match":"DMS Get model","do":"tlv_overrun"})");
    add_fault(R"({"match":"DMS 0x002E Set operating mode: 01=01","do":"error","text":"3 10=AB"})");
    add_fault(R"({"match":"CTL 0x0022","do":"error","text":"5"})");
    add_fault(R"({"match":"Get manu","do":"unsolicited","text":"NAS 0x0024 01=0000"})");
    peer.request(qmi_dms, 1, 1, 0x2D);
    EXPECT_EQ("response 2/1 1 002D 02=01003400", peer.next());
    peer.request(qmi_dms, 1, 2, 0x22);
    EXPECT_EQ(0U, peer.next().find("response 2/1 3 0022"));
    peer.request(qmi_dms, 1, 3, 0x22);
    EXPECT_EQ("malformed", peer.next());
    peer.request(qmi_dms, 1, 4, 0x2E, "01=01");
    EXPECT_EQ("response 2/1 4 002E 02=01000300 10=AB", peer.next());
    EXPECT_EQ(0, state_number("mode"));
    EXPECT_EQ("response 0/0 1 0022 02=01000500", peer.allocate(qmi_nas));
    peer.request(qmi_dms, 1, 5, 0x21);
    EXPECT_EQ("indication 3/255 0 0024 01=0000", peer.next());
    EXPECT_EQ(0U, peer.next().find("response 2/1 5 0021 02=00000000"));
}

TEST_F(gobi_socket, answers_out_of_order)
{
    qmi_peer peer(path());
    peer.allocate(qmi_dms);
    add_fault(R"({"match":"DMS 0x0022","do":"out_of_order"})");
    peer.request(qmi_dms, 1, 1, 0x22);
    peer.request(qmi_dms, 1, 2, 0x2D);
    EXPECT_EQ("response 2/1 2 002D 02=00000000 01=00 11=00", peer.next());
    EXPECT_EQ("response 2/1 1 0022 02=00000000 01=" + hex("MC7700"), peer.next());
}

TEST_F(gobi_socket, breaks_between_header_and_body_and_comes_back)
{
    qmi_peer peer(path());
    peer.allocate(qmi_dms);
    add_fault(R"({"match":"DMS 0x0022","do":"hangup","bytes":6,"return_ms":1,"reboot":true})");
    peer.request(qmi_dms, 1, 1, 0x22);
    EXPECT_EQ("end after 6", peer.next());
    for (int i = 0; i < 10000; i++) {
        qmi_peer again(path());
        if (again.connected()) {
            EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0201", again.allocate(qmi_dms));
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    FAIL() << "it did not come back";
}

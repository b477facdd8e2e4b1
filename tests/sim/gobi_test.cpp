// The Gobi modem: what its messages answer, that what one changes the others show, and what a client
// of its socket sees.

#include "sim/bytes.h"
#include "sim/gobi.h"
#include "sim/qmi_faults.h"
#include "sim/report.h"
#include "support/appliance.h"
#include "support/sim_state.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>

#include <sys/socket.h>
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

// ---- the modem by itself

class gobi : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(gobi_preset(modem_, "LTE")); }

    std::string merge(const std::string &state) { return merge_text(gobi_merge, modem_, state); }
    void tell(const std::string &state) { EXPECT_EQ("", merge(state)); }

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

TEST_F(gobi, counts_wrong_pins_until_only_the_puk_helps)
{
    tell(R"({"pin1_enabled":true})");
    const std::string wrong = "01=010400000000", right = "01=010431323334";
    EXPECT_EQ("error 37", ask(qmi_dms, 0x43));
    EXPECT_EQ("error 12 10=020A", ask(qmi_dms, 0x28, wrong));
    EXPECT_EQ("error 12 10=010A", ask(qmi_dms, 0x28, wrong));
    EXPECT_EQ("error 35 10=000A", ask(qmi_dms, 0x28, wrong));
    EXPECT_EQ("error 35 10=000A", ask(qmi_dms, 0x28, right));
    EXPECT_EQ("04000A", ask_for(0x11, qmi_dms, 0x2B));
    const std::string new_pin = "0439393939", wrong_puk = "01=0108" + hex("00000000") + new_pin;
    EXPECT_EQ("error 12 10=0009", ask(qmi_dms, 0x29, wrong_puk));
    EXPECT_EQ("ok", ask(qmi_dms, 0x29, "01=0108" + hex("12345678") + new_pin));
    EXPECT_EQ("02030A", ask_for(0x11, qmi_dms, 0x2B));
    EXPECT_EQ("9999", modem_.state.pin1);

    tell(R"({"pin1_retries":0,"puk1_retries":1})");
    EXPECT_EQ("error 36 10=0000", ask(qmi_dms, 0x29, wrong_puk)) << "for good";
    EXPECT_EQ("050000", ask_for(0x11, qmi_dms, 0x2B));
    EXPECT_EQ("error 36 10=0000", ask(qmi_dms, 0x28, right));
}

TEST_F(gobi, takes_a_pin_only_as_long_as_pins_are)
{
    tell(R"({"pin1_enabled":true})");
    EXPECT_EQ("error 48 10=030A", ask(qmi_dms, 0x28, "01=0100"));
    EXPECT_EQ("error 48 10=030A", ask(qmi_dms, 0x28, "01=0103313233"));
    EXPECT_EQ("error 19 10=030A", ask(qmi_dms, 0x28, "01=0109" + hex("123456789")));
    EXPECT_EQ("error 1", ask(qmi_dms, 0x28, "01=01083132"));
    EXPECT_EQ("error 11", ask(qmi_dms, 0x28, "01=030431323334"));
    tell(R"({"sim":"absent"})");
    EXPECT_EQ("error 37", ask(qmi_dms, 0x28, "01=010431323334"));
}

TEST_F(gobi, refuses_what_cannot_be_from_where_it_is)
{
    EXPECT_EQ("error 60", ask(qmi_dms, 0x2E, "01=04")) << "a reset that is not out of offline";
    EXPECT_EQ("ok", ask(qmi_dms, 0x2E, "01=03"));
    EXPECT_EQ("error 60", ask(qmi_dms, 0x2E, "01=00")) << "offline is left by a reset only";
    EXPECT_EQ("error 69", ask(qmi_pds, 0x21, "01=00")) << "positions are off already";
    EXPECT_EQ("error 81 E0=0500", ask(qmi_wds, 0x2B, "01=0009")) << "no such profile";
}

TEST_F(gobi, is_served_by_what_it_prefers_and_what_is_there)
{
    EXPECT_EQ("010101020108", ask_for(0x01, qmi_nas, 0x24));
    const struct {
        const char *preference, *serving;
    } rows[] = {
        {"11=0C00", "010101020105"},
        {"11=1C00 1E=020405", "010101020104"},
        {"1E=0108 15=0100000000000000", "010101020105"}, // LTE is not in the band it is on
    };
    for (const auto &[preference, serving] : rows) {
        EXPECT_EQ("ok", ask(qmi_nas, 0x33, preference));
        EXPECT_EQ(serving, ask_for(0x01, qmi_nas, 0x24)) << preference;
    }
    tell(R"({"coverage":""})");
    EXPECT_EQ("ok 01=020202000100", ask(qmi_nas, 0x24));
}

TEST_F(gobi, registers_as_the_network_lets_it)
{
    const struct {
        const char *state, *registration;
    } rows[] = {
        {R"({"registration":"none"})", "00"},
        {R"({"registration":"searching"})", "02"},
        {R"({"registration":"denied"})", "03"},
        {R"({"registration":"unknown"})", "04"},
        {R"({"registration_raw":8})", "08"},
        {R"({"registration_raw":-1,"mode":1})", "00"},
        {R"({"registration":"home","mode":0})", "01"},
        {R"({"registration":"roaming"})", "01"},
    };
    for (const auto &[state, registration] : rows) {
        tell(state);
        EXPECT_EQ(registration, ask_for(0x01, qmi_nas, 0x24).substr(0, 2)) << state;
    }
    EXPECT_EQ("00", ask_for(0x10, qmi_nas, 0x24)) << "the roaming indicator is on";
}

TEST_F(gobi, has_a_session_from_start_to_stop)
{
    EXPECT_EQ("error 15", ask(qmi_wds, 0x2D));
    EXPECT_EQ("error 26", ask(qmi_wds, 0x21, "01=01000010"));
    EXPECT_EQ("ok 01=01000010", ask(qmi_wds, 0x20, "19=04 18=70 17=75 16=03 14=696E7465726E6574"));
    EXPECT_EQ("error 26", ask(qmi_wds, 0x20));
    EXPECT_EQ("ok 1E=0200400A 20=0100400A 21=F8FFFFFF", ask(qmi_wds, 0x2D, "10=00030000"));
    client_.ip_family = 6;
    EXPECT_EQ("none", ask_for(0x1E, qmi_wds, 0x2D));
    EXPECT_EQ("error 9", ask(qmi_wds, 0x21, "01=02000010"));
    EXPECT_EQ("ok", ask(qmi_wds, 0x21, "01=01000010"));
    EXPECT_EQ("error 15 10=0A", ask(qmi_wds, 0x37)) << "the last bearer";
}

TEST_F(gobi, says_why_a_call_fails)
{
    const struct {
        const char *state, *request, *answer;
    } rows[] = {
        {R"({"mode":1})", "", "error 14 10=0300 11=0300D107"},
        {R"({"mode":0,"accept_apn":"private"})", "14=61", "error 14 10=F503 11=06001B00"},
        {R"({"accept_apn":"","accept_user":"u","accept_password":"p"})", "16=01 17=75 18=71",
         "error 14 10=0A00 11=06001D00"},
        {R"({"accept_user":"","network_ip":"ipv6"})", "19=04", "error 14 10=F603 11=06001C00"},
        {R"({"call_end_reason":1005})", "", "error 14 10=ED03"},
        {R"({"call_end_reason":0})", "31=09", "error 10"},
    };
    for (const auto &[state, request, answer] : rows) {
        tell(state);
        EXPECT_EQ(answer, ask(qmi_wds, 0x20, request)) << state;
    }
    EXPECT_EQ("ok 01=01", ask(qmi_wds, 0x22));
}

TEST_F(gobi, keeps_messages_in_two_storages)
{
    tell(R"({"messages":[{"pdu":"0102"},{"pdu":"03","storage":"NV","tag":"read"},
                         {"pdu":"04","mode":"cdma"},{"pdu":"05","index":7}]})");
    EXPECT_EQ("ok 01=0200000000000000010700000001", ask(qmi_wms, 0x31, "12=01 11=01 01=00"));
    EXPECT_EQ("ok 01=010000000100000001", ask(qmi_wms, 0x31, "11=00 01=00")) << "mode in 0x11";
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
    const std::string good = "01=06100000010005912143F5000005E8329BFD06";
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
    const struct {
        const char *state, *place;
    } rows[] = {
        {R"({"mode":1,"modem":"5G"})", "modem: "},
        {R"({"mode":1,"coverage":"lte,wimax"})", "coverage: "},
        {R"({"mode":1,"acquisition_order":"8,,5"})", "acquisition_order: "},
        {R"({"mode":1,"ipv4":"10.0.0"})", "ipv4: "},
        {R"({"mode":1,"messages":[{"pdu":"00"},{"pdu":"0"}]})", "messages[1].pdu: must be pairs"},
        {R"({"mode":1,"profiles":[{"index":1,"x":1}]})", "profiles[0].x: "},
    };
    for (const auto &[state, place] : rows)
        EXPECT_TRUE(merge(state).starts_with(place)) << state << ": " << merge(state);
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

TEST(qmi_spoil, changes_one_thing_in_a_frame)
{
    // An answer of DMS with the result, 01=4C54 and 10=05.
    const std::string good = "011D0080020102020022001100020400000000000102004C541002000506";
    const struct {
        const char *fault;
        std::optional<int64_t> tlv;
        std::string becomes;
    } rows[] = {
        {"wrong_transaction", {}, "011D0080020102030022001100020400000000000102004C541002000506"},
        {"wrong_client", {}, "011D0080020202020022001100020400000000000102004C541002000506"},
        {"wrong_message", {}, "011D0080020102020023001100020400000000000102004C541002000506"},
        {"tlv_overrun", {}, "011D008002010202002200110002040000000000011E004C541002000506"},
        {"tlv_short", 0x10, "011C0080020102020022001000020400000000000102004C5410010005"},
        {"tlv_missing", {}, "01180080020102020022000C00020400000000001002000506"},
        {"tlv_missing", 0x02, "01160080020102020022000A000102004C541002000506"},
        {"tlv_missing", 0x77, good},
        {"double", {}, good},
    };
    std::string frame;
    ASSERT_EQ(0, bytes_from_hex(good, frame));
    for (const auto &[fault, tlv, becomes] : rows)
        EXPECT_EQ(becomes, hex(qmi_spoil(fault, tlv, frame))) << fault << " " << tlv.value_or(0);
}

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
        const struct timeval patience = {30, 0};
        EXPECT_EQ(0, setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)));
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
                                      uint16_t id, const std::string &tlvs = "")
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
        std::vector<uint8_t> frame;
        size_t size = qmux_header_bytes;
        if (!read_up_to(size, frame))
            return frame.empty() ? "end" : "end after " + std::to_string(frame.size());
        EXPECT_EQ(0, qmux_frame_size(frame, size));
        if (!read_up_to(size, frame))
            return "end after " + std::to_string(frame.size());
        qmux_message message;
        if (qmux_decode(frame, message) != 0 || tlv_check(message.tlvs) != 0)
            return "malformed";
        EXPECT_TRUE(message.from_modem);
        return sim_format("%s %u/%u %u %04X",
                          message.kind == qmux_response ? "response" : "indication",
                          message.service, message.client_id, message.transaction, message.id) +
               shown(message.tlvs);
    }

    // A request, and what comes next.
    std::string ask(uint8_t service, uint8_t client, uint16_t transaction, uint16_t id,
                    const std::string &tlvs = "")
    {
        request(service, client, transaction, id, tlvs);
        return next();
    }

    // The client id that a service gives.
    std::string allocate(uint8_t service)
    {
        return ask(qmi_ctl, 0, 1, 0x22, sim_format("01=%02X", service));
    }

private:
    bool read_up_to(size_t size, std::vector<uint8_t> &frame)
    {
        const size_t had = frame.size();
        frame.resize(size);
        const ssize_t got = recv(fd_.get(), frame.data() + had, size - had, MSG_WAITALL);
        EXPECT_TRUE(got >= 0 || errno == ECONNRESET) << "nothing came";
        frame.resize(had + static_cast<size_t>(got < 0 ? 0 : got));
        return frame.size() == size;
    }

    unique_fd fd_;
    bool connected_ = false;
};

class gobi_socket : public appliance
{
protected:
    void SetUp() override
    {
        appliance::SetUp();
        start_sim("gobi");
    }

    void tell(const std::string &state) { tell_sim(R"({"state": )" + state + "}"); }

    json_int_t state_number(const char *key)
    {
        const json_ref state = json_of(tell_sim(R"({"get": "state"})"));
        const json_t *number = json_object_get(state.get(), key);
        EXPECT_TRUE(json_is_integer(number)) << key;
        return json_integer_value(number);
    }

    const std::string path = root.place("/var/qmux_connect_socket");
};

TEST_F(gobi_socket, gives_client_ids_and_takes_them_back)
{
    qmi_peer peer(path);
    EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0201", peer.allocate(qmi_dms));
    EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0202", peer.allocate(qmi_dms));
    EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0301", peer.allocate(qmi_nas));
    EXPECT_EQ("response 0/0 1 0022 02=01001F00", peer.allocate(99));
    EXPECT_EQ("response 0/0 2 0023 02=00000000 01=0201", peer.ask(qmi_ctl, 0, 2, 0x23, "01=0201"));
    EXPECT_EQ("response 0/0 3 0023 02=01000700", peer.ask(qmi_ctl, 0, 3, 0x23, "01=0201"));
    EXPECT_EQ("response 2/1 4 0022 02=01000700", peer.ask(qmi_dms, 1, 4, 0x22));
    tell(R"({"client_ids":1})");
    EXPECT_EQ("response 0/0 1 0022 02=01000500", peer.allocate(qmi_nas));
    EXPECT_EQ("response 0/0 5 0027 02=00000000", peer.ask(qmi_ctl, 0, 5, 0x27));
    EXPECT_EQ(0, state_number("clients"));
}

TEST_F(gobi_socket, checks_requests_before_the_modem_sees_them)
{
    qmi_peer peer(path);
    peer.allocate(qmi_dms);
    EXPECT_EQ("response 2/1 1 0099 02=01004700", peer.ask(qmi_dms, 1, 1, 0x99));
    EXPECT_EQ("response 2/1 2 0028 02=01001100", peer.ask(qmi_dms, 1, 2, 0x28));
    EXPECT_EQ("response 2/1 3 0028 02=01000100", peer.ask(qmi_dms, 1, 3, 0x28, "01=01"));
    EXPECT_EQ("response 0/0 4 FF00 02=01004700", peer.ask(qmi_ctl, 0, 4, 0xFF00, "01=2F"))
        << "this is not the proxy";
}

TEST_F(gobi_socket, finds_frames_however_they_arrive)
{
    qmi_peer peer(path);
    peer.allocate(qmi_dms);
    const std::vector<uint8_t> model = qmi_peer::frame(qmi_dms, 1, 2, 0x22);
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
    EXPECT_EQ("response 2/1 3 002D 02=00000000 01=00 11=00", peer.ask(qmi_dms, 1, 3, 0x2D));
    peer.send_bytes({0x02});
    EXPECT_EQ("end", peer.next());
}

TEST_F(gobi_socket, tells_what_another_client_has_changed)
{
    qmi_peer watcher(path), other(path);
    watcher.allocate(qmi_nas);
    watcher.allocate(qmi_wds);
    watcher.allocate(qmi_dms);
    EXPECT_EQ("response 2/1 9 0001 02=00000000", watcher.ask(qmi_dms, 1, 9, 0x01, "14=01"));
    other.allocate(qmi_wds);
    EXPECT_EQ("response 1/2 5 0020 02=00000000 01=01000010",
              other.ask(qmi_wds, 2, 5, 0x20, "19=04"));
    EXPECT_EQ("indication 1/2 0 0022 01=0200 12=04", other.next());
    EXPECT_EQ("indication 1/1 0 0022 01=0200 12=04", watcher.next());
    tell(R"({"mode":1})");
    EXPECT_EQ("indication 3/255 0 0024 01=000202000100", watcher.next());
    EXPECT_EQ("indication 1/1 0 0022 01=0100 10=0300", watcher.next());
    EXPECT_EQ("indication 2/1 0 0001 14=01", watcher.next());
}

TEST_F(gobi_socket, cleans_up_behind_each_client)
{
    qmi_peer watcher(path);
    watcher.allocate(qmi_wds);
    {
        qmi_peer other(path);
        for (const uint8_t id : {uint8_t{2}, uint8_t{3}}) {
            other.allocate(qmi_wds);
            other.ask(qmi_wds, id, 5, 0x20);
            EXPECT_EQ("indication 1/1 0 0022 01=0200 12=04", watcher.next());
            EXPECT_EQ(sim_format("indication 1/%u 0 0022 01=0200 12=04", id), other.next());
            if (id == 2) {
                other.ask(qmi_ctl, 0, 6, 0x23, "01=0102");
                EXPECT_EQ("indication 1/1 0 0022 01=0100 10=0200", watcher.next());
            }
        }
        EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0201", other.allocate(qmi_dms));
        EXPECT_EQ(3, state_number("clients"));
    }
    EXPECT_EQ("indication 1/1 0 0022 01=0100 10=0200", watcher.next()) << "ends with its line";
    EXPECT_EQ(1, state_number("clients"));
}

TEST_F(gobi_socket, announces_messages_that_arrive)
{
    qmi_peer peer(path);
    peer.allocate(qmi_wms);
    peer.ask(qmi_wms, 1, 2, 0x01, "10=01");
    tell(R"({"deliver":[{"from":"+12345","text":"hello"}]})");
    EXPECT_EQ("indication 5/1 0 0001 10=0000000000 12=01", peer.next());
    peer.ask(qmi_wms, 1, 4, 0x32, "01=01000004FF02"); // from now on they pass through
    tell(R"({"deliver":[{"pdu":"01020304"}]})");
    EXPECT_EQ("indication 5/1 0 0001 11=01010000000602000304", peer.next());
}

TEST_F(gobi_socket, overtakes_a_slow_start_unless_it_works_in_series)
{
    qmi_peer peer(path);
    peer.allocate(qmi_wds);
    tell(R"({"connect_ms":50})");
    peer.request(qmi_wds, 1, 1, 0x20);
    EXPECT_EQ("response 1/1 2 0034 02=00000000 01=00 10=00", peer.ask(qmi_wds, 1, 2, 0x34));
    EXPECT_EQ("response 1/1 1 0020 02=00000000 01=01000010", peer.next());
    EXPECT_EQ("indication 1/1 0 0022 01=0200 12=04", peer.next());
    tell(R"({"session":false,"in_series":true})");
    EXPECT_EQ("indication 1/1 0 0022 01=0100 10=EB03", peer.next());
    peer.request(qmi_wds, 1, 3, 0x20);
    EXPECT_EQ("response 1/1 3 0020 02=00000000 01=02000010", peer.ask(qmi_wds, 1, 4, 0x34));
    peer.next();
    EXPECT_EQ("response 1/1 4 0034 02=00000000 01=00 10=00", peer.next());
}

TEST_F(gobi_socket, abandons_a_start_and_refuses_more_than_it_can_do)
{
    qmi_peer peer(path);
    peer.allocate(qmi_wds);
    tell(R"({"connect_ms":3600000,"under_way_max":1})");
    peer.request(qmi_wds, 1, 1, 0x20);
    EXPECT_EQ("response 1/1 2 0022 02=01001700", peer.ask(qmi_wds, 1, 2, 0x22));
    tell(R"({"drops_surplus":true})");
    peer.request(qmi_wds, 1, 5, 0x22);
    peer.allocate(qmi_dms); // has an answer, the one before it has none
    tell(R"({"under_way_max":0})");
    EXPECT_EQ("response 1/1 1 0020 02=01000400", peer.ask(qmi_wds, 1, 3, 0x02, "01=0100"));
    EXPECT_EQ("response 1/1 3 0002 02=00000000", peer.next());
    EXPECT_EQ("response 1/1 4 0002 02=01001600", peer.ask(qmi_wds, 1, 4, 0x02, "01=0100"));
}

TEST_F(gobi_socket, resets_and_forgets_its_clients)
{
    qmi_peer peer(path);
    peer.allocate(qmi_dms);
    peer.ask(qmi_dms, 1, 1, 0x2E, "01=03");
    EXPECT_EQ("response 2/1 2 002D 02=00000000 01=03 10=0000 11=00", peer.ask(qmi_dms, 1, 2, 0x2D));
    EXPECT_EQ("response 2/1 3 002E 02=00000000", peer.ask(qmi_dms, 1, 3, 0x2E, "01=04"));
    EXPECT_EQ("indication 0/0 0 0027", peer.next());
    EXPECT_EQ("response 2/1 4 002D 02=01000700", peer.ask(qmi_dms, 1, 4, 0x2D));
    peer.allocate(qmi_dms);
    EXPECT_EQ("response 2/1 5 002D 02=00000000 01=00 11=00", peer.ask(qmi_dms, 1, 5, 0x2D));
}

TEST_F(gobi_socket, plays_faults_by_number_or_name)
{
    qmi_peer peer(path);
    peer.allocate(qmi_dms);
    tell_sim(R"({"faults": [
        {"match":"DMS 0x002D","do":"error","text":"52"},
        {"match":"Get model","do":"wrong_transaction"},
        {"match":"DMS Get model","do":"tlv_overrun"},
        {"match":"DMS 0x002E Set operating mode: 01=01","do":"error","text":"3 10=AB"},
        {"match":"CTL 0x0022","do":"error","text":"5"},
        {"match":"Get manu","do":"unsolicited","text":"NAS 0x0024 01=0000"}]})");
    EXPECT_EQ("response 2/1 1 002D 02=01003400", peer.ask(qmi_dms, 1, 1, 0x2D));
    EXPECT_TRUE(peer.ask(qmi_dms, 1, 2, 0x22).starts_with("response 2/1 3 0022"));
    EXPECT_EQ("malformed", peer.ask(qmi_dms, 1, 3, 0x22));
    EXPECT_EQ("response 2/1 4 002E 02=01000300 10=AB", peer.ask(qmi_dms, 1, 4, 0x2E, "01=01"));
    EXPECT_EQ(0, state_number("mode"));
    EXPECT_EQ("response 0/0 1 0022 02=01000500", peer.allocate(qmi_nas));
    EXPECT_EQ("indication 3/255 0 0024 01=0000", peer.ask(qmi_dms, 1, 5, 0x21));
    EXPECT_TRUE(peer.next().starts_with("response 2/1 5 0021 02=00000000"));
}

TEST_F(gobi_socket, breaks_between_header_and_body_and_comes_back)
{
    {
        qmi_peer peer(path);
        peer.allocate(qmi_dms);
        tell_sim(R"({"faults": [{"match":"DMS 0x0022","do":"hangup","bytes":6,"return_ms":1,
                                 "reboot":true}]})");
        EXPECT_EQ("end after 6", peer.ask(qmi_dms, 1, 1, 0x22));
    }
    std::unique_ptr<qmi_peer> again;
    wait_for("the socket", [&] {
        again = std::make_unique<qmi_peer>(path);
        return again->connected();
    });
    EXPECT_EQ("response 0/0 1 0022 02=00000000 01=0201", again->allocate(qmi_dms));
}

// The CDMA modem: what provisioning takes and refuses, how messages are stored and read, and, behind
// its server program, that every operation is answered and that calls and boots are reported.

#include "sim/cdma.h"
#include "sim/ppp_interfaces.h"
#include "support/appliance.h"
#include "swi/calls.h"

#include <cstring>
#include <mutex>
#include <thread>

class cdma : public testing::Test
{
protected:
    int merge(const std::string &json, std::string *why = nullptr)
    {
        json_error_t error;
        const json_ref state(json_loads(json.c_str(), 0, &error));
        EXPECT_TRUE(state) << error.text << ": " << json;
        json_refusal refusal;
        const int result = cdma_merge_state(modem_, state.get(), refusal);
        if (why)
            *why = json_refusal_text(refusal);
        return result;
    }

    // The next message; `own` is its own result, the text of a refusal goes to refused_.
    swi_sms_message read(uint32_t own = 0)
    {
        swi_sms_message message;
        const swi_reply reply = modem_.messages.read_next({}, message);
        EXPECT_EQ(own, reply.own_result);
        refused_ = reply.text;
        return message;
    }

    static std::string bytes(const swi_sms_message &message)
    {
        return {reinterpret_cast<const char *>(message.text), message.text_bytes};
    }

    // Locks with "commit" and gives "result/missing".
    std::string lock()
    {
        swi_lock_result result;
        const swi_reply reply = cdma_lock(modem_, 1, result);
        return reply.text.empty()
                   ? std::to_string(result.result) + "/" + std::to_string(result.missing)
                   : reply.text;
    }

    std::string provision()
    {
        EXPECT_EQ("", cdma_unlock(modem_, 424242).text);
        EXPECT_EQ("", cdma_select_nam(modem_, 0).text);
        EXPECT_EQ("", cdma_write_mdn(modem_, 0, "5550100077").text);
        EXPECT_EQ("", cdma_write_imsi(modem_, 0, "001015550100077").text);
        EXPECT_EQ("", cdma_write_home(modem_, {0, 0, 0}).text);
        return lock();
    }

    cdma_modem modem_;
    std::string refused_;
};

// ---- provisioning

TEST_F(cdma, commits_what_was_written_when_it_is_locked)
{
    ASSERT_EQ(0, merge(R"({"mdn": "", "imsi": ""})"));
    EXPECT_EQ(0u, cdma_look(modem_.state).nam_status);
    EXPECT_EQ("", cdma_unlock(modem_, 424242).text);
    EXPECT_EQ("", cdma_select_nam(modem_, 0).text);
    EXPECT_EQ("", cdma_write_mdn(modem_, 0, "5550100077").text);
    EXPECT_EQ("", modem_.state.mdn) << "not yet";
    EXPECT_EQ("", cdma_write_imsi(modem_, 0, "001015550100077").text);
    swi_home_sid_nid home;
    EXPECT_EQ("", cdma_read_home(modem_, 0, home).text);
    EXPECT_EQ(4242, home.sid);
    EXPECT_EQ(42, home.nid);
    EXPECT_EQ("", cdma_write_home(modem_, {0, 7, 8}).text);
    EXPECT_EQ("1/0", lock());
    EXPECT_EQ("5550100077 001015550100077", modem_.state.mdn + " " + modem_.state.imsi);
    EXPECT_EQ(7, modem_.state.home_sid);
    EXPECT_EQ(8, modem_.state.home_nid);
    EXPECT_EQ(1u, cdma_look(modem_.state).nam_status);
}

TEST_F(cdma, drops_what_was_written_and_not_committed)
{
    swi_lock_result result;
    const std::string mdn = modem_.state.mdn;
    (void)cdma_unlock(modem_, 424242);
    (void)cdma_write_mdn(modem_, 0, "5550100077");
    EXPECT_EQ("", cdma_lock(modem_, 0, result).text);
    EXPECT_EQ(0u, result.result);
    (void)cdma_unlock(modem_, 424242);
    (void)cdma_write_mdn(modem_, 0, "5550100077");
    (void)cdma_power_up(modem_);
    EXPECT_EQ(mdn, modem_.state.mdn);
    EXPECT_EQ("Provisioning is locked", lock());
}

TEST_F(cdma, says_what_is_missing)
{
    const struct {
        const char *state, *result;
    } rows[] = {
        {R"({"mdn": ""})", "0/1"},
        {R"({"imsi": ""})", "0/2"},
        {R"({"mip_nai": ""})", "0/4"},
        {R"({"date_set": false})", "0/8"},
        {R"({"mdn": "", "imsi": "", "mip_nai": "", "date_set": false})", "0/15"},
        {R"({"missing": 31})", "0/31"},
        {R"({"lock_result": 3, "missing": 0})", "3/0"},
        {R"({"lock_result": 1, "missing": 5})", "1/5"},
    };
    for (const auto &[state, result] : rows) {
        modem_ = {};
        ASSERT_EQ(0, merge(state));
        (void)cdma_unlock(modem_, 424242);
        EXPECT_EQ(result, lock()) << state;
    }
    modem_ = {};
    (void)cdma_unlock(modem_, 424242);
    (void)cdma_write_mdn(modem_, 0, "5550100077");
    (void)cdma_select_nam(modem_, 0);
    EXPECT_EQ("0/16", lock()) << "the number before its NAM";
    EXPECT_EQ("1/0", provision());
}

TEST_F(cdma, refuses_provisioning_that_is_locked_or_wrong)
{
    swi_home_sid_nid home;
    EXPECT_EQ("Wrong lock code", cdma_unlock(modem_, 424243).text);
    for (const swi_reply &reply : {cdma_select_nam(modem_, 0), cdma_write_mdn(modem_, 0, "1"),
                                   cdma_write_imsi(modem_, 0, "1"), cdma_read_home(modem_, 0, home),
                                   cdma_write_home(modem_, home), cdma_factory_reset(modem_, 2)})
        EXPECT_EQ("Provisioning is locked", reply.text);
    EXPECT_EQ("Provisioning is locked", lock());
    (void)cdma_unlock(modem_, 424242);
    for (const swi_reply &reply :
         {cdma_select_nam(modem_, 1), cdma_write_mdn(modem_, 1, "1"),
          cdma_read_home(modem_, 1, home), cdma_write_home(modem_, {1, 0, 0})})
        EXPECT_EQ("NAM not supported", reply.text);
    for (const char *number : {"", "555-0100", "1234567890123456"}) {
        EXPECT_EQ("Not a number of at most 15 digits", cdma_write_mdn(modem_, 0, number).text);
        EXPECT_EQ("Not a number of at most 15 digits", cdma_write_imsi(modem_, 0, number).text);
    }
    EXPECT_EQ("Mode not supported", cdma_factory_reset(modem_, 1).text);
    EXPECT_EQ("5550100042", modem_.state.mdn);
}

TEST_F(cdma, forgets_its_owner_in_the_factory_state)
{
    ASSERT_EQ(0,
              merge(R"({"phone_number": "1", "mip_profile": 3, "boot_ms": 5, "factory_boot_ms": 9,
                           "messages": [{"text": "old"}]})"));
    (void)cdma_unlock(modem_, 424242);
    EXPECT_EQ("", cdma_factory_reset(modem_, 2).text);
    EXPECT_EQ("0/3", lock());
    EXPECT_EQ("", modem_.state.mdn + modem_.state.imsi + modem_.state.phone_number);
    EXPECT_EQ("factory@cdma.test", modem_.state.mip_nai);
    EXPECT_EQ(0, modem_.state.mip_profile + modem_.state.home_sid + modem_.state.home_nid);
    EXPECT_EQ(0u, cdma_look(modem_.state).nam_status);
    EXPECT_EQ(0u, cdma_look(modem_.state).hdr_state);
    swi_sms_status status;
    (void)modem_.messages.count(status);
    EXPECT_EQ(0u, status.stored + status.pending);
    EXPECT_EQ(9, cdma_power_up(modem_));
    EXPECT_EQ(5, cdma_power_up(modem_)) << "once";
    EXPECT_EQ("1/0", provision()) << "and can be activated again";
}

// ---- messages

TEST_F(cdma, puts_texts_into_the_alphabets_of_modems)
{
    const struct {
        const char *row;
        std::string bytes;
        int encoding;
    } rows[] = {
        {R"({"text": "Hi {|}"})", "Hi {|}", 2},
        {R"({"alphabet": "latin1", "text": "Größe ÿ"})",
         "Gr\xF6\xDF"
         "e \xFF",
         0},
        {R"({"alphabet": "16-bit", "text": "aЖ€"})", std::string("\0a\x04\x16\x20\xAC", 6), 4},
        {R"({"alphabet": "16-bit", "text": "😀"})", std::string("\xD8\x3D\xDE\0", 4), 4},
        {R"({"alphabet": "16-bit-low", "text": "aЖ"})", std::string("a\0\x16\x04", 4), 4},
        {R"({"alphabet": "16-bit", "encoding": 8, "format": 6, "text": "a"})",
         std::string("\0a", 2), 8},
        {R"({"text_hex": "FF 00 80", "encoding": 255})", std::string("\xFF\0\x80", 3), 255},
        {R"({"text": ""})", "", 2},
    };
    for (const auto &[row, text, encoding] : rows) {
        ASSERT_EQ(0, merge(std::string(R"({"messages": [)") + row + "]}"));
        const swi_sms_message message = read();
        EXPECT_EQ(text, bytes(message)) << row;
        EXPECT_EQ(encoding, message.encoding) << row;
    }
}

TEST_F(cdma, lists_its_messages_from_the_first_each_time)
{
    ASSERT_EQ(0, merge(R"({"messages": [{"sender": "5550100001", "text": "one", "status": 5},
                                        {"id": 40, "text": "two", "read": true, "repeat": 119}],
                           "receive": [{"text": "last"}]})"));
    for (int round = 0; round < 2; round++) {
        swi_sms_status status;
        (void)modem_.messages.count(status);
        EXPECT_EQ(121u, status.stored + status.pending);
        EXPECT_EQ(round == 0 ? 2u : 0u, status.pending);
        const swi_sms_message first = read();
        EXPECT_EQ("5550100001/one", first.sender + ("/" + bytes(first)));
        EXPECT_EQ(1u, first.id);
        EXPECT_EQ(5, first.status);
        EXPECT_EQ(1, first.more);
        for (uint32_t id = 40; id < 40 + 119; id++)
            EXPECT_EQ(id, read().id);
        const swi_sms_message last = read();
        EXPECT_EQ(159u, last.id);
        EXPECT_EQ("last", bytes(last));
        EXPECT_EQ(0, last.more);
        (void)read();
        EXPECT_EQ("No message", refused_);
    }
}

TEST_F(cdma, passes_over_a_message_that_fits_no_buffer)
{
    const std::string most(swi_message_text_max, 'x');
    ASSERT_EQ(0, merge(R"({"messages": [{"text": ")" + most + R"("}, {"text": ")" + most +
                       R"(y"}, {"text": "x", "text_bytes": 60000}]})"));
    EXPECT_EQ(most, bytes(read()));
    const swi_sms_message longer = read(2);
    EXPECT_EQ(241, longer.text_bytes);
    EXPECT_EQ(1, longer.more);
    EXPECT_EQ(0, longer.text[0]);
    EXPECT_EQ(60000, read().text_bytes) << "a modem that lies";
    modem_.messages.rewind();
    swi_sms_message cut;
    EXPECT_EQ(2u, modem_.messages.read_next({239}, cut).own_result);
}

TEST_F(cdma, keeps_a_message_to_send_only_if_it_adds_up)
{
    swi_sms_submit message;
    ASSERT_EQ(0, swi_set_text(message.destination, "5550100011"));
    message.destination_length = 10;
    message.text_bytes = 240;
    EXPECT_EQ("", modem_.messages.store(message).text);
    EXPECT_TRUE(modem_.messages.stored());
    swi_sms_submit wrong = message;
    wrong.destination_length = 9;
    EXPECT_EQ("The number's length is wrong", modem_.messages.store(wrong).text);
    EXPECT_FALSE(modem_.messages.stored()) << "nor the one before";
    wrong = message;
    wrong.text_bytes = 241;
    EXPECT_EQ("The text is too long", modem_.messages.store(wrong).text);
    for (const char *number : {"", "Alice"}) {
        ASSERT_EQ(0, swi_set_text(wrong.destination, number));
        EXPECT_EQ("No number to send to", modem_.messages.store(wrong).text);
    }
    (void)modem_.messages.store(message);
    (void)cdma_power_up(modem_);
    EXPECT_FALSE(modem_.messages.stored());
}

// ---- the state

TEST_F(cdma, codes_follow_from_the_state_unless_they_are_given)
{
    const auto codes = [this] {
        const cdma_view view = cdma_look(modem_.state);
        return std::to_string(view.hdr_state) + " " + std::to_string(view.service) + " " +
               std::to_string(view.evdo_service) + " " + std::to_string(view.roaming) + " " +
               std::to_string(view.call_status) + (view.interface_up ? " up" : "");
    };
    const struct {
        const char *state, *codes;
    } rows[] = {
        {"{}", "4 2 4 0 0"},
        {R"({"registration": "roaming"})", "4 2 4 1 0"},
        {R"({"registration": "searching"})", "0 0 0 0 0"},
        {R"({"mdn": ""})", "0 2 4 0 0"},
        {R"({"call": "connecting"})", "4 2 4 0 4"},
        {R"({"call": "connected"})", "4 2 4 0 4 up"},
        {R"({"call": "connected", "call_type": 0})", "4 2 4 0 2"},
        {R"({"call": "connected", "ppp": false})", "4 2 4 0 4"},
        {R"({"call": "incoming"})", "4 2 4 0 2"},
        {R"({"hdr_state": 1, "service": 9, "evdo_service": 2, "roaming": 5, "call_status": 65535})",
         "1 9 2 5 65535"},
    };
    for (const auto &[state, expected] : rows) {
        modem_ = {};
        ASSERT_EQ(0, merge(state));
        EXPECT_EQ(expected, codes()) << state;
    }
    ASSERT_EQ(0, merge(R"({"call": "connected", "registration": "denied"})"));
    cdma_settle(modem_.state);
    EXPECT_EQ("none", modem_.state.call) << "no call without a network";
}

TEST_F(cdma, refuses_a_wrong_state_as_a_whole)
{
    const struct {
        const char *json, *why;
    } rows[] = {
        {R"({"mdn": "1", "mip_ha_ip_1": "10.0.0"})", "mip_ha_ip_1: must be an IPv4 address"},
        {R"({"mdn": "1", "ppp_name": "a b"})", "ppp_name: must be the name of an interface"},
        {R"({"mdn": "1", "call": "held"})",
         "call: 'held' is none of none|connecting|connected|incoming"},
        {R"({"mdn": "1", "rssi": -85})", "rssi: must be a whole number from 0 to 65535"},
        {R"({"mdn": "1", "messages": {}})", "messages: must be an array"},
        {R"({"mdn": "1", "messages": [{}, 3]})", "messages[1]: must be an object"},
        {R"({"mdn": "1", "messages": [{"text": "é"}]})",
         "messages[0].text: has characters that are not in its alphabet"},
        {R"({"mdn": "1", "messages": [{"text": "Ж", "alphabet": "latin1"}]})",
         "messages[0].text: has characters that are not in its alphabet"},
        {R"({"mdn": "1", "messages": [{"text": "a", "text_hex": "61"}]})",
         "messages[0].text_hex: there is a text already"},
        {R"({"mdn": "1", "receive": [{"text_hex": "6"}]})",
         "receive[0].text_hex: must be pairs of hexadecimal digits"},
        {R"({"mdn": "1", "receive": [{"txt": ""}]})", "receive[0].txt: unknown key"},
        {R"({"mdn": "1", "receive": [{"repeat": 1000}, {}]})",
         "receive[1].repeat: the modem has room for 1000 messages"},
    };
    for (const auto &[json, why] : rows) {
        std::string said;
        EXPECT_EQ(-1, merge(json, &said));
        EXPECT_EQ(why, said);
        EXPECT_EQ("5550100042", modem_.state.mdn);
        (void)read();
        EXPECT_EQ("No message", refused_);
    }
}

TEST_F(cdma, shows_a_state_that_it_takes_back)
{
    ASSERT_EQ(0, merge(R"({"mdn": "5550100088", "messages": [{"alphabet": "16-bit", "text": "Ж"},
                                                            {"text_hex": "80"}]})"));
    const std::string shown = json_text(cdma_dump_state(modem_).get());
    modem_ = {};
    ASSERT_EQ(0, merge(shown));
    EXPECT_EQ(shown, json_text(cdma_dump_state(modem_).get()));
    EXPECT_EQ("\x04\x16", bytes(read()));
    EXPECT_EQ("\x80", bytes(read()));
}

TEST(ppp_interfaces, of_others_stay)
{
    const temp_root root;
    root.write("/var/run/ppp-interfaces", "dialout1 10.0.0.1\ndialout0 10.0.0.2\nppp9 10.0.0.3\n");
    ASSERT_EQ(0, ppp_interface_up(root.path(), "dialout0", "10.0.0.4"));
    EXPECT_EQ("dialout1 10.0.0.1\nppp9 10.0.0.3\ndialout0 10.0.0.4\n",
              root.read("/var/run/ppp-interfaces"));
    ASSERT_EQ(0, ppp_interface_down(root.path(), "dialout0"));
    ASSERT_EQ(0, ppp_interface_down(root.path(), "dialout0"));
    EXPECT_EQ("dialout1 10.0.0.1\nppp9 10.0.0.3\n", root.read("/var/run/ppp-interfaces"));
    EXPECT_EQ(-1, ppp_interface_up("/nowhere", "dialout0", "10.0.0.4"));
}

// ---- behind the server program, asked by the client of the SDK

class cdma_served : public appliance
{
protected:
    void serve(const std::string &state = "{}")
    {
        start_sim("cdma", R"({"state": )" + state + "}");
        swi_start_parameters parameters;
        ASSERT_EQ(0, swi_set_text(parameters.server_path, "/bin/swisdk"));
        parameters.launch = 1;
        ASSERT_EQ(swi_ok, swi_api_open(parameters));
        swi_modem_type type;
        ASSERT_EQ(swi_ok, swi_get_modem_type(type, timeout_ms));
        ASSERT_EQ(swi_ok, swi_register_callback(note, this, -1, 0));
        waiter_ = std::thread([] { (void)swi_wait_notification(); });
    }

    void TearDown() override
    {
        swi_api_close();
        if (waiter_.joinable())
            waiter_.join();
        appliance::TearDown();
    }

    static void note(const swi_notification &values, void *context)
    {
        auto &self = *static_cast<cdma_served *>(context);
        const std::lock_guard lock(self.mutex_);
        self.heard_ += std::to_string(values.type) + "=" +
                       std::to_string(values.first | values.hdr_state) + values.caller_id + " ";
    }

    std::string heard()
    {
        const std::lock_guard lock(mutex_);
        return heard_;
    }

    void wait_heard(const std::string &expected)
    {
        wait_for(expected, [&] { return heard().size() >= expected.size(); });
        const std::lock_guard lock(mutex_);
        EXPECT_EQ(expected, std::exchange(heard_, {}));
    }

    static std::string error_text()
    {
        char text[swi_error_text_max];
        (void)swi_last_error_text(text, sizeof(text));
        return text;
    }

    void set_state(const std::string &state) { tell_sim(R"({"state": )" + state + "}"); }
    [[nodiscard]] std::string interfaces() const { return root.read("/var/run/ppp-interfaces"); }

    static int dial(uint32_t type)
    {
        swi_call_request request;
        request.call_type = type;
        (void)swi_set_text(request.number, "#777");
        return swi_set_call_originate(request, timeout_ms);
    }

    static constexpr int timeout_ms = 60000;

private:
    std::thread waiter_;
    std::mutex mutex_;
    std::string heard_;
};

// What a modem in service says to a request whose parameters are all 0.
static const char *refusal_of(swi_operation_id id)
{
    switch (id) {
    case swi_op_set_call_originate:
        return "No number";
    case swi_op_set_call_disconnect:
        return "There is no call";
    case swi_op_pst_unlock:
        return "Wrong lock code";
    case swi_op_pst_set_current_nam:
    case swi_op_set_mobile_dir_num:
    case swi_op_set_imsi:
    case swi_op_pst_get_home_sid_nid:
    case swi_op_pst_set_home_sid_nid:
    case swi_op_pst_lock:
    case swi_op_factory_reset:
        return "Provisioning is locked";
    case swi_op_read_sms:
        return "No message";
    case swi_op_store_sms:
        return "No number to send to";
    case swi_op_send_sms:
        return "Nothing to send";
    default:
        return "";
    }
}

TEST_F(cdma_served, answers_and_on_request_refuses_every_operation_of_its_kind)
{
    serve(R"({"boot_ms": 0})");
    alignas(std::max_align_t) const uint8_t request[2048] = {};
    alignas(std::max_align_t) uint8_t response[2048] = {};
    int asked = 0;
    for (size_t id = 0; id < swi_operation_count; id++) {
        const swi_operation &operation = swi_operations[id];
        if ((operation.selector & swi_cdma_modems) == 0)
            continue;
        const std::string refusal = refusal_of(static_cast<swi_operation_id>(id));
        EXPECT_EQ(refusal.empty() ? swi_ok : swi_cns_error,
                  swi_request(operation, request, response, timeout_ms))
            << operation.name;
        EXPECT_EQ(refusal, error_text()) << operation.name;
        if (operation.kind != swi_kind_air_server) { // its answer has no room for a refusal
            tell_sim(R"({"faults": [{"do": "error", "text": "broken", "match": ")" +
                     std::string(operation.name) + "\"}]}");
            EXPECT_EQ(swi_cns_error, swi_request(operation, request, response, timeout_ms));
            EXPECT_EQ("broken", error_text()) << operation.name;
        }
        asked++;
    }
    EXPECT_EQ(49, asked) << modem_log();
}

TEST_F(cdma_served, a_data_call_brings_its_interface_up_and_down)
{
    serve(R"({"report": false, "connect_ms": 20})");
    root.write("/var/run/ppp-interfaces", "ppp9 10.0.0.9\n");
    for (const uint32_t id : {swi_notify_call_status, swi_notify_call_error, swi_notify_caller_id})
        ASSERT_EQ(swi_ok, swi_enable_notification(id, timeout_ms));
    ASSERT_EQ(swi_ok, dial(257));
    wait_heard("1027=4 1007=0 1008=0 ");
    EXPECT_EQ("ppp9 10.0.0.9\ndialout0 10.172.42.7\n", interfaces());
    EXPECT_EQ(swi_cns_error, dial(257)) << "a second call";
    ASSERT_EQ(swi_ok, swi_set_call_disconnect(timeout_ms));
    wait_heard("1027=0 1012=0 ");
    EXPECT_EQ("ppp9 10.0.0.9\n", interfaces());

    ASSERT_EQ(swi_ok, dial(0));
    wait_heard("1027=2 1007=0 1008=0 ");
    EXPECT_EQ("ppp9 10.0.0.9\n", interfaces()) << "a voice call has none";
    set_state(R"({"call": "none"})");
    wait_heard("1027=0 1012=0 ");
    set_state(R"({"call": "incoming"})");
    wait_heard("1027=2 1009=0 1010=05550100099 ");
    set_state(R"({"call": "none", "call_error": 7})");
    wait_heard("1027=0 1012=0 ");
    ASSERT_EQ(swi_ok, dial(257));
    wait_heard("1027=4 1007=0 1013=7 1027=0 1012=0 ");
    EXPECT_EQ("ppp9 10.0.0.9\n", interfaces());
    set_state(R"({"registration": "none"})");
    EXPECT_EQ(swi_cns_error, dial(257));
    EXPECT_EQ("No service", error_text());
    set_state(R"({"registration": "home", "imsi": ""})");
    EXPECT_EQ(swi_cns_error, dial(257));
    EXPECT_EQ("Not activated", error_text());
}

TEST_F(cdma_served, what_ends_ends_the_interface)
{
    serve(R"({"call": "connected"})");
    EXPECT_EQ("dialout0 10.172.42.7\n", interfaces());
    set_state(R"({"ppp_address": "10.0.0.5"})");
    EXPECT_EQ("dialout0 10.0.0.5\n", interfaces());
    set_state(R"({"ppp": false})");
    EXPECT_EQ("", interfaces());
    set_state(R"({"ppp": true, "ppp_name": "dialout1"})");
    EXPECT_EQ("dialout1 10.0.0.5\n", interfaces());
    set_state(R"({"registration": "none"})");
    EXPECT_EQ("", interfaces());
    set_state(R"({"registration": "home", "call": "connected"})");
    EXPECT_EQ("dialout1 10.0.0.5\n", interfaces());
    stop_sim();
    EXPECT_EQ("", interfaces());
}

TEST_F(cdma_served, reports_hdr_states_until_it_boots)
{
    time_scale = "0.1"; // the boot after a factory reset takes two seconds
    serve(R"({"boot_ms": 0, "factory_boot_ms": 20000, "call": "connected"})");
    ASSERT_EQ(swi_ok, swi_enable_notification(swi_notify_hdr_state, timeout_ms));
    wait_heard("1051=4 ");
    set_state(R"({"hdr_state": 2})");
    wait_heard("1051=2 ");
    swi_number esn;
    ASSERT_EQ(swi_ok, swi_pst_unlock(424242, timeout_ms));
    ASSERT_EQ(swi_ok, swi_factory_reset(2, timeout_ms));
    ASSERT_EQ(swi_ok, swi_reset_cdma(timeout_ms));
    wait_for("the boot", [&] { return swi_get_esn(esn, timeout_ms) == swi_modem_timeout; });
    EXPECT_EQ("", interfaces());
    set_state(R"({"hdr_state": 3})");
    wait_for("its end", [&] { return swi_get_esn(esn, timeout_ms) == swi_ok; });
    EXPECT_EQ(0x8042A042u, esn.value);
    EXPECT_EQ("", heard()) << "nobody has enabled anything since";
    ASSERT_EQ(swi_ok, swi_enable_notification(swi_notify_hdr_state, timeout_ms));
    wait_heard("1051=3 ");
    swi_text mdn;
    ASSERT_EQ(swi_ok, swi_get_mobile_dir_number(mdn, timeout_ms));
    EXPECT_STREQ("", mdn.text);
}

TEST_F(cdma_served, sends_what_it_was_given)
{
    serve();
    swi_sms_submit message;
    message.reference = 49;
    ASSERT_EQ(0, swi_set_text(message.own_number, "5550100042"));
    ASSERT_EQ(0, swi_set_text(message.destination, "5550100011"));
    message.destination_length = 10;
    memcpy(message.text, "Gr\xFC\xDF", 4);
    message.text_bytes = 4;
    ASSERT_EQ(swi_ok, swi_store_sms(message, timeout_ms));
    set_state(R"({"registration": "denied"})");
    EXPECT_EQ(swi_cns_error, swi_send_sms(timeout_ms));
    EXPECT_EQ("No service", error_text());
    set_state(R"({"registration": "home"})");
    ASSERT_EQ(swi_ok, swi_send_sms(timeout_ms));
    EXPECT_EQ(swi_cns_error, swi_send_sms(timeout_ms)) << "once";
    const std::string state = tell_sim(R"({"get": "state"})");
    EXPECT_NE(std::string::npos,
              state.find(R"("sent_count":1,"sent_reference":49,"sent_from":"5550100042",)"
                         R"("sent_number":"5550100011","sent_text":"Gr\\xFC\\xDF")"))
        << state;
}

TEST_F(cdma_served, records_arrive_as_they_were_given)
{
    serve(R"({"mip_profile": 2, "longitude": -5, "transmit_power": -127, "rssi": 65535,
              "radio_bands": "48:0,255:2,1:9,1:0,1:0,1:0,1:0,1:0,1:0", "roaming": 2,
              "sms_more": 1, "sms_result": 5})");
    swi_mip_profile profile;
    ASSERT_EQ(swi_ok, swi_get_mip_profile(2, profile, timeout_ms));
    EXPECT_STREQ("5550100042@cdma.test", profile.nai);
    EXPECT_EQ(0x0AAC2A07u, profile.home_address);
    ASSERT_EQ(swi_ok, swi_get_mip_profile(1, profile, timeout_ms));
    EXPECT_STREQ("", profile.nai);
    EXPECT_EQ(swi_cns_error, swi_get_mip_profile(6, profile, timeout_ms));
    swi_base_station station;
    ASSERT_EQ(swi_ok, swi_get_tech_bs_info(station, timeout_ms));
    EXPECT_EQ(-5, station.longitude);
    swi_signed_number power;
    ASSERT_EQ(swi_ok, swi_get_transmit_power(power, timeout_ms));
    EXPECT_EQ(-127, power.value);
    swi_rssi_ecio signal;
    ASSERT_EQ(swi_ok, swi_get_rssi_ecio(signal, timeout_ms));
    EXPECT_EQ(65535, signal.rssi);
    swi_radio_bands bands;
    ASSERT_EQ(swi_ok, swi_get_current_radio_band(bands, timeout_ms));
    EXPECT_EQ(8, bands.count);
    EXPECT_EQ(48, bands.bands[0].band);
    EXPECT_EQ(9, bands.bands[2].technology);
    swi_roaming roaming;
    ASSERT_EQ(swi_ok, swi_get_roaming_status(roaming, timeout_ms));
    EXPECT_EQ(2u, roaming.status);
    swi_text number;
    ASSERT_EQ(swi_ok, swi_get_phone_number(number, timeout_ms));
    EXPECT_STREQ("5550100042", number.text) << "the directory number";
    swi_sms_message message;
    EXPECT_EQ(5, swi_read_sms({}, message, timeout_ms)) << "for ever more";
    EXPECT_EQ(1, message.more);
}

// The CDMA modem: what provisioning takes and refuses, how messages are stored and read, and, behind
// its server program, that every operation is answered and that calls and boots are reported.

#include "sim/cdma.h"
#include "support/appliance.h"
#include "support/sim_state.h"
#include "swi/calls.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <thread>

class cdma : public testing::Test
{
protected:
    std::string merge(const std::string &state)
    {
        return merge_text(cdma_merge_state, modem_, state);
    }

    // The next message; the text of a refusal goes to refused_.
    swi_sms_message read()
    {
        swi_sms_message message;
        refused_ = modem_.messages.read_next({}, message).text;
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

    void write_all()
    {
        EXPECT_EQ("", cdma_unlock(modem_, 424242).text);
        EXPECT_EQ("", cdma_select_nam(modem_, 0).text);
        EXPECT_EQ("", cdma_write_mdn(modem_, 0, "5550100077").text);
        EXPECT_EQ("", cdma_write_imsi(modem_, 0, "001015550100077").text);
        EXPECT_EQ("", cdma_write_home(modem_, {0, 7, 8}).text);
    }

    // Number, IMSI and home network.
    std::string provisioned()
    {
        const cdma_state &state = modem_.state;
        return state.mdn + " " + state.imsi + " " + std::to_string(state.home_sid) + " " +
               std::to_string(state.home_nid);
    }

    cdma_modem modem_;
    std::string refused_;
};

// ---- provisioning

TEST_F(cdma, keeps_what_was_written_once_it_is_committed)
{
    const std::string before = provisioned();
    swi_lock_result result;
    write_all();
    EXPECT_EQ(before, provisioned()) << "not yet";
    EXPECT_EQ("", cdma_lock(modem_, 0, result).text);
    EXPECT_EQ(0u, result.result);
    EXPECT_EQ("Provisioning is locked", lock());
    write_all();
    (void)cdma_power_up(modem_);
    EXPECT_EQ("Provisioning is locked", lock());
    EXPECT_EQ(before, provisioned());
    write_all();
    EXPECT_EQ("1/0", lock());
    EXPECT_EQ("5550100077 001015550100077 7 8", provisioned());
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
        ASSERT_EQ("", merge(state));
        (void)cdma_unlock(modem_, 424242);
        EXPECT_EQ(result, lock()) << state;
    }
    modem_ = {};
    (void)cdma_unlock(modem_, 424242);
    (void)cdma_write_mdn(modem_, 0, "5550100077");
    (void)cdma_select_nam(modem_, 0);
    EXPECT_EQ("0/16", lock()) << "the number before its NAM";
}

TEST_F(cdma, refuses_provisioning_that_is_locked_or_wrong)
{
    swi_home_sid_nid home;
    EXPECT_EQ("Wrong lock code", cdma_unlock(modem_, 424243).text);
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
    ASSERT_EQ("", merge(R"({"phone_number": "1", "mip_profile": 3, "boot_ms": 5,
                           "factory_boot_ms": 9, "messages": [{"text": "old"}]})"));
    (void)cdma_unlock(modem_, 424242);
    EXPECT_EQ("", cdma_factory_reset(modem_, 2).text);
    EXPECT_EQ("0/3", lock());
    EXPECT_EQ("  0 0", provisioned());
    EXPECT_EQ("", modem_.state.phone_number);
    EXPECT_EQ("factory@cdma.test", modem_.state.mip_nai);
    EXPECT_EQ(0, modem_.state.mip_profile);
    (void)read();
    EXPECT_EQ("No message", refused_);
    EXPECT_EQ(9, cdma_power_up(modem_));
    EXPECT_EQ(5, cdma_power_up(modem_)) << "once";
}

// ---- messages

TEST_F(cdma, passes_over_a_message_that_fits_no_buffer)
{
    const std::string most(swi_message_text_max, 'x');
    ASSERT_EQ("", merge(R"({"messages": [{"text": "x", "text_bytes": 60000}, {"text": ")" + most +
                        R"("}]})"));
    EXPECT_EQ(60000, read().text_bytes) << "a modem that lies";
    swi_sms_message cut;
    EXPECT_EQ(2u, modem_.messages.read_next({239}, cut).own_result);
    EXPECT_EQ(240, cut.text_bytes);
    EXPECT_EQ(0, cut.text[0]);
    EXPECT_EQ(0, cut.more);
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
        {R"({"registration": "roaming"})", "4 2 4 1 0"},
        {R"({"registration": "searching"})", "0 0 0 0 0"},
        {R"({"mdn": ""})", "0 2 4 0 0"},
        {R"({"call": "connecting"})", "4 2 4 0 4"},
        {R"({"call": "connected"})", "4 2 4 0 4 up"},
        {R"({"call": "connected", "call_type": 0})", "4 2 4 0 2"},
        {R"({"call": "connected", "ppp": false})", "4 2 4 0 4"},
        {R"({"call": "incoming"})", "4 2 4 0 2"},
    };
    for (const auto &[state, expected] : rows) {
        modem_ = {};
        ASSERT_EQ("", merge(state));
        EXPECT_EQ(expected, codes()) << state;
    }
    ASSERT_EQ("", merge(R"({"call": "connected", "registration": "denied"})"));
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
        EXPECT_EQ(why, merge(json));
        EXPECT_EQ("5550100042", modem_.state.mdn);
        (void)read();
        EXPECT_EQ("No message", refused_);
    }
}

TEST_F(cdma, shows_a_state_that_it_takes_back)
{
    ASSERT_EQ("", merge(R"({"mdn": "5550100088", "messages": [{"alphabet": "16-bit", "text": "😀"},
                                                            {"id": 40, "text_hex": "80"}]})"));
    const std::string shown = json_text(cdma_dump_state(modem_).get());
    modem_ = {};
    ASSERT_EQ("", merge(shown));
    EXPECT_EQ(shown, json_text(cdma_dump_state(modem_).get()));
    ASSERT_EQ("", merge(R"({"receive": [{"text": "last"}]})"));
    EXPECT_EQ(std::string("\xD8\x3D\xDE\0", 4), bytes(read()));
    EXPECT_EQ("\x80", bytes(read()));
    swi_sms_status status;
    (void)modem_.messages.count(status);
    EXPECT_EQ(2u, status.stored);
    EXPECT_EQ(1u, status.pending);
    EXPECT_EQ(1u, read().id) << "from the first again";
    (void)read();
    EXPECT_EQ(41u, read().id);
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
static const std::map<size_t, const char *> refusals = {
    {swi_op_set_call_originate, "No number"},
    {swi_op_set_call_disconnect, "There is no call"},
    {swi_op_pst_unlock, "Wrong lock code"},
    {swi_op_pst_set_current_nam, "Provisioning is locked"},
    {swi_op_set_mobile_dir_num, "Provisioning is locked"},
    {swi_op_set_imsi, "Provisioning is locked"},
    {swi_op_pst_get_home_sid_nid, "Provisioning is locked"},
    {swi_op_pst_set_home_sid_nid, "Provisioning is locked"},
    {swi_op_pst_lock, "Provisioning is locked"},
    {swi_op_factory_reset, "Provisioning is locked"},
    {swi_op_read_sms, "No message"},
    {swi_op_store_sms, "No number to send to"},
    {swi_op_send_sms, "Nothing to send"},
};

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
        const auto refusal = refusals.find(id);
        EXPECT_EQ(refusal == refusals.end() ? swi_ok : swi_cns_error,
                  swi_request(operation, request, response, timeout_ms))
            << operation.name;
        EXPECT_EQ(refusal == refusals.end() ? "" : refusal->second, error_text()) << operation.name;
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

TEST_F(cdma_served, calls_are_reported_as_they_come_and_go)
{
    serve(R"({"report": false, "connect_ms": 20})");
    root.write("/var/run/ppp-interfaces", "dialout1 10.0.0.1\ndialout0 10.0.0.2\nppp9 10.0.0.9\n");
    const std::string others = "dialout1 10.0.0.1\nppp9 10.0.0.9\n";
    for (const uint32_t id : {swi_notify_call_status, swi_notify_call_error, swi_notify_caller_id})
        ASSERT_EQ(swi_ok, swi_enable_notification(id, timeout_ms));
    ASSERT_EQ(swi_ok, dial(257));
    wait_heard("1027=4 1007=0 1008=0 ");
    EXPECT_EQ(others + "dialout0 10.172.42.7\n", interfaces());
    EXPECT_EQ(swi_cns_error, dial(257)) << "a second call";
    ASSERT_EQ(swi_ok, swi_set_call_disconnect(timeout_ms));
    wait_heard("1027=0 1012=0 ");
    EXPECT_EQ(others, interfaces());

    ASSERT_EQ(swi_ok, dial(0));
    wait_heard("1027=2 1007=0 1008=0 ");
    EXPECT_EQ(others, interfaces()) << "a voice call has none";
    set_state(R"({"call": "none"})");
    wait_heard("1027=0 1012=0 ");
    set_state(R"({"call": "incoming"})");
    wait_heard("1027=2 1009=0 1010=05550100099 ");
    set_state(R"({"call": "none", "call_error": 7})");
    wait_heard("1027=0 1012=0 ");
    ASSERT_EQ(swi_ok, dial(257));
    wait_heard("1027=4 1007=0 1013=7 1027=0 1012=0 ");
    EXPECT_EQ(others, interfaces()) << "nor one that fails";
    set_state(R"({"imsi": ""})");
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
    std::filesystem::remove(root.place("/var/run/ppp-interfaces"));
    std::filesystem::create_directory(root.place("/var/run/ppp-interfaces"));
    set_state(R"({"registration": "home", "call": "connected"})");
    EXPECT_EQ(1, count(modem_log(), "interface: Is a directory"));
    std::filesystem::remove(root.place("/var/run/ppp-interfaces"));
    set_state(R"({"ppp_address": "10.0.0.6"})");
    EXPECT_EQ("dialout1 10.0.0.6\n", interfaces());
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
    ASSERT_EQ(swi_ok, swi_pst_unlock(424242, timeout_ms));
    ASSERT_EQ(swi_ok, swi_factory_reset(2, timeout_ms));
    ASSERT_EQ(swi_ok, swi_reset_cdma(timeout_ms));
    swi_number esn;
    wait_for("the boot", [&] { return swi_get_esn(esn, timeout_ms) == swi_modem_timeout; });
    EXPECT_EQ("", interfaces());
    set_state(R"({"hdr_state": 3})");
    wait_for("its end", [&] { return swi_get_esn(esn, timeout_ms) == swi_ok; });
    EXPECT_EQ("", heard()) << "nobody has enabled anything since";
    ASSERT_EQ(swi_ok, swi_enable_notification(swi_notify_hdr_state, timeout_ms));
    wait_heard("1051=3 ");
}

TEST_F(cdma_served, sends_what_it_was_given_once)
{
    serve(R"({"registration": "denied"})");
    swi_sms_submit message;
    ASSERT_EQ(0, swi_set_text(message.destination, "5550100011"));
    message.destination_length = 10;
    ASSERT_EQ(swi_ok, swi_store_sms(message, timeout_ms));
    EXPECT_EQ(swi_cns_error, swi_send_sms(timeout_ms));
    EXPECT_EQ("No service", error_text());
    set_state(R"({"registration": "home"})");
    EXPECT_EQ(swi_ok, swi_send_sms(timeout_ms));
    EXPECT_EQ(swi_cns_error, swi_send_sms(timeout_ms));
    EXPECT_EQ("Nothing to send", error_text());
}

TEST_F(cdma_served, only_the_active_profile_has_contents)
{
    serve(R"({"mip_profile": 2})");
    swi_mip_profile profile;
    ASSERT_EQ(swi_ok, swi_get_mip_profile(2, profile, timeout_ms));
    EXPECT_STREQ("5550100042@cdma.test", profile.nai);
    ASSERT_EQ(swi_ok, swi_get_mip_profile(1, profile, timeout_ms));
    EXPECT_STREQ("", profile.nai);
    EXPECT_EQ(swi_cns_error, swi_get_mip_profile(6, profile, timeout_ms));
}

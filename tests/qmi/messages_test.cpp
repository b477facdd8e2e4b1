#include "qmi/messages.h"
#include "qmi/qmux.h"
#include "support/fake_qmuxd.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

using texts = std::vector<std::string>;

static uint32_t handle;

// One message: the call, what goes out and what a success brings. The call returns the code, and a
// text of what it was answered.
struct message_row {
    const char *name;
    uint8_t service;
    uint16_t id;
    const char *request; // TLVs
    const char *answer;  // TLVs behind the result
    const char *value;
    uint32_t (*call)(std::string &value);
    bool optional_only = false; // an answer without TLVs is one
    uint32_t silence = qmi_not_sent;
};

static qmi_octets octets(std::initializer_list<uint8_t> list)
{
    return {list};
}

static const message_row message_rows[] = {
    {"wds_reset", qmi_wds, 0x00, "", "", "", [](auto &) { return qmi_wds_reset(handle); }},
    {"wds_start_with_apn", qmi_wds, 0x20,
     "16 0100 03 14 0800 696e7465726e6574 17 0100 75 18 0100 70", "01 0400 78563412", "12345678",
     [](auto &value) {
         qmi_started_network started;
         const uint32_t code = qmi_wds_start_network(handle,
                                                     {.profile = {},
                                                      .authentication = 3,
                                                      .apn = "internet",
                                                      .username = "u",
                                                      .password = "p"},
                                                     started);
         char text[16];
         snprintf(text, sizeof(text), "%x", started.session);
         value = started.session == qmi_no_session ? "" : text;
         return code;
     }},
    {"wds_start_with_profile", qmi_wds, 0x20, "31 0100 03", "01 0400 01000000", "1",
     [](auto &value) {
         qmi_started_network started;
         qmi_start_network wanted;
         wanted.profile = 3;
         const uint32_t code = qmi_wds_start_network(handle, wanted, started);
         value = started.session == qmi_no_session ? "" : std::to_string(started.session);
         return code;
     }},
    {"wds_stop", qmi_wds, 0x21, "01 0400 78563412", "", "",
     [](auto &) { return qmi_wds_stop_network(handle, 0x12345678); }},
    {"wds_packet_status", qmi_wds, 0x22, "", "01 0100 02", "2",
     [](auto &value) {
         uint8_t state = 0;
         const uint32_t code = qmi_wds_get_packet_status(handle, state);
         value = state == 0 ? "" : std::to_string(state);
         return code;
     }},
    {"wds_modify_profile", qmi_wds, 0x28,
     "01 0200 0001 10 0700 70726f66696c65 11 0100 03 14 0300 61706e 1d 0100 01 1b 0100 75 1c 0100 "
     "70",
     "", "",
     [](auto &) {
         return qmi_wds_modify_profile(handle, {.id = {.index = 1},
                                                .name = "profile",
                                                .pdp_type = 3,
                                                .apn = "apn",
                                                .authentication = 1,
                                                .username = "u",
                                                .password = "p"});
     }},
    {"wds_modify_profile_without_texts", qmi_wds, 0x28,
     "01 0200 0003 10 0700 70726f66696c65 11 0100 00 1d 0100 00", "", "",
     [](auto &) {
         qmi_profile profile;
         profile.id.index = 3;
         profile.name = "profile";
         return qmi_wds_modify_profile(handle, profile);
     }},
    {"wds_reset_profile", qmi_wds, 0x4B, "01 0200 0003", "", "",
     [](auto &) { return qmi_wds_reset_profile(handle, {.index = 3}); }},
    {"dms_manufacturer", qmi_dms, 0x21, "", "01 0300 516e63", "Qnc",
     [](auto &value) { return qmi_dms_get_manufacturer(handle, value); }},
    {"dms_model", qmi_dms, 0x22, "", "01 0500 4c54452d31", "LTE-1",
     [](auto &value) { return qmi_dms_get_model(handle, value); }},
    {"dms_pin_protection", qmi_dms, 0x27, "01 0700 01000431323334", "", "",
     [](auto &) {
         return qmi_dms_set_pin_protection(handle, {.pin_id = 1, .enabled = 0, .pin = {"1234"}});
     }},
    {"dms_unblock_pin", qmi_dms, 0x29, "01 0f00 01083132333435363738 0430303030", "", "",
     [](auto &) {
         return qmi_dms_unblock_pin(handle,
                                    {.pin_id = 1, .puk = {"12345678"}, .new_pin = {"0000"}});
     }},
    {.name = "dms_pin_status",
     .service = qmi_dms,
     .id = 0x2B,
     .request = "",
     .answer = "12 0300 01030a 11 0300 04000a",
     .value = "4 0 10, 1 3 10",
     .call =
         [](auto &value) {
             qmi_pin_states states;
             const uint32_t code = qmi_dms_get_pin_status(handle, states);
             const auto text = [](const qmi_pin_status &pin) {
                 return std::to_string(pin.status) + " " + std::to_string(pin.verify_left) + " " +
                        std::to_string(pin.unblock_left);
             };
             if (states.pin1 && states.pin2)
                 value = text(*states.pin1) + ", " + text(*states.pin2);
             return code;
         },
     .optional_only = true},
    {"dms_operating_mode", qmi_dms, 0x2E, "01 0100 01", "", "",
     [](auto &) { return qmi_dms_set_operating_mode(handle, qmi_mode_low_power); }},
    {.name = "dms_reset",
     .service = qmi_dms,
     .id = 0x2E,
     .request = "01 0100 04",
     .answer = "",
     .value = "",
     .call = [](auto &) { return qmi_dms_set_operating_mode(handle, qmi_mode_reset); },
     .silence = qmi_no_reset_answer},
    {"dms_uim_state", qmi_dms, 0x44, "", "01 0100 02", "2",
     [](auto &value) {
         uint8_t state = 0;
         const uint32_t code = qmi_dms_get_uim_state(handle, state);
         value = state == 0 ? "" : std::to_string(state);
         return code;
     }},
    {"nas_serving_system", qmi_nas, 0x24, "",
     "10 0100 01 12 0800 3601 0401 03 616263 01 0600 01 01 01 02 01 08", "1 1 310 260 abc 8",
     [](auto &value) {
         qmi_serving_system system;
         const uint32_t code = qmi_nas_get_serving_system(handle, system);
         if (system.plmn && system.roaming && system.radios.items.size() == 1)
             value = std::to_string(system.registration) + " " + std::to_string(*system.roaming) +
                     " " + std::to_string(system.plmn->mcc) + " " +
                     std::to_string(system.plmn->mnc) + " " + system.plmn->name.text + " " +
                     std::to_string(system.radios.items[0]);
         return code;
     }},
    {"nas_system_selection", qmi_nas, 0x33,
     "11 0200 1c00 12 0800 8003000000000000 15 0800 1810000000000000 1e 0400 03080504", "", "",
     [](auto &) {
         return qmi_nas_set_system_selection(handle, {.mode_mask = 0x1C,
                                                      .band_mask = 0x380,
                                                      .lte_band_mask = 0x1018,
                                                      .acquisition_order = {{{8, 5, 4}}}});
     }},
    {"wms_send", qmi_wms, 0x20, "01 0500 06 0200 0b91", "01 0200 0700", "",
     [](auto &) {
         return qmi_wms_send(handle, {.format = qmi_format_gsm, .pdu = octets({0x0B, 0x91})});
     }},
    {"wms_read", qmi_wms, 0x22, "01 0500 0003000000 10 0100 01", "01 0700 01 06 0300 0a0b0c",
     "1 6 0a0b0c",
     [](auto &value) {
         qmi_stored_sms message;
         const uint32_t code =
             qmi_wms_read(handle, {.storage = qmi_storage_uim, .index = 3, .mode = 1}, message);
         if (code == qmi_ok)
             value = std::to_string(message.tag) + " " + std::to_string(message.format) + " " +
                     digits_of(message.pdu.items);
         return code;
     }},
    {"wms_delete", qmi_wms, 0x24, "01 0100 01 10 0400 03000000 12 0100 00", "", "",
     [](auto &) {
         return qmi_wms_delete(handle, {.storage = qmi_storage_nv, .index = 3, .mode = 0});
     }},
    {"wms_list", qmi_wms, 0x31, "01 0100 00 12 0100 01", "01 0e00 02000000 05000000 01 09000000 00",
     "5:1 9:0 ",
     [](auto &value) {
         std::vector<qmi_listed_sms> messages;
         const uint32_t code =
             qmi_wms_list(handle, {.storage = qmi_storage_uim, .mode = qmi_sms_gsm}, messages);
         if (code == qmi_ok)
             for (const qmi_listed_sms &message : messages)
                 value += std::to_string(message.index) + ":" + std::to_string(message.tag) + " ";
         return code;
     }},
    {"pds_service", qmi_pds, 0x21, "01 0100 01", "", "",
     [](auto &) { return qmi_pds_set_service(handle, true); }},
    {"pds_auto_tracking", qmi_pds, 0x31, "01 0100 00", "", "",
     [](auto &) { return qmi_pds_set_auto_tracking(handle, false); }},
};

static void PrintTo(const message_row &row, std::ostream *out)
{
    *out << row.name;
}

class qmi_messages : public testing::TestWithParam<message_row>
{
protected:
    void SetUp() override
    {
        setenv("TESSERA_TIME_SCALE", "0.001", 1);
        row = GetParam();
        qmuxd.answer(row.service, row.id, row.answer);
        ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok);
    }
    void TearDown() override
    {
        EXPECT_EQ(qmi_close(handle), qmi_ok);
        EXPECT_EQ(qmuxd.clients(), 0u) << "nothing stays allocated";
        unsetenv("TESSERA_TIME_SCALE");
    }

    void expect_code(qmuxd_behaviour behaviour, uint32_t code)
    {
        std::string value;
        qmuxd.behave(row.service, row.id, behaviour);
        EXPECT_EQ(row.call(value), code);
        EXPECT_EQ(value, "");
        expect_success();
    }

    void expect_success()
    {
        std::string value;
        (void)qmuxd.requests();
        EXPECT_EQ(row.call(value), qmi_ok);
        EXPECT_EQ(value, row.value);
        const std::string tlvs = digits_of(octets_of(row.request));
        char text[16];
        snprintf(text, sizeof(text), "%x %02x", row.service, row.id);
        EXPECT_EQ(qmuxd.requests(), texts{text + (tlvs.empty() ? "" : " " + tlvs)});
    }

    temp_root root;
    log_capture log;
    fake_qmuxd qmuxd{root};
    message_row row{};
};

TEST_P(qmi_messages, send_their_tlvs_and_read_their_answers)
{
    expect_success();
}

TEST_P(qmi_messages, fail_alone)
{
    const bool reads_nothing = *row.answer == '\0' || row.id == 0x20;
    const bool mandatory = !row.optional_only && *row.value != '\0';
    ASSERT_TRUE(mandatory || row.optional_only || reads_nothing);
    expect_code({qmuxd_reply::silence}, row.silence);
    expect_code({qmuxd_reply::error, 71}, qmi_modem_error + 71);
    expect_code({qmuxd_reply::cut_tlvs}, qmi_modem_error);
    expect_code({qmuxd_reply::no_result}, qmi_modem_error);
    if (!mandatory && !row.optional_only)
        return;
    const uint32_t incomplete = mandatory ? uint32_t{qmi_modem_error} : uint32_t{qmi_ok};
    expect_code({qmuxd_reply::only_result}, incomplete);
    // A text may be empty; a number may not.
    const bool text = row.service == qmi_dms && (row.id == 0x21 || row.id == 0x22);
    expect_code({qmuxd_reply::short_value}, text ? uint32_t{qmi_ok} : incomplete);
}

INSTANTIATE_TEST_SUITE_P(table, qmi_messages, testing::ValuesIn(message_rows),
                         [](const auto &row) { return std::string(row.param.name); });

class qmi_message_details : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(qmi_open("/dev/qcqmi0", handle), qmi_ok); }
    void TearDown() override { qmi_close(handle); }

    temp_root root;
    log_capture log;
    fake_qmuxd qmuxd{root};
};

TEST_F(qmi_message_details, a_failed_start_says_why)
{
    qmuxd.behave(qmi_wds, 0x20, {qmuxd_reply::error, 14});
    qmuxd.explain(qmi_wds, 0x20, "10 0200 f503 11 0400 0600 1b00");
    qmi_started_network started;
    EXPECT_EQ(qmi_wds_start_network(handle, {}, started), 1014u);
    EXPECT_EQ(started.end_reason, 1013);
    EXPECT_EQ(started.session, qmi_no_session);
}

TEST_F(qmi_message_details, pins_that_cannot_be_sent_are_not)
{
    const auto protect = [](uint8_t id, size_t length) {
        return qmi_dms_set_pin_protection(handle, {id, 0, {std::string(length, '1')}});
    };
    EXPECT_EQ(protect(0, 4), qmi_bad_argument);
    EXPECT_EQ(protect(3, 4), qmi_bad_argument);
    EXPECT_EQ(protect(1, 0), qmi_bad_argument);
    EXPECT_EQ(protect(1, 256), qmi_too_long);
    EXPECT_EQ(qmi_dms_unblock_pin(handle, {1, {""}, {"1234"}}), qmi_bad_argument);
    EXPECT_EQ(qmi_dms_unblock_pin(handle, {1, {"12345678"}, {""}}), qmi_bad_argument);
    EXPECT_EQ(qmi_dms_unblock_pin(handle, {1, {std::string(256, '1')}, {"1"}}), qmi_too_long);
    EXPECT_EQ(qmuxd.requests(), texts{});
    EXPECT_EQ(protect(2, 255), qmi_ok);
}

TEST_F(qmi_message_details, what_no_frame_can_hold_is_not_sent)
{
    qmi_sms message;
    message.pdu.items.resize(qmi_frame_bytes_max);
    EXPECT_EQ(qmi_wms_send(handle, message), qmi_too_long);
    message.pdu.items.resize(0x10000);
    EXPECT_EQ(qmi_wms_send(handle, message), qmi_too_long);
    EXPECT_EQ(qmuxd.requests(), texts{});
}

TEST_F(qmi_message_details, a_count_that_lies_makes_the_answer_unreadable)
{
    std::vector<qmi_listed_sms> messages;
    qmuxd.answer(qmi_wms, 0x31, "01 0900 ffffffff 05000000 01");
    EXPECT_EQ(qmi_wms_list(handle, {}, messages), qmi_modem_error);
    qmi_stored_sms message;
    qmuxd.answer(qmi_wms, 0x22, "01 0600 01 06 0300 0a0b");
    EXPECT_EQ(qmi_wms_read(handle, {}, message), qmi_modem_error);
    qmi_serving_system system;
    qmuxd.answer(qmi_nas, 0x24, "01 0600 01 01 01 02 01 08 12 0500 3601 0401 03");
    EXPECT_EQ(qmi_nas_get_serving_system(handle, system), qmi_ok);
    EXPECT_FALSE(system.plmn) << "an optional part that is cut is absent";
}

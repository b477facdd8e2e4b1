#include "cellmodem/cellmodem.h"
#include "publish/output.h"
#include "publish/state.h"
#include "support/fake_infod.h"
#include "support/log_capture.h"
#include "support/memory_stream.h"

#include <thread>

#include <arpa/inet.h>
#include <gtest/gtest.h>

using texts = std::vector<std::string>;

class publishing : public testing::Test
{
protected:
    const std::string info = "config.cellmodem.tessera.info.";
    const std::string status = "config.cellmodem.tessera.status.";
    fake_infod infod;
    log_capture log;
    cellmodem modem;
};

// A record with one value of each kind, in one mode.
static std::string write_record(int mode)
{
    const memory_stream out;
    in6_addr ipv6;
    inet_pton(AF_INET6, "2001:db8::1", &ipv6);
    info_begin(out.get(), mode);
    output_text(out.get(), "text", "a <b> & \x01\"c\"\t\xEF\xBF\xBF", mode, true);
    output_text(out.get(), "null", nullptr, mode, true);
    output_hex(out.get(), "hex", 0xDEADBEEF, mode, true);
    output_longlong(out.get(), "big", 4294967296, mode, true);
    output_longlong(out.get(), "minus", -76, mode, false);
    output_ipv4(out.get(), "v4", in_addr{inet_addr("10.1.2.3")}, mode, true);
    output_ipv6(out.get(), "v6", ipv6, mode, true);
    info_end(out.get(), mode);
    return out.text();
}

TEST_F(publishing, one_record_in_each_mode)
{
    EXPECT_EQ(write_record(output_xml), "<info>\n"
                                        "\t<text>a &lt;b&gt; &amp; ?\"c\"\t?</text>\n"
                                        "\t<hex>0xdeadbeef</hex>\n"
                                        "\t<big>4294967296</big>\n"
                                        "\t<minus>-76</minus>\n"
                                        "\t<v4>10.1.2.3</v4>\n"
                                        "\t<v6>2001:db8::1</v6>\n"
                                        "</info>\n");
    EXPECT_EQ(write_record(output_lines), "text a <b> & \x01\"c\"\t\xEF\xBF\xBF\n"
                                          "hex 0xdeadbeef\n"
                                          "big 4294967296\n"
                                          "minus -76\n"
                                          "v4 10.1.2.3\n"
                                          "v6 2001:db8::1\n");
    infod.pushed.clear();
    EXPECT_EQ(write_record(3), "") << "no layout of ours: nothing is written, all is pushed";
    EXPECT_EQ(infod.pushed,
              (texts{"text " + info + "text=a <b> & \x01\"c\"\t\xEF\xBF\xBF",
                     "long " + info + "hex=" + std::to_string(static_cast<long>(0xDEADBEEF)),
                     "long " + info + "big=0", "text " + info + "v4=10.1.2.3",
                     "text " + info + "v6=2001:db8::1"}));
    EXPECT_EQ(infod.sessions_open, 0);
}

TEST_F(publishing, low_32_bits_keep_their_sign)
{
    const memory_stream out;
    status_begin(out.get(), output_xml);
    output_longlong(out.get(), "rssi", -76, output_lines, true);
    output_longlong(out.get(), "wrap", 0x1FFFFFFFF, output_lines, true);
    status_end(out.get(), output_xml);
    EXPECT_EQ(out.text(), "<status>\nrssi -76\nwrap 8589934591\n</status>\n");
    EXPECT_EQ(infod.pushed, (texts{"long " + status + "rssi=-76", "long " + status + "wrap=-1"}));
}

TEST_F(publishing, long_keys_are_cut_for_infod_only)
{
    const memory_stream out;
    const std::string key(100, 'k');
    output_text(out.get(), key.c_str(), "v", output_lines, true); // outside any record
    EXPECT_EQ(out.text(), key + " v\n");
    ASSERT_EQ(infod.pushed.size(), 1u);
    EXPECT_EQ(infod.pushed[0], "text " + ("(null)." + key).substr(0, 96) + "=v");
}

TEST_F(publishing, a_lost_value_is_logged_and_the_record_goes_on)
{
    infod.start_result = 42;
    infod.start_errno = ENOENT;
    EXPECT_NE(write_record(output_lines).find("v6 2001:db8::1"), std::string::npos);
    EXPECT_EQ(log.count("300 Could not open infod socket: 2: No such file or directory (42)"), 5);
    EXPECT_EQ(infod.pushed.size(), 0u);
    log.clear();
    infod.start_result = 0;
    infod.end_result = 9;
    (void)write_record(output_lines);
    EXPECT_TRUE(log.has("300 Could not open infod socket: ")) << "at the end of its session too";
    EXPECT_EQ(log.lines().size(), 5u);
    EXPECT_EQ(infod.sessions_open, 0);
}

TEST_F(publishing, a_change_is_pushed_once)
{
    EXPECT_EQ(publish_attached(modem, false), 0);
    EXPECT_EQ(publish_attached(modem, true), 0);
    EXPECT_EQ(publish_attached(modem, true), 0);
    EXPECT_EQ(publish_device_state(modem, 1), 0);
    EXPECT_EQ(publish_device_state(modem, 1), 0);
    EXPECT_EQ(publish_session_state(modem, 4), 0);
    EXPECT_EQ(publish_session_state(modem, 9), 0);
    EXPECT_EQ(infod.pushed,
              (texts{"long " + status + "attached=1", "text " + status + "device-state=RESPONDING",
                     "text " + status + "session-state=INVALID",
                     "text " + status + "session-state=UNKNOWN"}));
    EXPECT_EQ(log.lines(),
              (texts{"600 " + status + "attached -> 1",
                     "600 " + status + "device-state changed from UNKNOWN -> RESPONDING",
                     "600 " + status + "session-state changed from UNKNOWN -> INVALID",
                     "600 " + status + "session-state changed from INVALID -> UNKNOWN"}));
}

TEST_F(publishing, a_session_without_a_handle_is_tried_by_records_only)
{
    infod.handle = -1;
    (void)write_record(output_lines);
    EXPECT_EQ(infod.pushed.size(), 5u);
    EXPECT_EQ(infod.sessions_open, 5) << "there is nothing to end";
    EXPECT_EQ(log.lines(), texts{});
}

TEST_F(publishing, a_record_and_a_change_of_state_have_their_sessions_one_after_the_other)
{
    constexpr int rounds = 2000;
    std::thread notifications([&] {
        for (int i = 0; i < rounds; i++)
            (void)publish_session_state(modem, 1 + i % 2);
    });
    for (int i = 0; i < rounds / 5; i++)
        (void)write_record(output_lines);
    notifications.join();
    EXPECT_EQ(infod.overlaps, 0);
    EXPECT_EQ(infod.pushed.size(), size_t{2 * rounds});
}

TEST_F(publishing, a_failed_push_of_a_state_is_reported_and_remembered)
{
    infod.handle = -1; // no handle is a failure here
    EXPECT_EQ(publish_attached(modem, true), -1);
    infod.start_result = 1;
    EXPECT_EQ(publish_device_state(modem, device_unresponsive), -1);
    EXPECT_EQ(publish_session_state(modem, session_connected), -1);
    EXPECT_EQ(infod.pushed, texts{});
    EXPECT_FALSE(log.has("Could not open")) << "one line for one failure";
    EXPECT_EQ(log.count("300 Failed to write new modem attached state to infod"), 1);
    EXPECT_EQ(log.count("300 Failed to write new modem state to infod"), 1);
    EXPECT_EQ(log.count("300 Failed to write new session state to infod"), 1);
    EXPECT_TRUE(modem.attached);
    EXPECT_EQ(modem.device_state, device_unresponsive);
    EXPECT_EQ(publish_session_state(modem, session_connected), 0) << "not tried again";
}

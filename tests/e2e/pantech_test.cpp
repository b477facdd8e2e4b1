// A Pantech modem: its records, messages in both directions, and what can go wrong between the
// daemon, the modem, other programs and the disk.

#include "platform/unique_fd.h"
#include "support/appliance.h"

#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

static const std::string lock_path = "/var/lock/tessera-pantech-wmc.lck";
static const std::string memory = "/var/run/.modem/cellmodem_last_sms";
static const std::string spool = "/var/spool/sms/incoming";
static const std::string message_id = "00 01 0c 1e 08 2a 11 00 00 00 01";
static const std::string message_file = "From: 5550100099\n\nWater in the cellar";
static const std::string message_lines = "sms-count 1\nsms1-id " + message_id +
                                         "\nsms1-phone 5550100099\nsms1-text Water in the cellar\n";

class pantech_appliance : public appliance
{
protected:
    void bring_up(const std::string &scenario = "{}")
    {
        start_sim("pantech", scenario);
        start_daemon();
    }

    [[nodiscard]] texts spooled() const { return root.read_all(spool); }

    client_result send(const std::string &file, const std::vector<std::string> &more = {})
    {
        root.write("/test/message", file);
        std::vector<std::string> arguments = {"--send-sms=" + root.place("/test/message")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return tessera(arguments);
    }

    // Takes the modem's lock as another program does.
    void take_lock()
    {
        unique_fd fd;
        wait_for("the lock", [&] {
            fd.reset(open(root.place(lock_path).c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644));
            return static_cast<bool>(fd);
        });
        ASSERT_EQ(write(fd.get(), "1\n", 2), 2);
    }
};

TEST_F(pantech_appliance, a_modem_is_shown)
{
    bring_up();
    const client_result info = tessera({"-i"});
    EXPECT_EQ(info.code, 0);
    EXPECT_EQ(info.out, golden("pantech-info.txt"));
    EXPECT_EQ(tessera({"-s", "-x"}).out, golden("pantech-status.xml"));
    // What this modem cannot do is skipped without a word.
    const client_result skipped = tessera({"-r", "--radio=off", "-d", "--ping", "--connstatus"});
    EXPECT_EQ(skipped.code, 0);
    EXPECT_EQ(skipped.out, "");
    EXPECT_EQ(count(modem_log(), "= refused"), 0) << "every frame passed the modem's check";
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    EXPECT_FALSE(fs::exists(root.place(lock_path)));
}

TEST_F(pantech_appliance, start_up_publishes_the_first_records)
{
    bring_up();
    const std::string info = "config.cellmodem.tessera.info.";
    const std::string status = "config.cellmodem.tessera.status.";
    EXPECT_EQ(run_program("infod-get", {"config.cellmodem"}).out,
              info + "apn internet\n" + info + "attached yes\n" + info +
                  "device /dev/cellcommand01\n" + info + "driver Pantech WMC\n" + info +
                  "manufacturer PANTECH\n" + info + "model Simulated LTE\n" + status +
                  "attached 1\n" + status + "device-state RESPONDING\n" + status +
                  "operator-name Test Network\n" + status + "rssi -71\n" + status +
                  "technology 4G LTE\n");
    tell_sim(R"({"faults": [{"match": "WMC", "do": "silence", "count": 0}]})");
    wait_for("a silent modem to show", [&] {
        return run_program("infod-get", {status + "device-state"}).out ==
               status + "device-state UNRESPONSIVE\n";
    });
}

TEST_F(pantech_appliance, a_message_arrives_once)
{
    bring_up();
    const client_result list = tessera({"--get-sms"});
    EXPECT_EQ(list.code, 0);
    EXPECT_EQ(list.out, message_lines);
    EXPECT_EQ(spooled(), texts{message_file});
    EXPECT_EQ(root.read(memory), message_id);
    EXPECT_EQ(stop_daemon(SIGTERM), 255);
    start_daemon();
    EXPECT_EQ(tessera({"--get-sms"}).out, message_lines);
    EXPECT_EQ(spooled().size(), 1u) << "the memory outlives the daemon";

    tell_sim(R"({"state": {"sms_number": ""}})");
    EXPECT_EQ(tessera({"--get-sms"}).out, "sms-count 1\n");
}

TEST_F(pantech_appliance, a_message_is_sent)
{
    bring_up();
    EXPECT_EQ(send("To: 15550100077\n\nHello, modem.\nSecond line\n").code, 0);
    std::string state = tell_sim(R"({"get": "state"})");
    EXPECT_EQ(count(state, R"("sent_count":1,"sent_number":"15550100077",)"
                           R"("sent_smsc":"19037029920","sent_text":"Hello, modem.\nSecond line")"),
              1)
        << state;
    EXPECT_EQ(send("To: 1\n\n" + std::string(300, 'y'), {"--smsc=123"}).code, 0);
    state = tell_sim(R"({"get": "state"})");
    EXPECT_EQ(count(state, R"("sent_number":"1","sent_smsc":"123","sent_text":")" +
                               std::string(160, 'y') + "\""),
              1)
        << state;
    EXPECT_EQ(send("To: 1\n\nA text of forty-five characters needs a blank").code, 0);
    EXPECT_EQ(count(modem_log(), "= refused"), 0);

    tell_sim(R"({"state": {"send_result": 1}})");
    EXPECT_EQ(send("To: 1\n\nrefused").code, 1);
    tell_sim(R"({"state": {"send_result": 0},
                 "faults": [{"match": "WMC 0x56", "do": "silence"}]})");
    EXPECT_EQ(send("To: 1\n\nunanswered").code, 1);
    EXPECT_EQ(count(tell_sim(R"({"get": "state"})"), R"("sent_count":4,)"), 1);
    EXPECT_EQ(send("To: 1\n\nand again").code, 0);
}

// ---- the lock

TEST_F(pantech_appliance, a_killed_daemon_blocks_nobody)
{
    bring_up(R"({"faults": [{"match": "WMC", "do": "silence", "count": 0}]})");
    // Silence makes it hold the lock for most of the time.
    wait_for("a daemon that holds the lock", [&] {
        kill(daemon(), SIGSTOP);
        const bool held = root.read(lock_path) == std::to_string(daemon()) + "\n";
        if (!held)
            kill(daemon(), SIGCONT);
        return held;
    });
    const std::string owner = std::to_string(daemon());
    EXPECT_EQ(stop_daemon(SIGKILL), 128 + SIGKILL);
    EXPECT_EQ(root.read(lock_path), owner + "\n");
    tell_sim(R"({"clear_faults": true})");
    start_daemon();
    EXPECT_EQ(tessera({"--get-sms"}).out, message_lines);
    EXPECT_EQ(count(daemon_log(), "Taking over " + lock_path + ", its owner " + owner + " is dead"),
              1);
}

class second_appliance : public pantech_appliance
{
public:
    void TestBody() override {}
    using appliance::SetUp, appliance::TearDown, appliance::tessera, appliance::root,
        pantech_appliance::bring_up, pantech_appliance::take_lock, pantech_appliance::spooled;
};

TEST_F(pantech_appliance, two_roots_do_not_know_of_each_other)
{
    bring_up();
    second_appliance other;
    other.SetUp();
    other.bring_up(R"({"state": {"sms_text": "Next door", "model": "OTHER"}})");
    other.take_lock();
    EXPECT_EQ(tessera({"--get-sms"}).out, message_lines);
    EXPECT_EQ(other.tessera({"--get-sms"}).code, 1);
    fs::remove(other.root.place(lock_path));
    EXPECT_EQ(count(other.tessera({"-i"}).out, "model OTHER\n"), 1);
    EXPECT_EQ(count(tessera({"-i"}).out, "model Simulated LTE\n"), 1);
    EXPECT_EQ(other.tessera({"--get-sms"}).code, 0);
    EXPECT_EQ(other.spooled(), texts{"From: 5550100099\n\nNext door"});
    EXPECT_EQ(spooled(), texts{message_file});
    other.TearDown();
}

// ---- the spool

TEST_F(pantech_appliance, temporary_files_may_be_on_another_disk)
{
    char other[] = "/dev/shm/tessera-test.XXXXXX";
    ASSERT_TRUE(mkdtemp(other));
    struct stat here, there;
    ASSERT_EQ(stat(root.path().c_str(), &here) + stat(other, &there), 0);
    if (here.st_dev == there.st_dev)
        GTEST_SKIP() << "/dev/shm and /tmp are on one disk";
    fs::remove(root.place("/tmp"));
    fs::create_symlink(other, root.place("/tmp"));
    bring_up();
    EXPECT_EQ(tessera({"--get-sms"}).out, message_lines);
    EXPECT_EQ(spooled(), texts{message_file});
    EXPECT_TRUE(fs::is_empty(other));
    fs::remove_all(other);
}

// ---- a bad line

// What is wrong with every reply to one command: what the daemon says to it, and whether the
// command still shows what it should.
struct reply_fault {
    const char *name;
    const char *match;
    const char *fault;
    const char *option;
    int code;
    const char *shown; // null: the output lacks it
    const char *log;
};

void PrintTo(const reply_fault &row, std::ostream *out)
{
    *out << row.name;
}

constexpr reply_fault reply_faults[] = {
    {"info_in_two_writes", "WMC 0x06", R"("do": "split", "delay_ms": 30)", "-i", 0, nullptr,
     "Unexpected response length: 322 expected: 644"},
    {"status_in_two_writes", "WMC 0x0B", R"("do": "split", "delay_ms": 30)", "-s", 0, nullptr,
     "Unexpected response length: 77 expected: 154 or 153"},
    {"message_in_two_writes", "WMC 0x13", R"("do": "split", "delay_ms": 30)", "--get-sms", 1,
     nullptr, "Response ends before the message: 768 bytes"},
    {"silence", "WMC 0x13", R"("do": "silence")", "--get-sms", 1, nullptr,
     "Failed to receive WMC reply"},
    {"late", "WMC 0x13", R"("do": "late", "delay_ms": 1500)", "--get-sms", 1, nullptr,
     "Failed to get cellmodem SMS list"},
    {"garbage", "WMC 0x0B", R"("do": "garbage", "bytes": 154)", "-s", 0, "technology 4G LTE\n",
     "Received unexpected response term"},
    {"twice", "WMC 0x06", R"("do": "double")", "-i", 0, "model Simulated LTE\n", ""},
    {"hangup", "WMC 0x06", R"("do": "hangup", "bytes": 600, "return_ms": 20)", "-i", 0, nullptr,
     ""},
};

class bad_reply : public pantech_appliance, public testing::WithParamInterface<reply_fault>
{
};

TEST_P(bad_reply, is_told_and_overcome)
{
    const reply_fault &row = GetParam();
    const std::string option = row.option;
    const std::string wanted = option == "-i"   ? "model Simulated LTE\n"
                               : option == "-s" ? "rssi -71\n"
                                                : "sms1-text Water in the cellar\n";
    bring_up();
    tell_sim(std::string(R"({"faults": [{"count": 0, "match": ")") + row.match + "\", " +
             row.fault + "}]}");
    // On a busy machine the daemon may read so late that two pieces are one for it.
    client_result result;
    wait_for("the fault to show", [&] {
        result = tessera({option});
        return count(result.out, row.shown ? row.shown : wanted) == (row.shown ? 1 : 0);
    });
    EXPECT_EQ(result.code, row.code);
    EXPECT_NE(daemon_log().find(row.log), std::string::npos);
    tell_sim(R"({"clear_faults": true})");
    wait_for("a whole reply", [&] { return count(tessera({option}).out, wanted) == 1; });
}

INSTANTIATE_TEST_SUITE_P(pantech, bad_reply, testing::ValuesIn(reply_faults),
                         [](const auto &row) { return row.param.name; });

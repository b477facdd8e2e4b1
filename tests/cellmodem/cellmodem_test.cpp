#include "backends/select.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/dualsim.h"
#include "cellmodem/markers.h"
#include "cellmodem/slot.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <new>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

TEST(cellmodem, type_names_are_copied_without_overflow)
{
    const struct {
        int type;
        const char *name;
    } rows[] = {{1, "Sierra Wireless CnS (UMTS/GSM)"},
                {2, "Sierra Wireless CnS (CDMA)"},
                {3, "Sierra Wireless Direct IP"},
                {4, "libgobi LTE"},
                {5, "ModemManager"},
                {6, "Pantech WMC"},
                {0, "Unknown"},
                {7, "Unknown"},
                {-1, "Unknown"}};
    for (const auto &row : rows) {
        char buffer[255] = "";
        EXPECT_STREQ(cellmodem_type_name(row.type, buffer, sizeof(buffer)), row.name);
    }
    char small[8];
    memset(small, 0, sizeof(small));
    EXPECT_STREQ(cellmodem_type_name(1, small, sizeof(small)), "Sierra ");
}

TEST(cellmodem, a_record_starts_empty_and_ends_twice_without_harm)
{
    cellmodem *modem = nullptr;
    ASSERT_EQ(cellmodem_create(&modem), 0);
    EXPECT_FALSE(modem->attached);
    EXPECT_EQ(modem->device_state, device_unknown);
    EXPECT_EQ(modem->slots.attach, nullptr);
    EXPECT_EQ(modem->slots.sendsms, nullptr);
    cellmodem_destroy(&modem);
    EXPECT_EQ(modem, nullptr);
    cellmodem_destroy(&modem);
    EXPECT_EQ(modem, nullptr);
}

static int throws_for(int number)
{
    if (number == 1)
        throw std::bad_alloc();
    return number;
}

TEST(cellmodem, nothing_thrown_gets_past_a_slot)
{
    const log_capture log;
    int (*const through_a_slot)(int) = slot<throws_for>;
    EXPECT_EQ(through_a_slot(0), 0);
    EXPECT_EQ(through_a_slot(1), -1);
    EXPECT_EQ(log.count("300 Operation given up: std::bad_alloc"), 1);
}

// Which family the markers select: its type, or the line that its failure logs.
TEST(select, markers_choose_the_family)
{
    const struct {
        std::vector<const char *> markers;
        int type; // 0: none
    } rows[] = {
        {{}, 0},
        {{"sierra_directip", "lte"}, type_sierra_directip},
        {{"sierra_directip"}, 0},
        {{"sierra", "sierra_directip", "lte"}, type_sierra_directip},
        {{"sierra"}, 0},
        {{"lte"}, 0},
        {{"pantech"}, 0},
        {{"sierra", "gsm", "cdma"}, type_sierra_gsm},
        {{"sierra", "cdma", "gobi"}, type_sierra_cdma},
        {{"gobi", "pantech"}, type_gobi},
        {{"pantech", "lte"}, type_pantech},
        {{"sierra_directip", "lte", "gobi", "pantech"}, type_sierra_directip},
    };
    for (const auto &row : rows) {
        const temp_root root;
        const log_capture log;
        std::string all;
        for (const char *marker : row.markers) {
            root.write(std::string("/var/run/.modem/cellmodem_is_") + marker, "");
            all += marker + std::string(" ");
        }
        cellmodem modem;
        EXPECT_EQ(cellmodem_select(modem), row.type ? 0 : -1) << all;
        EXPECT_EQ(modem.type, row.type) << all;
        EXPECT_FALSE(log.has("Failed to support")) << all;
    }
}

TEST(markers, a_file_or_a_directory_counts)
{
    const struct {
        const char *path;
        bool (*is_there)();
    } rows[] = {
        {"/var/run/.modem/cellmodem_is_external", cellmodem_is_external},
        {"/var/run/.modem/cellmodem_is_gsm", cellmodem_is_gsm},
        {"/var/run/.modem/cellmodem_is_cdma", cellmodem_is_cdma},
        {"/var/run/.modem/cellmodem_is_lte", cellmodem_is_lte},
    };
    for (const auto &row : rows) {
        const temp_root root;
        const auto count = [&] {
            return std::count_if(std::begin(rows), std::end(rows),
                                 [](const auto &other) { return other.is_there(); });
        };
        EXPECT_EQ(count(), 0);
        root.write(row.path, "");
        EXPECT_TRUE(row.is_there()) << row.path;
        EXPECT_EQ(count(), 1) << row.path;
        std::filesystem::remove(root.place(row.path));
        std::filesystem::create_directory(root.place(row.path));
        EXPECT_TRUE(row.is_there()) << row.path;
        EXPECT_EQ(count(), 1) << row.path;
    }
}

TEST(holding, a_file_that_cannot_be_made_is_logged)
{
    const temp_root root;
    const log_capture log;
    std::filesystem::remove(root.place("/var/run/.modem"));
    EXPECT_EQ(holding_create(), -1);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"300 Failed to create holding file: "
                                                     "/var/run/.modem/.tessera_wait"}));
}

TEST(holding, a_dead_owner_does_not_hold)
{
    const temp_root root;
    EXPECT_FALSE(holding_present());
    EXPECT_EQ(holding_create(), 0);
    EXPECT_EQ(root.read(holding_path), std::to_string(getpid()) + "\n");
    holding_remove_stale();
    EXPECT_FALSE(holding_present()) << "our own id is our dead predecessor's";

    for (const char *other : {"1\n", "", "somebody\n"}) {
        root.write(holding_path, other);
        holding_remove_stale();
        EXPECT_TRUE(holding_present()) << other;
    }
    const pid_t dead = fork();
    if (dead == 0)
        _exit(0);
    int status;
    waitpid(dead, &status, 0);
    root.write(holding_path, std::to_string(dead) + "\n");
    holding_remove_stale();
    EXPECT_FALSE(holding_present());
}

TEST(dualsim, a_device_with_one_holder_says_so)
{
    const log_capture log;
    int index = 5;
    int mode = 5;
    EXPECT_EQ(dualsim_supported(), 0);
    EXPECT_EQ(dualsim_init(), -1);
    EXPECT_EQ(dualsim_close(), 0);
    EXPECT_EQ(dualsim_get_index(&index), -1);
    EXPECT_EQ(index, -2);
    EXPECT_EQ(dualsim_set_index(1, 1), -1);
    EXPECT_EQ(dualsim_set_next_index(1), -1);
    EXPECT_EQ(dualsim_reset_index(), -1);
    EXPECT_EQ(dualsim_get_mode(&mode), -1);
    EXPECT_EQ(mode, 5);
    EXPECT_EQ(dualsim_set_mode(2), -1);
    const char *unable[] = {"",
                            ", unable to initialise",
                            "",
                            ", unable to get sim index",
                            ", unable to set sim index",
                            ", unable to set next sim index",
                            ", unable to reset sim index",
                            ", unable to get sim mode",
                            ", unable to set sim mode"};
    std::vector<std::string> expected;
    for (const char *what : unable)
        expected.push_back(std::string("600 This device doesn't support dual-sim") + what);
    EXPECT_EQ(log.lines(), expected);
}

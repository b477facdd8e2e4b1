#include "backends/select.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/dualsim.h"
#include "cellmodem/markers.h"
#include "cellmodem/slot.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

#include <filesystem>
#include <iterator>
#include <new>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

TEST(cellmodem, type_names_are_copied_without_overflow)
{
    char buffer[16] = "";
    EXPECT_STREQ(cellmodem_type_name(type_sierra_gsm, buffer, sizeof(buffer)), "Sierra Wireless");
    EXPECT_STREQ(cellmodem_type_name(type_modem_manager, buffer, sizeof(buffer)), "ModemManager");
    for (const int none : {0, 7, -1})
        EXPECT_STREQ(cellmodem_type_name(none, buffer, sizeof(buffer)), "Unknown");
}

TEST(cellmodem, a_record_ends_twice_without_harm)
{
    cellmodem *modem = nullptr;
    ASSERT_EQ(cellmodem_create(&modem), 0);
    for (int i = 0; i < 2; i++) {
        cellmodem_destroy(&modem);
        EXPECT_EQ(modem, nullptr);
    }
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
    const temp_root root;
    bool (*const markers[])() = {cellmodem_is_external, cellmodem_is_gsm, cellmodem_is_cdma,
                                 cellmodem_is_lte};
    const std::string names[] = {"external", "gsm", "cdma", "lte"};
    for (size_t i = 0; i < std::size(names); i++) {
        const std::string path = "/var/run/.modem/cellmodem_is_" + names[i];
        const auto expect_only_this = [&](bool there) {
            for (size_t k = 0; k < std::size(markers); k++)
                EXPECT_EQ(markers[k](), there && k == i) << path << " " << names[k];
        };
        expect_only_this(false);
        root.write(path, "");
        expect_only_this(true);
        std::filesystem::remove(root.place(path));
        std::filesystem::create_directory(root.place(path));
        expect_only_this(true);
        std::filesystem::remove(root.place(path));
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
    int index = 5, mode = 5;
    const std::pair<int, const char *> results[] = {
        {dualsim_supported(), ""},
        {dualsim_init(), ", unable to initialise"},
        {dualsim_close(), ""},
        {dualsim_get_index(&index), ", unable to get sim index"},
        {dualsim_set_index(1, 1), ", unable to set sim index"},
        {dualsim_set_next_index(1), ", unable to set next sim index"},
        {dualsim_reset_index(), ", unable to reset sim index"},
        {dualsim_get_mode(&mode), ", unable to get sim mode"},
        {dualsim_set_mode(2), ", unable to set sim mode"},
    };
    std::vector<std::string> expected;
    for (const auto &[result, unable] : results) {
        EXPECT_EQ(result, *unable ? -1 : 0) << unable;
        expected.push_back(std::string("600 This device doesn't support dual-sim") + unable);
    }
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(index, -2);
    EXPECT_EQ(mode, 5);
}

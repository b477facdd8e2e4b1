// How the API opens, and how it does not.

#include "platform/process.h"
#include "support/swi_fixture.h"

#include <csignal>
#include <filesystem>

#include <sys/file.h>

using swi_opening = swi_fixture;

TEST_F(swi_opening, needs_a_path_and_the_launch_flag)
{
    fake_swi_server server;
    swi_start_parameters parameters;
    parameters.launch = 1;
    EXPECT_EQ(swi_api_open(parameters), swi_system_error);
    ASSERT_EQ(swi_set_text(parameters.server_path, "/bin/swisdk"), 0);
    parameters.launch = 0;
    EXPECT_EQ(swi_api_open(parameters), swi_system_error);
    memset(parameters.server_path, 'x', sizeof(parameters.server_path));
    parameters.launch = 1;
    EXPECT_EQ(swi_api_open(parameters), swi_system_error);
    EXPECT_EQ(open_api(), swi_ok);
    EXPECT_EQ(open_api(), swi_ok) << "open already";
}

TEST_F(swi_opening, fails_by_what_it_meets)
{
    std::filesystem::remove(root.place("/tmp"));
    EXPECT_EQ(open_api(), swi_system_error);
    EXPECT_TRUE(log.has("SWI API: /tmp/SWI_SDK_SOCKET_MUTEX")) << "no directory for the channels";
    std::filesystem::create_directories(root.place("/tmp"));
    EXPECT_EQ(open_api(), swi_system_error) << "no program to start";
    EXPECT_TRUE(log.has("SWI API: /bin/swisdk: No such file or directory"));
    fake_swi_server server;
    server.busy = true;
    EXPECT_EQ(open_api(), swi_busy);
    server.busy = false;
    server.version = swi_version + 1;
    EXPECT_EQ(open_api(), swi_failed);
    server.version = swi_version;
    const unique_fd held(open(root.place(swi_socket_mutex_path).c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
    EXPECT_EQ(open_api(), swi_busy) << "another client is opening";
    ASSERT_EQ(flock(held.get(), LOCK_UN), 0);
    EXPECT_EQ(open_api(), swi_ok);
}

TEST_F(swi_opening, replaces_a_mutex_file_of_somebody_else)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a file away";
    const std::string place = root.place(swi_socket_mutex_path);
    root.write(swi_socket_mutex_path, "");
    ASSERT_EQ(chown(place.c_str(), 65534, 65534), 0);
    const unique_fd theirs(open(place.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(theirs.get(), LOCK_EX), 0);
    fake_swi_server server;
    EXPECT_EQ(open_api(), swi_ok);
    EXPECT_TRUE(log.has("belongs to another user and is made anew"));
    struct stat file;
    ASSERT_EQ(stat(place.c_str(), &file), 0);
    EXPECT_EQ(file.st_uid, 0u);
}

TEST_F(swi_opening, starts_the_program_below_the_root_and_gives_up_when_it_does_not_serve)
{
    std::filesystem::create_directories(root.place("/tmp"));
    // The program's standard streams are nobody's; its name is as the appliance knows it.
    install_program("/bin/swisdk",
                    "#!/bin/sh\necho \"$TESSERA_ROOT\" > \"$TESSERA_ROOT/started\"\n");
    EXPECT_EQ(open_api(), swi_busy);
    EXPECT_EQ(root.read("/started"), root.path() + "\n");
    // One that lives but serves nobody is awaited again, not joined by a second.
    install_program("/bin/swisdk",
                    "#!/bin/sh\necho $$ >> \"$TESSERA_ROOT/lives\"\nexec sleep 600\n");
    EXPECT_EQ(open_api(), swi_busy);
    const std::string lives = root.read("/lives");
    EXPECT_EQ(open_api(), swi_busy);
    EXPECT_EQ(root.read("/lives"), lives) << "started once";
    const int pid = std::stoi(lives);
    ASSERT_EQ(kill(pid, SIGKILL), 0);
    wait_for([&] { return !process_alive(pid); });
    install_program("/bin/swisdk", "");
    EXPECT_EQ(open_api(), swi_system_error);
}

TEST_F(swi_opening, names_both_ends_of_the_channels_and_leaves_no_name_behind)
{
    fake_swi_server server;
    root.write("/tmp/SWI_API_CNRR1_SOCKET_0", "left by a dead client");
    ASSERT_EQ(open_api(), swi_ok);
    for (const char *name : {"CNRR1", "NOTIF1"})
        EXPECT_TRUE(std::filesystem::is_socket(
            root.place(std::string("/tmp/SWI_API_") + name + "_SOCKET_0")))
            << name;
    swi_api_close();
    EXPECT_FALSE(std::filesystem::exists(root.place("/tmp/SWI_API_CNRR1_SOCKET_0")));
    EXPECT_FALSE(std::filesystem::exists(root.place("/tmp/SWI_API_NOTIF1_SOCKET_0")));
}

TEST_F(swi_opening, a_root_too_long_for_a_socket_is_a_clear_error)
{
    const std::string longer = root.path() + std::string(1, '/') + std::string(100, 'x');
    std::filesystem::create_directories(longer + "/tmp");
    setenv("TESSERA_ROOT", longer.c_str(), 1);
    EXPECT_EQ(open_api(), swi_system_error);
    EXPECT_TRUE(log.has("SWI API: /tmp/SWI_SDK_CNRR1_SOCKET_0: File name too long"));
    setenv("TESSERA_ROOT", root.path().c_str(), 1);
}

#include "platform/paths.h"
#include "support/temp_root.h"

#include <cerrno>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/un.h>

TEST(paths, fixed_paths_lie_below_the_root)
{
    setenv("TESSERA_ROOT", "/some/root/", 1);
    EXPECT_EQ(rooted("/var/run/x"), "/some/root/var/run/x");
    EXPECT_EQ(rooted("/dev/cellcommand01"), "/some/root/dev/cellcommand01");
    EXPECT_EQ(rooted("/dev/null"), "/dev/null");
    EXPECT_EQ(rooted("/dev/log"), "/dev/log");
    for (const char *real_root : {"", "/"}) {
        setenv("TESSERA_ROOT", real_root, 1);
        EXPECT_EQ(rooted("/var/run/x"), "/var/run/x");
        EXPECT_EQ(paths_check(), 0);
    }
    setenv("TESSERA_ROOT", "relative", 1);
    EXPECT_EQ(paths_check(), -1);
    unsetenv("TESSERA_ROOT");
    EXPECT_EQ(rooted("/var/run/x"), "/var/run/x");
}

TEST(paths, directories_are_made_with_their_parents)
{
    const temp_root root;
    EXPECT_FALSE(dir_exists("/var/spool/sms/incoming"));
    EXPECT_EQ(make_directories("/var/spool/sms/incoming", 0755), 0);
    EXPECT_TRUE(dir_exists("/var/spool/sms/incoming"));
    EXPECT_EQ(make_directories("/var/spool/sms/incoming", 0755), 0);
    root.write("/var/file", "x");
    EXPECT_TRUE(file_exists("/var/file"));
    EXPECT_FALSE(dir_exists("/var/file"));
    EXPECT_EQ(make_directories("/var/file/below", 0755), -1);
}

TEST(paths, a_path_too_long_for_a_socket_is_refused)
{
    setenv("TESSERA_ROOT", ("/" + std::string(94, 'r')).c_str(), 1);
    sockaddr_un address;
    EXPECT_EQ(socket_address("/12345678", address, 104), 0); // 95 + 9
    EXPECT_EQ(std::string(address.sun_path), "/" + std::string(94, 'r') + "/12345678");
    EXPECT_EQ(socket_address("/123456789", address, 104), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(socket_address("/12345678901", address, 200), 0); // 107: the structure's own limit
    EXPECT_EQ(socket_address("/123456789012", address, 200), -1);
    unsetenv("TESSERA_ROOT");
}

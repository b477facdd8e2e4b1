#include "support/temp_root.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace fs = std::filesystem;

temp_root::temp_root()
{
    char name[] = "/tmp/tessera-test.XXXXXX";
    path_ = mkdtemp(name);
    for (const char *directory : {"/var/run/.modem", "/var/lock", "/tmp", "/dev", "/etc/config"})
        fs::create_directories(path_ + directory);
    setenv("TESSERA_ROOT", path_.c_str(), 1);
}

temp_root::~temp_root()
{
    unsetenv("TESSERA_ROOT");
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void temp_root::write(const std::string &fixed_path, const std::string &content) const
{
    fs::create_directories(fs::path(place(fixed_path)).parent_path());
    std::ofstream(place(fixed_path), std::ios::binary) << content;
}

std::string temp_root::read(const std::string &fixed_path) const
{
    std::ostringstream text;
    text << std::ifstream(place(fixed_path), std::ios::binary).rdbuf();
    return text.str();
}

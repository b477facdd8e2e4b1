#include "support/temp_root.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

namespace fs = std::filesystem;

static std::string content_of(const std::string &place)
{
    std::ostringstream text;
    text << std::ifstream(place, std::ios::binary).rdbuf();
    return text.str();
}

std::string test_data(const std::string &name)
{
    return content_of(TESSERA_TEST_DATA "/" + name);
}

std::string golden(const std::string &name)
{
    return test_data("golden/" + name);
}

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
    return content_of(place(fixed_path));
}

std::vector<std::string> temp_root::read_all(const std::string &fixed_path) const
{
    std::vector<std::string> contents;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(place(fixed_path), ignored))
        contents.push_back(content_of(entry.path()));
    std::sort(contents.begin(), contents.end());
    return contents;
}

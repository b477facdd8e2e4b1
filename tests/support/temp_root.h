// A private root directory for one test, removed at its end. TESSERA_ROOT points to it meanwhile.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

using texts = std::vector<std::string>;

class temp_root
{
public:
    temp_root();
    ~temp_root();
    temp_root(const temp_root &) = delete;
    temp_root &operator=(const temp_root &) = delete;

    [[nodiscard]] const std::string &path() const { return path_; }

    // The place of a fixed path in this root.
    [[nodiscard]] std::string place(const std::string &fixed_path) const
    {
        return path_ + fixed_path;
    }

    // Writes a file, with its directories; reads one ("" when there is none).
    void write(const std::string &fixed_path, const std::string &content) const;
    [[nodiscard]] std::string read(const std::string &fixed_path) const;
    // The contents of a directory's files, sorted; none when there is no directory.
    [[nodiscard]] std::vector<std::string> read_all(const std::string &fixed_path) const;

private:
    std::string path_;
};

// While it exists, waits take a thousandth of their time.
struct short_waits {
    short_waits() { setenv("TESSERA_TIME_SCALE", "0.001", 1); }
    ~short_waits() { unsetenv("TESSERA_TIME_SCALE"); }
};

// The content of a file of the tests' data.
std::string test_data(const std::string &name);

// One of the golden records among them.
std::string golden(const std::string &name);

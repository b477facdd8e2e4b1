#include "sim/ppp_interfaces.h"

#include "sim/root.h"

#include <cerrno>
#include <sstream>

static std::string list_path(const std::string &root)
{
    return root + "/var/run/ppp-interfaces";
}

// The lines of all interfaces but this one.
static int read_others(const std::string &root, const std::string &name, std::string &lines)
{
    std::string text;
    lines.clear();
    if (file_read(list_path(root), text) != 0)
        return errno == ENOENT ? 0 : -1;
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);)
        if (line.substr(0, line.find(' ')) != name)
            lines += line + "\n";
    return 0;
}

int ppp_interface_up(const std::string &root, const std::string &name, const std::string &address)
{
    std::string lines;
    if (read_others(root, name, lines) != 0)
        return -1;
    lines += name;
    lines += " " + address + "\n";
    return file_replace(list_path(root), lines);
}

int ppp_interface_down(const std::string &root, const std::string &name)
{
    std::string lines;
    if (read_others(root, name, lines) != 0)
        return -1;
    return file_replace(list_path(root), lines);
}

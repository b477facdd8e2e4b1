// The root: a directory that holds everything the daemon and its scripts see of the appliance.
// Making one again over an old one replaces what a simulator left there (links, sockets) and keeps
// every file that somebody else has put there.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct sim_family;

// What /etc/config/config.xml says.
struct root_config {
    int64_t ports = 4;
    std::string nmea = "on"; // of the last port, where the GPS receiver would be
    int64_t fixfreq = 5;
};

// Makes the directory and those above it and says its absolute path. 0, or -1 with the reason; a
// path that would leave no room for the names of sockets below it is refused.
int root_create(const std::string &given, std::string &path, std::string &reason);

// Fills it for `family`: directories, markers, scripts, the carrier table, the configuration and the
// shell, a link to `program`. 0, or -1 with the reason.
int root_fill(const std::string &root, const sim_family &family, const std::string &program,
              std::string &reason);

// Writes the configuration file, over whatever is there.
int root_write_config(const std::string &root, const root_config &config);

// Replaces a file as a whole, so that nobody reads half of it. 0, or -1 with errno set.
int file_replace(const std::string &path, std::string_view content, unsigned mode = 0644);

// Reads a file of at most 1 MiB. 0, or -1 with errno set.
int file_read(const std::string &path, std::string &content);

// Reads a process id, alone in its file. -1 if there is none that could be signalled.
long file_read_pid(const std::string &path);

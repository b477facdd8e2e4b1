// Which country and network a mobile country code and mobile network code mean: a table in memory,
// built from the bytes of a CSV file and searched by both codes. It knows no files; carrier/db.h
// brings those and is what back-ends use. docs/carrier-table.md describes the format.
//
// A router may carry every network of the world in it and has little memory. So an entry is twelve
// bytes beside its two names, and what nobody asks for is checked while reading but not kept.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

constexpr size_t carrier_line_max = 254; // what counts of a line, in bytes without its line end
constexpr size_t carrier_text_max = 31;  // a name in bytes; UTF-8, cut between two characters

// What a look-up answers.
struct carrier_network {
    uint16_t mcc = 0;
    uint16_t mnc = 0;
    char country[carrier_text_max + 1] = "";
    char network[carrier_text_max + 1] = "";
};

struct carrier_entry {
    uint16_t mcc;
    uint16_t mnc;
    uint32_t country; // where the names begin in the table's texts
    uint32_t network;
};

struct carrier_table {
    std::vector<carrier_entry> entries; // in the order of their codes, each pair once
    std::string texts;                  // names, a zero behind each
};

// A table in the making. Whoever has the file hands its bytes over in pieces of any size.
struct carrier_loader {
    carrier_table table;
    std::array<char, carrier_line_max + 1> line; // one byte more shows that a line is too long
    size_t line_length = 0;
    bool in_header = true;
    std::string last_country; // files are sorted by country: its name is stored once a run
};

// Reads the next bytes of the file. Lines that are not good are left out, with a log line where a
// number in them is out of range. Throws std::bad_alloc and std::length_error without memory; the
// loader is then good for nothing but its destruction.
void carrier_load(carrier_loader &loader, std::string_view bytes);

// Ends the file, whose last line needs no line feed, and gives the table away. Throws like the above.
[[nodiscard]] carrier_table carrier_load_end(carrier_loader &loader);

// Looks for the network with these codes; of several in the file the first one counts. 0, or -1
// when there is none: `result` is then as it was.
[[nodiscard]] int carrier_find(const carrier_table &table, uint16_t mcc, uint16_t mnc,
                               carrier_network &result);

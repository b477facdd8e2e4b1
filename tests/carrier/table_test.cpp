#include "carrier/table.h"
#include "platform/text.h"
#include "support/log_capture.h"

#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

using texts = std::vector<std::string>;

static const std::string header = "MCC,MCC (int),MNC,MNC (int),ISO,Country,Country Code,Network\n";

static carrier_table load(const std::string &file, size_t piece = 4096)
{
    carrier_loader loader;
    for (size_t at = 0; at < file.size(); at += piece)
        carrier_load(loader, std::string_view(file).substr(at, piece));
    return carrier_load_end(loader);
}

// "COUNTRY|NETWORK", or "none".
static std::string find(const carrier_table &table, unsigned mcc, unsigned mnc)
{
    carrier_network found = {1, 2, "kept", "too"};
    if (carrier_find(table, static_cast<uint16_t>(mcc), static_cast<uint16_t>(mnc), found) != 0) {
        EXPECT_EQ(std::pair(found.mcc, found.mnc), (std::pair<uint16_t, uint16_t>(1, 2)));
        EXPECT_EQ(found.country + std::string("|") + found.network, "kept|too");
        return "none";
    }
    EXPECT_EQ(found.mcc, mcc);
    EXPECT_EQ(found.mnc, mnc);
    return std::string(found.country) + "|" + found.network;
}

TEST(carrier_table, reads_good_lines)
{
    const log_capture log;
    struct {
        const char *line;
        unsigned mcc, mnc;
        const char *found;
    } const rows[] = {
        {"530,1328,05,95,nz,New Zealand,64,Spark\n", 530, 5, "New Zealand|Spark"},
        {"530,1328,05,95,nz,New Zealand,64,Spark", 530, 5, "New Zealand|Spark"},
        {"530,1328,05,95,nz,New Zealand,64,Spark\r\n", 530, 5, "New Zealand|Spark"},
        {"530,1328,05,95,nz,New Zealand,64,Spark, Inc.\r\n", 530, 5, "New Zealand|Spark, Inc."},
        {"530,1328,05,95,nz,New Zealand,64,,Spark,,x,\n", 530, 5, "New Zealand|Spark,,x,"},
        {" 530,+1328,\t+5,-1,nzl, N Z ,64 ,\"Spark\" \n", 530, 5, " N Z |\"Spark\" "},
        {"530,1328,05,95,nz,C\xF4te,64,T\xC3\xA9l\n", 530, 5, "Côte|Tél"},
        {"530th,x,5.9,,n,N,code,S\n", 530, 5, "none"}, // an empty column: seven are left
        {"530th,x,5.9,?,n,N,code,S\n", 530, 5, "N|S"},
        {"x,0,+-7,0,n,N,0,S\n", 0, 0, "N|S"}, // no number counts as 0
        {"66066,0,65541,0,n,N,0,S\n", 530, 5, "N|S"},
        {"-1,0,-65536,0,n,N,0,S\n", 65535, 0, "N|S"},
        {"530,2147483646,5,-2147483647,n,N,0,S\n", 530, 5, "N|S"},
        {",530,,,1328,5,95,nz,New Zealand,64,Spark\n", 530, 5, "New Zealand|Spark"},
        {"530,1328,5,,nz,New Zealand,64,Spark,5\n", 530, 5, "64|5"}, // shifted
    };
    for (const auto &row : rows)
        EXPECT_EQ(find(load(header + row.line), row.mcc, row.mnc), row.found) << row.line;
    EXPECT_EQ(log.lines(), texts{});
}

TEST(carrier_table, leaves_out_bad_lines_and_says_why)
{
    struct {
        const char *line;
        const char *complaint;
    } const rows[] = {
        {"", ""},
        {"\r", ""},
        {",,,,,,,", ""},
        {"530,1328,5,95,nz,New Zealand,64", ""},
        {"530,1328,5,95,nz,New Zealand,64,", ""},
        {"530,1328,5,95,nz,New Zealand,64,\r", ""},
        {"99999999999", "300 MCC is invalid: 99999999999"}, // the columns are looked at in order
        {"2147483647,1328,5,95,nz,New Zealand,64,Spark", "300 MCC is invalid: 2147483647"},
        {"-99999999999999999999x,1,5,95,nz,New Zealand,64,Spark",
         "300 MCC is invalid: -99999999999999999999x"},
        {"530,-2147483648,99999999999,95,nz,New Zealand,64,Spark",
         "300 MCC is invalid: -2147483648"},
        {"530,1328, +99999999999,95,nz,New Zealand,64,Spark", "300 MnC is invalid:  +99999999999"},
        {"530,1328,5,99999999999,nz,New Zealand,64,Spark", "300 MNC is invalid: 99999999999"},
        {"530,1328,5,95,nz,New Zealand,99999999999,Spark",
         "300 Country code is invalid: 99999999999"},
        {"530,1328,5,95,nz,New Zealand,2147483648\xE9,Spark",
         "300 Country code is invalid: 2147483648é"},
    };
    for (const auto &row : rows) {
        const log_capture log;
        const carrier_table table = load(header + row.line + "\n505,1285,1,31,au,Australia,61,T\n");
        EXPECT_EQ(find(table, 505, 1), "Australia|T") << "the line after: " << row.line;
        EXPECT_EQ(table.entries.size(), 1u) << row.line;
        EXPECT_EQ(log.lines(), *row.complaint ? texts{row.complaint} : texts{}) << row.line;
    }
}

TEST(carrier_table, the_first_line_is_no_entry_whatever_it_says)
{
    const std::string line = "530,1328,05,95,nz,New Zealand,64,Spark\n";
    for (const std::string &file :
         {std::string(), header, line, std::string(1000, 'h') + "," + line})
        EXPECT_EQ(load(file).entries.size(), 0u) << file;
    EXPECT_EQ(find(load("\n" + line), 530, 5), "New Zealand|Spark");
}

TEST(carrier_table, cuts_names_and_lines)
{
    const std::string forty = "0123456789012345678901234567890123456789";
    EXPECT_EQ(find(load(header + "1,1,1,1,n," + forty + ",1," + forty + "\n"), 1, 1),
              forty.substr(0, 31) + "|" + forty.substr(0, 31));
    EXPECT_EQ(find(load(header + "1,1,1,1,n," + forty.substr(0, 31) + ",1,N\n"), 1, 1),
              forty.substr(0, 31) + "|N");

    // The network's name begins at byte 250 of the line; only 254 count.
    const std::string start = "1,1,1,1," + std::string(232, 'i') + ",Land,1,";
    const std::string next = "2,2,2,2,n,Next,2,N\n";
    ASSERT_EQ(start.size(), 248u);
    EXPECT_EQ(find(load(header + start + "abcdef\n"), 1, 1), "Land|abcdef");
    EXPECT_EQ(find(load(header + start + "abcdef\r\n"), 1, 1), "Land|abcdef");
    const carrier_table table = load(header + start + "abcdefg,3,3,3,3,n,Tail,3,T\n" + next);
    EXPECT_EQ(find(table, 1, 1), "Land|abcdef");
    EXPECT_EQ(find(table, 2, 2), "Next|N");
    EXPECT_EQ(find(table, 3, 3), "none");
    EXPECT_EQ(table.entries.size(), 2u) << "the rest of a long line is no line";
    EXPECT_EQ(find(load(header + start + "abcdé\n"), 1, 1), "Land|abcdé");
    EXPECT_EQ(find(load(header + start + "abcdeé\n"), 1, 1), "Land|abcde") << "no half character";
    for (const char *last : {"é", "\xE9"})
        EXPECT_EQ(find(load(header + "1,1,1,1,n,C,1," + forty.substr(0, 30) + last + "\n"), 1, 1),
                  "C|" + forty.substr(0, 30));
}

TEST(carrier_table, a_line_of_a_megabyte_costs_only_itself)
{
    const log_capture log;
    std::string file = header + "1,1,1,1,n,Before,1,B\n3,3,3,3,n,Long,3,";
    file.append(1 << 20, 'x').append("\n2,2,2,2,n,After,2,A\n");
    carrier_table table = load(file);
    EXPECT_EQ(find(table, 1, 1), "Before|B");
    EXPECT_EQ(find(table, 2, 2), "After|A");
    EXPECT_EQ(find(table, 3, 3), "Long|" + std::string(31, 'x'));
    table = load(header + std::string(1 << 20, '7'));
    EXPECT_EQ(table.entries.size(), 0u);
    EXPECT_EQ(log.lines(), texts{"300 MCC is invalid: " + std::string(carrier_line_max, '7')});
}

TEST(carrier_table, a_zero_byte_ends_the_text_of_its_line)
{
    const std::string zero(1, '\0');
    const carrier_table table = load(header + "1,1,1,1,n,C,1,Net" + zero + "work\n2,2,2," + zero +
                                     "2,n,C,1,N\n3,3,3,3,n,C,1,N\n");
    EXPECT_EQ(find(table, 1, 1), "C|Net");
    EXPECT_EQ(find(table, 3, 3), "C|N");
    EXPECT_EQ(table.entries.size(), 2u);
}

TEST(carrier_table, a_country_is_kept_once_for_lines_in_a_row)
{
    std::string file = header;
    for (int i = 0; i < 300; i++)
        file +=
            "1,0," + std::to_string(i) + ",0,cc,Country " + std::to_string(i / 100 % 2) + ",1,N\n";
    const carrier_table table = load(file);
    EXPECT_EQ(table.texts.size(), 3 * sizeof("Country 0") + 300 * sizeof("N"));
    for (const auto &[mnc, found] : {std::pair(99u, "Country 0|N"),
                                     {100u, "Country 1|N"},
                                     {200u, "Country 0|N"},
                                     {299u, "Country 0|N"}})
        EXPECT_EQ(find(table, 1, mnc), found);
}

// Against the plain reading of the rule: the first line with these codes, whatever the order.
TEST(carrier_table, a_hundred_thousand_lines_in_any_order)
{
    std::mt19937 random(7);
    const auto below = [&random](unsigned end) { return static_cast<unsigned>(random() % end); };
    std::map<std::pair<unsigned, unsigned>, std::string> first;
    std::string file = header;
    for (int i = 0; i < 100000; i++) {
        const unsigned mcc = below(1000);
        const unsigned mnc = below(1000);
        const std::string country = "Country " + std::to_string(mcc % 240);
        const std::string network = "Network " + std::to_string(i);
        file += std::to_string(mcc) + ",1," + std::to_string(mnc) + ",1,cc," + country + ",1," +
                network + "\n";
        first.try_emplace({mcc, mnc}, country + "|" + network);
    }
    const carrier_table table = load(file);
    EXPECT_EQ(table.entries.size(), first.size());
    int wrong = 0;
    for (unsigned mcc = 0; mcc <= 1000; mcc++)
        for (unsigned mnc = 0; mnc <= 1000; mnc += 1 + below(16)) {
            const auto line = first.find({mcc, mnc});
            wrong += find(table, mcc, mnc) != (line == first.end() ? "none" : line->second);
        }
    EXPECT_EQ(wrong, 0);
    const size_t kept = table.entries.capacity() * sizeof(carrier_entry) + table.texts.capacity();
    EXPECT_LT(kept, file.size()) << "memory of the table";
}

// Bytes of no meaning, in pieces of any size: the same table, every text whole and readable.
TEST(carrier_table, binary_files_and_odd_pieces)
{
    std::mt19937 random(11);
    const std::string common = "0123456789,,,,,,,,\n\r -+ab\xC3\xA9";
    for (int round = 0; round < 40; round++) {
        std::string file;
        for (int i = 0; i < 20000; i++)
            file += round % 2 ? common[random() % common.size()] : static_cast<char>(random());
        const carrier_table whole = load(file, file.size());
        for (const carrier_entry &entry : whole.entries) {
            const std::string found = find(whole, entry.mcc, entry.mnc);
            EXPECT_TRUE(text_is_utf8(found));
            EXPECT_LE(found.size(), 2 * carrier_text_max + 1);
        }
        for (const size_t piece : {1u, 7u, 255u}) {
            const carrier_table pieced = load(file, piece);
            EXPECT_EQ(pieced.texts, whole.texts);
            EXPECT_EQ(pieced.entries.size(), whole.entries.size());
        }
        EXPECT_TRUE(round % 2 == 0 || !whole.entries.empty()) << "the lines were none at all";
    }
}

// The table that is installed: all good, and its coded columns true. They are the codes' digits as
// a network sends them, F standing for the third digit of a short MNC.
TEST(carrier_table, the_shipped_table_is_sound)
{
    const log_capture log;
    std::ostringstream content;
    content << std::ifstream(TESSERA_CARRIER_TABLE, std::ios::binary).rdbuf();
    const carrier_table table = load(content.str());
    EXPECT_EQ(table.entries.size(), 41u);
    EXPECT_EQ(find(table, 1, 1), "Test Country|Test Network");
    EXPECT_EQ(find(table, 530, 5), "New Zealand|Spark");
    EXPECT_EQ(find(table, 334, 20), "Mexico|Telcel");

    std::istringstream lines(content.str());
    std::string line, previous;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
        std::istringstream columns(line);
        texts column;
        for (std::string text; std::getline(columns, text, ',');)
            column.push_back(text);
        ASSERT_EQ(column.size(), 8u) << line;
        EXPECT_EQ(column[0].size(), 3u) << line;
        EXPECT_EQ(std::stoi(column[1]), std::stoi(column[0], nullptr, 16)) << line;
        ASSERT_TRUE(column[2].size() == 2 || column[2].size() == 3) << line;
        EXPECT_EQ(std::stoi(column[3]),
                  std::stoi(column[2] + (column[2].size() == 2 ? "f" : ""), nullptr, 16))
            << line;
        EXPECT_EQ(column[4].size(), 2u) << line;
        EXPECT_LT(previous, column[0] + column[2]) << "sorted, each once";
        previous = column[0] + column[2];
    }
    EXPECT_EQ(log.lines(), texts{});
}

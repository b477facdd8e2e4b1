// What a carrier table of 100,000 lines costs: to load, to keep and to look something up in. The
// yardstick is the plain way, a linked list with an entry of its own for each line, read with the C
// library's line and number functions and walked from its head for each look-up.

#include "carrier/db.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

constexpr int line_count = 100000;
constexpr int look_ups = 200; // a walk takes its time
constexpr int repeats = 15;
constexpr double look_up_goal = 0.01;
constexpr double load_goal = 1.0;
constexpr double memory_goal = 0.5;

[[noreturn]] static void give_up(const char *what)
{
    perror(what);
    exit(1);
}

// ---- the yardstick

struct list_entry {
    uint16_t mcc;
    int32_t mcc_coded;
    uint16_t mnc;
    int32_t mnc_coded;
    char iso[3];
    char country[32];
    int32_t dialling_code;
    char network[32];
    list_entry *previous, *next;
};

struct list {
    list_entry *head = nullptr, *tail = nullptr;
    ~list()
    {
        while (head)
            free(std::exchange(head, head->next));
    }
};

static void append(list &entries, char *line)
{
    char *columns[8], *rest = nullptr;
    for (char *&column : columns) {
        const char *ends = &column == &columns[7] ? "\n" : ",\n";
        column = strtok_r(&column == columns ? line : nullptr, ends, &rest);
        if (!column)
            return;
    }
    const auto number = [&columns](int i) { return strtol(columns[i], nullptr, 10); };
    auto *entry = static_cast<list_entry *>(calloc(1, sizeof(list_entry)));
    if (!entry)
        give_up("calloc");
    entry->mcc = static_cast<uint16_t>(number(0));
    entry->mcc_coded = static_cast<int32_t>(number(1));
    entry->mnc = static_cast<uint16_t>(number(2));
    entry->mnc_coded = static_cast<int32_t>(number(3));
    strncpy(entry->iso, columns[4], sizeof(entry->iso) - 1);
    strncpy(entry->country, columns[5], sizeof(entry->country) - 1);
    entry->dialling_code = static_cast<int32_t>(number(6));
    strncpy(entry->network, columns[7], sizeof(entry->network) - 1);
    entry->previous = entries.tail;
    (entries.tail ? entries.tail->next : entries.head) = entry;
    entries.tail = entry;
}

static void load_list(const std::string &path, list &entries)
{
    FILE *file = fopen(path.c_str(), "re");
    if (!file)
        give_up(path.c_str());
    char line[256];
    bool header = true;
    while (fgets(line, sizeof(line), file))
        if (!std::exchange(header, false))
            append(entries, line);
    fclose(file);
}

static bool walk(const list &entries, uint16_t mcc, uint16_t mnc, carrier_network &result)
{
    for (const list_entry *entry = entries.head; entry; entry = entry->next)
        if (entry->mcc == mcc && entry->mnc == mnc) {
            result.mcc = mcc;
            result.mnc = mnc;
            memcpy(result.country, entry->country, sizeof(result.country));
            memcpy(result.network, entry->network, sizeof(result.network));
            return true;
        }
    return false;
}

// ---- the file

struct code_pair {
    uint16_t mcc, mnc;
};

// Sorted by country like real tables, within it by network.
static std::vector<code_pair> write_table(const std::string &path)
{
    FILE *file = fopen(path.c_str(), "we");
    if (!file)
        give_up(path.c_str());
    std::vector<code_pair> codes;
    fputs("MCC,MCC (int),MNC,MNC (int),ISO,Country,Country Code,Network\n", file);
    for (int i = 0; i < line_count; i++) {
        const int mcc = 200 + i / 200;
        const int mnc = i % 200;
        fprintf(file, "%03d,%d,%02d,%d,cc,Country Number %d,%d,Network Number %d\n", mcc, mcc, mnc,
                mnc, mcc, mcc, i);
        codes.push_back({static_cast<uint16_t>(mcc), static_cast<uint16_t>(mnc)});
    }
    if (fclose(file) != 0)
        give_up(path.c_str());
    return codes;
}

static carrier_table load_table(const std::string &path)
{
    FILE *file = fopen(path.c_str(), "re");
    if (!file)
        give_up(path.c_str());
    carrier_loader loader;
    char piece[8192];
    for (size_t got; (got = fread(piece, 1, sizeof(piece), file)) > 0;)
        carrier_load(loader, {piece, got});
    fclose(file);
    return carrier_load_end(loader);
}

// ---- measuring

static double microseconds(const std::function<void()> &run)
{
    const auto start = std::chrono::steady_clock::now();
    run();
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
    return took.count();
}

// In turn, so that a machine that slows down slows both; the medians.
static void compare(const char *name, int operations, const std::function<void()> &subject,
                    const char *yardstick_name, const std::function<void()> &yardstick, double goal)
{
    std::vector<double> subjects, yardsticks;
    for (int i = 0; i < repeats; i++) {
        subjects.push_back(microseconds(subject) / operations);
        yardsticks.push_back(microseconds(yardstick) / operations);
    }
    std::sort(subjects.begin(), subjects.end());
    std::sort(yardsticks.begin(), yardsticks.end());
    const double ours = subjects[repeats / 2];
    const double theirs = yardsticks[repeats / 2];
    printf("%-34s %10.2f us   %s %.2f us   ratio %.4f (goal %.2f)\n", name, ours, yardstick_name,
           theirs, ours / theirs, goal);
}

static void compare_look_ups(const std::vector<code_pair> &codes, const list &entries)
{
    std::vector<code_pair> wanted;
    for (size_t i = 0; i < look_ups; i++)
        wanted.push_back(codes[i * 79193 % codes.size()]); // all over the table
    wanted.back() = {1, 1};                                // one that is not there
    const auto count = [&wanted](const auto &found) {
        return std::count_if(wanted.begin(), wanted.end(), found);
    };
    const auto expect = [](long found) {
        if (found != look_ups - 1)
            give_up("look-up");
    };
    carrier_network result;
    compare(
        "look-up among 100,000", look_ups,
        [&] {
            expect(count([&result](const code_pair &codes_of) {
                return carrier_db_lookup(result, codes_of.mcc, codes_of.mnc) == 0;
            }));
        },
        "walk through a list",
        [&] {
            expect(count([&](const code_pair &codes_of) {
                return walk(entries, codes_of.mcc, codes_of.mnc, result);
            }));
        },
        look_up_goal);
}

int main()
{
    std::string root = (std::filesystem::temp_directory_path() / "carrier_bench.XXXXXX").string();
    if (!mkdtemp(root.data()))
        give_up(root.c_str());
    std::filesystem::create_directory(root + "/etc");
    setenv("TESSERA_ROOT", root.c_str(), 1);
    const std::string path = root + carrier_db_path;
    const std::vector<code_pair> codes = write_table(path);

    compare(
        "loading 100,000 lines", 1, [&path] { (void)load_table(path); }, "into a list",
        [&path] {
            list entries;
            load_list(path, entries);
        },
        load_goal);

    list entries;
    load_list(path, entries);
    carrier_network first;
    if (carrier_db_create() != 0 || carrier_db_lookup(first, codes[0].mcc, codes[0].mnc) != 0)
        give_up("carrier_db_lookup");
    compare_look_ups(codes, entries);

    const carrier_table table = load_table(path);
    const size_t ours = table.entries.capacity() * sizeof(carrier_entry) + table.texts.capacity();
    const size_t theirs = line_count * sizeof(list_entry);
    printf("%-34s %10zu KiB  a list's entries %zu KiB   ratio %.2f (goal %.2f)\n",
           "memory of 100,000 entries", ours / 1024, theirs / 1024,
           static_cast<double>(ours) / static_cast<double>(theirs), memory_goal);
    carrier_db_free();
    std::filesystem::remove_all(root);
    return 0;
}

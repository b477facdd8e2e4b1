#include "carrier/table.h"

#include "platform/log.h"
#include "platform/text.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <utility>

enum column {
    column_mcc,
    column_mcc_coded,
    column_mnc,
    column_mnc_coded,
    column_iso,
    column_country,
    column_dialling_code,
    column_network,
    column_count,
};

// The columns in order: what a number is called in a complaint, nothing for a text.
constexpr std::array<const char *, column_count> number_names = {
    "MCC", "MCC", "MnC", "MNC", nullptr, nullptr, "Country code", nullptr,
};

struct carrier_row {
    std::array<std::string_view, column_count> texts;
    std::array<int32_t, column_count> numbers = {};
};

// Takes the next column off the line. Commas in a row are one: an empty column does not count. The
// last column is what is left, since names of companies have commas in them.
static std::string_view take_column(std::string_view &line, bool last)
{
    line.remove_prefix(std::min(line.find_first_not_of(','), line.size()));
    const std::string_view text = last ? line : line.substr(0, line.find(','));
    line.remove_prefix(text.size());
    return text;
}

// A number is what a text begins with, and 0 where it begins with none. -1 when it does not fit into
// 32 bits; both ends of that range count as not fitting, on every machine.
static int read_number(std::string_view text, int32_t &value)
{
    value = 0;
    text.remove_prefix(std::min(text.find_first_not_of(" \t\v\f\r"), text.size()));
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc::result_out_of_range || value == INT32_MAX || value == INT32_MIN ? -1
                                                                                               : 0;
}

static int read_row(std::string_view line, carrier_row &row)
{
    for (size_t i = 0; i < column_count; i++) {
        row.texts[i] = take_column(line, i + 1 == column_count);
        if (row.texts[i].empty())
            return -1;
        if (number_names[i] && read_number(row.texts[i], row.numbers[i]) != 0) {
            log_message(log_error, "%s is invalid: %s", number_names[i],
                        text_from_bytes(row.texts[i]).c_str());
            return -1;
        }
    }
    return 0;
}

// Adds a name to the table's texts and returns its place there.
static uint32_t store(std::string &texts, std::string_view column)
{
    if (texts.size() > UINT32_MAX - 2 * carrier_text_max)
        throw std::bad_alloc(); // no place that an entry could name
    const auto place = static_cast<uint32_t>(texts.size());
    const std::string text = text_from_bytes(column);
    texts.append(text_cut(text, carrier_text_max)).push_back('\0');
    return place;
}

static void add_row(carrier_loader &loader, const carrier_row &row)
{
    carrier_table &table = loader.table;
    const std::string_view country = row.texts[column_country];
    const bool known = !table.entries.empty() && country == loader.last_country;
    carrier_entry entry = {};
    entry.mcc = static_cast<uint16_t>(row.numbers[column_mcc]);
    entry.mnc = static_cast<uint16_t>(row.numbers[column_mnc]);
    entry.country = known ? table.entries.back().country : store(table.texts, country);
    entry.network = store(table.texts, row.texts[column_network]);
    table.entries.push_back(entry);
    if (!known)
        loader.last_country = country;
}

static void end_line(carrier_loader &loader)
{
    std::string_view line(loader.line.data(), loader.line_length);
    loader.line_length = 0;
    if (std::exchange(loader.in_header, false))
        return;
    line = text_cut(line, carrier_line_max);
    line = line.substr(0, line.find('\0'));
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    carrier_row row;
    if (read_row(line, row) == 0)
        add_row(loader, row);
}

void carrier_load(carrier_loader &loader, std::string_view bytes)
{
    while (!bytes.empty()) {
        const std::string_view part = bytes.substr(0, bytes.find('\n'));
        const size_t taken = std::min(part.size(), loader.line.size() - loader.line_length);
        memcpy(loader.line.data() + loader.line_length, part.data(), taken);
        loader.line_length += taken;
        bytes.remove_prefix(part.size());
        if (!bytes.empty()) {
            bytes.remove_prefix(1);
            end_line(loader);
        }
    }
}

static uint32_t codes(const carrier_entry &entry)
{
    return static_cast<uint32_t>(entry.mcc) << 16 | entry.mnc;
}

carrier_table carrier_load_end(carrier_loader &loader)
{
    end_line(loader);
    auto &entries = loader.table.entries;
    // The names of networks were stored one after the other, so their places tell the file's order.
    const auto before = [](const carrier_entry &a, const carrier_entry &b) {
        return std::pair(codes(a), a.network) < std::pair(codes(b), b.network);
    };
    const auto equal = [](const carrier_entry &a, const carrier_entry &b) {
        return codes(a) == codes(b);
    };
    if (!std::is_sorted(entries.begin(), entries.end(), before)) // most files are
        std::sort(entries.begin(), entries.end(), before);
    entries.erase(std::unique(entries.begin(), entries.end(), equal), entries.end());
    entries.shrink_to_fit();
    loader.table.texts.shrink_to_fit();
    return std::move(loader.table);
}

int carrier_find(const carrier_table &table, uint16_t mcc, uint16_t mnc, carrier_network &result)
{
    const carrier_entry wanted = {mcc, mnc, 0, 0};
    const auto found = std::lower_bound(
        table.entries.begin(), table.entries.end(), wanted,
        [](const carrier_entry &a, const carrier_entry &b) { return codes(a) < codes(b); });
    if (found == table.entries.end() || codes(*found) != codes(wanted))
        return -1;
    result.mcc = mcc;
    result.mnc = mnc;
    const auto copy = [&table](char(&to)[carrier_text_max + 1], uint32_t place) {
        const std::string_view text(table.texts.data() + place);
        memcpy(to, text.data(), text.size() + 1);
    };
    copy(result.country, found->country);
    copy(result.network, found->network);
    return 0;
}

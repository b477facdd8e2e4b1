// Any file gives a table that is in order, whose names are readable and which holds no more than the
// file could say, whatever the pieces in which the file is read. The first byte sets their size.

#include "carrier/table.h"
#include "platform/text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

static carrier_table load(std::string_view file, size_t piece)
{
    carrier_loader loader;
    for (; !file.empty(); file.remove_prefix(std::min(piece, file.size())))
        carrier_load(loader, file.substr(0, piece));
    return carrier_load_end(loader);
}

static bool readable(const char *name, const char *ends)
{
    return *name != '\0' && strlen(name) <= carrier_text_max && text_is_utf8(name) &&
           !strpbrk(name, ends);
}

static void check(const carrier_table &table, std::string_view file)
{
    const auto lines = static_cast<size_t>(std::count(file.begin(), file.end(), '\n'));
    if (table.entries.size() > lines)
        abort();
    const carrier_entry *last = nullptr;
    for (const carrier_entry &entry : table.entries) {
        carrier_network found;
        if (last && (last->mcc > entry.mcc || (last->mcc == entry.mcc && last->mnc >= entry.mnc)))
            abort();
        if (carrier_find(table, entry.mcc, entry.mnc, found) != 0 || found.mcc != entry.mcc ||
            found.mnc != entry.mnc || !readable(found.country, ",\n") ||
            !readable(found.network, "\n") ||
            strcmp(found.network, table.texts.data() + entry.network) != 0)
            abort();
        last = &entry;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view file(reinterpret_cast<const char *>(data) + 1, size - 1);
    const carrier_table whole = load(file, file.size());
    const carrier_table pieced = load(file, size_t{data[0]} + 1);
    check(whole, file);
    const auto equal = [](const carrier_entry &a, const carrier_entry &b) {
        return a.mcc == b.mcc && a.mnc == b.mnc && a.country == b.country && a.network == b.network;
    };
    if (pieced.texts != whole.texts ||
        !std::equal(whole.entries.begin(), whole.entries.end(), pieced.entries.begin(),
                    pieced.entries.end(), equal))
        abort();
    return 0;
}

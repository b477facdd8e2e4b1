#include "backends/sierra/names.h"

std::string name_of(const name_table &table, uint32_t code)
{
    for (const code_name &row : table.rows)
        if (row.code == code)
            return row.text;
    switch (table.print) {
    case other_code::text_and_signed:
        return table.other + std::to_string(static_cast<int32_t>(code));
    case other_code::text_and_unsigned:
        return table.other + std::to_string(code);
    case other_code::text:
        break;
    }
    return table.other;
}

std::string names_of_mask(std::span<const code_name> rows, uint32_t mask)
{
    std::string list;
    for (const code_name &row : rows)
        if ((mask & row.code) != 0)
            list_append(list, row.text);
    return list;
}

void list_append(std::string &list, const std::string &entry)
{
    if (!list.empty())
        list += ", ";
    list += entry;
}

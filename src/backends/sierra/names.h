// The reader of the families' name tables: codes of the modem and their texts.
#pragma once

#include <cstdint>
#include <span>
#include <string>

struct code_name {
    uint32_t code;
    const char *text;
};

// What a code that is in no row reads like.
enum class other_code { text, text_and_signed, text_and_unsigned };

struct name_table {
    std::span<const code_name> rows;
    const char *other; // in front of the number, if there is one
    other_code print = other_code::text;
};

[[nodiscard]] std::string name_of(const name_table &table, uint32_t code);

// The names of all bits of a mask, in the order of the rows, as a list "a, b, c".
[[nodiscard]] std::string names_of_mask(std::span<const code_name> rows, uint32_t mask);

// Appends an entry to a list "a, b, c".
void list_append(std::string &list, const std::string &entry);

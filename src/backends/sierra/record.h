// The reader of the families' record tables. A record is a list of rows: the key, the query that its
// value comes from, and the value. Rows in a row with the same query share one request. A query that
// fails takes its rows with it and makes the record's result -1; the other rows are still written.
#pragma once

#include "backends/sierra/cns.h"
#include "backends/sierra/names.h"
#include "publish/output.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

struct record_value {
    enum class kind { absent, text, number } kind = kind::absent;
    std::string text;
    int64_t number = 0;
    bool unknown = false; // written all the same, but the record's result is -1
};

inline record_value record_text(std::string text)
{
    return {record_value::kind::text, std::move(text), 0, false};
}

inline record_value record_number(int64_t number)
{
    return {record_value::kind::number, {}, number, false};
}

inline record_value record_unknown()
{
    return {record_value::kind::text, "Unknown", 0, true};
}

// What a query says.
enum record_query { query_failed = -1, query_ok = 0, query_empty = 1 };

// `Data` is what the family's queries fill and its values read.
template <class Data>
struct record_row {
    const char *key;
    int (*query)(Data &); // a record_query; null: the value needs none. Logs its own failure.
    record_value (*value)(const Data &);
};

// What a query whose request had this result says; `failure` begins the line that is logged.
int record_answered(int result, const char *failure);

// The beginning of such a line as a template's argument.
template <size_t N>
struct record_failure {
    char text[N];
    consteval record_failure(const char (&words)[N]) { std::copy_n(words, N, text); }
};

// A query that is one request for one member of the data.
template <auto Request, auto Member, record_failure Failure, class Data>
int record_ask(Data &data)
{
    return record_answered(Request(data.*Member, sierra_timeout_ms), Failure.text);
}

// The text of a modem's bytes that end with a NUL, of at most so many bytes.
[[nodiscard]] std::string record_cut(const char *bytes, size_t bytes_max);

// The names of items as a list "a, b, c" of at most so many bytes.
template <class Item, class Name>
record_value record_list(std::span<const Item> items, size_t bytes_max, Name name)
{
    std::string list;
    for (const Item &item : items)
        list_append(list, name(item));
    return record_text(record_cut(list.c_str(), bytes_max));
}

void record_output(FILE *out, const char *key, const record_value &value, int mode);

// Writes the rows; the caller brackets them. 0 or -1.
template <class Data>
int record_write(std::span<const record_row<Data>> rows, Data &data, FILE *out, int mode)
{
    int result = 0;
    int (*last_query)(Data &) = nullptr;
    int answer = query_ok;
    for (const record_row<Data> &row : rows) {
        if (row.query && row.query != last_query) {
            last_query = row.query;
            answer = row.query(data);
            if (answer == query_failed)
                result = -1;
        }
        if (row.query && answer != query_ok)
            continue;
        const record_value value = row.value(data);
        if (value.unknown)
            result = -1;
        record_output(out, row.key, value, mode);
    }
    return result;
}

// Whole records: the brackets and between them the rows. 0 or -1.
template <class Data>
int record_write_info(std::span<const record_row<Data>> rows, Data data, FILE *out, int mode)
{
    info_begin(out, mode);
    const int result = record_write(rows, data, out, mode);
    info_end(out, mode);
    return result;
}

template <class Data>
int record_write_status(std::span<const record_row<Data>> rows, Data data, FILE *out, int mode)
{
    status_begin(out, mode);
    const int result = record_write(rows, data, out, mode);
    status_end(out, mode);
    return result;
}

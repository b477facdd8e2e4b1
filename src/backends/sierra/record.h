// The reader of the families' record tables. A record is a list of rows: the key, the query that its
// value comes from, and the value. Rows in a row with the same query share one request. A query that
// fails takes its rows with it and makes the record's result -1; the other rows are still written.
#pragma once

#include "publish/output.h"

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

inline void record_output(FILE *out, const char *key, const record_value &value, int mode)
{
    if (value.kind == record_value::kind::text)
        output_text(out, key, value.text.c_str(), mode, true);
    else if (value.kind == record_value::kind::number)
        output_longlong(out, key, value.number, mode, true);
}

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

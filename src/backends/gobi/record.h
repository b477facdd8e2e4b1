// The reader of the Gobi family's records. A record is two tables: its queries, which are asked first
// and as far as possible together, and its rows, each with its key and its value. A query without an
// answer takes its rows with it and nothing else.
//
// `Facts` is what the queries fill and the rows read. It has `codes`, an array with a place for each
// query, all of them gobi_not_asked.
#pragma once

#include "backends/gobi/names.h"
#include "backends/gobi/operations.h"
#include "platform/log.h"
#include "qmi/questions.h"

#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include <netinet/in.h>

constexpr uint32_t gobi_not_asked = UINT32_MAX;
constexpr int gobi_no_query = -1;

template <class Facts>
struct gobi_query {
    qmi_question (*ask)(Facts &);
    const char *failure = nullptr; // begins the line about a failure, if there is to be one
    bool (*wanted)(const Facts &) = nullptr;
    int behind = gobi_no_query; // needs that one's answer to be asked
    int beside = gobi_no_query; // needs that one's answer to mean something
};

// A list of names, written also when it is empty: that is then what the modem says.
struct gobi_list {
    std::string names;
};

// Nothing, a text, a list, a number or an address. Nothing, and an empty text, is not written.
using gobi_value = std::variant<std::monostate, std::string, gobi_list, int64_t, in_addr, in6_addr>;

void gobi_output(FILE *out, const char *key, const gobi_value &value, int mode, bool push);

// A text of the modem's: as gobi_text, nothing if there is none.
[[nodiscard]] gobi_value gobi_text_value(const std::optional<std::string> &bytes);

// The name of a code, nothing if it has none.
[[nodiscard]] gobi_value gobi_name_value(gobi_names names, size_t code);

template <class Facts>
struct gobi_row {
    const char *key;
    int query; // whose answer it is from
    gobi_value (*value)(const Facts &);
    bool push = false;
};

// Asks; 0, or -1 when not one request reached the modem and came back.
template <class Facts>
int gobi_ask(std::span<const gobi_query<Facts>> queries, Facts &facts)
{
    int result = -1;
    std::vector<qmi_question> questions;
    std::vector<size_t> asked;
    do {
        questions.clear();
        asked.clear();
        for (size_t i = 0; i < queries.size(); i++) {
            const gobi_query<Facts> &query = queries[i];
            if (facts.codes[i] != gobi_not_asked || (query.wanted && !query.wanted(facts)) ||
                (query.behind != gobi_no_query &&
                 facts.codes[static_cast<size_t>(query.behind)] != qmi_ok))
                continue;
            questions.push_back(query.ask(facts));
            asked.push_back(i);
        }
        qmi_ask_all(gobi_handle(), questions);
        for (size_t i = 0; i < asked.size(); i++) {
            const uint32_t code = facts.codes[asked[i]] = questions[i].code;
            if (code == qmi_ok || code >= qmi_modem_error)
                result = 0;
        }
    } while (!questions.empty());
    for (size_t i = 0; i < queries.size(); i++) {
        const int beside = queries[i].beside;
        if (beside != gobi_no_query && facts.codes[static_cast<size_t>(beside)] != qmi_ok)
            facts.codes[i] = gobi_not_asked;
        else if (queries[i].failure && facts.codes[i] != qmi_ok && facts.codes[i] != gobi_not_asked)
            log_message(log_debug, "%s: %lu", queries[i].failure,
                        static_cast<unsigned long>(facts.codes[i]));
    }
    return result;
}

// Writes the rows; the caller brackets them.
template <class Facts>
void gobi_write(std::span<const gobi_row<Facts>> rows, const Facts &facts, FILE *out, int mode)
{
    for (const gobi_row<Facts> &row : rows) {
        if (row.query != gobi_no_query && facts.codes[static_cast<size_t>(row.query)] != qmi_ok)
            continue;
        gobi_output(out, row.key, row.value(facts), mode, row.push);
    }
}

// Messages as data. A plain record holds the fields of one direction of one message, and their types
// are the layout on the wire; a table of rows says which TLV carries which of them. Reading and
// writing are then the same two loops for every message.
//
//     integers         low byte first, as wide as their type
//     std::string      a text that fills the rest of its TLV
//     qmi_short_text   a text behind a length of one byte
//     qmi_list         elements behind their count
//     std::array       so many bytes
//     records          field after field, as listed in qmi_fields
//     std::optional    what is left out, together with its TLV, when there is no value
//
// A new message is a record, its rows and one function in messages.cpp or questions.cpp.
#pragma once

#include "qmi/link.h"
#include "qmi/tlv.h"

#include <algorithm>
#include <array>
#include <concepts>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

struct qmi_short_text {
    std::string text;
};

template <std::unsigned_integral count_type, class item_type>
struct qmi_list {
    std::vector<item_type> items;
};

// The members of a record that is a field itself, in order: a tuple of pointers to them.
template <class record>
inline constexpr auto qmi_fields = std::tuple<>{};

template <class record>
concept qmi_record = std::tuple_size_v<decltype(qmi_fields<record>)>
!= 0;

// Which answers have the TLV.
enum qmi_need {
    qmi_mandatory, // every success; without it the answer cannot be read
    qmi_optional,  // some successes; one that is cut counts as absent
    qmi_on_error,  // some failures
};

// ---- fields

template <std::integral number>
[[nodiscard]] bool qmi_read(tlv_fields &fields, number &value)
{
    return fields.number(value);
}

[[nodiscard]] inline bool qmi_read(tlv_fields &fields, std::string &value)
{
    return fields.text(fields.rest.size(), value);
}

[[nodiscard]] inline bool qmi_read(tlv_fields &fields, qmi_short_text &value)
{
    return fields.counted_text<uint8_t>(value.text);
}

template <size_t count>
[[nodiscard]] bool qmi_read(tlv_fields &fields, std::array<uint8_t, count> &octets)
{
    std::span<const uint8_t> taken;
    if (!fields.octets(count, taken))
        return false;
    std::copy(taken.begin(), taken.end(), octets.begin());
    return true;
}

template <class count_type, class item_type>
[[nodiscard]] bool qmi_read(tlv_fields &fields, qmi_list<count_type, item_type> &list);

template <class value_type>
[[nodiscard]] bool qmi_read(tlv_fields &fields, std::optional<value_type> &value);

template <qmi_record record>
[[nodiscard]] bool qmi_read(tlv_fields &fields, record &value)
{
    return std::apply([&](auto... members) { return (qmi_read(fields, value.*members) && ...); },
                      qmi_fields<record>);
}

template <class count_type, class item_type>
[[nodiscard]] bool qmi_read(tlv_fields &fields, qmi_list<count_type, item_type> &list)
{
    list.items.clear();
    count_type count = 0;
    if (!fields.number(count))
        return false;
    // The count is the sender's: room is made for what is really there.
    for (count_type i = 0; i < count; i++)
        if (!qmi_read(fields, list.items.emplace_back()))
            return false;
    return true;
}

template <class value_type>
[[nodiscard]] bool qmi_read(tlv_fields &fields, std::optional<value_type> &value)
{
    if (qmi_read(fields, value.emplace()))
        return true;
    value.reset();
    return false;
}

template <std::integral number>
void qmi_write(tlv_writer &row, number value)
{
    row.number(value);
}

inline void qmi_write(tlv_writer &row, const std::string &value)
{
    row.text(value);
}

inline void qmi_write(tlv_writer &row, const qmi_short_text &value)
{
    row.counted_text<uint8_t>(value.text);
}

template <qmi_record record>
void qmi_write(tlv_writer &row, const record &value)
{
    std::apply([&](auto... members) { (qmi_write(row, value.*members), ...); }, qmi_fields<record>);
}

template <class count_type, class item_type>
void qmi_write(tlv_writer &row, const qmi_list<count_type, item_type> &list)
{
    row.spoiled = row.spoiled || list.items.size() > static_cast<count_type>(-1);
    row.number(static_cast<count_type>(list.items.size()));
    for (const item_type &item : list.items)
        qmi_write(row, item);
}

template <class value_type>
void qmi_write(tlv_writer &row, const std::optional<value_type> &value)
{
    if (value)
        qmi_write(row, *value);
}

// ---- rows

template <class pointer>
struct qmi_member;

template <class record_type, class value_type>
struct qmi_member<value_type record_type::*> {
    using record = record_type;
    using value = value_type;
};

template <class record>
struct qmi_write_row {
    uint8_t type;
    bool (*given)(const record &);
    void (*write)(tlv_writer &, const record &);
};

template <class record>
struct qmi_read_row {
    uint8_t type;
    qmi_need need;
    bool (*read)(tlv_fields &, record &);
};

template <class value_type>
[[nodiscard]] bool qmi_given(const value_type &)
{
    return true;
}

template <class value_type>
[[nodiscard]] bool qmi_given(const std::optional<value_type> &value)
{
    return value.has_value();
}

// The row of a TLV that holds these members, one after the other.
template <auto first, auto... more>
[[nodiscard]] constexpr auto qmi_put(uint8_t type)
{
    using record = typename qmi_member<decltype(first)>::record;
    return qmi_write_row<record>{type,
                                 [](const record &values) { return qmi_given(values.*first); },
                                 [](tlv_writer &row, const record &values) {
                                     qmi_write(row, values.*first);
                                     (qmi_write(row, values.*more), ...);
                                 }};
}

template <auto first, auto... more>
[[nodiscard]] constexpr auto qmi_get(uint8_t type, qmi_need need)
{
    using record = typename qmi_member<decltype(first)>::record;
    return qmi_read_row<record>{type, need, [](tlv_fields &fields, record &values) {
                                    return qmi_read(fields, values.*first) &&
                                           (qmi_read(fields, values.*more) && ...);
                                }};
}

// ---- whole messages

// Writes the TLVs in the order of their rows. 0 or qmi_too_long.
template <class record>
[[nodiscard]] uint32_t qmi_write_tlvs(std::span<const qmi_write_row<record>> rows,
                                      const record &values, tlv_writer &tlvs)
{
    for (const auto &row : rows) {
        if (!row.given(values))
            continue;
        tlvs.begin(row.type);
        row.write(tlvs, values);
    }
    return tlvs.end() == 0 ? qmi_ok : qmi_too_long;
}

// Reads what the rows name from the TLVs of a success, or of a failure. False when something
// mandatory is missing or cut.
template <class record>
[[nodiscard]] bool qmi_read_tlvs(std::span<const qmi_read_row<record>> rows,
                                 std::span<const uint8_t> tlvs, bool success, record &values)
{
    for (const auto &row : rows) {
        if ((row.need == qmi_on_error) == success)
            continue;
        const auto value = tlv_find(tlvs, row.type);
        tlv_fields fields{value.value_or(std::span<const uint8_t>{})};
        const bool read = value && row.read(fields, values);
        if (!read && row.need == qmi_mandatory)
            return false;
    }
    return true;
}

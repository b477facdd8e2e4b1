#include "sms/parts.h"

#include <algorithm>

// A long message as far as it is there. Pointers are into the caller's parts.
struct part_set {
    size_t first_index; // of the first member handed in
    std::vector<const sms_part *> by_seq;
    std::vector<const sms_part *> duplicates;
    std::optional<int64_t> oldest, youngest;
};

static std::optional<int64_t> epoch_of(const sms_part &part)
{
    if (!part.sent)
        return std::nullopt;
    return sms_time_epoch(*part.sent);
}

static bool same_message(const sms_part &a, const sms_part &b)
{
    const sms_concat &x = *a.body.concat, &y = *b.body.concat;
    return a.sender.number == b.sender.number && a.sender.type == b.sender.type && x.ref == y.ref &&
           x.wide == y.wide && x.total == y.total &&
           a.body.text.has_value() == b.body.text.has_value();
}

// Delivered twice: a message centre that is not sure of a delivery repeats it with its time stamp.
// The same words at another time are another message, as from a device whose alarms all have the
// same reference.
static bool same_delivery(const sms_part &a, const sms_part &b)
{
    return a.sent == b.sent && a.body.encoding == b.body.encoding && a.body.text == b.body.text &&
           a.body.data == b.body.data;
}

static const sms_part &any_member(const part_set &set)
{
    return **std::find_if(set.by_seq.begin(), set.by_seq.end(),
                          [](const sms_part *part) { return part != nullptr; });
}

static bool accepts(const part_set &set, const sms_part &part)
{
    const std::optional<int64_t> time = epoch_of(part);
    if (!same_message(any_member(set), part))
        return false;
    // Parts come here in order of time.
    if (time && set.oldest && *time - *set.oldest > sms_part_age_max_s)
        return false;
    const sms_part *there = set.by_seq[part.body.concat->seq - 1u];
    return !there || same_delivery(*there, part);
}

static void add(part_set &set, const sms_part &part, size_t index)
{
    const sms_part *&place = set.by_seq[part.body.concat->seq - 1u];
    if (place)
        set.duplicates.push_back(&part);
    else
        place = &part;
    set.first_index = std::min(set.first_index, index);
    const std::optional<int64_t> time = epoch_of(part);
    if (time) {
        set.oldest = std::min(set.oldest.value_or(*time), *time);
        set.youngest = std::max(set.youngest.value_or(*time), *time);
    }
}

// Senders cut where they like: characters that take two code units are put together from the
// units, as long as all parts have the same encoding.
static sms_body join_bodies(const std::vector<const sms_part *> &members)
{
    const sms_body &first = members.front()->body;
    const bool alike = std::all_of(members.begin(), members.end(), [&](const sms_part *part) {
        return part->body.encoding == first.encoding && part->body.shift == first.shift;
    });
    sms_body joined;
    joined.header = first.header;
    joined.encoding = first.encoding;
    joined.shift = first.shift;
    std::string text;
    for (const sms_part *part : members) {
        joined.data.insert(joined.data.end(), part->body.data.begin(), part->body.data.end());
        text += part->body.text.value_or("");
    }
    if (alike) {
        joined.text = charset_decode(joined.encoding, joined.data, joined.shift);
    } else if (first.text) {
        joined.text = text;
        joined.encoding = sms_encoding_utf16;
        joined.shift = {};
        if (charset_encode(joined.encoding, text, joined.data) != 0)
            joined.data.clear();
    } else {
        joined.encoding = sms_encoding_other;
    }
    return joined;
}

static sms_joined single(const sms_part &part, sms_joined_state state)
{
    sms_joined joined;
    joined.state = state;
    joined.sender = part.sender;
    joined.sent = part.sent;
    joined.body = part.body;
    joined.members = {part.id};
    return joined;
}

static bool expired(const part_set &set, int64_t now)
{
    return !set.youngest || now - *set.youngest >= sms_part_age_max_s;
}

static void add_expired(const part_set &set, const std::vector<const sms_part *> &present,
                        const std::vector<uint8_t> &missing, std::vector<sms_joined> &results)
{
    for (const sms_part *part : present) {
        sms_joined &joined = results.emplace_back(single(*part, sms_joined_expired));
        joined.missing = missing;
        for (const sms_part *duplicate : set.duplicates) {
            if (duplicate->body.concat->seq == part->body.concat->seq)
                joined.members.push_back(duplicate->id);
        }
    }
}

static void add_results(const part_set &set, int64_t now, std::vector<sms_joined> &results)
{
    std::vector<const sms_part *> present;
    std::vector<uint8_t> missing;
    for (size_t i = 0; i < set.by_seq.size(); i++) {
        if (set.by_seq[i])
            present.push_back(set.by_seq[i]);
        else
            missing.push_back(static_cast<uint8_t>(i + 1));
    }
    if (!missing.empty() && expired(set, now)) {
        add_expired(set, present, missing, results);
        return;
    }
    sms_joined joined =
        single(*present.front(), missing.empty() ? sms_joined_complete : sms_joined_waiting);
    joined.body = join_bodies(present);
    joined.missing = std::move(missing);
    joined.members.clear();
    present.insert(present.end(), set.duplicates.begin(), set.duplicates.end());
    for (const sms_part *part : present)
        joined.members.push_back(part->id);
    results.push_back(std::move(joined));
}

std::vector<sms_joined> sms_join(std::span<const sms_part> parts, int64_t now)
{
    // Oldest first, so that a set takes the parts that were sent together; those without a time
    // last.
    std::vector<size_t> order;
    for (size_t i = 0; i < parts.size(); i++) {
        if (parts[i].body.concat)
            order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return epoch_of(parts[a]).value_or(INT64_MAX) < epoch_of(parts[b]).value_or(INT64_MAX);
    });

    std::vector<part_set> sets;
    for (size_t index : order) {
        const sms_part &part = parts[index];
        auto set = std::find_if(sets.begin(), sets.end(),
                                [&](const part_set &s) { return accepts(s, part); });
        if (set == sets.end()) {
            sets.push_back({index, {}, {}, {}, {}});
            set = std::prev(sets.end());
            set->by_seq.resize(part.body.concat->total);
        }
        add(*set, part, index);
    }
    std::sort(sets.begin(), sets.end(),
              [](const part_set &a, const part_set &b) { return a.first_index < b.first_index; });

    std::vector<sms_joined> results;
    auto set = sets.begin();
    for (size_t i = 0; i < parts.size(); i++) {
        if (!parts[i].body.concat)
            results.push_back(single(parts[i], sms_joined_complete));
        else if (set != sets.end() && set->first_index == i)
            add_results(*set++, now, results);
    }
    return results;
}

// Joining the parts of long messages. Stateless: the caller hands in all messages that the modem
// holds, whole ones and parts in any order, and gets back what to do with each of them. Nothing is
// ever dropped: each message handed in is a member of exactly one result.
//
// Parts belong together when sender, reference (with its width) and total agree, and their time
// stamps lie within the limit of age; a repeated part is a duplicate when contents and time stamp are
// the same and otherwise begins another message, as references come round again. A message that stays
// incomplete is due seven days after its youngest time stamp: its parts then stand alone, as
// received. Parts without any readable time stamp cannot age and are due at once.
#pragma once

#include "sms/pdu.h"

constexpr int64_t sms_part_age_max_s = int64_t{7} * 24 * 60 * 60;

// One received message.
struct sms_part {
    size_t id = 0; // the caller's name for it
    sms_address sender;
    std::optional<sms_time> sent;
    sms_body body;
};

enum sms_joined_state {
    sms_joined_complete, // a whole message: take it
    sms_joined_waiting,  // parts are missing: leave the members where they are
    sms_joined_expired,  // a part whose others did not come in time: take it by itself
};

struct sms_joined {
    sms_joined_state state = sms_joined_complete;
    sms_address sender;
    std::optional<sms_time> sent; // of the first part there is
    // Text or data of the parts that are there, in order, behind the header of the first one. Joined
    // ones have no place in a long message any more.
    sms_body body;
    std::vector<size_t> members;  // ids: parts in order, then duplicates
    std::vector<uint8_t> missing; // numbers of the parts that are not there
};

// Joins what belongs together. `now` is in seconds since the epoch. The results stand in the order in
// which their first members were handed in; parts that expired together follow one another.
[[nodiscard]] std::vector<sms_joined> sms_join(std::span<const sms_part> parts, int64_t now);

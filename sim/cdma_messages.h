// The CDMA modem's short messages: received ones in the order of their arrival, read one by one,
// and the one that it was given and has not sent yet. Reading takes nothing out; asking how many there
// are begins the list anew.
#pragma once

#include "sim/json.h"
#include "sim/swi_server.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct cdma_message {
    int64_t id = -1; // -1: the next number
    int64_t status = 0;
    int64_t encoding = -1; // -1: the code of its alphabet
    int64_t format = 0;
    std::string sender;
    std::string alphabet = "7-bit"; // that `text` is put into
    std::string text;
    std::string text_hex;    // instead: the bytes as they are
    int64_t text_bytes = -1; // how long the modem says it is; -1: as long as it is
    bool read = false;
    int64_t repeat = 1; // so many like it, each with a number of its own
};

class cdma_messages
{
public:
    // Replaces the received messages by those of an array, or adds them. All or nothing.
    int assign(json_t *array, json_refusal &refusal);
    int append(json_t *array, json_refusal &refusal);
    [[nodiscard]] json_ref dump() const;

    void rewind() { next_ = 0; }
    void clear_received();

    // How many messages there are, and from the first again.
    swi_reply count(swi_sms_status &status);

    // The next message. One that is longer than the reader's buffer gives its size and the result
    // for that, and is passed over.
    swi_reply read_next(const swi_sms_read_request &request, swi_sms_message &message);

    // The message to be sent; what does not add up is refused and nothing is kept of it.
    swi_reply store(const swi_sms_submit &message);
    [[nodiscard]] const std::optional<swi_sms_submit> &stored() const { return stored_; }
    void drop_stored() { stored_.reset(); }

private:
    struct entry {
        cdma_message message;
        std::string bytes; // as the modem has them
    };

    int add(json_t *row, json_refusal &refusal);

    std::vector<entry> received_;
    size_t next_ = 0;
    int64_t next_id_ = 1;
    std::optional<swi_sms_submit> stored_;
};

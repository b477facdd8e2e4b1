// The daemon in front of a QMI modem, for tests of the link and of what is built on it: listens at
// its place in a root, gives out client ids, and answers every message from a table. It knows no
// modem: what is not in the table gets an empty success.
#pragma once

#include "platform/unique_fd.h"
#include "support/temp_root.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

enum class qmuxd_reply {
    answer,
    error,             // with the number of the behaviour
    silence,           //
    late,              // held back until the next request, and sent just before its answer
    cut_tlvs,          // the last TLV is longer than what is left
    no_result,         // the answer without its result
    only_result,       // a success without any other TLV
    short_value,       // a success whose TLVs hold nothing
    wrong_transaction, //
    wrong_client,      //
    wrong_message,     //
    indication,        // an indication of the same message instead of the answer
    no_frame,          // bytes that begin no frame
    huge_frame,        // the header of a frame that is too long
    half,              // the connection is closed between header and body
    hang_up,           // the connection is closed instead of an answer
    byte_by_byte,      // the answer, a byte a write
};

struct qmuxd_behaviour {
    qmuxd_reply reply = qmuxd_reply::answer;
    uint16_t error = 0;
    int times = 1; // how often, before the table answers again
};

class fake_qmuxd
{
public:
    using bytes = std::vector<uint8_t>;

    explicit fake_qmuxd(const temp_root &root);
    ~fake_qmuxd();
    fake_qmuxd(const fake_qmuxd &) = delete;
    fake_qmuxd &operator=(const fake_qmuxd &) = delete;

    // The TLVs behind the result of every success, as hexadecimal digits.
    void answer(uint8_t service, uint16_t id, const std::string &tlvs);
    // The same for the next one only; several wait in line.
    void answer_next(uint8_t service, uint16_t id, const std::string &tlvs);
    void behave(uint8_t service, uint16_t id, qmuxd_behaviour behaviour);
    // TLVs that come with a failure.
    void explain(uint8_t service, uint16_t id, const std::string &tlvs);
    // Answers nobody until so many requests are there, and then the last one first; once.
    void gather(size_t requests);
    // A frame of the modem's own accord.
    void send_frame(const bytes &frame);

    // Goes away, socket and all; comes back.
    void vanish();
    void appear();

    // The requests so far, without those for client ids: "SERVICE ID TLVS" in hexadecimal, as in
    // "2 27 0107000100". Clears the record.
    std::vector<std::string> requests();
    [[nodiscard]] size_t clients() const;     // client ids given out and not given back
    [[nodiscard]] size_t connections() const; // accepted so far
    [[nodiscard]] std::string client_path() const { return client_path_; }

private:
    struct served {
        bytes tlvs;
        bytes explanation;
        std::vector<bytes> next;
        std::vector<qmuxd_behaviour> behaviours;
    };

    void serve();
    void take(const bytes &frame);
    bytes control_answer(uint16_t id, const bytes &tlvs);
    void put(const bytes &frame);
    void hang_up();

    std::string place_;
    std::string client_path_;
    unique_fd listener_, connection_, wake_out_, wake_in_;
    std::map<std::pair<uint8_t, uint16_t>, served> table_;
    std::vector<std::string> requests_;
    std::map<uint8_t, std::vector<uint8_t>> clients_;
    bytes held_back_;
    std::vector<bytes> gathered_;
    size_t gather_ = 0;
    uint8_t last_client_ = 0;
    size_t connections_ = 0;
    mutable std::mutex lock_;
    std::thread thread_;
};

// Octets of hexadecimal digits, blanks allowed; and the reverse.
std::vector<uint8_t> octets_of(const std::string &digits);
std::string digits_of(const std::vector<uint8_t> &octets);

// The server side of QMI: the socket that clients connect to, the client ids that they allocate
// with the control service, and the way of every request through the faults to the modem and of its
// answer back. What the messages of the other services mean is the modem's.
//
// Client ids are the modem's, not a connection's: whoever knows one may use it, indications go to
// every connection that has, and on the socket of the proxy they outlive their connection. The
// daemon's multiplexer cleans up behind its clients: there they end with it.
#pragma once

#include "qmi/qmux.h"
#include "qmi/tlv.h"
#include "sim/family.h"
#include "sim/outbox.h"
#include "sim/stream_line.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Numbers of the public list of QMI errors, as far as the simulator gives them by itself.
enum qmi_error : uint16_t {
    qmi_error_none = 0,
    qmi_error_malformed = 1,
    qmi_error_aborted = 4,
    qmi_error_client_ids_exhausted = 5,
    qmi_error_invalid_client_id = 7,
    qmi_error_invalid_handle = 9,
    qmi_error_invalid_profile = 10,
    qmi_error_invalid_pin_id = 11,
    qmi_error_incorrect_pin = 12,
    qmi_error_call_failed = 14,
    qmi_error_out_of_call = 15,
    qmi_error_not_provisioned = 16,
    qmi_error_missing_argument = 17,
    qmi_error_argument_too_long = 19,
    qmi_error_invalid_transaction_id = 22,
    qmi_error_device_in_use = 23,
    qmi_error_no_effect = 26,
    qmi_error_invalid_profile_type = 30,
    qmi_error_invalid_service_type = 31,
    qmi_error_pin_blocked = 35,
    qmi_error_pin_always_blocked = 36,
    qmi_error_uim_uninitialized = 37,
    qmi_error_invalid_argument = 48,
    qmi_error_no_entry = 50,
    qmi_error_device_storage_full = 51,
    qmi_error_device_not_ready = 52,
    qmi_error_network_not_ready = 53,
    qmi_error_wms_cause_code = 54,
    qmi_error_wms_encoding = 58,
    qmi_error_invalid_transition = 60,
    qmi_error_invalid_qmi_command = 71,
    qmi_error_information_unavailable = 74,
    qmi_error_extended_internal = 81,
};

// One allocated client id.
struct qmi_client {
    uint8_t service = 0;
    uint8_t id = 0;
    std::set<int> lines;                             // connections that use it
    std::map<uint8_t, std::vector<uint8_t>> reports; // what it asked to be told, by TLV
    std::map<uint8_t, bool> registered;              // indications it registered for, by TLV
    uint8_t ip_family = 0;                           // 4 or 6; 0: any
};

// A request as the modem gets it.
struct qmi_call {
    qmi_client &client;
    uint16_t id = 0;
    std::span<const uint8_t> tlvs;

    // The fields of a TLV; nothing when the request has none of that type.
    [[nodiscard]] std::optional<tlv_fields> find(uint8_t type) const
    {
        const auto value = tlv_find(tlvs, type);
        return value ? std::optional(tlv_fields{*value}) : std::nullopt;
    }
};

// A message of the modem's as the server needs to know it.
struct qmi_message_info {
    const char *name = nullptr;
    uint16_t mandatory_bytes = 0; // the least of the request's TLV 0x01; 0: it has none
};

struct qmi_version {
    uint8_t service;
    const char *name;
    uint16_t major, minor;
};

// How the modem behaves as a machine, whatever is asked of it.
struct qmi_pace {
    int64_t answer_ms = 0;      // what every request takes
    bool in_series = false;     // one after the other
    int64_t under_way_max = 0;  // more at the same time are refused; 0: no limit
    bool drops_surplus = false; // without a word
    int64_t client_ids = 254;   // for each service
};

struct qmi_hooks {
    std::span<const qmi_version> services; // besides the control service
    const qmi_message_info *(*find)(uint8_t service, uint16_t id) = nullptr; // null: unknown
    uint16_t (*execute)(const qmi_call &call, tlv_writer &answer) = nullptr; // a QMI error
    // The indication of that id as it would be now; false: there is none.
    bool (*indication)(uint8_t service, uint16_t id, tlv_writer &out) = nullptr;
    int64_t (*takes_ms)(uint8_t service, uint16_t id) = nullptr; // besides the pace
    qmi_pace (*pace)() = nullptr;
    void (*settle)() = nullptr; // something has been carried out: tell who wants to know
    void (*reboot)() = nullptr; // a power cycle
};

class qmi_server
{
public:
    qmi_server(sim_services &services, const qmi_hooks &hooks);
    ~qmi_server();
    qmi_server(const qmi_server &) = delete;
    qmi_server &operator=(const qmi_server &) = delete;

    // Serves at the path below the root and, if the services say so, where the proxy would be. 0,
    // or -1 with the reason.
    int open(std::string &reason);

    // Sends an indication to one client on every connection of it.
    void indicate(const qmi_client &client, uint16_t id, std::span<const uint8_t> tlvs);

    // Sends an indication to everybody who has a client of the service, once on each connection.
    void broadcast(uint8_t service, uint16_t id, std::span<const uint8_t> tlvs);

    // The clients of a service.
    std::vector<qmi_client *> clients_of(uint8_t service);
    [[nodiscard]] size_t client_count() const { return clients_.size(); }

    // Abandons a request of the client that is under way; it is answered with an error. False if
    // there is none with that transaction.
    bool abort(const qmi_client &client, uint16_t transaction);

    // The modem has started anew: all client ids are void, and the control service says so.
    void restarted();

    // Breaks all lines and stops listening, for a while or for ever.
    void hang_up(const hangup &end);

    // Plays a fault that needs no request.
    void act(const fault &alone);

private:
    struct listener {
        const char *name = nullptr;
        bool proxy = false;
        std::string path; // empty: abstract
        unique_fd socket;
    };
    struct line {
        int number = 0;
        bool proxy = false;
        std::string received;
        std::unique_ptr<stream_line> stream;
        std::unique_ptr<outbox> answers;
    };
    struct under_way {
        int line;
        std::vector<uint8_t> frame;
        sim_timer timer;
    };
    using client_key = std::pair<uint8_t, uint8_t>;

    int listen_all(std::string &reason);
    int listen_at(listener &at, std::string &reason);
    void stop_listening();
    void accept_line(const listener &from);
    void received(int number, std::string_view bytes);
    bool next_frame(line &from);
    void begin(line &from, std::span<const uint8_t> frame);
    void finish(int number, const std::vector<uint8_t> &frame, bool busy);
    void forget_line(int number);
    void sent(int number, std::string_view bytes);

    std::string answer(line &from, const qmux_message &request, bool busy);
    std::string respond(const qmux_message &request, uint16_t error, std::span<const uint8_t> tlvs);
    uint16_t execute(line &from, const qmux_message &request, tlv_writer &out);
    uint16_t control(line &from, const qmux_message &request, tlv_writer &out);
    uint16_t allocate(line &from, tlv_fields fields, tlv_writer &out);
    uint16_t release(tlv_fields fields, tlv_writer &out);
    void void_clients();

    const char *service_name(uint8_t service) const;
    std::string describe(const qmux_message &message) const;
    std::string describe_all(std::string_view bytes) const;
    std::string unsolicited(const std::string &text);

    sim_services &services_;
    qmi_hooks hooks_;
    std::vector<listener> listeners_;
    std::map<int, std::shared_ptr<line>> lines_;
    std::map<client_key, qmi_client> clients_;
    std::map<uint8_t, uint8_t> last_id_;
    std::map<int, under_way> under_way_;
    int last_line_ = 0;
    int last_under_way_ = 0;
    int64_t free_at_ms_ = 0; // of a modem that works in series

    friend struct qmi_dialect;
};

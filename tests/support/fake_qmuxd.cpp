#include "support/fake_qmuxd.h"

#include "qmi/qmux.h"
#include "qmi/tlv.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

std::vector<uint8_t> octets_of(const std::string &digits)
{
    std::string plain = digits;
    std::erase(plain, ' ');
    std::vector<uint8_t> octets;
    for (size_t i = 0; i + 1 < plain.size(); i += 2)
        octets.push_back(static_cast<uint8_t>(std::stoul(plain.substr(i, 2), nullptr, 16)));
    return octets;
}

std::string digits_of(const std::vector<uint8_t> &octets)
{
    std::string digits;
    char pair[3];
    for (const uint8_t octet : octets) {
        snprintf(pair, sizeof(pair), "%02x", octet);
        digits += pair;
    }
    return digits;
}

fake_qmuxd::fake_qmuxd(const temp_root &root) : place_(root.place("/var/qmux_connect_socket"))
{
    std::filesystem::create_directories(root.place("/var"));
    appear();
}

fake_qmuxd::~fake_qmuxd()
{
    vanish();
}

void fake_qmuxd::appear()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, place_.c_str(), sizeof(address.sun_path) - 1);
    unlink(place_.c_str());
    listener_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    int ends[2];
    if (bind(listener_.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listener_.get(), 8) != 0 || pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no socket at " + place_);
    wake_out_.reset(ends[0]);
    wake_in_.reset(ends[1]);
    thread_ = std::thread(&fake_qmuxd::serve, this);
}

void fake_qmuxd::vanish()
{
    if (!thread_.joinable())
        return;
    wake_in_.reset();
    thread_.join();
    unlink(place_.c_str());
    listener_.reset();
    const std::lock_guard guard(lock_);
    hang_up();
}

void fake_qmuxd::hang_up()
{
    connection_.reset();
    clients_.clear();
}

void fake_qmuxd::answer(uint8_t service, uint16_t id, const std::string &tlvs)
{
    const std::lock_guard guard(lock_);
    table_[{service, id}].tlvs = octets_of(tlvs);
}

void fake_qmuxd::answer_next(uint8_t service, uint16_t id, const std::string &tlvs)
{
    const std::lock_guard guard(lock_);
    table_[{service, id}].next.push_back(octets_of(tlvs));
}

void fake_qmuxd::behave(uint8_t service, uint16_t id, qmuxd_behaviour behaviour)
{
    const std::lock_guard guard(lock_);
    table_[{service, id}].behaviours.push_back(behaviour);
}

void fake_qmuxd::explain(uint8_t service, uint16_t id, const std::string &tlvs)
{
    const std::lock_guard guard(lock_);
    table_[{service, id}].explanation = octets_of(tlvs);
}

void fake_qmuxd::gather(size_t requests)
{
    const std::lock_guard guard(lock_);
    gather_ = requests;
    gathered_.clear();
}

void fake_qmuxd::send_frame(const bytes &frame)
{
    const std::lock_guard guard(lock_);
    put(frame);
}

std::vector<std::string> fake_qmuxd::requests()
{
    const std::lock_guard guard(lock_);
    return std::exchange(requests_, {});
}

size_t fake_qmuxd::clients() const
{
    const std::lock_guard guard(lock_);
    size_t count = 0;
    for (const auto &[service, ids] : clients_)
        count += ids.size();
    return count;
}

size_t fake_qmuxd::connections() const
{
    const std::lock_guard guard(lock_);
    return connections_;
}

void fake_qmuxd::put(const bytes &frame)
{
    if (connection_)
        (void)!::send(connection_.get(), frame.data(), frame.size(), MSG_NOSIGNAL);
}

void fake_qmuxd::serve()
{
    bytes received;
    for (;;) {
        pollfd fds[3] = {{wake_out_.get(), POLLIN, 0},
                         {listener_.get(), POLLIN, 0},
                         {connection_.get(), POLLIN, 0}};
        poll(fds, 3, -1);
        const std::lock_guard guard(lock_);
        if (fds[0].revents != 0)
            return;
        if (fds[1].revents != 0) {
            sockaddr_un peer{};
            socklen_t length = sizeof(peer);
            connection_.reset(
                accept(listener_.get(), reinterpret_cast<sockaddr *>(&peer), &length));
            client_path_ = peer.sun_path;
            connections_++;
            received.clear();
            clients_.clear();
            continue;
        }
        if (fds[2].revents == 0)
            continue;
        uint8_t chunk[4096];
        const ssize_t count = recv(connection_.get(), chunk, sizeof(chunk), 0);
        if (count <= 0) {
            hang_up();
            continue;
        }
        received.insert(received.end(), chunk, chunk + count);
        size_t size = 0;
        while (connection_ && qmux_frame_size(received, size) == 0 && size != 0 &&
               size <= received.size()) {
            const auto end = received.begin() + static_cast<std::ptrdiff_t>(size);
            const bytes frame(received.begin(), end);
            received.erase(received.begin(), end);
            take(frame);
        }
    }
}

fake_qmuxd::bytes fake_qmuxd::control_answer(uint16_t id, const bytes &tlvs)
{
    tlv_fields fields{tlv_find(tlvs, 0x01).value_or(std::span<const uint8_t>{})};
    uint8_t service = 0;
    uint8_t client = 0;
    if (id == 0x22 && fields.number(service)) {
        client = last_client_ =
            last_client_ == 254 ? uint8_t{1} : static_cast<uint8_t>(last_client_ + 1);
        clients_[service].push_back(client);
    } else if (id == 0x23 && fields.number(service) && fields.number(client)) {
        std::erase(clients_[service], client);
    }
    return {0x01, 2, 0, service, client};
}

void fake_qmuxd::take(const bytes &frame)
{
    qmux_message request;
    if (qmux_decode(frame, request) != 0)
        throw std::runtime_error("the link sent what is no frame");
    const bytes tlvs(request.tlvs.begin(), request.tlvs.end());
    if (request.service != qmi_ctl) {
        char text[16];
        snprintf(text, sizeof(text), "%x %02x", request.service, request.id);
        requests_.push_back(text + (tlvs.empty() ? "" : " " + digits_of(tlvs)));
    }
    served &row = table_[{request.service, request.id}];
    qmuxd_behaviour behaviour;
    if (!row.behaviours.empty()) {
        behaviour = row.behaviours.front();
        if (--row.behaviours.front().times == 0)
            row.behaviours.erase(row.behaviours.begin());
    }
    bytes content = row.tlvs;
    if (behaviour.reply == qmuxd_reply::answer && !row.next.empty()) {
        content = row.next.front();
        row.next.erase(row.next.begin());
    }
    if (request.service == qmi_ctl && behaviour.reply != qmuxd_reply::error)
        content = control_answer(request.id, tlvs);

    const bool failed = behaviour.reply == qmuxd_reply::error;
    bytes all = {0x02,
                 4,
                 0,
                 failed,
                 0,
                 static_cast<uint8_t>(behaviour.error),
                 static_cast<uint8_t>(behaviour.error >> 8)};
    if (failed)
        content = row.explanation;
    if (behaviour.reply == qmuxd_reply::no_result)
        all.clear();
    if (behaviour.reply == qmuxd_reply::short_value) {
        std::span<const uint8_t> rest(row.tlvs);
        tlv item;
        while (tlv_next(rest, item) == 1)
            all.insert(all.end(), {item.type, 0, 0});
    } else if (behaviour.reply != qmuxd_reply::only_result) {
        all.insert(all.end(), content.begin(), content.end());
    }
    if (behaviour.reply == qmuxd_reply::cut_tlvs)
        all.insert(all.end(), {0x77, 9, 0, 1});

    qmux_message response = request;
    response.from_modem = true;
    response.kind = qmux_response;
    response.tlvs = all;
    if (behaviour.reply == qmuxd_reply::wrong_transaction)
        response.transaction++;
    if (behaviour.reply == qmuxd_reply::wrong_client)
        response.client_id++;
    if (behaviour.reply == qmuxd_reply::wrong_message)
        response.id++;
    if (behaviour.reply == qmuxd_reply::indication)
        response.kind = qmux_indication;
    bytes answer_frame;
    if (qmux_encode(response, answer_frame) != 0)
        throw std::runtime_error("the answer does not fit");
    switch (behaviour.reply) {
    case qmuxd_reply::silence:
        return;
    case qmuxd_reply::late:
        held_back_ = answer_frame;
        return;
    case qmuxd_reply::no_frame:
        put({0x41, 0x54, 0x0D});
        return;
    case qmuxd_reply::huge_frame:
        put({0x01, 0xFF, 0xFF, 0x80, request.service, request.client_id});
        return;
    case qmuxd_reply::half:
        put(bytes(answer_frame.begin(), answer_frame.begin() + qmux_header_bytes));
        hang_up();
        return;
    case qmuxd_reply::hang_up:
        hang_up();
        return;
    case qmuxd_reply::byte_by_byte:
        for (const uint8_t each : answer_frame)
            put({each});
        return;
    default:
        break;
    }
    if (!held_back_.empty())
        put(std::exchange(held_back_, {}));
    if (gather_ == 0 || request.service == qmi_ctl) {
        put(answer_frame);
        return;
    }
    gathered_.push_back(answer_frame);
    if (gathered_.size() < gather_)
        return;
    for (; !gathered_.empty(); gathered_.pop_back())
        put(gathered_.back());
    gather_ = 0;
}

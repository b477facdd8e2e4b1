#include "sim/qmi_server.h"

#include "sim/bytes.h"
#include "sim/qmi_faults.h"
#include "sim/qmi_tlvs.h"
#include "sim/report.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

static constexpr const char daemon_socket[] = "/var/qmux_connect_socket";
static constexpr const char proxy_name[] = "qmi-proxy";
static constexpr int backlog = 16;
static constexpr size_t lines_max = 256;
static constexpr uint8_t client_id_max = 254;

// Message ids of the control service.
enum ctl_message : uint16_t {
    ctl_set_instance = 0x0020,
    ctl_get_version = 0x0021,
    ctl_allocate = 0x0022,
    ctl_release = 0x0023,
    ctl_set_data_format = 0x0026,
    ctl_sync = 0x0027,
    ctl_proxy_open = 0xFF00,
};

struct control_row {
    uint16_t id;
    qmi_message_info info;
};

static constexpr std::array control_rows = {
    control_row{ctl_set_instance, {"Set instance id", 1}},
    control_row{ctl_get_version, {"Get version info", 0}},
    control_row{ctl_allocate, {"Get client id", 1}},
    control_row{ctl_release, {"Release client id", 2}},
    control_row{ctl_set_data_format, {"Set data format", 1}},
    control_row{ctl_sync, {"Sync", 0}},
    control_row{ctl_proxy_open, {"Proxy open", 1}},
};

static const qmi_message_info *find_control(uint16_t id)
{
    for (const control_row &row : control_rows)
        if (row.id == id)
            return &row.info;
    return nullptr;
}

// The server of this process, for the fault dialect, whose functions have no other way to it, and
// the request that is being answered.
static qmi_server *the_server;
static qmux_message the_request;

static std::span<const uint8_t> as_bytes(std::string_view text)
{
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

static std::string as_text(std::span<const uint8_t> bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

static std::vector<std::string_view> words(std::string_view text)
{
    std::vector<std::string_view> found;
    while (!text.empty()) {
        const size_t end = std::min(text.find_first_of(" ,"), text.size());
        if (end > 0)
            found.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return found;
}

// "01=0A0B" as the journal prints a TLV. False if the word is something else.
static bool add_written_tlv(std::string_view word, tlv_writer &out)
{
    const size_t equals = word.find('=');
    std::string type;
    std::string value;
    if (equals == std::string_view::npos || bytes_from_hex(word.substr(0, equals), type) != 0 ||
        type.size() != 1 || bytes_from_hex(word.substr(equals + 1), value) != 0)
        return false;
    tlv_add_text(out, static_cast<uint8_t>(type[0]), value);
    return true;
}

// ---- what a scenario writes about answers

struct qmi_dialect {
    // "12", "14 10=F503"
    static std::string error(const std::string &text)
    {
        const auto given = words(text);
        uint16_t number = 0;
        if (!given.empty())
            std::from_chars(given[0].data(), given[0].data() + given[0].size(), number);
        tlv_writer tlvs;
        for (const std::string_view word : given)
            (void)add_written_tlv(word, tlvs);
        (void)tlvs.end();
        return the_server->respond(the_request, number, tlvs.bytes);
    }

    static std::string unsolicited(const std::string &text)
    {
        return the_server->unsolicited(text);
    }

    static std::string spoil(const fault &f, std::string_view answer)
    {
        return qmi_spoil(fault_name(f), f.tlv, answer);
    }

    // By the whole line, or without the number, or by the name alone.
    static bool matches(std::string_view request, std::string_view match)
    {
        const size_t number = std::min(request.find(' '), request.size());
        const size_t name = std::min(request.find(' ', number + 1), request.size());
        const std::string_view named = request.substr(std::min(name + 1, request.size()));
        const std::string without = std::string(request.substr(0, number)) + ' ';
        return request.starts_with(match) || named.starts_with(match) ||
               (without + std::string(named)).starts_with(match);
    }
};

static constexpr fault_dialect dialect = {
    .error = qmi_dialect::error,
    .unsolicited = qmi_dialect::unsolicited,
    .spoil = qmi_dialect::spoil,
    .matches = qmi_dialect::matches,
};

// "NAS 0x0024", with TLVs behind it or as it would be now.
std::string qmi_server::unsolicited(const std::string &text)
{
    const auto given = words(text);
    qmux_message message;
    message.from_modem = true;
    message.kind = qmux_indication;
    message.client_id = qmux_client_broadcast;
    bool known = false;
    if (given.size() >= 2 && given[1].starts_with("0x")) {
        const auto [end, bad] =
            std::from_chars(given[1].data() + 2, given[1].data() + given[1].size(), message.id, 16);
        for (const qmi_version &row : hooks_.services)
            if (given[0] == row.name && bad == std::errc()) {
                message.service = row.service;
                known = true;
            }
        if (given[0] == "CTL") {
            message.client_id = 0;
            known = true;
        }
    }
    tlv_writer tlvs;
    bool written = false;
    for (const std::string_view word : given)
        written = add_written_tlv(word, tlvs) || written;
    if (known && !written)
        (void)hooks_.indication(message.service, message.id, tlvs);
    std::vector<uint8_t> frame;
    if (tlvs.end() == 0)
        message.tlvs = tlvs.bytes;
    if (!known || qmux_encode(message, frame) != 0) {
        services_.log.note("no such indication: " + text);
        return {};
    }
    return as_text(frame);
}

// ---- what the journal shows

const char *qmi_server::service_name(uint8_t service) const
{
    for (const qmi_version &row : hooks_.services)
        if (row.service == service)
            return row.name;
    return nullptr;
}

// "DMS 0x0028 Verify PIN: 01=010431323334". Responses have what came of it in front of the TLVs.
std::string qmi_server::describe(const qmux_message &message) const
{
    const bool control = message.service == qmi_ctl;
    const qmi_message_info *info =
        control ? find_control(message.id) : hooks_.find(message.service, message.id);
    const char *service = control ? "CTL" : service_name(message.service);
    std::string text = service ? service : sim_format("service %u", message.service);
    text += sim_format(" 0x%04X %s", message.id, info ? info->name : "unknown");
    text += message.kind == qmux_indication ? " (indication):" : ":";
    std::span<const uint8_t> rest = message.tlvs;
    tlv item;
    tlv_result result;
    const bool response = message.kind == qmux_response;
    if (response)
        text += tlv_read_result(rest, result) != 0 ? " no result"
                : result.status == 0               ? " ok"
                                                   : sim_format(" error %u", result.error);
    while (tlv_next(rest, item) == 1) {
        if (response && item.type == tlv_result_type)
            continue;
        text += sim_format(" %02X=", item.type);
        for (const uint8_t byte : item.value)
            text += sim_format("%02X", byte);
    }
    return text;
}

static std::string whereabouts(int line, const qmux_message &message)
{
    return sim_format(" [line %d, client %u, transaction %u]", line, message.client_id,
                      message.transaction);
}

// What leaves: whole frames in words, anything else as it is.
void qmi_server::sent(int number, std::string_view bytes)
{
    const auto found = lines_.find(number);
    if (found == lines_.end())
        return;
    std::string_view rest = bytes;
    while (!rest.empty()) {
        size_t size = 0;
        qmux_message message;
        if (qmux_frame_size(as_bytes(rest), size) != 0 || size == 0 || size > rest.size() ||
            qmux_decode(as_bytes(rest.substr(0, size)), message) != 0 ||
            tlv_check(message.tlvs) != 0)
            break;
        services_.log.sent(describe(message) + whereabouts(number, message));
        rest.remove_prefix(size);
    }
    if (!rest.empty())
        services_.log.sent(rest);
    found->second->stream->send(bytes);
}

// ---- sockets

qmi_server::qmi_server(sim_services &services, const qmi_hooks &hooks)
    : services_(services), hooks_(hooks)
{
    the_server = this;
}

qmi_server::~qmi_server()
{
    for (const auto &[number, pending] : under_way_)
        services_.loop.cancel(pending.timer);
    lines_.clear();
    stop_listening();
    the_server = nullptr;
}

int qmi_server::open(std::string &reason)
{
    listeners_.push_back({daemon_socket, false, services_.root + daemon_socket, {}});
    if (services_.qmi_proxy)
        listeners_.push_back({proxy_name, true, {}, {}});
    return listen_all(reason);
}

int qmi_server::listen_all(std::string &reason)
{
    for (listener &at : listeners_)
        if (listen_at(at, reason) != 0)
            return -1;
    return 0;
}

int qmi_server::listen_at(listener &at, std::string &reason)
{
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    // An abstract name begins with a zero and has exactly the bytes that its length says.
    const std::string name = at.path.empty() ? std::string(1, '\0') + at.name : at.path;
    if (name.size() >= sizeof(address.sun_path)) {
        reason = name + " is too long for a socket";
        return -1;
    }
    memcpy(address.sun_path, name.data(), name.size());
    const auto length = static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) +
                                               name.size() + (at.path.empty() ? 0 : 1));
    if (!at.path.empty())
        unlink(at.path.c_str());
    at.socket.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!at.socket || bind(at.socket.get(), reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        listen(at.socket.get(), backlog) != 0) {
        reason = std::string("Could not serve at ") + at.name + ": " + strerror(errno);
        at.socket.reset();
        return -1;
    }
    services_.loop.watch(at.socket.get(), POLLIN, [this, &at](short) { accept_line(at); });
    return 0;
}

void qmi_server::stop_listening()
{
    for (listener &at : listeners_) {
        if (!at.socket)
            continue;
        services_.loop.unwatch(at.socket.get());
        at.socket.reset();
        if (!at.path.empty())
            unlink(at.path.c_str());
    }
}

void qmi_server::accept_line(const listener &from)
{
    unique_fd fd(accept(from.socket.get(), nullptr, nullptr));
    if (!fd || lines_.size() >= lines_max || fcntl(fd.get(), F_SETFD, FD_CLOEXEC) != 0 ||
        fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0)
        return;
    const int number = ++last_line_;
    auto opened = std::make_shared<line>();
    opened->number = number;
    opened->proxy = from.proxy;
    opened->stream = std::make_unique<stream_line>(
        services_.loop, std::move(fd),
        [this, number](std::string_view bytes) { received(number, bytes); },
        [this, number] { forget_line(number); });
    opened->answers = std::make_unique<outbox>(
        services_.loop, [this, number](std::string_view bytes) { sent(number, bytes); },
        [this](const hangup &end) { hang_up(end); });
    lines_[number] = std::move(opened);
    services_.log.note(sim_format("line %d opened at %s", number, from.name));
}

// Behind a line that is gone the multiplexer cleans up; the proxy does not.
void qmi_server::forget_line(int number)
{
    const auto found = lines_.find(number);
    if (found == lines_.end())
        return;
    const std::shared_ptr<line> gone = found->second;
    lines_.erase(found);
    std::string left;
    for (auto at = clients_.begin(); at != clients_.end();) {
        const bool used = at->second.lines.erase(number) > 0;
        const bool ends = used && !gone->proxy && at->second.lines.empty();
        if (ends)
            left += sim_format(" %s %u", service_name(at->first.first), at->first.second);
        at = ends ? clients_.erase(at) : std::next(at);
    }
    for (auto at = under_way_.begin(); at != under_way_.end();) {
        const bool ends = at->second.line == number;
        if (ends)
            services_.loop.cancel(at->second.timer);
        at = ends ? under_way_.erase(at) : std::next(at);
    }
    services_.log.note(sim_format("line %d closed", number) +
                       (left.empty() ? "" : ", client ids left:" + left));
    // Later, because whoever called may still be using the line.
    services_.loop.after(0, [this, gone] { hooks_.settle(); });
}

void qmi_server::hang_up(const hangup &end)
{
    stop_listening();
    while (!lines_.empty())
        forget_line(lines_.begin()->first);
    services_.log.note("port gone");
    if (!end.return_ms)
        return;
    services_.loop.after(*end.return_ms, [this, reboot = end.reboot] {
        std::string reason;
        if (reboot)
            hooks_.reboot();
        services_.log.note(listen_all(reason) == 0 ? "port back" : reason);
    });
}

void qmi_server::act(const fault &alone)
{
    const delivery plan = fault_deliver(alone, {}, dialect);
    if (plan.end) {
        hang_up(*plan.end);
        return;
    }
    for (const auto &[number, at] : lines_)
        at->answers->deliver(plan);
}

// ---- requests

void qmi_server::received(int number, std::string_view bytes)
{
    const auto found = lines_.find(number);
    if (found == lines_.end())
        return;
    const std::shared_ptr<line> from = found->second;
    from->received += bytes;
    while (lines_.contains(number) && next_frame(*from)) {
    }
}

// Takes one frame off what has arrived; false if there is no whole one.
bool qmi_server::next_frame(line &from)
{
    size_t size = 0;
    if (qmux_frame_size(as_bytes(from.received), size) != 0) {
        services_.log.received(from.received);
        services_.log.note("framing lost");
        forget_line(from.number);
        return false;
    }
    if (size == 0 || size > from.received.size())
        return false;
    const std::string frame = from.received.substr(0, size);
    from.received.erase(0, size);
    begin(from, as_bytes(frame));
    return true;
}

void qmi_server::begin(line &from, std::span<const uint8_t> frame)
{
    qmux_message request;
    if (qmux_decode(frame, request) != 0 || tlv_check(request.tlvs) != 0 || request.from_modem ||
        request.kind != qmux_request) {
        services_.log.received(as_text(frame));
        services_.log.note("malformed: not answered");
        return;
    }
    services_.log.received(describe(request) + whereabouts(from.number, request));
    const qmi_pace pace = hooks_.pace();
    const bool control = request.service == qmi_ctl;
    const bool busy = !control && pace.under_way_max > 0 &&
                      under_way_.size() >= static_cast<size_t>(pace.under_way_max);
    if (busy && pace.drops_surplus) {
        services_.log.note("too many under way: not answered");
        return;
    }
    int64_t delay_ms =
        control || busy ? 0 : pace.answer_ms + hooks_.takes_ms(request.service, request.id);
    const int64_t now = sim_loop::now_ms();
    if (pace.in_series && !control && !busy) {
        free_at_ms_ = std::max(free_at_ms_, now) + delay_ms;
        delay_ms = free_at_ms_ - now;
    }
    const std::vector<uint8_t> whole(frame.begin(), frame.end());
    if (delay_ms == 0) {
        finish(from.number, whole, busy);
        return;
    }
    const int key = ++last_under_way_;
    under_way_[key] = {from.number, whole, services_.loop.after(delay_ms, [this, key] {
                           const auto pending = under_way_.extract(key);
                           if (!pending.empty())
                               finish(pending.mapped().line, pending.mapped().frame, false);
                       })};
}

void qmi_server::finish(int number, const std::vector<uint8_t> &frame, bool busy)
{
    const auto found = lines_.find(number);
    qmux_message request;
    if (found == lines_.end() || qmux_decode(frame, request) != 0)
        return;
    const std::shared_ptr<line> from = found->second;
    the_request = request;
    the_request.tlvs = {};
    const delivery plan = services_.faults.answer(describe(request), dialect,
                                                  [&] { return answer(*from, request, busy); });
    from->answers->deliver(plan);
    hooks_.settle();
}

bool qmi_server::abort(const qmi_client &client, uint16_t transaction)
{
    for (auto at = under_way_.begin(); at != under_way_.end(); ++at) {
        qmux_message request;
        if (qmux_decode(at->second.frame, request) != 0 || request.service != client.service ||
            request.client_id != client.id || request.transaction != transaction)
            continue;
        services_.loop.cancel(at->second.timer);
        sent(at->second.line, respond(request, qmi_error_aborted, {}));
        under_way_.erase(at);
        return true;
    }
    return false;
}

std::string qmi_server::answer(line &from, const qmux_message &request, bool busy)
{
    tlv_writer out;
    const uint16_t error = busy ? uint16_t{qmi_error_device_in_use} : execute(from, request, out);
    if (out.end() == 0)
        return respond(request, error, out.bytes);
    services_.log.note("too long for an answer");
    return {};
}

std::string qmi_server::respond(const qmux_message &request, uint16_t error,
                                std::span<const uint8_t> tlvs)
{
    tlv_writer all;
    tlv_add(all, tlv_result_type, uint16_t{error != qmi_error_none}, error);
    (void)all.end();
    all.octets(tlvs);
    qmux_message response = request;
    response.from_modem = true;
    response.kind = qmux_response;
    response.tlvs = all.bytes;
    std::vector<uint8_t> frame;
    if (qmux_encode(response, frame) != 0)
        services_.log.note("too long for an answer");
    return as_text(frame);
}

static uint16_t check_mandatory(const qmi_message_info &info, std::span<const uint8_t> tlvs)
{
    if (info.mandatory_bytes == 0)
        return qmi_error_none;
    const auto value = tlv_find(tlvs, 0x01);
    if (!value)
        return qmi_error_missing_argument;
    return value->size() < info.mandatory_bytes ? qmi_error_malformed : qmi_error_none;
}

uint16_t qmi_server::execute(line &from, const qmux_message &request, tlv_writer &out)
{
    if (request.service == qmi_ctl)
        return control(from, request, out);
    const auto client = clients_.find({request.service, request.client_id});
    if (client == clients_.end())
        return qmi_error_invalid_client_id;
    client->second.lines.insert(from.number);
    const qmi_message_info *info = hooks_.find(request.service, request.id);
    if (!info)
        return qmi_error_invalid_qmi_command;
    if (const uint16_t error = check_mandatory(*info, request.tlvs))
        return error;
    return hooks_.execute({client->second, request.id, request.tlvs}, out);
}

// ---- the control service

uint16_t qmi_server::control(line &from, const qmux_message &request, tlv_writer &out)
{
    const qmi_message_info *info = find_control(request.id);
    if (!info || (request.id == ctl_proxy_open && !from.proxy))
        return qmi_error_invalid_qmi_command;
    if (const uint16_t error = check_mandatory(*info, request.tlvs))
        return error;
    const auto value = tlv_find(request.tlvs, 0x01);
    tlv_fields fields{value.value_or(std::span<const uint8_t>())};
    uint8_t instance = 0;
    switch (request.id) {
    case ctl_allocate:
        return allocate(from, fields, out);
    case ctl_release:
        return release(fields, out);
    case ctl_sync:
        void_clients();
        return qmi_error_none;
    case ctl_set_instance:
        (void)fields.number(instance);
        tlv_add(out, 0x01, uint16_t{instance});
        return qmi_error_none;
    case ctl_get_version:
        out.begin(0x01);
        out.number(u8(static_cast<int64_t>(hooks_.services.size() + 1)));
        out.number(uint8_t{qmi_ctl});
        out.number(uint16_t{1});
        out.number(uint16_t{5});
        for (const qmi_version &row : hooks_.services) {
            out.number(row.service);
            out.number(row.major);
            out.number(row.minor);
        }
        return qmi_error_none;
    case ctl_set_data_format: {
        uint16_t protocol = 1;
        if (const auto wanted = tlv_find(request.tlvs, 0x10)) {
            tlv_fields inside{*wanted};
            (void)inside.number(protocol);
        }
        tlv_add(out, 0x10, uint16_t{1}); // this modem only knows Ethernet frames
        return protocol == 1 ? qmi_error_none : qmi_error_invalid_argument;
    }
    default:
        return qmi_error_none;
    }
}

uint16_t qmi_server::allocate(line &from, tlv_fields fields, tlv_writer &out)
{
    uint8_t service = 0;
    if (!fields.number(service) || service == qmi_ctl || !service_name(service))
        return qmi_error_invalid_service_type;
    if (clients_of(service).size() >= static_cast<size_t>(hooks_.pace().client_ids))
        return qmi_error_client_ids_exhausted;
    uint8_t &id = last_id_[service];
    do {
        id = id >= client_id_max ? uint8_t{1} : static_cast<uint8_t>(id + 1);
    } while (clients_.contains({service, id}));
    qmi_client &client = clients_[{service, id}];
    client.service = service;
    client.id = id;
    client.lines = {from.number};
    tlv_add(out, 0x01, service, id);
    return qmi_error_none;
}

uint16_t qmi_server::release(tlv_fields fields, tlv_writer &out)
{
    uint8_t service = 0;
    uint8_t id = 0;
    (void)(fields.number(service) && fields.number(id));
    if (clients_.erase({service, id}) == 0)
        return qmi_error_invalid_client_id;
    tlv_add(out, 0x01, service, id);
    return qmi_error_none;
}

void qmi_server::void_clients()
{
    clients_.clear();
    last_id_.clear();
}

void qmi_server::restarted()
{
    void_clients();
    qmux_message sync;
    sync.from_modem = true;
    sync.kind = qmux_indication;
    sync.id = ctl_sync;
    std::vector<uint8_t> frame;
    if (qmux_encode(sync, frame) != 0)
        return;
    for (const auto &[number, at] : lines_)
        sent(number, as_text(frame));
}

// ---- indications

std::vector<qmi_client *> qmi_server::clients_of(uint8_t service)
{
    std::vector<qmi_client *> found;
    for (auto &[key, client] : clients_)
        if (key.first == service)
            found.push_back(&client);
    return found;
}

static std::string indication_frame(uint8_t service, uint8_t client_id, uint16_t id,
                                    std::span<const uint8_t> tlvs)
{
    qmux_message message;
    message.from_modem = true;
    message.kind = qmux_indication;
    message.service = service;
    message.client_id = client_id;
    message.id = id;
    message.tlvs = tlvs;
    std::vector<uint8_t> frame;
    return qmux_encode(message, frame) == 0 ? as_text(frame) : std::string();
}

void qmi_server::indicate(const qmi_client &client, uint16_t id, std::span<const uint8_t> tlvs)
{
    const std::string frame = indication_frame(client.service, client.id, id, tlvs);
    for (const int number : client.lines)
        sent(number, frame);
}

void qmi_server::broadcast(uint8_t service, uint16_t id, std::span<const uint8_t> tlvs)
{
    std::set<int> numbers;
    for (const qmi_client *client : clients_of(service))
        numbers.insert(client->lines.begin(), client->lines.end());
    const std::string frame = indication_frame(service, qmux_client_broadcast, id, tlvs);
    for (const int number : numbers)
        sent(number, frame);
}

// Several requests under way at a time, over the link's parts.

#include "platform/clock.h"
#include "platform/log.h"
#include "qmi/errors.h"
#include "qmi/link_parts.h"

#include <algorithm>
#include <utility>

constexpr size_t mute_max = 32;       // more messages than any record asks
constexpr int losses_max = 2;         // then a modem is taken to drop what it is sent too much of
constexpr int silences_again_max = 2; // requests of a batch that stay silent when sent once more

struct message_name {
    uint8_t service;
    uint16_t id;
    bool operator==(const message_name &) const = default;
};

// What the modem behind a link has turned out to be like, as long as that link is open.
static struct {
    uint32_t handle = 0;     // of the link; handles do not come again
    bool one_by_one = false; // the modem does not take several requests at a time
    int losses = 0;          // batches of which only company had kept requests from an answer
    std::vector<message_name> mute; // messages that found no answer without company either
} learned;

// How often, and in what company, a request was sent.
enum class sending { not_yet, in_company, alone, again };

struct batch {
    std::span<qmi_exchange> exchanges;
    std::vector<sending> sent;         // by exchange
    std::vector<size_t> waiting;       // exchanges to be sent, the next one last
    std::vector<qmi_awaited> expected; // answers of those under way,
    std::vector<size_t> under_way;     // and which exchanges those are
    std::vector<size_t> lost;          // exchanges to be sent again because they found no answer
    size_t limit = 1;
    bool answered = false;  // something that was sent in company
    bool lost_any = false;  // something else was not
    bool recovered = false; // but was when it was sent alone
    int silences_again = 0; // and how many were not even then
    int timeout_ms = 0;
    int64_t deadline_ms = 0;
};

static bool is_busy(uint32_t code)
{
    return code == qmi_modem_error + qmi_error_no_memory ||
           code == qmi_modem_error + qmi_error_device_in_use ||
           code == qmi_modem_error + qmi_error_insufficient_resources ||
           code == qmi_modem_error + qmi_error_operation_in_progress;
}

static void begin_wait(batch &all)
{
    all.deadline_ms = clock_now_ms() + clock_answer_timeout_ms(all.timeout_ms);
}

// Ends all that wait for a service that takes no client.
static void end_service(batch &all, uint8_t service, uint32_t code)
{
    std::erase_if(all.waiting, [&](size_t index) {
        qmi_exchange &each = all.exchanges[index];
        if (each.request.service == service)
            each.code = code;
        return each.request.service == service;
    });
}

static void send_next(batch &all)
{
    const size_t index = all.waiting.back();
    qmi_exchange &each = all.exchanges[index];
    all.waiting.pop_back();
    qmi_awaited expected{};
    each.code = qmi_send(each.request, each.tlvs, expected);
    if (each.code != qmi_ok)
        return;
    each.code = each.request.silence_code; // until there is an answer
    if (all.sent[index] != sending::not_yet)
        all.sent[index] = sending::again;
    else
        all.sent[index] = all.limit > 1 ? sending::in_company : sending::alone;
    if (all.expected.empty())
        begin_wait(all);
    all.expected.push_back(expected);
    all.under_way.push_back(index);
}

static void send_more(batch &all)
{
    while (!all.waiting.empty() && all.under_way.size() < all.limit) {
        const uint8_t service = all.exchanges[all.waiting.back()].request.service;
        if (!qmi_is_client(service)) {
            // What comes while a client id is waited for is not looked at.
            if (!all.under_way.empty())
                return;
            if (const uint32_t code = qmi_allocate(service); code != qmi_ok) {
                end_service(all, service, code);
                continue;
            }
        }
        send_next(all);
    }
}

static message_name name_of(const qmi_exchange &exchange)
{
    return {exchange.request.service, exchange.request.id};
}

static bool is_mute(const qmi_exchange &exchange)
{
    return std::find(learned.mute.begin(), learned.mute.end(), name_of(exchange)) !=
           learned.mute.end();
}

// A request without an answer. In company it may have been one too many for the modem.
static void note_silence(batch &all, size_t index)
{
    const qmi_exchange &each = all.exchanges[index];
    (void)qmi_silence(each.request); // which is its code since it was sent
    if (!qmi_connected() || clock_stopped() || is_mute(each))
        return;
    if (all.sent[index] == sending::in_company) {
        all.lost.push_back(index);
        all.lost_any = true;
    } else if (all.sent[index] == sending::again) {
        all.silences_again++;
        if (learned.mute.size() < mute_max)
            learned.mute.push_back(name_of(each));
    }
}

// Nothing more will come: those under way end, and the others can be sent.
static void end_under_way(batch &all)
{
    for (const size_t index : all.under_way)
        note_silence(all, index);
    all.expected.clear();
    all.under_way.clear();
}

static void go_one_by_one()
{
    if (!std::exchange(learned.one_by_one, true))
        log_message(log_info, "QMI modem takes one request at a time");
}

// What the answer means for how the others are sent. True when the request has to be sent again.
static bool judge(batch &all, size_t index, uint32_t code)
{
    const sending before = all.sent[index];
    if (is_busy(code) && before == sending::in_company) {
        all.limit = 1;
        return true;
    }
    if (code == qmi_modem_error + qmi_error_invalid_client_id)
        return before != sending::again;
    if (before == sending::again && all.limit == 1 && !is_busy(code)) {
        if (all.lost_any)
            all.recovered = true;
        else
            go_one_by_one();
    }
    return false;
}

static void take_answer(batch &all)
{
    std::optional<qmi_answer> found = qmi_await(all.expected, all.deadline_ms);
    if (!found) {
        end_under_way(all);
        return;
    }
    const auto at = static_cast<std::ptrdiff_t>(found->index);
    const size_t index = all.under_way[found->index];
    all.expected.erase(all.expected.begin() + at);
    all.under_way.erase(all.under_way.begin() + at);
    begin_wait(all);
    qmi_exchange &each = all.exchanges[index];
    std::erase(learned.mute, name_of(each));
    all.answered = all.answered || all.sent[index] == sending::in_company;
    each.code = qmi_take(each.request, *found, each.response);
    if (!judge(all, index, each.code))
        return;
    each.response.clear();
    all.waiting.insert(all.waiting.begin(), index);
}

// Sends a lost request once more, when all others have ended. A modem that answered nothing at all,
// or has forgotten its clients, is not asked again, and one that keeps silent not much longer.
// 0, or -1 when there is nothing to send.
static int send_lost(batch &all)
{
    if (all.lost.empty() || !all.answered || all.silences_again >= silences_again_max)
        return -1;
    const size_t index = all.lost.back();
    if (!qmi_is_client(all.exchanges[index].request.service))
        return -1;
    all.lost.pop_back();
    all.waiting.push_back(index);
    all.limit = 1;
    return 0;
}

// One loss may have been a bad moment of the modem's, which it is over when it has answered as many
// at a time as there can be. Another one shows that it drops what is too much for it.
static void learn_from(const batch &all)
{
    if (all.recovered && ++learned.losses >= losses_max)
        go_one_by_one();
    else if (all.answered && !all.lost_any && all.exchanges.size() >= all.limit && all.limit > 1)
        learned.losses = 0;
}

// Becomes a client of all services before the first request, while nothing is under way.
static void allocate_all(batch &all)
{
    for (const qmi_exchange &each : all.exchanges) {
        const uint8_t service = each.request.service;
        const bool wanted = std::any_of(all.waiting.begin(), all.waiting.end(), [&](size_t index) {
            return all.exchanges[index].request.service == service;
        });
        if (const uint32_t code = wanted ? qmi_allocate(service) : uint32_t{qmi_ok}; code != qmi_ok)
            end_service(all, service, code);
    }
}

void qmi_send_wait_all(uint32_t handle, std::span<qmi_exchange> exchanges)
{
    batch all;
    all.exchanges = exchanges;
    all.sent.assign(exchanges.size(), sending::not_yet);
    const uint32_t refusal = qmi_make_ready(handle);
    for (size_t index = exchanges.size(); index > 0; index--) {
        qmi_exchange &each = exchanges[index - 1];
        each.response.clear();
        each.code = refusal == qmi_ok ? uint32_t{qmi_not_sent} : refusal;
        all.waiting.push_back(index - 1);
        all.timeout_ms = std::max(all.timeout_ms, each.request.timeout_ms);
    }
    if (refusal != qmi_ok)
        return;
    if (handle != learned.handle)
        learned = {.handle = handle, .mute = {}};
    all.limit = learned.one_by_one ? 1 : qmi_under_way_max;
    allocate_all(all);
    while (!clock_stopped()) {
        send_more(all);
        if (!all.under_way.empty())
            take_answer(all);
        else if (send_lost(all) != 0)
            break;
    }
    learn_from(all);
}

#include "sim/at_modem.h"

#include "sim/family.h"

#include <algorithm>

at_reply at_error()
{
    at_reply reply;
    reply.result = "ERROR";
    return reply;
}

at_reply at_cme_error(int code)
{
    at_reply reply;
    reply.result = "+CME ERROR: " + std::to_string(code);
    return reply;
}

at_reply at_information(std::string text)
{
    at_reply reply;
    reply.information = std::move(text);
    return reply;
}

static std::string line_of(const std::string &text)
{
    return "\r\n" + text + "\r\n";
}

std::string at_format(const at_reply &reply)
{
    if (reply.raw)
        return reply.information;
    std::string bytes;
    if (!reply.information.empty())
        bytes = line_of(reply.information);
    return bytes + line_of(reply.result);
}

static constexpr fault_dialect at_dialect = {.error = line_of, .unsolicited = line_of};

int at_arguments(std::string_view text, std::vector<std::string> &arguments)
{
    arguments.clear();
    while (true) {
        size_t end = 0;
        if (text.starts_with('"')) {
            const size_t close = text.find('"', 1);
            if (close == std::string_view::npos)
                return -1;
            arguments.emplace_back(text.substr(1, close - 1));
            end = close + 1;
            if (end < text.size() && text[end] != ',')
                return -1;
        } else {
            end = std::min(text.find(','), text.size());
            arguments.emplace_back(text.substr(0, end));
        }
        if (end == text.size())
            return 0;
        text.remove_prefix(end + 1);
    }
}

static char capital(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool at_begins(std::string_view line, std::string_view name)
{
    return line.size() >= name.size() &&
           std::equal(name.begin(), name.end(), line.begin(),
                      [](char wanted, char given) { return wanted == capital(given); });
}

std::vector<at_line> at_lines::take(std::string_view bytes)
{
    std::vector<at_line> complete;
    for (const char c : bytes) {
        if (c == '\r') {
            complete.push_back(std::move(line_));
            line_ = {};
        } else if (line_.text.empty() && (c == '\n' || c == '\0')) {
            continue;
        } else if (line_.text.size() < line_bytes_max) {
            line_.text += c;
        } else {
            line_.overlong = true;
        }
    }
    return complete;
}

static std::vector<std::string> below_root(const sim_services &services,
                                           const std::vector<std::string> &paths)
{
    std::vector<std::string> rooted;
    rooted.reserve(paths.size());
    for (const std::string &path : paths)
        rooted.push_back(services.root + path);
    return rooted;
}

at_modem::at_modem(sim_services &services, const std::vector<std::string> &links, at_hooks hooks)
    : services_(services), hooks_(hooks),
      port_(
          services.loop, services.log, below_root(services, links),
          [this](std::string_view bytes) { received(bytes); }, [this] { lines_.forget(); }),
      outbox_(
          services.loop,
          [this](std::string_view bytes) {
              services_.log.sent(bytes);
              port_.write(bytes);
          },
          [this](const hangup &end) { hang_up(end); })
{
}

void at_modem::received(std::string_view bytes)
{
    while (!bytes.empty()) {
        const size_t end = std::min(bytes.find('\r'), bytes.size() - 1) + 1;
        if (hooks_.echo && hooks_.echo())
            port_.write(bytes.substr(0, end));
        for (const at_line &line : lines_.take(bytes.substr(0, end)))
            serve(line);
        bytes.remove_prefix(end);
    }
}

void at_modem::serve(const at_line &line)
{
    services_.log.received(line.text + '\r');
    if (hooks_.echo && hooks_.echo())
        services_.log.sent(line.text + '\r');
    if (!at_begins(line.text, "AT"))
        return;
    std::optional<hangup> end;
    const std::string name = hooks_.request_name ? hooks_.request_name(line.text) : line.text;
    delivery plan = services_.faults.answer(name, at_dialect, [&] {
        const at_reply reply = line.overlong ? at_error() : hooks_.execute(line.text);
        end = reply.end;
        return at_format(reply);
    });
    if (!plan.end)
        plan.end = end;
    outbox_.deliver(plan);
}

void at_modem::act(const fault &alone)
{
    outbox_.deliver(fault_deliver(alone, {}, at_dialect));
}

void at_modem::hang_up(const hangup &end)
{
    outbox_.clear();
    lines_.forget();
    const bool reboot = end.reboot && hooks_.reboot;
    port_.hang_up(end, [this, reboot] {
        if (reboot)
            hooks_.reboot();
    });
}

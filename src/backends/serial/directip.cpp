#include "backends/serial/directip.h"

#include "backends/serial/at.h"
#include "backends/serial/port.h"
#include "backends/wwan.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/slot.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/text.h"
#include "publish/output.h"
#include "publish/state.h"

#include <cerrno>
#include <cstring>
#include <span>
#include <string>

constexpr int context_timeout_s = 300; // a network may take minutes to activate a PDP context
constexpr int data_up_total_ms = 15000;
constexpr int data_up_step_ms = 500;
constexpr size_t value_max = 255;

enum radio_status { radio_unknown = 0, radio_on = 1, radio_off = 2 };

// ---- attach and detach

static int sierra_directip_lte_attach(cellmodem &modem)
{
    if (modem.attached) {
        log_message(log_info, "Sierra DirectIP Modem is already attached");
        return 0;
    }
    if (port_open(at_port()) != 0)
        return -1;
    (void)publish_attached(modem, true); // an unreachable infod keeps nobody from the modem
    return 0;
}

static int sierra_directip_lte_detach(cellmodem &modem)
{
    if (!modem.attached) {
        log_message(log_info, "Sierra DirectIP Modem is already detached");
        return 0;
    }
    if (port_close(at_port()) != 0) {
        log_message(log_error, "Failed to close: %s", port_path);
        return -1;
    }
    (void)publish_attached(modem, false);
    return 0;
}

// ---- one exchange

static std::optional<std::string_view> read_response(int timeout_s)
{
    const auto response = at_read(timeout_s);
    if (!response && !clock_stopped())
        log_message(log_fatal, "Did not get response from modem");
    return response;
}

// Reads the response and tests it for OK; `failure` is the line that carries a refusal.
static std::optional<std::string_view> read_ok(const char *failure, int timeout_s)
{
    const auto response = read_response(timeout_s);
    if (!response || at_ok(*response))
        return response;
    log_message(log_fatal, "%s - %.*s", failure, static_cast<int>(response->size()),
                response->data());
    return std::nullopt;
}

// Sends a command; `could_not` is the whole line for a failed write.
static int send_command(std::string_view command, const char *could_not)
{
    at_discard();
    if (at_write(command) == 0)
        return 0;
    log_message(log_fatal, "%s", could_not);
    return -1;
}

// Sends a command and reads its response.
static std::optional<std::string_view> exchange(const std::string &command,
                                                const std::string &could_not, const char *failure,
                                                int timeout_s = at_timeout_s)
{
    if (send_command(command, could_not.c_str()) != 0)
        return std::nullopt;
    return read_ok(failure, timeout_s);
}

// ---- records

// A field of a response: written when the pattern matches, or at once when the value is fixed.
struct response_field {
    const char *pattern;
    const char *key;
    bool push;
    const char *fixed = nullptr;
};

constexpr response_field info_fields[] = {
    {R"(Model: (\w+))", "product", true},
    {nullptr, "technology", true, "GSM/UMTS/LTE"},
    {R"(IMEI: (\w+))", "imei", true},
    {R"(FSN: (\w+))", "serial", false},
    {R"(Revision: ([\S\s]+)\s+IMEI:)", "firmware", false},
};

constexpr response_field status_fields[] = {
    {R"(Mode:\s+(\w+))", "mode", true},
    {R"(Temperature:\s+(\w+))", "temp", true},
    {R"(Cell ID:\s+(\w+))", "cell_id", false},
    {R"(System mode:\s+(\w+))", "system-mode", false},
};

constexpr response_field lte_fields[] = {
    {R"(LTE band:\s+(\w+))", "band", false},
    {R"(RSSI \(dBm\):\s+(\S+))", "rssi-4g", true},
    {R"(RSRP \(dBm\):\s+(\S+))", "rsrp", false},
    {R"(SINR \(dB\):\s+(\S+))", "sinr", false},
};

constexpr response_field wcdma_fields[] = {
    {R"(WCDMA band:\s+(\w+\s*\w+))", "band", false},
    {R"(RX level C0:\s+(\S+))", "rx_c0", false},
    {R"(RX level C1:\s+(\S+))", "rx_c1", false},
};

constexpr response_field gsm_fields[] = {
    {R"(GSM band:\s+(\w+))", "band", false},
    // GSM firmware prints this figure without a blank, unlike all the others.
    {R"(RX level \(dBm\):(\S+))", "rx_level", false},
};

// The first row whose word stands in the system mode decides; the last one has no word.
struct radio_family {
    const char *word;
    std::span<const response_field> fields;
};

constexpr radio_family radio_families[] = {
    {"LTE", lte_fields},
    {"WCDMA", wcdma_fields},
    {"", gsm_fields},
};

// Writes the fields that the response holds. `value` keeps the last one that matched.
static void write_fields(FILE *out, int mode, std::string_view response,
                         std::span<const response_field> fields, std::string &value)
{
    for (const response_field &field : fields) {
        if (field.fixed) {
            output_text(out, field.key, field.fixed, mode, field.push);
            continue;
        }
        size_t start = 0;
        size_t length = 0;
        if (at_extract(response, field.pattern, &start, &length) != 0)
            continue;
        value = text_cut(text_from_bytes(response.substr(start, length)), value_max);
        output_text(out, field.key, value.c_str(), mode, field.push);
    }
}

static int sierra_directip_lte_info(cellmodem &modem, FILE *out, int mode)
{
    info_begin(out, mode);
    output_text(out, "attached", modem.attached ? "yes" : "no", mode, true);
    output_text(out, "driver", cellmodem_type_text(modem.type), mode, true);
    output_text(out, "device", modem.device_path.c_str(), mode, true);
    const auto response = exchange("ATI\r", "Could not get info", "Info get failed");
    if (!response)
        return -1; // the record stays open, as its readers know it
    std::string value;
    write_fields(out, mode, *response, info_fields, value);
    info_end(out, mode);
    return 0;
}

static int sierra_directip_lte_status(cellmodem &, FILE *out, int mode)
{
    const auto response = exchange("AT!GSTATUS?\r", "Could not get info", "Info get failed");
    if (!response)
        return -1;
    status_begin(out, mode);
    std::string value;
    write_fields(out, mode, *response, status_fields, value);
    // Whatever matched last is looked at: without a system mode that is an earlier field.
    for (const radio_family &family : radio_families) {
        if (value.find(family.word) == std::string::npos)
            continue;
        write_fields(out, mode, *response, family.fields, value);
        break;
    }
    status_end(out, mode);
    return 0;
}

// ---- radio and reset

static int sierra_directip_lte_radio(cellmodem &modem, bool on)
{
    log_message(log_debug, "sierra_directip_lte_radio(%d)", on);
    if (!exchange(at_format("AT+CFUN=%d\r", on),
                  std::string("Could not set radio mode to ") + (on ? "on" : "off"),
                  "Set radio failed"))
        return -1;
    modem.state_b = on ? radio_on : radio_off;
    log_message(log_debug, "Radio status is: %d", modem.state_b.load());
    return 0;
}

static int sierra_directip_lte_reset(cellmodem &)
{
    log_message(log_debug, "sierra_directip_lte_reset()");
    return exchange("AT!RESET\r", "Could not reset radio", "Reset failed") ? 0 : -1;
}

// ---- data session

static int sierra_directip_lte_data_up(cellmodem &)
{
    log_message(log_debug, "sierra_directip_lte_data_up)");
    if (send_command("AT!SCACT?\r", "Could not query radio") != 0)
        return -1;
    const auto response = read_response(at_timeout_s);
    if (!response || response->find("!SCACT: 1,1") == std::string_view::npos)
        return -1;
    log_message(log_debug, "Connection Up");
    return 0;
}

// A quote or a control character would end the argument, or the whole command line, and let the
// rest of the text through as commands of its own.
static int check_argument(const char *name, const char *text)
{
    if (!strchr(text, '"') && !text_has_control(text))
        return 0;
    log_message(log_error, "Refused: %s holds a double quote or a control character", name);
    return -1;
}

static int set_authentication(int auth, const char *username, const char *password)
{
    const std::string command =
        auth != 0 ? at_format("AT$QCPDPP=1,%d,\"%s\",\"%s\"\r", auth, username, password)
                  : at_format("AT$QCPDPP=1,0\r");
    return exchange(command, "Could not set auth settings", "Set auth settings failed") ? 0 : -1;
}

// Activates or deactivates context 1. The response is awaited even after a failed write, because
// part of the command may have reached the modem.
static int switch_context(const char *command, const char *could_not, const char *failure)
{
    (void)send_command(command, could_not);
    return read_ok(failure, context_timeout_s) ? 0 : -1;
}

static int sierra_directip_lte_connect(cellmodem &modem, const char *apn, const char *, int auth,
                                       const char *username, const char *password)
{
    username = username ? username : "";
    password = password ? password : "";
    log_message(log_debug, "sierra_directip_lte_connect(apn=%s, auth=%d, user=%s, password=%s)",
                apn, auth, username, password);
    if (check_argument("APN", apn) != 0 || check_argument("user name", username) != 0 ||
        check_argument("password", password) != 0)
        return -1;
    if (!exchange(at_format("AT+CGDCONT=1,\"IP\",\"%s\"\r", apn),
                  std::string("Could not set APN to ") + apn, "Set APN failed"))
        return -1;
    if (set_authentication(auth, username, password) != 0)
        return -1;
    if (switch_context("AT!SCACT=1,1\r", "Could not activate pdp context",
                       "PDP context activation failed") != 0)
        return -1;
    if (wait_until([&] { return sierra_directip_lte_data_up(modem); }, data_up_total_ms,
                   data_up_step_ms) != 0) {
        log_message(log_error, "timed out waiting for data connection");
        return -1;
    }
    wwan_up();
    return 0;
}

static int sierra_directip_lte_disconnect(cellmodem &)
{
    if (switch_context("AT!SCACT=0,1\r", "Could not deactivate pdp context",
                       "PDP context deactivation failed") != 0)
        return -1;
    wwan_down();
    return 0;
}

// ---- the family

constexpr cellmodem_slots directip_slots = {
    .attach = slot<sierra_directip_lte_attach>,
    .detach = slot<sierra_directip_lte_detach>,
    .info = slot<sierra_directip_lte_info>,
    .status = slot<sierra_directip_lte_status>,
    .lte_connect = slot<sierra_directip_lte_connect>,
    .disconnect = slot<sierra_directip_lte_disconnect>,
    .radio = slot<sierra_directip_lte_radio>,
    .data_up = slot<sierra_directip_lte_data_up>,
    .reset = slot<sierra_directip_lte_reset>,
};

int sierra_directip_lte_init(cellmodem &modem)
{
    log_message(log_debug, "Sierra DirectIP modem is ready.");
    modem.slots = directip_slots;
    modem.type = type_sierra_directip;
    modem.technology = technology_lte;
    modem.attached = false;
    modem.session_state = session_unknown;
    modem.state_b = radio_unknown;
    modem.device_path = "/dev/cellmodem01";
    return 0;
}

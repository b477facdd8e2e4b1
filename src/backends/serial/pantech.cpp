#include "backends/serial/pantech.h"

#include "backends/serial/pantech_wire.h"
#include "backends/serial/port.h"
#include "backends/serial/wmc.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/slot.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "publish/output.h"
#include "publish/state.h"
#include "sms/spool.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

constexpr const char *default_smsc = "19037029920";
constexpr int send_reads_max = 3;
constexpr int send_pause_us = 5000;
constexpr size_t identifier_max = 32;

// ---- attach and detach: nothing is held between commands

static int pantech_wmc_attach(cellmodem &modem)
{
    (void)publish_attached(modem, true); // an unreachable infod keeps nobody from the modem
    return 0;
}

static int pantech_wmc_detach(cellmodem &modem)
{
    (void)publish_attached(modem, false);
    return 0;
}

// ---- records

static int read_info(cellmodem &modem, FILE *out, int mode)
{
    std::vector<uint8_t> reply;
    if (pantech_wmc_sendcommand(modem, wmc_get_info, reply) != 0) {
        log_message(log_error, "Failed to send get info command");
        return -1;
    }
    if (reply.size() != pantech_info_bytes) {
        log_message(log_error, "Unexpected response length: %d expected: %d",
                    static_cast<int>(reply.size()), static_cast<int>(pantech_info_bytes));
        return -1;
    }
    pantech_write_fields(out, mode, reply, pantech_info_fields);
    if (!modem.aux_buffer)
        modem.aux_buffer = pantech_model(reply);
    return 0;
}

static int read_apn(cellmodem &modem, FILE *out, int mode)
{
    std::vector<uint8_t> reply;
    if (pantech_wmc_sendcommand(modem, wmc_get_eps, reply) != 0) {
        log_message(log_error, "Failed to send get EPS command");
        return -1;
    }
    pantech_write_fields(out, mode, reply, pantech_eps_fields);
    return 0;
}

static int pantech_wmc_getinfo(cellmodem &modem, FILE *out, int mode)
{
    info_begin(out, mode);
    output_text(out, "attached", modem.attached ? "yes" : "false", mode, true);
    output_text(out, "driver", cellmodem_type_text(modem.type), mode, true);
    output_text(out, "device", modem.device_path.c_str(), mode, true);
    const int info = read_info(modem, out, mode);
    const int apn = read_apn(modem, out, mode);
    info_end(out, mode);
    return info == 0 && apn == 0 ? 0 : -1;
}

static int read_service(cellmodem &modem, FILE *out, int mode)
{
    std::vector<uint8_t> reply;
    if (pantech_wmc_sendcommand(modem, wmc_get_status, reply) != 0) {
        log_message(log_error, "Failed to send get status command");
        return -1;
    }
    if (reply.size() != pantech_status_lte_bytes && reply.size() != pantech_status_cdma_bytes) {
        log_message(log_error, "Unexpected response length: %d expected: %d or %d",
                    static_cast<int>(reply.size()), static_cast<int>(pantech_status_lte_bytes),
                    static_cast<int>(pantech_status_cdma_bytes));
        return -1;
    }
    pantech_write_service(out, mode, reply);
    return 0;
}

static int read_addresses(cellmodem &modem, FILE *out, int mode)
{
    std::vector<uint8_t> reply;
    if (pantech_wmc_sendcommand(modem, wmc_get_ip_config, reply) != 0) {
        log_message(log_error, "Failed to send get IP config command");
        return -1;
    }
    if (reply.size() != pantech_ip_config_bytes) {
        log_message(log_error, "Unexpected response length: %d expected: %d",
                    static_cast<int>(reply.size()), static_cast<int>(pantech_ip_config_bytes));
        return -1;
    }
    pantech_write_fields(out, mode, reply, pantech_ip_config_fields);
    return 0;
}

static int pantech_wmc_getstatus(cellmodem &modem, FILE *out, int mode)
{
    log_message(log_debug, "pantech_wmc_getstatus()");
    status_begin(out, mode);
    output_text(out, "device-state", device_state_name(modem.device_state), mode, true);
    const int service = read_service(modem, out, mode);
    const int addresses = read_addresses(modem, out, mode);
    status_end(out, mode);
    return service == 0 && addresses == 0 ? 0 : -1;
}

// ---- received messages

static void write_message(FILE *out, int mode, const pantech_message &message)
{
    if (mode == output_xml)
        fputs("<sms1>\n", out);
    output_text(out, "sms1-id", message.identifier.c_str(), mode, false);
    output_text(out, "sms1-phone", message.number.c_str(), mode, false);
    output_text(out, "sms1-text", message.text.c_str(), mode, false);
    if (mode == output_xml)
        fputs("</sms1>\n", out);
}

using owned_stream = std::unique_ptr<FILE, int (*)(FILE *)>;

static bool was_received(const std::string &identifier)
{
    const owned_stream file(fopen(rooted(pantech_last_sms_path).c_str(), "re"), fclose);
    char line[identifier_max + 1] = "";
    return file && fgets(line, sizeof(line), file.get()) &&
           std::string_view(line).starts_with(identifier);
}

static void remember(const std::string &identifier)
{
    FILE *file = fopen(rooted(pantech_last_sms_path).c_str(), "we");
    const bool written = file && fputs(identifier.c_str(), file) >= 0;
    if ((file && fclose(file) != 0) || !written)
        log_message(log_error, "Failed to write %s: %s", pantech_last_sms_path, strerror(errno));
}

// Spools a message that was not there yet. It is remembered only once it is in the spool: whatever
// ends the program in between, the message is spooled when it is next read.
static void keep_message(const pantech_message &message)
{
    if (was_received(message.identifier)) {
        log_message(log_debug, "SMS %s was previously received, skipping...",
                    message.identifier.c_str());
        return;
    }
    log_message(log_debug, "Newset SMS is now: %s", message.identifier.c_str());
    const bool spoolable =
        !message.identifier.empty() && !message.number.empty() && !message.text.empty();
    if (spoolable && cellmodem_sms_writefile(message.number, message.text) != 1) {
        log_message(log_error, "Failed to write sms");
        return;
    }
    remember(message.identifier);
}

static int pantech_wmc_getsms(cellmodem &modem, FILE *out, int mode)
{
    log_message(log_debug, "pantech_wmc_getsms()");
    if (mode == output_xml)
        fputs("<sms-list>\n", out);
    std::vector<uint8_t> reply;
    if (pantech_wmc_sendcommand(modem, wmc_get_sms, reply) != 0) {
        log_message(log_error, "Failed to send get SMS command");
        return -1; // the list stays open, as its readers know it
    }
    pantech_message message;
    if (pantech_read_message(reply, message) != 0) {
        log_message(log_error, "Response ends before the message: %d bytes",
                    static_cast<int>(reply.size()));
        return -1;
    }
    const bool received = !message.number.empty();
    output_longlong(out, "sms-count", 1, mode, false); // whether or not there is a message
    if (received)
        write_message(out, mode, message);
    if (mode == output_xml)
        fputs("</sms-list>\n", out);
    if (received) {
        log_message(log_debug, "Got SMS: Phone: %s len: %u Text: '%s'", message.number.c_str(),
                    message.text_bytes, message.text.c_str());
        keep_message(message);
    }
    return 0;
}

// ---- messages to be sent

// Line feed and tab belong to a text; of the other control characters some end the frame, and what
// stood behind it would be a command of its own. '}' would change the character behind it.
static bool is_sendable(char c, std::string_view allowed)
{
    return c != '}' && (!text_has_control({&c, 1}) || allowed.find(c) != allowed.npos);
}

static int check_argument(const char *name, std::string_view text, std::string_view allowed)
{
    const auto found =
        std::find_if_not(text.begin(), text.end(), [=](char c) { return is_sendable(c, allowed); });
    if (found == text.end())
        return 0;
    if (*found == '}')
        log_message(log_error, "Refused: %s holds '}'", name);
    else
        log_message(log_error, "Refused: %s holds the control character 0x%02x", name,
                    static_cast<unsigned>(*found));
    return -1;
}

// Other replies, and pieces of one, may come first.
static int wait_for_sent(serial_port &port)
{
    for (int i = 0; i < send_reads_max; i++) {
        log_message(log_debug, "Waiting for send SMS command response...");
        clock_pause_us(send_pause_us);
        log_message(log_debug, "Reading send SMS command reply...");
        std::vector<uint8_t> reply;
        if (pantech_wmc_read(port, reply, pantech_message_sent.size()) != 0)
            log_message(log_debug, "Failed to receive WMC reply");
        if (std::equal(reply.begin(), reply.end(), pantech_message_sent.begin(),
                       pantech_message_sent.end())) {
            log_message(log_debug, "Successfully sent SMS");
            return 0;
        }
    }
    return -1;
}

static int pantech_wmc_sendsms(cellmodem &, const char *path, const char *smsc)
{
    log_message(log_debug, "pantech_wmc_sendsms(%s)", path);
    const std::string centre(smsc ? smsc : default_smsc);
    std::string number, text;
    if (cellmodem_sms_readfile(path, number, pantech_number_max, text, pantech_text_max + 1) == 0)
        return -1;
    if (check_argument("service centre", centre, "") != 0 ||
        check_argument("number", number, "") != 0 || check_argument("text", text, "\n\t") != 0)
        return -1;
    if (text.size() == pantech_text_unsendable) {
        log_message(log_warning, "A text of %d bytes cannot be sent, a blank was appended",
                    static_cast<int>(text.size()));
        text += ' ';
    }
    const pantech_message_frame frame = pantech_make_message(number, centre, text);
    log_message(log_debug, "Sending SMS command. Msg len: %d Total len: %d",
                static_cast<int>(text.size()), static_cast<int>(frame.size() - text.size()));
    return pantech_wmc_with_device(
        "Opening WMC Device for sending SMS", "Closing WMC device", [&](serial_port &port) {
            if (pantech_wmc_sendwmccommand(port, frame) != 0) {
                log_message(log_error, "Failed to send WMC SMS payload: 3");
                return -1;
            }
            return wait_for_sent(port);
        });
}

// ---- the family

constexpr cellmodem_slots pantech_slots = {
    .attach = slot<pantech_wmc_attach>,
    .detach = slot<pantech_wmc_detach>,
    .info = slot<pantech_wmc_getinfo>,
    .status = slot<pantech_wmc_getstatus>,
    .getsms = slot<pantech_wmc_getsms>,
    .sendsms = slot<pantech_wmc_sendsms>,
};

int pantech_wmc_init(cellmodem &modem)
{
    log_message(log_debug, "pantech_wmc_init()");
    log_message(log_debug, "Pantech WMC modem is ready.");
    modem.slots = pantech_slots;
    modem.type = type_pantech;
    modem.technology = technology_lte;
    modem.attached = false;
    modem.device_path = port_path;
    return 0;
}

#include "backends/gobi/operations.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/markers.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "publish/state.h"
#include "qmi/messages.h"

#include <optional>

enum radio_status { radio_on = 1, radio_off = 2 };

// The connection to the modem, as long as there is one.
struct gobi_connection {
    const char *device = gobi_device;
    uint32_t handle = 0;
};

static std::optional<gobi_connection> gobi_api;

using code_value = unsigned long; // as log lines have it

uint32_t gobi_handle()
{
    return gobi_api ? gobi_api->handle : 0;
}

bool gobi_is_cdma()
{
    return file_exists(marker_is_cdma_gobi);
}

std::string gobi_text(const std::string &bytes)
{
    const std::string text = text_from_bytes(bytes.substr(0, bytes.find('\0')));
    return std::string(text_cut(text, gobi_text_bytes_max));
}

// ---- attach and detach

// Reads one text that is kept in the record. 0 or -1.
static int keep_text(uint32_t (*read)(uint32_t, std::string &), const char *failure,
                     std::optional<std::string> &kept)
{
    std::string bytes;
    if (read(gobi_handle(), bytes) != qmi_ok) {
        log_message(log_error, "%s", failure);
        return -1;
    }
    kept = gobi_text(bytes);
    return 0;
}

int gobi_attach(cellmodem &modem)
{
    (void)gobi_detach(modem);
    gobi_api.emplace();
    log_message(log_debug, "connecting to %s", gobi_api->device);
    const uint32_t code = qmi_open(gobi_api->device, gobi_api->handle);
    if (code != qmi_ok) {
        log_message(log_fatal, "Failed to connect to LTE (Gobi) modem API: %lu", code_value{code});
        gobi_api.reset();
        return -1;
    }
    if (keep_text(qmi_dms_get_manufacturer, "Failed to retrieve modem manufacturer",
                  modem.manufacturer_text) != 0 ||
        keep_text(qmi_dms_get_model, "Failed to retrieve modem model", modem.aux_buffer) != 0) {
        log_message(log_debug, "disconnecting from %s", gobi_api->device);
        (void)qmi_close(gobi_api->handle);
        gobi_api.reset();
        return -1;
    }
    (void)publish_attached(modem, true); // an unreachable infod keeps nobody from the modem
    return 0;
}

int gobi_detach(cellmodem &modem)
{
    if (!gobi_api)
        return 0;
    log_message(log_debug, "disconnecting from %s", gobi_api->device);
    if (qmi_close(gobi_api->handle) != qmi_ok)
        log_message(log_error, "Failed to disconnect from gobi modem");
    if (publish_attached(modem, false) != 0)
        log_message(log_error, "Failed to detach from gobi modem");
    gobi_api.reset();
    return 0;
}

// ---- the modem as a whole

int gobi_ping(cellmodem &modem)
{
    log_message(log_debug, "gobi_ping()");
    std::string model;
    const bool answered = qmi_dms_get_model(gobi_handle(), model) == qmi_ok;
    (void)publish_device_state(modem, answered ? device_responding : device_unresponsive);
    return answered ? 0 : -1;
}

int gobi_radio(cellmodem &modem, bool on)
{
    log_message(log_debug, "gobi_radio(%d)", on);
    (void)qmi_dms_set_operating_mode(gobi_handle(), on ? qmi_mode_online : qmi_mode_low_power);
    modem.state_b = on ? radio_on : radio_off;
    log_message(log_debug, "Radio status is: %d", modem.state_b.load());
    return 0;
}

int gobi_reset(cellmodem &)
{
    log_message(log_debug, "gobi_reset()");
    (void)qmi_dms_set_operating_mode(gobi_handle(), qmi_mode_offline);
    log_message(log_info, "Setting Gobi Modem to Low Power Mode");
    const uint32_t code = qmi_dms_set_operating_mode(gobi_handle(), qmi_mode_reset);
    if (code == qmi_ok || code == qmi_no_reset_answer)
        return 0;
    log_message(log_error, "Could not reset modem: %lu", code_value{code});
    return -1;
}

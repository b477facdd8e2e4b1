#include "backends/gobi/operations.h"
#include "platform/log.h"
#include "qmi/errors.h"
#include "qmi/messages.h"

using code_value = unsigned long;

// The position engine, then its tracking from each start on.
static uint32_t switch_gps(bool on)
{
    const uint32_t code = qmi_pds_set_service(gobi_handle(), on);
    return code != qmi_ok ? code : qmi_pds_set_auto_tracking(gobi_handle(), on);
}

int gobi_enablegps(cellmodem &, int, int)
{
    const uint32_t code = switch_gps(true);
    if (code == qmi_ok)
        return 0;
    log_message(log_fatal, "Could not enable GPS: %lu", code_value{code});
    return -1;
}

int gobi_disablegps(cellmodem &)
{
    const uint32_t code = switch_gps(false);
    if (code == qmi_ok)
        return 0;
    if (code == qmi_modem_error + qmi_error_disabled) {
        log_message(log_debug, "GPS was already disabled.");
        return 0;
    }
    log_message(log_fatal, "Could not disable GPS: %lu", code_value{code});
    return -1;
}

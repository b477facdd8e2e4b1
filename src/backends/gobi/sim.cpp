#include "backends/gobi/operations.h"
#include "platform/log.h"
#include "qmi/messages.h"

using code_value = unsigned long;

constexpr uint8_t pin1 = 1;

int gobi_simispresent(cellmodem &)
{
    uint8_t state = 0;
    const uint32_t code = qmi_dms_get_uim_state(gobi_handle(), state);
    if (code != qmi_ok) {
        log_message(log_error, "Could not read SIM state %lu", code_value{code});
        return 0;
    }
    if (state == qmi_uim_absent) {
        log_message(log_info, "Current UIM state is: NOT PRESENT");
        return 0;
    }
    log_message(log_info, "Gobi UIM state is PRESENT (%d not %d)", state, qmi_uim_absent);
    return 1;
}

// 0 when the SIM is locked, which is what both operations below need.
static int require_locked()
{
    uint8_t state = 0;
    const uint32_t code = qmi_dms_get_uim_state(gobi_handle(), state);
    if (code != qmi_ok) {
        log_message(log_fatal, "Could not read SIM state %lu", code_value{code});
        return -1;
    }
    if (state != qmi_uim_locked) {
        log_message(log_fatal, "SIM is not locked");
        return -1;
    }
    return 0;
}

// The SIM's check of its PIN is turned off, so that an appliance that restarts on its own needs the
// PIN once only.
int gobi_unlocksim(cellmodem &, const char *pin)
{
    if (require_locked() != 0)
        return -1;
    const uint32_t code = qmi_dms_set_pin_protection(
        gobi_handle(), {.pin_id = pin1, .enabled = 0, .pin = {pin ? pin : ""}});
    if (code == qmi_ok)
        return 0;
    log_message(log_fatal, "Could not unlock SIM - error %lu", code_value{code});
    return -1;
}

int gobi_unblocksim(cellmodem &, const char *puk, const char *new_pin)
{
    if (require_locked() != 0)
        return -1;
    qmi_pin_states states;
    if (qmi_dms_get_pin_status(gobi_handle(), states) != qmi_ok) {
        log_message(log_fatal, "Could not get PIN Status");
        return -1;
    }
    const uint8_t status = states.pin1.value_or(qmi_pin_status{}).status;
    if (status != qmi_pin_blocked) {
        log_message(log_fatal, "%s",
                    status == qmi_pin_permanently_blocked ? "PIN is permanently blocked"
                                                          : "PIN is not in a blocked state");
        return -1;
    }
    const uint32_t code = qmi_dms_unblock_pin(
        gobi_handle(),
        {.pin_id = pin1, .puk = {puk ? puk : ""}, .new_pin = {new_pin ? new_pin : ""}});
    if (code == qmi_ok)
        return 0;
    log_message(log_fatal, "Could not unblock SIM - error %lu", code_value{code});
    return -1;
}

// The SIM of a UMTS/GSM modem: presence, PIN and PUK. What becomes of a request is learnt from the
// SIM status that the modem notifies.

#include "backends/sierra/gsm_family.h"
#include "backends/sierra/gsm_names.h"
#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "swi/calls.h"

#include <cstring>

constexpr uint32_t sim_ready = 0;
constexpr uint32_t sim_not_inserted = 1;
constexpr uint32_t sim_removed = 2;
constexpr size_t code_digits_min = 4;
constexpr size_t code_digits_max = 8;
constexpr int unlock_rounds = 5;
constexpr int unlock_round_ms = 1000;

int sierra_gsm_simispresent(cellmodem &)
{
    log_message(log_debug, "sierra_gsm_simispresent()");
    const uint32_t status = gsm.sim_status;
    if (status == gsm_unknown)
        return 1;
    const std::string name = name_of(gsm_sim_status_names, status);
    if (status == sim_not_inserted || status == sim_removed) {
        log_message(log_info, "SIM is not present: %s", name.c_str());
        return 0;
    }
    log_message(log_info, "SIM is present: %s", name.c_str());
    return 1;
}

static void log_refusal()
{
    char text[swi_error_text_max] = "";
    (void)swi_last_error_text(text, sizeof(text));
    log_message(log_error, "Modem reports CnS Error: %s\n", text);
}

// A code of the wrong length is refused before it costs one of the SIM's few tries.
static int check_length(const char *name, const char *code, size_t digits_min)
{
    const size_t digits = strlen(code);
    if (digits >= digits_min && digits <= code_digits_max)
        return 0;
    log_message(log_error, "%s must be between 4 and 8 digits", name);
    return -1;
}

static int verify_pin(const char *pin)
{
    swi_sim_verify request;
    request.type = swi_verify_pin;
    if (swi_set_text(request.pin, pin) != 0)
        return -1;
    const int result = swi_set_sim_verify(request, sierra_timeout_ms);
    if (result == swi_ok)
        return 0;
    log_message(log_error, "SIM verify command is rejected: %d", result);
    if (result == swi_cns_error)
        log_refusal();
    return -1;
}

static void release_lock(const char *pin)
{
    swi_sim_lock request;
    if (swi_set_text(request.pin, pin) != 0)
        return;
    const int result = swi_set_sim_lock(request, sierra_timeout_ms);
    if (result == swi_ok)
        log_message(log_debug, "SIM unlock command is being processed");
    else if (result == swi_cns_error)
        log_refusal();
    else
        log_message(log_error, "SwiSetSimLock() failed with: %d", result);
}

static int await_unlocked()
{
    for (int round = 0; round < unlock_rounds; round++) {
        if (gsm.sim_status == sim_ready) {
            log_message(log_debug, "SIM is now unlocked");
            return 0;
        }
        clock_sleep_ms(unlock_round_ms);
    }
    log_message(log_error, "Failed to unlock SIM");
    return -1;
}

int sierra_gsm_unlocksim(cellmodem &, const char *pin)
{
    log_message(log_debug, "sierra_gsm_unlocksim(%s)", pin);
    if (check_length("PIN", pin, 0) != 0 || verify_pin(pin) != 0)
        return -1;
    log_message(log_info, "SIM verify command is being processed");
    const uint32_t status = gsm.sim_status;
    if (status == gsm_unknown) {
        log_message(log_error, "Failed to determine SIM lock status.");
        return -1;
    }
    log_message(log_debug, "Currently SIM islocked: %d", static_cast<int>(status));
    if (status == sim_ready) {
        log_message(log_debug, "SIM is already unlocked");
        return 0;
    }
    release_lock(pin);
    return await_unlocked();
}

int sierra_gsm_unblocksim(cellmodem &, const char *puk, const char *pin)
{
    if ((pin && check_length("PIN", pin, code_digits_min) != 0) ||
        check_length("PUK", puk, code_digits_min) != 0)
        return -1;
    swi_sim_verify request;
    request.type = swi_verify_unblock;
    if (swi_set_text(request.pin, pin ? pin : "") != 0 || swi_set_text(request.puk, puk) != 0)
        return -1;
    const int result = swi_set_sim_verify(request, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_error, "SwiSetSimVerify() failed with: %d", result);
        return -1;
    }
    log_message(log_debug, "SIM unblock command is being processed");
    return 0;
}

// Activation of a CDMA modem on its carrier's network, and its return to the factory state. Somebody
// at a console waits for either, so failures are also printed on standard error.

#include "backends/sierra/cdma_family.h"
#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "swi/calls.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

constexpr int provisioning_timeout_ms = 120000;
constexpr uint32_t lock_and_commit = 1;
constexpr uint32_t lock_committed = 1;
constexpr uint32_t factory_reset_mode = 2; // what the modem wants; why, is not known here
constexpr uint8_t the_nam = 0;
constexpr int reboot_wait_ms = 5000;
constexpr int reboot_rounds = 5;

// What the modem may miss when it is locked, by the bit of its mask.
struct missing_item {
    const char *printed;
    const char *logged;
};

constexpr missing_item missing_items[] = {
    {" MDN not set\n", "MDN is not set"},
    {" IMSI not set\n", "IMSI is not set"},
    {" SIP User ID / Password not set\n", "SIP User ID / Password is not set\n"},
    {" Date not set\n", "Date is not set"},
    {" NAM profile not provisioned in the right order\n",
     "NAM profile not provisioned in the right order"},
};

// Logs a failure and prints it, whatever a user's text makes its length.
__attribute__((format(printf, 1, 2))) static void report(const char *format, ...)
{
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(std::max(0, vsnprintf(nullptr, 0, format, arguments))), 0);
    vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    log_message(log_error, "%s", text.c_str());
    fprintf(stderr, "%s\n", text.c_str());
}

// Reads the master subsidy lock as a number; what follows the digits is not looked at. A number that
// is out of range reads as the end of the range, and is refused: -1.
static int parse_msl(const char *text, int32_t &msl)
{
    const long long number = strtoll(text, nullptr, 10);
    msl = static_cast<int32_t>(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
    if (msl != INT32_MIN && msl != INT32_MAX)
        return 0;
    report("Invalid MSL provided: %s", text);
    return -1;
}

static int unlock(int32_t msl)
{
    return swi_pst_unlock(static_cast<uint32_t>(msl), provisioning_timeout_ms);
}

static int lock(swi_lock_result &lock)
{
    lock = {};
    return swi_pst_lock(lock_and_commit, lock, provisioning_timeout_ms);
}

// ---- activation

struct activation {
    swi_nam_text mdn;
    swi_nam_text msid;
    swi_home_sid_nid home;
    swi_lock_result lock;
};

// An empty number is left as the modem has it.
static int set_mdn(activation &wanted)
{
    return wanted.mdn.text[0] ? swi_set_mobile_dir_num(wanted.mdn, provisioning_timeout_ms)
                              : swi_ok;
}

static int set_msid(activation &wanted)
{
    return wanted.msid.text[0] ? swi_set_imsi(wanted.msid, provisioning_timeout_ms) : swi_ok;
}

static int clear_home(activation &wanted)
{
    wanted.home.sid = 0;
    wanted.home.nid = 0;
    return swi_pst_set_home_sid_nid(wanted.home, provisioning_timeout_ms);
}

struct activation_step {
    const char *name;
    int (*run)(activation &);
};

constexpr activation_step activation_steps[] = {
    {"SwiPstSetCurrentNam",
     [](activation &) { return swi_pst_set_current_nam(the_nam, provisioning_timeout_ms); }},
    {"SwiSetMobileDirNum", set_mdn},
    {"SwiSetIMSI", set_msid},
    {"SwiPstGetHomeSidNid",
     [](activation &wanted) {
         return swi_pst_get_home_sid_nid(the_nam, wanted.home, provisioning_timeout_ms);
     }},
    {"SwiPstSetHomeSidNid", clear_home},
    {"SwiPstLock", [](activation &wanted) { return lock(wanted.lock); }},
};

static int set_number(const char *name, const char *number, swi_nam_text &field)
{
    field.nam = the_nam;
    if (swi_set_text(field.text, number ? number : "") == 0)
        return 0;
    report("The %s has more than %zu characters", name, sizeof(field.text) - 1);
    return -1;
}

static int run_steps(activation &wanted)
{
    for (const activation_step &step : activation_steps) {
        const int result = step.run(wanted);
        if (result != swi_ok) {
            log_message(log_error, "%s failed: %d", step.name, result);
            return -1;
        }
    }
    return 0;
}

int sierra_cdma_activate(cellmodem &, const char *msl_text, const char *mdn, const char *msid)
{
    activation wanted;
    int32_t msl = 0;
    if (!msl_text) {
        report("MSL was not provided"); // a guess would cost one of the modem's few tries
        return -1;
    }
    if (parse_msl(msl_text, msl) != 0 || set_number("MDN", mdn, wanted.mdn) != 0 ||
        set_number("MSID", msid, wanted.msid) != 0)
        return -1;
    const int unlocked = unlock(msl);
    if (unlocked != swi_ok) {
        report("Failed to unlock the modem: %d, MSL may be incorrect", unlocked);
        return -1;
    }
    if (run_steps(wanted) != 0)
        return -1;
    if (wanted.lock.result == lock_committed) {
        log_message(log_info, "Successfully activated modem");
        return 0;
    }
    for (size_t bit = 0; bit < std::size(missing_items); bit++)
        if ((wanted.lock.missing >> bit & 1) != 0)
            fputs(missing_items[bit].printed, stderr);
    return -1;
}

// ---- return to the factory state

// The reset itself is done: what the modem then says of its lock changes nothing.
static int commit()
{
    log_message(log_info, "Factory Reset of Sierra Wireless CDMA modem was successful");
    log_message(log_info, "Locking Sierra Wireless CDMA modem and commiting changes");
    swi_lock_result locked;
    const int result = lock(locked);
    log_message(log_debug, "SwiPstLock() rv: %d lockrv: %d lockrv2: %d", result,
                static_cast<int>(locked.result), locked.missing);
    if (result != swi_ok)
        return result;
    if (locked.result == lock_committed)
        log_message(log_debug, "Factory Reset was successful: lockrv: 1");
    for (size_t bit = 0; bit < std::size(missing_items); bit++)
        if ((locked.missing >> bit & 1) != 0)
            log_message(log_debug, "%s", missing_items[bit].logged);
    return swi_ok;
}

// A modem that does not come back in time counts as rebooted all the same.
static void await_reboot(cellmodem &modem)
{
    clock_sleep_ms(reboot_wait_ms);
    for (int round = 0; round < reboot_rounds && !clock_stopped(); round++) {
        if (sierra_cdma_ping(modem) == 0) {
            log_message(log_info, "Sierra Wireless CDMA modem is responding again, continuing...");
            break;
        }
        log_message(log_info, "Sierra Wireless CDMA modem is not yet responding, waiting...");
        clock_sleep_ms(reboot_wait_ms);
    }
    log_message(log_info, "Sierra Wireless CDMA modem reboot was successful");
}

// The result of the step that failed, or 0.
static int return_to_factory_state(cellmodem &modem, int32_t msl)
{
    log_message(log_info, "Unlocking Sierra Wireless CDMA modem with provided MSL");
    int result = unlock(msl);
    if (result != swi_ok) {
        log_message(log_error, "Failed to unlock the Sierra Wireless CDMA modem: %d", result);
        fprintf(stderr,
                "Failed to unlock the Sierra Wireless CDMA modem: %d, MSL may not be correct\n",
                result);
        return result;
    }
    log_message(log_info, "Performing Factory Reset on Sierra Wireless CDMA modem");
    result = swi_factory_reset(factory_reset_mode, provisioning_timeout_ms);
    if (result != swi_ok) {
        log_message(log_error, "Failed to Factory Reset the modem: %d", result);
        return result;
    }
    result = commit();
    log_message(log_info, "Factory reset was successful, rebooting Sierra Wireless CDMA modem");
    if (sierra_cdma_reset(modem) != 0)
        return result;
    await_reboot(modem);
    return 0;
}

int sierra_cdma_rtn(cellmodem &modem, const char *msl_text)
{
    log_message(log_debug, "cdma::sierra_cdma_rtn(%s)", msl_text);
    int32_t msl = 0;
    if (parse_msl(msl_text, msl) != 0)
        return msl;
    if (modem.slots.detach(modem) != 0) {
        report("Failed to detach from Sierra CDMA Modem");
        return msl != 0 ? msl : -1;
    }
    const int result = return_to_factory_state(modem, msl);
    log_message(log_info, "Re-attaching to Sierra Wireless CDMA modem");
    if (sierra_cdma_attach(modem) != 0)
        log_message(log_error, "Failed to re-attach to Sierra Wireless CDMA Modem");
    return result;
}

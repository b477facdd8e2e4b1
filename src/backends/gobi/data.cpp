#include "backends/gobi/call_end.h"
#include "backends/gobi/operations.h"
#include "backends/wwan.h"
#include "cellmodem/cellmodem.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "publish/state.h"
#include "qmi/messages.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

using code_value = unsigned long;

constexpr int data_up_total_ms = 15000;
constexpr int data_up_step_ms = 500;
constexpr int start_timeout_s = 90;

static uint32_t gobi_session_handle = qmi_no_session;

// ---- the state of the link

struct registration_row {
    uint8_t registration;
    int priority;
    const char *text;
    int session_state;
    int result;
};

constexpr registration_row registration_rows[] = {
    {0, log_warning, "LTE (Gobi) cellmodem is not registered", session_disconnected, -1},
    {1, log_debug, "LTE (Gobi) cellmodem is registered", session_connected, 0},
    {2, log_debug, "LTE (Gobi) cellmodem is not registered but searching", session_disconnected,
     -1},
    {3, log_warning, "LTE (Gobi) cellmodem is not registered (denied)", session_disconnected, -1},
};

// States in which modems were found to have a connection all the same.
constexpr uint8_t unusual_registrations[] = {4, 5, 8};

static int judge_unusual(cellmodem &modem, uint8_t registration, bool connected)
{
    const code_value value = registration;
    if (connected)
        log_message(log_debug,
                    "LTE (Gobi) cellmodem connected with unusual registration state %lu (probably "
                    "registered)",
                    value);
    else
        log_message(log_debug,
                    "LTE (Gobi) cellmodem not connected with unusual registration state %lu "
                    "(probably not registered)",
                    value);
    (void)publish_session_state(modem, connected ? session_connected : session_disconnected);
    return 0; // without a connection, too: such a state says nothing against the link
}

static int judge_registration(cellmodem &modem, uint8_t registration, bool connected)
{
    const auto *row =
        std::find_if(std::begin(registration_rows), std::end(registration_rows),
                     [&](const auto &each) { return each.registration == registration; });
    if (row != std::end(registration_rows)) {
        log_message(row->priority, "%s", row->text);
        (void)publish_session_state(modem, row->session_state);
        return row->result;
    }
    if (std::find(std::begin(unusual_registrations), std::end(unusual_registrations),
                  registration) != std::end(unusual_registrations))
        return judge_unusual(modem, registration, connected);
    log_message(log_warning, "LTE (Gobi) cellmodem has unknown registration state %lu",
                code_value{registration});
    (void)publish_session_state(modem, session_invalid);
    return -1;
}

// Requests that no longer reach the modem need a new connection.
static void attach_again(cellmodem &modem)
{
    log_message(log_info, "Requests are not being made to Gobi modem, re-attaching...");
    if (gobi_detach(modem) != 0)
        log_message(log_error, "Failed to detach from gobi modem");
    else if (gobi_attach(modem) != 0)
        log_message(log_error, "Failed to re-attach to Gobi modem");
}

static uint8_t packet_state()
{
    uint8_t state = 0;
    (void)qmi_wds_get_packet_status(gobi_handle(), state);
    return state;
}

int gobi_data_up(cellmodem &modem)
{
    const uint8_t packet = packet_state();
    log_message(log_debug, "LTE (Gobi) session_state=%lu", code_value{packet});
    qmi_serving_system system;
    const uint32_t code = qmi_nas_get_serving_system(gobi_handle(), system);
    if (code != qmi_ok) {
        log_message(log_error, "Could not get Gobi registration state: %lu", code_value{code});
        (void)publish_session_state(modem, session_disconnected);
        if (code == qmi_not_sent)
            attach_again(modem);
        return -1;
    }
    log_message(log_debug, "LTE (Gobi) regState=%lu", code_value{system.registration});
    return judge_registration(modem, system.registration, packet == qmi_packet_connected);
}

// ---- connect

enum pdp_type : uint8_t { pdp_ipv4 = 0, pdp_ipv6 = 2, pdp_ipv4v6 = 3 };

// Bits of an authentication preference.
enum authentication_bits : uint8_t { auth_none = 0, auth_pap = 1, auth_chap = 2, auth_both = 3 };

// By the user's selector. Start requests and stored profiles have always been given different bits
// for the same selector, and networks are set up for it.
struct authentication_row {
    uint8_t start;
    uint8_t profile;
};

constexpr authentication_row authentication_rows[] = {
    {auth_both, auth_pap},
    {auth_pap, auth_both},
    {auth_chap, auth_chap},
    {auth_none, auth_none},
};

// What the user asks for, in the forms of the requests.
struct connect_wish {
    std::string apn; // may be empty
    pdp_type type;
    authentication_row authentication;
    std::optional<std::string> username, password;
};

// Modems that connect by a stored profile only, and the one whose profile is the third.
constexpr const char *profile_models[] = {"7304", "7710", "7750"};
constexpr const char *third_profile_model = "7750";
constexpr uint8_t first_profile = 1;
constexpr uint8_t third_profile = 3;

static std::optional<std::string> given_text(const char *text)
{
    if (!text || !*text)
        return std::nullopt;
    return std::string(text, strnlen(text, gobi_argument_bytes_max));
}

static pdp_type pdp_type_of(const char *text)
{
    const std::string_view name = text ? text : "";
    return name == "ipv4" ? pdp_ipv4 : name == "ipv6" ? pdp_ipv6 : pdp_ipv4v6;
}

static std::optional<std::string> text_if_any(const std::string &text)
{
    return text.empty() ? std::nullopt : std::optional(text);
}

static bool has(const std::string &model, const char *part)
{
    return model.find(part) != std::string::npos;
}

// Sends the start request. 0 when there is a session, or a code; `why` says then what the modem did.
static uint32_t start_session(const qmi_start_network &wanted, std::string &why)
{
    gobi_session_handle = qmi_no_session;
    if (wanted.profile)
        log_message(log_debug, "Adding 3GPP session start to request");
    qmi_started_network started;
    const int64_t before_ms = clock_now_ms();
    const uint32_t code = qmi_wds_start_network(gobi_handle(), wanted, started);
    log_message(log_info,
                "WDS: Start Network Interface returned %d in %d secs (timeout is %d secs)",
                static_cast<int>(code), static_cast<int>((clock_now_ms() - before_ms) / 1000),
                start_timeout_s);
    gobi_session_handle = started.session;
    if (code != qmi_ok)
        why = gobi_call_end_text(started.end_reason, code);
    return code;
}

static int start_with_apn(const connect_wish &wish, uint8_t profile)
{
    log_message(log_info, "Resetting profile: %d", profile);
    if (qmi_wds_reset_profile(gobi_handle(), {.index = profile}) != qmi_ok)
        log_message(log_error, "Could not reset profile %d - trying to connect anyway", profile);
    log_message(log_info, "Starting data session with apn %s", wish.apn.c_str());
    std::string why;
    if (start_session({.profile = std::nullopt,
                       .authentication = wish.authentication.start,
                       .apn = text_if_any(wish.apn),
                       .username = wish.username,
                       .password = wish.password},
                      why) == qmi_ok)
        return 0;
    log_message(log_error, "Could not start data session on profile %d with APN %s: %s", profile,
                wish.apn.c_str(), why.c_str());
    return -1;
}

static int start_with_profile(const connect_wish &wish, uint8_t profile)
{
    if (!wish.apn.empty()) {
        log_message(log_info, "Updating profile %d to apn %s", profile, wish.apn.c_str());
        if (qmi_wds_modify_profile(gobi_handle(), {.id = {.index = profile},
                                                   .name = "profile",
                                                   .pdp_type = wish.type,
                                                   .apn = wish.apn,
                                                   .authentication = wish.authentication.profile,
                                                   .username = wish.username,
                                                   .password = wish.password}) != qmi_ok)
            log_message(log_fatal,
                        "Could not update profile %d with apn %s - trying to connect anyway",
                        profile, wish.apn.c_str());
    }
    log_message(log_info, "Starting data session with profile %d", profile);
    qmi_start_network wanted;
    wanted.profile = profile;
    std::string why;
    if (start_session(wanted, why) == qmi_ok)
        return 0;
    log_message(log_error, "Could not start data session on profile %d: %s", profile, why.c_str());
    return -1;
}

static int start(cellmodem &modem, const connect_wish &wish)
{
    qmi_serving_system system;
    if (qmi_nas_get_serving_system(gobi_handle(), system) == qmi_ok &&
        system.registration == qmi_registration_unknown)
        log_message(log_debug, "Registration state unknown, continuing with connection");
    std::string bytes;
    if (qmi_dms_get_model(gobi_handle(), bytes) != qmi_ok)
        return -1;
    const std::string model = gobi_text(bytes);
    const bool cdma = gobi_is_cdma();
    const bool own_apn = !cdma || !wish.apn.empty();
    const bool needs_profile = std::any_of(std::begin(profile_models), std::end(profile_models),
                                           [&](const char *part) { return has(model, part); });
    int result;
    if (own_apn && !needs_profile)
        result = start_with_apn(wish, cdma ? third_profile : first_profile);
    else
        result = start_with_profile(
            wish, !own_apn || has(model, third_profile_model) ? third_profile : first_profile);
    if (result != 0)
        return -1;
    log_message(log_info, "Started Gobi LTE modem session: 0x%lx", code_value{gobi_session_handle});
    (void)publish_session_state(modem, session_connected);
    return 0;
}

int gobi_connect(cellmodem &modem, const char *apn, const char *apn_type, int auth,
                 const char *username, const char *password)
{
    if (auth < 0 || static_cast<size_t>(auth) >= std::size(authentication_rows)) {
        log_message(log_error, "Refused: there is no authentication %d", auth);
        return -1;
    }
    const connect_wish wish = {given_text(apn).value_or(""), pdp_type_of(apn_type),
                               authentication_rows[auth], given_text(username),
                               given_text(password)};
    if (packet_state() != qmi_packet_connected && start(modem, wish) != 0)
        return -1;
    if (wait_until([&] { return gobi_data_up(modem); }, data_up_total_ms, data_up_step_ms) != 0) {
        log_message(log_error, "Gobi: timed out waiting for data connection");
        return -1;
    }
    wwan_up();
    return 0;
}

// ---- disconnect

static uint32_t stop_session(cellmodem &modem)
{
    if (gobi_session_handle == qmi_no_session)
        return qmi_ok;
    const code_value session = gobi_session_handle;
    const uint32_t code = qmi_wds_stop_network(gobi_handle(), gobi_session_handle);
    if (code == qmi_ok) {
        log_message(log_debug, "Successfully disconnected data session: 0x%lx", session);
        (void)publish_session_state(modem, session_disconnected);
    } else if (code == qmi_not_sent) {
        log_message(log_error, "Failed to send request to stop data session: 0x%lx, resetting...",
                    session);
        if (qmi_wds_reset(gobi_handle()) != qmi_ok)
            log_message(log_error, "Failed to reset Gobi API");
    } else {
        log_message(log_error, "Failed to stop data session: 0x%lx: error: %d", session,
                    static_cast<int>(code));
    }
    return code;
}

int gobi_disconnect(cellmodem &modem)
{
    log_message(log_info, "Disconnecting Gobi LTE modem, session 0x%lx",
                code_value{gobi_session_handle});
    const uint32_t code = stop_session(modem);
    wwan_down("wwan0");
    return static_cast<int>(code);
}

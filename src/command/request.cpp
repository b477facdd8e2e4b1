#include "command/request.h"

#include "command/usage.h"
#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include <strings.h>

// How parsing goes on after an option.
enum outcome { go_on, stop };

using text_field = std::optional<std::string> request::*;
using flag_field = bool request::*;

static bool copied(request &wanted, text_field field, const char *argument)
{
    try {
        wanted.*field = argument;
        return true;
    } catch (const std::bad_alloc &) {
        wanted.result = 1;
        return false;
    }
}

// A decimal number as atoi reads it (text that is none counts as 0), but saturating.
static int leading_number(const char *text)
{
    errno = 0;
    const long value = std::strtol(text, nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

// A whole decimal number from 0 to `max`, or nothing.
static std::optional<int> small_number(const char *text, int max)
{
    const size_t length = strlen(text);
    if (length == 0 || strspn(text, "0123456789") != length)
        return std::nullopt;
    const int value = leading_number(text);
    return value <= max ? std::optional(value) : std::nullopt;
}

// A whole hexadecimal number, with or without 0x, that does not exceed `max`.
static std::optional<uint64_t> hex_number(const char *text, uint64_t max)
{
    char *end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text, &end, 16);
    if (end == text || *end != '\0' || errno == ERANGE || strchr(text, '-') || value > max)
        return std::nullopt;
    return value;
}

static std::optional<size_t> find_name(std::span<const char *const> names, const char *name,
                                       int (*compare)(const char *, const char *))
{
    const auto found = std::find_if(names.begin(), names.end(),
                                    [=](const char *row) { return compare(row, name) == 0; });
    if (found == names.end())
        return std::nullopt;
    return static_cast<size_t>(found - names.begin());
}

// ---- options with an effect of their own

static outcome apply_line(request &wanted, const char *)
{
    wanted.format = output_lines;
    return go_on;
}

static outcome apply_xml(request &wanted, const char *)
{
    wanted.format = output_xml;
    return go_on;
}

static outcome apply_connect(request &wanted, const char *argument)
{
    if (!copied(wanted, &request::dial_string, argument))
        log_message(log_error, "Failed to copy dial string");
    return go_on;
}

static outcome apply_verbose(request &, const char *)
{
    log_set_threshold(log_debug); // for the rest of the daemon's life
    return go_on;
}

static outcome apply_radio(request &wanted, const char *argument)
{
    static constexpr const char *off_names[] = {"off", "down", "false", "disable", "disabled"};
    static constexpr const char *on_names[] = {"on", "up", "true", "enable", "enabled"};
    if (strcmp(argument, "0") == 0 || find_name(off_names, argument, strcasecmp))
        wanted.radio = false;
    else if (strcmp(argument, "1") == 0 || find_name(on_names, argument, strcasecmp))
        wanted.radio = true;
    else {
        log_message(log_error, "Invalid radio option");
        wanted.result = 1;
        return stop;
    }
    return go_on;
}

static outcome apply_sim(request &wanted, const char *argument)
{
    const int index = leading_number(argument);
    if (index < -1 || index > 1) {
        log_message(log_error, "Invalid sim setting: %s", argument);
        wanted.result = 1;
        return stop;
    }
    wanted.sim = index;
    return go_on;
}

static outcome apply_region(request &wanted, const char *argument)
{
    const auto region = small_number(argument, 6);
    if (!region) {
        log_message(log_error, "Invalid region setting");
        wanted.result = 1;
        return stop;
    }
    wanted.region = static_cast<uint8_t>(*region);
    return go_on;
}

static outcome apply_apn(request &wanted, const char *argument)
{
    if (copied(wanted, &request::apn, argument))
        return go_on;
    log_message(log_error, "Failed to copy arg %s", argument);
    return stop;
}

static outcome apply_apn_type(request &wanted, const char *argument)
{
    static constexpr const char *apn_types[] = {"ipv4", "ipv4v6", "ipv6"};
    if (!find_name(apn_types, argument, strcmp)) {
        log_message(log_error, "%s: Invalid apn type", argument);
        wanted.result = 1;
        return stop;
    }
    if (!copied(wanted, &request::apn_type, argument)) {
        log_message(log_error, "Failed to copy arg %s", argument);
        std::exit(1);
    }
    return go_on;
}

static outcome apply_auth(request &wanted, const char *argument)
{
    const auto auth = small_number(argument, 2);
    if (!auth) {
        log_message(log_error, "Invalid auth setting (0-2) : %s", argument);
        wanted.result = 1;
        return stop;
    }
    wanted.auth = *auth;
    return go_on;
}

static outcome parse_failure(request &wanted, const char *argument)
{
    log_message(log_error, "Failed to parse arg: %s", argument);
    wanted.result = 1;
    return stop;
}

static outcome apply_modemask(request &wanted, const char *argument)
{
    const auto mask = hex_number(argument, UINT32_MAX);
    if (!mask)
        return parse_failure(wanted, argument);
    wanted.mode_mask = static_cast<uint32_t>(*mask);
    return go_on;
}

static outcome apply_bandmask(request &wanted, const char *argument)
{
    wanted.band_mask = hex_number(argument, UINT64_MAX);
    return wanted.band_mask ? go_on : parse_failure(wanted, argument);
}

static outcome apply_ltebandmask(request &wanted, const char *argument)
{
    wanted.lte_band_mask = hex_number(argument, UINT64_MAX);
    return wanted.lte_band_mask ? go_on : parse_failure(wanted, argument);
}

// Accepted and checked, for the command lines of older clients; the interval itself is fixed.
static outcome apply_infod_interval(request &wanted, const char *argument)
{
    const int interval = leading_number(argument);
    return interval == INT_MAX || interval == INT_MIN ? parse_failure(wanted, argument) : go_on;
}

static outcome apply_gps(request &wanted, const char *argument)
{
    (strcmp(argument, "on") == 0 ? wanted.gps_start : wanted.gps_stop) = true;
    return go_on;
}

static outcome apply_fix_interval(request &wanted, const char *argument)
{
    wanted.fix_interval_s = leading_number(argument);
    return go_on;
}

static outcome apply_rat(request &wanted, const char *argument)
{
    const auto rat = find_name(rat_names(), argument, strcasecmp);
    if (rat) {
        wanted.rat = static_cast<int>(*rat);
    } else {
        log_message(log_error, "Invalid RAT setting: %s", argument);
        wanted.result = 1;
    }
    return go_on;
}

// ---- the effect of every option: a flag to set, a text to copy, or a function

struct option_effect {
    option_id id;
    flag_field flag = nullptr;
    text_field text = nullptr;
    outcome (*apply)(request &, const char *argument) = nullptr;
};

constexpr option_effect effects[] = {
    {.id = option_info, .flag = &request::info},
    {.id = option_status, .flag = &request::status},
    {.id = option_reset, .flag = &request::reset},
    {.id = option_line, .apply = apply_line},
    {.id = option_xml, .apply = apply_xml},
    {.id = option_connect, .apply = apply_connect},
    {.id = option_dip_connect, .flag = &request::dip_connect},
    {.id = option_disconnect, .flag = &request::disconnect},
    {.id = option_force, .flag = &request::force},
    {.id = option_help}, // prints the usage
    {.id = option_verbose, .apply = apply_verbose},
    {.id = option_activate, .flag = &request::activate},
    {.id = option_simunlock, .flag = &request::simunlock},
    {.id = option_simunblock, .flag = &request::simunblock},
    {.id = option_voice, .flag = &request::voice},
    {.id = option_msl, .text = &request::msl},
    {.id = option_mdn, .text = &request::mdn},
    {.id = option_msid, .text = &request::msid},
    {.id = option_pin, .text = &request::pin},
    {.id = option_puk, .text = &request::puk},
    {.id = option_radio, .apply = apply_radio},
    {.id = option_sim, .apply = apply_sim},
    {.id = option_region, .apply = apply_region},
    {.id = option_unlock, .text = &request::unlock_password},
    {.id = option_rtn, .flag = &request::rtn},
    {.id = option_send_sms, .text = &request::sms_file},
    {.id = option_smsc, .text = &request::smsc},
    {.id = option_get_sms, .flag = &request::getsms},
    {.id = option_apn, .apply = apply_apn},
    {.id = option_apn_type, .apply = apply_apn_type},
    {.id = option_auth, .apply = apply_auth},
    {.id = option_username, .text = &request::username},
    {.id = option_password, .text = &request::password},
    {.id = option_connstatus, .flag = &request::connstatus},
    {.id = option_ping, .flag = &request::ping},
    {.id = option_modemask, .apply = apply_modemask},
    {.id = option_bandmask, .apply = apply_bandmask},
    {.id = option_ltebandmask, .apply = apply_ltebandmask},
    {.id = option_ifacqorder, .text = &request::acquisition_order},
    {.id = option_infod_interval, .apply = apply_infod_interval},
    {.id = option_gps, .apply = apply_gps},
    {.id = option_fix_interval, .apply = apply_fix_interval},
    {.id = option_rat, .apply = apply_rat},
};

static_assert(std::size(effects) == option_count);
static_assert(
    [] {
        for (size_t i = 0; i < std::size(effects); i++)
            if (effects[i].id != i)
                return false;
        return true;
    }(),
    "an effect stands at its option's number");

static outcome apply_option(request &wanted, const option_effect &effect, const char *argument)
{
    if (effect.flag) {
        wanted.*effect.flag = true;
        return go_on;
    }
    if (effect.text) {
        if (copied(wanted, effect.text, argument))
            return go_on;
        log_message(log_error, "Failed to copy arg: %s", argument);
        return stop;
    }
    if (effect.apply)
        return effect.apply(wanted, argument);
    fprintf(stderr, "Unhandled option: %s\n", option_rows()[effect.id].name);
    wanted.result = 1;
    return stop;
}

int request_parse(request &wanted, int argc, char **argv, FILE *out)
{
    const char *program = argc > 0 ? argv[0] : "";
    option_reader reader(argc, argv);
    option_id id;
    const char *argument;
    while (reader.next(id, argument)) {
        if (id == option_usage || id == option_help) {
            usage_print(out, program);
            wanted.result = 1;
        } else if (apply_option(wanted, effects[id], argument) == stop) {
            return -1;
        }
    }
    return 0;
}

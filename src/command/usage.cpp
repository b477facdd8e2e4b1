#include "command/usage.h"

#include <iterator>

constexpr option_row rows[] = {
    {option_info, "info", 'i', no_argument},
    {option_status, "status", 's', no_argument},
    {option_reset, "reset", 'r', no_argument},
    {option_line, "line", 'l', no_argument},
    {option_xml, "xml", 'x', no_argument},
    {option_connect, "connect", 'c', required_argument},
    {option_dip_connect, "dip_connect", 0, no_argument},
    {option_disconnect, "disconnect", 'd', no_argument},
    {option_force, "force", 'f', no_argument},
    {option_help, "help", 'h', no_argument},
    {option_verbose, "verbose", 'v', no_argument},
    {option_activate, "activate", 0, no_argument},
    {option_simunlock, "simunlock", 0, no_argument},
    {option_simunblock, "simunblock", 0, no_argument},
    {option_voice, "voice", 0, no_argument},
    {option_msl, "msl", 0, required_argument},
    {option_mdn, "mdn", 0, required_argument},
    {option_msid, "msid", 0, required_argument},
    {option_pin, "pin", 0, required_argument},
    {option_puk, "puk", 0, required_argument},
    {option_radio, "radio", 0, required_argument},
    {option_sim, "sim", 0, required_argument},
    {option_region, "region", 0, required_argument},
    {option_unlock, "unlock", 0, required_argument},
    {option_rtn, "rtn", 0, no_argument},
    {option_send_sms, "send-sms", 0, required_argument},
    {option_smsc, "smsc", 0, required_argument},
    {option_get_sms, "get-sms", 0, no_argument},
    {option_apn, "apn", 0, required_argument},
    {option_apn_type, "apn_type", 0, required_argument},
    {option_auth, "auth", 0, required_argument},
    {option_username, "username", 0, required_argument},
    {option_password, "password", 0, required_argument},
    {option_connstatus, "connstatus", 0, no_argument},
    {option_ping, "ping", 0, no_argument},
    {option_modemask, "modemask", 0, required_argument},
    {option_bandmask, "bandmask", 0, required_argument},
    {option_ltebandmask, "ltebandmask", 0, required_argument},
    {option_ifacqorder, "ifacqorder", 0, required_argument},
    {option_infod_interval, "infod-interval", 0, required_argument},
    {option_gps, nullptr, 'g', required_argument},
    {option_fix_interval, nullptr, 't', required_argument},
    {option_rat, nullptr, 'u', required_argument},
};

static_assert(std::size(rows) == option_count);
static_assert(
    [] {
        for (size_t i = 0; i < std::size(rows); i++)
            if (rows[i].id != i || (rows[i].name != nullptr) != (i < option_long_count))
                return false;
        return true;
    }(),
    "a row stands at its own number");

// The letters in the order that getopt has always been given. E, D and o are advertised or
// reserved, and only print the usage.
constexpr const char *letters = "hEDirslxvfdg:c:o:t:u:";

std::span<const option_row> option_rows()
{
    return rows;
}

constexpr int long_option_base = 0x100; // above every letter

option_reader::option_reader(int argc, char **argv) : argc_(argc), argv_(argv)
{
    for (const option_row &row : rows)
        if (row.name)
            long_options_.push_back(
                {row.name, row.has_argument, nullptr, long_option_base + row.id});
    long_options_.push_back({});
    optind = 0; // not 1: GNU's parser then forgets the vector it read before
    opterr = 0;
}

bool option_reader::next(option_id &id, const char *&argument)
{
    if (argc_ < 1)
        return false;
    optarg = nullptr;
    const int found = getopt_long(argc_, argv_, letters, long_options_.data(), nullptr);
    if (found == -1)
        return false;
    argument = optarg;
    id = option_usage;
    if (found >= long_option_base)
        id = static_cast<option_id>(found - long_option_base);
    else
        for (const option_row &row : rows)
            if (row.letter && row.letter == found)
                id = row.id;
    return true;
}

constexpr const char *rats[] = {
    "AUTOMATIC",
    "UMTS",
    "GSM",
    "AUTOMATIC",
    "AUTOMATIC",
    "GSM+UMTS",
    "LTE",
    "GSM+UMTS+LTE",
    "CDMA+HRPD+GSM+UMTS+LTE",
    "CDMA",
    "HRPD",
    "CDMA+HRPD",
    "CDMA+LTE",
    "HRPD+LTE",
    "CDMA+HRPD+LTE",
    "CDMA+GSM+UMTS",
    "CDMA+HRPD+GSM+UMTS",
    "UMTS+LTE",
    "GSM+LTE",
    "GSM-PREFERRED",
};

// The numbers that the usage lists; the last name is accepted but not advertised.
constexpr int usage_rats[] = {0, 1, 2, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18};

std::span<const char *const> rat_names()
{
    return rats;
}

constexpr const char *usage_before_rats[] = {
    " -E Enable the modem.",
    " -D Disable the modem.",
    " -i display static modem information.",
    " -s display the current modem status.",
    " -r reset the modem (with soft-reset).",
    " -l format output one entry per line.",
    " -x format output in XML.",
    " -c connect data call",
    " -d disconnect data call.",
    " -f force disconnect data call (with reset).",
    " -g on|off start or stop a GPS tracking session.",
    " -t [time in sec] time between GPS fix reports.",
    " -u [RAT-ID] Set the RAT (Radio Access Technology).",
};

// The SIM numbers here are those printed on the appliance's case; --sim counts from 0.
constexpr const char *usage_after_rats[] = {
    " --radio=[on|off] Enable/Disable the radio.",
    " --sim=[index] Select the given SIM",
    "\t -1 - Automatically detect SIM Slot",
    "\t  1 - Bottom SIM Slot",
    "\t  2 - Top SIM Slot",
    " --activate --msl=[MSL] --msid=[MSID] --mdn=[MDN]",
    " --simunlock --pin=[PIN]",
    " --simunblock --puk=[PUK] --pin=[PIN]",
    " --unlock=[password] --region=[REGION]",
    "\t 0 = default (internal)",
    "\t 1 = Europe",
    "\t 2 = North America",
    "\t 3 = Australia",
    "\t 4 = Japan",
    "\t 5 = reserved",
    "\t 6 = Italy",
    " --rtn --msl=[MSL]",
    (" --dip_connect --apn=[Access Point Name] --apn_type=[ipv4|ipv4v6|ipv6]--auth=[AUTH TYPE]"
     " --username=[USER] --password=[PASSWORD] Sierra DirectIP Data Call"),
    "\t Note: This function returns 0 when the interface is up and has an IP address",
    " --connstatus Returns 0 if the data connection is up, 1 if its down",
    " --ping Returns 0 if the modem responds, 1 if not",
    " --send-sms=[path] SMS message text file",
    " --smsc=[number] Optional SMSC phone number",
    " --get-sms Retrieve SMS messages",
    " --modemask=[modemask] Set the available system modes (TW Support Use)",
    " --bandmask=[bandmask] Set the available GSM Bands (TW Support Use)",
    " --ltebandmask=[ltebandmask] Set the available LTE Bands (TW Support Use)",
    " --ifacqorder=[ifacqorder] Set the radio interface acquisition order (TW Support Use)",
    " -h Display this mesage.",
};

void usage_print(FILE *out, const char *program)
{
    fprintf(out, "usage: %s\n", program);
    for (const char *line : usage_before_rats)
        fprintf(out, "%s\n", line);
    for (const int number : usage_rats)
        fprintf(out, "\t %s\n", rats[number]);
    for (const char *line : usage_after_rats)
        fprintf(out, "%s\n", line);
}

// The client's command line: the rows of the options and the usage text. The daemon parses with
// them; the client reads them only to print the usage when no daemon answers.
#pragma once

#include <cstdio>
#include <span>
#include <string_view>
#include <vector>

#include <getopt.h>

// Every option, by what it means.
enum option_id {
    option_info,
    option_status,
    option_reset,
    option_line,
    option_xml,
    option_connect,
    option_dip_connect,
    option_disconnect,
    option_force,
    option_help,
    option_verbose,
    option_activate,
    option_simunlock,
    option_simunblock,
    option_voice,
    option_msl,
    option_mdn,
    option_msid,
    option_pin,
    option_puk,
    option_radio,
    option_sim,
    option_region,
    option_unlock,
    option_rtn,
    option_send_sms,
    option_smsc,
    option_get_sms,
    option_apn,
    option_apn_type,
    option_auth,
    option_username,
    option_password,
    option_connstatus,
    option_ping,
    option_modemask,
    option_bandmask,
    option_ltebandmask,
    option_ifacqorder,
    option_infod_interval,
    option_long_count, // up to here an option has a long name
    option_gps = option_long_count,
    option_fix_interval,
    option_rat,
    option_count,
    option_usage = option_count, // asked for by mistake: print the usage
};

// One row: its long name (null without one), its letter (0 without one), whether it takes an
// argument.
struct option_row {
    option_id id;
    const char *name;
    char letter;
    int has_argument;
};

// The rows in the order of option_id; the long options come first.
[[nodiscard]] std::span<const option_row> option_rows();

// One pass over an argument vector with GNU getopt_long semantics (the vector is permuted, long
// names may be abbreviated). Only one reader at a time: getopt keeps its state to itself.
class option_reader
{
public:
    option_reader(int argc, char **argv);

    // The next option: false at the end. `id` is option_usage for whatever is no option, lacks its
    // argument or is only advertised; `argument` is null for an option that takes none.
    bool next(option_id &id, const char *&argument);

private:
    int argc_;
    char **argv_;
    std::vector<option> long_options_;
};

// Radio access technologies by name, in the order of their numbers. Rows that repeat a name are
// never reached by it: the first one matches.
[[nodiscard]] std::span<const char *const> rat_names();

// Writes the usage text for a client of that name.
void usage_print(FILE *out, const char *program);

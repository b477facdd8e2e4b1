// The entry of one program with three names: `tessera-sim` is the simulator, `sh` the shell and
// `swisdk` the server program that it puts into its root.

#include "sim/control.h"
#include "sim/family.h"
#include "sim/report.h"
#include "sim/shell.h"
#include "sim/simulator.h"
#include "sim/swisdk.h"

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include <getopt.h>

static void print_help(FILE *stream)
{
    fputs(
        "Usage: tessera-sim --family NAME --root DIR [--scenario FILE] [--qmi-proxy]\n"
        "       tessera-sim --root DIR --tell JSON\n"
        "\n"
        "Simulates a cellular modem: makes a complete root below DIR, for TESSERA_ROOT, and\n"
        "serves the modem there until SIGTERM or SIGINT.\n"
        "\n"
        "  -f, --family NAME    the modem family, see below\n"
        "  -r, --root DIR       the root; made if it is not there\n"
        "  -s, --scenario FILE  state, faults and shell rules to start with (JSON)\n"
        "  -q, --qmi-proxy      also serves on the abstract socket qmi-proxy, for QMI tools\n"
        "  -t, --tell JSON      changes or asks the simulator that serves DIR, prints its answer\n"
        "  -h, --help           prints this\n"
        "  -V, --version        prints the version\n"
        "\n"
        "Families:\n",
        stream);
    for (const sim_family *family : families())
        fprintf(stream, "  %-10s %s\n", family->name, family->summary);
    fputs("\n"
          "Exit status: 0 ended as told, 1 could not serve, 2 wrong command line or scenario.\n",
          stream);
}

static int refuse(const std::string &reason)
{
    sim_report("%s", reason.c_str());
    fputs("Try 'tessera-sim --help'.\n", stderr);
    return sim_exit_refused;
}

static int simulator_main(int argc, char **argv)
{
    static constexpr std::array<struct option, 8> long_options = {{
        {"family", required_argument, nullptr, 'f'},
        {"root", required_argument, nullptr, 'r'},
        {"scenario", required_argument, nullptr, 's'},
        {"qmi-proxy", no_argument, nullptr, 'q'},
        {"tell", required_argument, nullptr, 't'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},
        {nullptr, 0, nullptr, 0},
    }};
    simulator_options options;
    std::string family;
    const char *tell = nullptr;
    int option = 0;
    while ((option = getopt_long(argc, argv, "f:r:s:t:qhV", long_options.data(), nullptr)) != -1) {
        switch (option) {
        case 'f':
            family = optarg;
            break;
        case 'r':
            options.root = optarg;
            break;
        case 's':
            options.scenario = optarg;
            break;
        case 'q':
            options.qmi_proxy = true;
            break;
        case 't':
            tell = optarg;
            break;
        case 'h':
            print_help(stdout);
            return sim_exit_done;
        case 'V':
            puts("tessera-sim " TESSERA_VERSION);
            return sim_exit_done;
        default:
            return refuse("The command line is wrong");
        }
    }
    if (optind < argc)
        return refuse(std::string("Unexpected argument: ") + argv[optind]);
    if (options.root.empty())
        return refuse("--root is missing");
    if (tell)
        return control_tell(options.root, tell);
    options.family = family_find(family);
    if (!options.family)
        return refuse(family.empty() ? "--family is missing" : "Unknown family: " + family);
    if (options.qmi_proxy && !options.family->has_qmi_proxy)
        return refuse("The family " + family + " does not speak QMI");
    return simulator_run(options);
}

int main(int argc, char **argv)
{
    const std::string_view path = argc > 0 ? argv[0] : "";
    const std::string_view name = path.substr(path.rfind('/') + 1);
    if (name == "sh")
        return shell_main(argc, argv);
    return name == "swisdk" ? swisdk_main() : simulator_main(argc, argv);
}

// An independent QMI client as the judge: what it reads from the simulated modem is what the modem's
// state says and what the daemon has just set there. Both talk to the same modem at the same time.

#include "platform/unique_fd.h"
#include "support/appliance.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string_view>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

constexpr const char *judge = "/usr/bin/qmicli";
constexpr std::string_view proxy_name{"\0qmi-proxy", 10};

static bool proxy_name_is_free()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, proxy_name.data(), proxy_name.size());
    const unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + proxy_name.size());
    return bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), length) == 0;
}

class qmicli : public appliance
{
protected:
    void SetUp() override
    {
        if (!std::filesystem::exists(judge))
            GTEST_SKIP() << "no qmicli: install libqmi-utils";
        // The judge looks for its proxy under one name of the whole machine.
        turn.reset(open("/tmp/tessera-qmi-proxy.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666));
        ASSERT_TRUE(turn);
        ASSERT_EQ(flock(turn.get(), LOCK_EX), 0);
        if (!proxy_name_is_free())
            GTEST_SKIP() << "another QMI proxy serves this machine";
        appliance::SetUp();
    }
    void TearDown() override
    {
        appliance::TearDown();
        turn.reset();
    }

    void start_modem(const std::string &scenario) { start_sim("gobi", scenario, {"--qmi-proxy"}); }

    std::string ask(const std::string &question)
    {
        const client_result result = run_program(
            judge, {"-p", "-d", "/dev/null", "--device-open-qmi", "--silent", question});
        return result.out + result.err;
    }

    // Asks, and looks for each of these lines in the answer, whatever is in front of them.
    void expect(const std::string &question, const std::vector<std::string> &lines)
    {
        const std::string text = ask(question);
        for (const std::string &line : lines)
            EXPECT_NE(text.find(line + "\n"), std::string::npos)
                << question << " has no " << line << " in\n"
                << text;
    }

    unique_fd turn;
};

// Every value differs from the simulator's own.
constexpr const char *judged_state = R"({"state": {
    "manufacturer": "Judged Inc", "model": "MC7750", "revision": "REV 7", "hardware": "HW 9",
    "software_version": "SW 1.2.3", "sku": "4711", "imei": "490154203237518", "imei_sv": "07",
    "esn": "80123456", "meid": "A1000012345678", "msisdn": "15550199",
    "max_tx_rate": 5760000, "max_rx_rate": 21100000, "prl_version": 60679, "activation": 0,
    "external_power": false, "battery": 73,
    "iccid": "8949222074451242066", "imsi": "262011234567890",
    "pin1_enabled": true, "pin1_verified": true, "pin1_retries": 2, "puk1_retries": 9,
    "firmware_build": "FW 5", "carrier_build": "CARRIER 6",
    "mcc": 262, "mnc": 2, "network_name": "Judged Net",
    "home_mcc": 262, "home_mnc": 7, "home_name": "Home Net",
    "lte_rssi_dbm": -71, "lte_rsrq_db": -11, "lte_rsrp_dbm": -101, "lte_snr_db": 4.2,
    "lte_band": 7, "lte_channel": 2850, "tac": 4660, "cell_id": 99887,
    "ipv4": "10.9.8.7", "ipv4_gateway": "10.9.8.1", "ipv4_mask": "255.255.255.0",
    "ipv4_dns1": "9.9.9.9", "mtu": 1430}})";

TEST_F(qmicli, reads_the_modems_state)
{
    start_modem(judged_state);
    const struct {
        const char *question;
        std::vector<std::string> lines;
    } rows[] = {
        {"--get-service-version-info", {"wds (1.36)", "dms (1.14)", "nas (1.25)", "wms (1.10)"}},
        {"--dms-get-manufacturer", {"Manufacturer: 'Judged Inc'"}},
        {"--dms-get-model", {"Model: 'MC7750'"}},
        {"--dms-get-revision", {"Revision: 'REV 7'"}},
        {"--dms-get-hardware-revision", {"Revision: 'HW 9'"}},
        {"--dms-get-software-version", {"Software version: SW 1.2.3"}},
        {"--dms-get-factory-sku", {"SKU: '4711'"}},
        {"--dms-get-ids",
         {"ESN: '80123456'", "IMEI: '490154203237518'", "MEID: 'A1000012345678'", "IMEI SV: '07'"}},
        {"--dms-get-msisdn", {"MSISDN: '15550199'"}},
        {"--dms-get-capabilities",
         {"Max TX channel rate: '5760000'", "Max RX channel rate: '21100000'",
          "Networks: 'lte, umts, gsm'"}},
        {"--dms-get-power-state", {"Battery level: '73 %'"}},
        {"--dms-get-prl-version", {"PRL version: '60679'"}},
        {"--dms-get-activation-state", {"State: 'not-activated'"}},
        {"--dms-get-operating-mode", {"Mode: 'online'"}},
        {"--dms-uim-get-iccid", {"ICCID: '8949222074451242066'"}},
        {"--dms-uim-get-imsi", {"IMSI: '262011234567890'"}},
        {"--dms-uim-get-state", {"State: 'initialization-completed'"}},
        {"--dms-uim-get-pin-status",
         {"Status: enabled-verified", "Verify: 2", "Unblock: 9", "Status: enabled-not-verified"}},
        {"--dms-get-firmware-preference", {"Build ID:   'FW 5'", "Build ID:   'CARRIER 6'"}},
        {"--dms-get-band-capabilities",
         {"LTE bands: '1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 13, 17'"}},
        {"--nas-get-signal-strength", {"Network 'lte': '-71 dBm'", "Network 'lte': '4.2 dB'"}},
        {"--nas-get-signal-info",
         {"RSSI: '-71 dBm'", "RSRQ: '-11 dB'", "RSRP: '-101 dBm'", "SNR: '4.2 dB'"}},
        {"--nas-get-serving-system",
         {"Registration state: 'registered'", "MCC: '262'", "MNC: '2'", "Description: 'Judged Net'",
          "LTE tracking area code: '4660'", "3GPP cell ID: '99887'"}},
        {"--nas-get-home-network", {"MCC: '262'", "MNC: '7'", "Description: 'Home Net'"}},
        {"--nas-get-technology-preference", {"Active: 'auto', duration: 'permanent'"}},
        {"--nas-get-rf-band-info", {"Active Band Class: 'eutran-7'", "Active Channel:    '2850'"}},
        {"--nas-get-system-selection-preference",
         {"Mode preference: 'gsm, umts, lte'", "Acquisition order preference: 'lte, umts, gsm'"}},
        {"--nas-get-plmn-name=262002", {"Long Name:  'Judged Net'"}},
        {"--wds-get-packet-service-status", {"Connection status: 'disconnected'"}},
        {"--wds-get-profile-list=3gpp", {"[1] 3gpp - profile1", "APN: 'internet'"}},
        {"--wds-get-autoconnect-settings", {"Status: 'disabled'"}},
        {"--wms-get-routes", {"Storage Type: uim", "Receipt Action: store-and-notify"}},
        {"--wds-reset", {"Successfully performed WDS service reset"}},
        {"--wms-reset", {"Successfully performed WMS service reset"}},
    };
    for (const auto &row : rows)
        expect(row.question, row.lines);
}

TEST_F(qmicli, sees_what_the_daemon_has_set)
{
    start_modem(R"({"state": {"model": "MC7304", "pin1_enabled": true,
                              "ipv4": "10.9.8.7", "mtu": 1430}})");
    start_daemon();
    expect("--dms-uim-get-pin-status", {"Status: enabled-not-verified"});
    EXPECT_EQ(tessera({"--simunlock", "--pin=1234"}).code, 0);
    expect("--dms-uim-get-pin-status", {"Status: disabled"});

    EXPECT_EQ(
        tessera({"--modemask=18", "--bandmask=400000", "--ltebandmask=44", "--ifacqorder=lte,umts"})
            .code,
        0);
    expect("--nas-get-system-selection-preference",
           {"Mode preference: 'umts, lte'", "Band preference: 'wcdma-2100'",
            "LTE band preference: '3, 7'", "Acquisition order preference: 'lte, umts'"});
    EXPECT_EQ(tessera({"-u", "GSM+UMTS+LTE"}).code, 0);
    expect("--nas-get-system-selection-preference", {"Mode preference: 'gsm, umts, lte'"});

    EXPECT_EQ(tessera({"--dip_connect", "--apn=judged.net", "--apn_type=ipv4", "--auth=2",
                       "--username=me", "--password=secret"})
                  .code,
              0);
    expect("--wds-get-profile-list=3gpp",
           {"[1] 3gpp - profile", "APN: 'judged.net'", "PDP type: 'ipv4'", "Username: 'me'",
            "Password: 'secret'", "Auth: 'chap'"});
    expect("--wds-get-packet-service-status", {"Connection status: 'connected'"});
    expect("--wds-get-current-settings", {"IPv4 address: 10.9.8.7", "MTU: 1430"});
    EXPECT_EQ(tessera({"-d"}).code, 0);
    expect("--wds-get-packet-service-status", {"Connection status: 'disconnected'"});

    EXPECT_EQ(tessera({"--radio=off"}).code, 0);
    expect("--dms-get-operating-mode", {"Mode: 'low-power'"});
    expect("--dms-set-operating-mode=online", {"Operating mode set successfully"});
    EXPECT_EQ(tessera({"--connstatus"}).code, 0) << "and the other way round";
}

// ---- the judge's reading and the daemon's

using words = std::vector<std::pair<std::string, std::string>>;

// A value as the judge prints it behind a label, and the key that has it in the daemon's records.
struct agreement_row {
    const char *question;
    std::string label;
    int which; // of several such labels, from 1 on
    std::string key;
    words names = {};             // what the judge calls something, and what the daemon does
    std::string separator = ", "; // of the daemon's lists
};

static const words our_names = {
    {"gsm", "GSM"},
    {"umts", "UMTS"},
    {"lte", "LTE"},
    {"cdma-1x", "cdma2000 1X"},
    {"cdma-1xevdo", "cdma2000 HRPD"},
    {"edge", "EDGE"},
    {"hsdpa", "HSDPA"},
    {"hsdpa-hsupda", "HSDPA DL HSUPA UL"},
    {"evdo-rev-a", "EVDO Rev A, CDMA"},
    {"gsm-dcs-1800", "GSM DCS 1800 band"},
    {"gsm-pcs-1900", "GSM PCS 1900 Band"},
    {"wcdma-2100", "WCDMA Europe, Japan, and China IMT 2100 band"},
    {"wcdma-850-us", "WCDMA U.S. 850 band"},
    {"wcdma-900", "WCDMA VIII 900"},
    {"bc-1", "CDMA Band Class 1"},
    {"bc-15", "Band Class 15"},
    {"eutran-7", "E-UTRA Operating Band 7"},
    {"off", "Not Roaming"},
    {"on", "Roaming"},
    {"initialization-completed", "SIM Initialized"},
    {"online", "Online"},
    {"registered", "Registered"},
    {"connected", "CONNECTED"},
    {"otasp-commited", "OTASP Settings Committed"},
};

constexpr const char *preferences = "--nas-get-system-selection-preference";
constexpr const char *signal_info = "--nas-get-signal-info";
constexpr const char *active_bands = "--nas-get-rf-band-info";
constexpr const char *data_bearer = "--wds-get-data-bearer-technology";
constexpr const char *serving_system = "--nas-get-serving-system";
constexpr const char *session_settings = "--wds-get-current-settings";

static std::string behind_label(const std::string &text, const std::string &label, int which)
{
    size_t at = 0;
    for (;; at++) {
        at = text.find(label + ":", at);
        if (at == std::string::npos)
            return "(no " + label + " in " + text + ")";
        if (at > 0 && strchr(" \t\n", text[at - 1]) && --which == 0)
            break;
    }
    at += label.size() + 1;
    std::string value = text.substr(at, text.find('\n', at) - at);
    value.erase(0, value.find_first_not_of(" '"));
    value.erase(value.find_last_not_of(" '") + 1);
    for (const std::string unit : {" dBm", " dB"})
        if (value.ends_with(unit))
            value.erase(value.size() - unit.size());
    return value;
}

static std::string in_other_words(const agreement_row &row, const std::string &value)
{
    if (row.names.empty())
        return value;
    std::string list;
    for (size_t at = 0; at <= value.size();) {
        const size_t end = std::min(value.find(", ", at), value.size());
        std::string word = value.substr(at, end - at);
        for (const auto &[judged, ours] : row.names)
            if (word == judged)
                word = ours;
        list += (list.empty() ? "" : row.separator) + word;
        at = end + 2;
    }
    return list;
}

class qmicli_agrees : public qmicli
{
protected:
    void compare(const std::vector<agreement_row> &rows)
    {
        const std::string records = tessera({"-i", "-s"}).out;
        for (const agreement_row &row : rows) {
            const size_t at = ("\n" + records).find("\n" + row.key + " ");
            ASSERT_NE(at, std::string::npos) << "no " << row.key << " in\n" << records;
            const size_t begin = at + row.key.size() + 1;
            EXPECT_EQ(records.substr(begin, records.find('\n', begin) - begin),
                      in_other_words(row, behind_label(ask(row.question), row.label, row.which)))
                << row.key;
        }
    }
};

TEST_F(qmicli_agrees, on_an_lte_modem)
{
    start_modem(judged_state);
    tell_sim(R"({"state": {"model": "MC7700", "band_preference": 2218786944,
                           "lte_band_preference": 68, "acquisition_order": "8,5",
                           "roaming": 0, "ipv6_prefix": 56, "ipv6": "2001:db8:7::9"}})");
    start_daemon();
    ASSERT_EQ(tessera({"--dip_connect", "--apn=judged.net"}).code, 0);
    compare({
        {"--dms-get-manufacturer", "Manufacturer", 1, "manufacturer"},
        {"--dms-get-model", "Model", 1, "product"},
        {"--dms-get-capabilities", "Networks", 1, "technology", our_names, "/"},
        {"--dms-get-ids", "IMEI", 1, "imei"},
        {"--dms-get-ids", "ESN", 1, "esn"},
        {"--dms-get-ids", "MEID", 1, "meid"},
        {"--dms-get-revision", "Revision", 1, "amss-version"},
        {"--dms-get-hardware-revision", "Revision", 1, "hardware"},
        {preferences, "Mode preference", 1, "mode_prefs", our_names},
        {preferences, "Mode preference", 1, "rat", our_names, "+"},
        {preferences, "Band preference", 1, "band_prefs", our_names},
        {preferences,
         "LTE band preference",
         1,
         "lte_band_prefs",
         {{"3", "E-UTRA Operating Band 3"}, {"7", "E-UTRA Operating Band 7"}}},
        {preferences, "Acquisition order preference", 1, "interface_aquisition_order"},
        {"--dms-uim-get-state", "State", 1, "sim-status", our_names},
        {"--dms-uim-get-pin-status", "Verify", 1, "pin1-retries-left"},
        {"--dms-uim-get-pin-status", "Unblock", 1, "pin1-unblocks-left"},
        {"--dms-uim-get-pin-status", "Verify", 2, "pin2-retries-left"},
        {"--dms-uim-get-pin-status", "Unblock", 2, "pin2-unblocks-left"},
        {signal_info, "RSSI", 1, "lte-rssi"},
        {signal_info, "RSRQ", 1, "lte-rsrq"},
        {signal_info, "RSRP", 1, "lte-rsrp"},
        {signal_info, "SNR", 1, "lte-snr"},
        {active_bands, "Active Band Class", 1, "current-bands", our_names},
        {"--dms-get-operating-mode", "Mode", 1, "modem-status", our_names},
        {data_bearer, "Data bearer technology (current)", 1, "mode", our_names},
        {"--dms-uim-get-imsi", "IMSI", 1, "sim-imsi"},
        {"--dms-uim-get-iccid", "ICCID", 1, "sim-iccid"},
        {serving_system, "Registration state", 1, "service-status", our_names},
        {serving_system, "MCC", 1, "mcc"},
        {serving_system, "MNC", 1, "mnc"},
        {serving_system, "Roaming status", 1, "roaming-status", our_names},
        {serving_system, "Default roaming status", 1, "roaming-status-default", our_names},
        {serving_system, "[0]", 2, "service-mode", our_names},
        {"--dms-get-msisdn", "MSISDN", 1, "phone-number1"},
        {session_settings, "IPv4 address", 1, "ipv4address"},
        {session_settings, "IPv4 gateway address", 1, "ipv4gateway"},
        {session_settings, "IPv4 subnet mask", 1, "ipv4subnet"},
        {session_settings,
         "IPv6 address",
         1,
         "ipv6address",
         {{"2001:db8:7::9/56", "2001:db8:7::9"}}},
        {session_settings, "IPv6 address", 1, "ipv6prefix", {{"2001:db8:7::9/56", "56"}}},
        {session_settings,
         "IPv6 gateway address",
         1,
         "ipv6gateway",
         {{"2001:db8::1/56", "2001:db8::1"}}},
        {"--dms-get-firmware-preference", "Build ID", 1, "preferred-firmware"},
        {"--dms-get-firmware-preference", "Build ID", 2, "preferred-carrier"},
    });
}

TEST_F(qmicli_agrees, on_a_umts_modem)
{
    start_modem(R"({"state": {"modem": "UMTS", "umts_rssi_dbm": -83, "umts_ecio_db": -9.5,
                              "umts_band": 87, "gsm_rssi_dbm": -61, "gsm_band": 48}})");
    start_daemon();
    ASSERT_EQ(tessera({"--dip_connect", "--apn=internet"}).code, 0);
    compare({
        {signal_info, "RSSI", 1, "wcdma-rssi"},
        {signal_info, "ECIO", 1, "wcdma-ecio"},
        {active_bands, "Active Band Class", 1, "current-bands", our_names},
        {data_bearer, "Data bearer technology (current)", 1, "mode", our_names},
        {"--wds-get-packet-service-status", "Connection status", 1, "session-state", our_names},
        {serving_system, "[0]", 2, "service-mode", our_names},
    });
    tell_sim(R"({"state": {"coverage": "gsm"}})");
    compare({
        {signal_info, "RSSI", 1, "gsm-rssi"},
        {active_bands, "Active Band Class", 1, "current-bands", our_names},
        {data_bearer, "Data bearer technology (current)", 1, "mode", our_names},
        {serving_system, "[0]", 2, "service-mode", our_names},
    });
}

TEST_F(qmicli_agrees, on_a_cdma_modem)
{
    start_modem(R"({"state": {"modem": "CDMA", "hdr_rssi_dbm": -91, "hdr_ecio_db": -6.5,
                              "hdr_sinr_level": 8, "hdr_io_dbm": -85, "cdma_rssi_dbm": -77,
                              "cdma_ecio_db": -11, "prl_version": 4711, "activation": 10,
                              "sid": 17, "nid": 3, "cdma_band": 1}})");
    start_daemon();
    compare({
        {signal_info, "RSSI", 1, "cdma-rssi"},
        {signal_info, "ECIO", 1, "cdma-ecio"},
        {signal_info, "RSSI", 2, "hdr-rssi"},
        {signal_info, "ECIO", 2, "hdr-ecio"},
        {signal_info, "IO", 1, "hdr-io"},
        {signal_info, "SINR (8)", 1, "hdr-sinr", {{"9.0", "8"}}},
        {active_bands, "Active Band Class", 1, "current-bands", our_names},
        {"--dms-get-prl-version", "PRL version", 1, "prl-version"},
        {"--dms-get-activation-state", "State", 1, "nam-status", our_names},
        {serving_system, "SID", 1, "sid"},
        {serving_system, "NID", 1, "nid"},
        {serving_system, "[0]", 2, "service-mode", our_names},
        {preferences, "Mode preference", 1, "mode_prefs", our_names},
        {preferences,
         "Acquisition order preference",
         1,
         "interface_aquisition_order",
         {{"cdma-1x", "cdma20001x"}, {"cdma-1xevdo", "cdma2000hrpd"}}},
    });
}

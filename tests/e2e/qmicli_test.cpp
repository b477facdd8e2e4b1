// An independent QMI client as the judge: what it reads from the simulated modem is what the modem's
// state says and what the daemon has just set there. Both talk to the same modem at the same time.

#include "platform/unique_fd.h"
#include "support/appliance.h"

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

    std::string ask(const std::vector<std::string> &question)
    {
        std::vector<std::string> arguments = {"-p", "-d", "/dev/null", "--device-open-qmi",
                                              "--silent"};
        arguments.insert(arguments.end(), question.begin(), question.end());
        const client_result result = run_program(judge, arguments);
        return result.out + result.err;
    }

    // Asks, and looks for each of these lines in the answer, whatever is in front of them.
    void expect(const std::vector<std::string> &question, const std::vector<std::string> &lines)
    {
        const std::string text = ask(question);
        for (const std::string &line : lines)
            EXPECT_NE(text.find(line + "\n"), std::string::npos)
                << question.front() << " has no " << line << " in\n"
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
    start_sim("gobi", judged_state, {"--qmi-proxy"});
    const struct {
        std::vector<std::string> question;
        std::vector<std::string> lines;
    } rows[] = {
        {{"--get-service-version-info"}, {"wds (1.36)", "dms (1.14)", "nas (1.25)", "wms (1.10)"}},
        {{"--dms-get-manufacturer"}, {"Manufacturer: 'Judged Inc'"}},
        {{"--dms-get-model"}, {"Model: 'MC7750'"}},
        {{"--dms-get-revision"}, {"Revision: 'REV 7'"}},
        {{"--dms-get-hardware-revision"}, {"Revision: 'HW 9'"}},
        {{"--dms-get-software-version"}, {"Software version: SW 1.2.3"}},
        {{"--dms-get-factory-sku"}, {"SKU: '4711'"}},
        {{"--dms-get-ids"},
         {"ESN: '80123456'", "IMEI: '490154203237518'", "MEID: 'A1000012345678'", "IMEI SV: '07'"}},
        {{"--dms-get-msisdn"}, {"MSISDN: '15550199'"}},
        {{"--dms-get-capabilities"},
         {"Max TX channel rate: '5760000'", "Max RX channel rate: '21100000'",
          "Networks: 'lte, umts, gsm'"}},
        {{"--dms-get-power-state"}, {"Battery level: '73 %'"}},
        {{"--dms-get-prl-version"}, {"PRL version: '60679'"}},
        {{"--dms-get-activation-state"}, {"State: 'not-activated'"}},
        {{"--dms-get-operating-mode"}, {"Mode: 'online'"}},
        {{"--dms-uim-get-iccid"}, {"ICCID: '8949222074451242066'"}},
        {{"--dms-uim-get-imsi"}, {"IMSI: '262011234567890'"}},
        {{"--dms-uim-get-state"}, {"State: 'initialization-completed'"}},
        {{"--dms-uim-get-pin-status"},
         {"Status: enabled-verified", "Verify: 2", "Unblock: 9", "Status: enabled-not-verified"}},
        {{"--dms-get-firmware-preference"}, {"Build ID:   'FW 5'", "Build ID:   'CARRIER 6'"}},
        {{"--dms-get-band-capabilities"},
         {"LTE bands: '1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 13, 17'"}},
        {{"--nas-get-signal-strength"}, {"Network 'lte': '-71 dBm'", "Network 'lte': '4.2 dB'"}},
        {{"--nas-get-signal-info"},
         {"RSSI: '-71 dBm'", "RSRQ: '-11 dB'", "RSRP: '-101 dBm'", "SNR: '4.2 dB'"}},
        {{"--nas-get-serving-system"},
         {"Registration state: 'registered'", "MCC: '262'", "MNC: '2'", "Description: 'Judged Net'",
          "LTE tracking area code: '4660'", "3GPP cell ID: '99887'"}},
        {{"--nas-get-home-network"}, {"MCC: '262'", "MNC: '7'", "Description: 'Home Net'"}},
        {{"--nas-get-technology-preference"}, {"Active: 'auto', duration: 'permanent'"}},
        {{"--nas-get-rf-band-info"},
         {"Active Band Class: 'eutran-7'", "Active Channel:    '2850'"}},
        {{"--nas-get-system-selection-preference"},
         {"Mode preference: 'gsm, umts, lte'", "Acquisition order preference: 'lte, umts, gsm'"}},
        {{"--nas-get-plmn-name=262002"}, {"Long Name:  'Judged Net'"}},
        {{"--wds-get-packet-service-status"}, {"Connection status: 'disconnected'"}},
        {{"--wds-get-profile-list=3gpp"}, {"[1] 3gpp - profile1", "APN: 'internet'"}},
        {{"--wds-get-autoconnect-settings"}, {"Status: 'disabled'"}},
        {{"--wms-get-routes"}, {"Storage Type: uim", "Receipt Action: store-and-notify"}},
        {{"--wds-reset"}, {"Successfully performed WDS service reset"}},
        {{"--wms-reset"}, {"Successfully performed WMS service reset"}},
    };
    for (const auto &row : rows)
        expect(row.question, row.lines);
}

TEST_F(qmicli, sees_what_the_daemon_has_set)
{
    start_sim("gobi", R"({"state": {"model": "MC7304", "pin1_enabled": true,
                                    "ipv4": "10.9.8.7", "mtu": 1430}})",
              {"--qmi-proxy"});
    start_daemon();
    expect({"--dms-uim-get-pin-status"}, {"Status: enabled-not-verified"});
    EXPECT_EQ(tessera({"--simunlock", "--pin=1234"}).code, 0);
    expect({"--dms-uim-get-pin-status"}, {"Status: disabled"});

    EXPECT_EQ(
        tessera({"--modemask=18", "--bandmask=400000", "--ltebandmask=44", "--ifacqorder=lte,umts"})
            .code,
        0);
    expect({"--nas-get-system-selection-preference"},
           {"Mode preference: 'umts, lte'", "Band preference: 'wcdma-2100'",
            "LTE band preference: '3, 7'", "Acquisition order preference: 'lte, umts'"});
    EXPECT_EQ(tessera({"-u", "GSM+UMTS+LTE"}).code, 0);
    expect({"--nas-get-system-selection-preference"}, {"Mode preference: 'gsm, umts, lte'"});

    EXPECT_EQ(tessera({"--dip_connect", "--apn=judged.net", "--apn_type=ipv4", "--auth=2",
                       "--username=me", "--password=secret"})
                  .code,
              0);
    expect({"--wds-get-profile-list=3gpp"},
           {"[1] 3gpp - profile", "APN: 'judged.net'", "PDP type: 'ipv4'", "Username: 'me'",
            "Password: 'secret'", "Auth: 'chap'"});
    expect({"--wds-get-packet-service-status"}, {"Connection status: 'connected'"});
    expect({"--wds-get-current-settings"}, {"IPv4 address: 10.9.8.7", "MTU: 1430"});
    EXPECT_EQ(tessera({"-d"}).code, 0);
    expect({"--wds-get-packet-service-status"}, {"Connection status: 'disconnected'"});

    EXPECT_EQ(tessera({"--radio=off"}).code, 0);
    expect({"--dms-get-operating-mode"}, {"Mode: 'low-power'"});
    expect({"--dms-set-operating-mode=online"}, {"Operating mode set successfully"});
    EXPECT_EQ(tessera({"--connstatus"}).code, 0) << "and the other way round";
}

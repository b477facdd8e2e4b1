// The two records of a Gobi modem: every key, every request failing in turn, and modems that say odd
// things.

#include "backends/gobi/gobi_fixture.h"
#include "backends/gobi/names.h"
#include "cellmodem/markers.h"
#include "qmi/tlv.h"

#include <algorithm>
#include <pugixml.hpp>
#include <set>
#include <sstream>

// A request of the records: what the modem answers, and the lines of the record that come of it.
struct request_row {
    const char *name;
    bool info; // of the information record, else of the status
    uint8_t service;
    uint16_t id;
    const char *answer; // TLVs
    const char *lines;
    const char *also_lost = "";     // the keys of other requests that mean nothing without it
    const char *log_line = nullptr; // of a failure, in front of the code
    bool may_be_empty = false;      // an answer without TLVs is one
};

// In the order of the records; the rows of one record make up the whole of it.
static const request_row request_rows[] = {
    {"manufacturer", true, qmi_dms, 0x21, "01 0300 516e63", "manufacturer Qnc\n"},
    {"model", true, qmi_dms, 0x22, "01 0500 4c54452d31", "product LTE-1\n"},
    {"capabilities", true, qmi_dms, 0x20, "01 1000 00000001 00000002 03 02 05 0803040501",
     "technology LTE/GSM/UMTS/CDMA2000 1X\n"},
    {"serial_numbers", true, qmi_dms, 0x25, "10 0200 3830 11 0200 3335 12 0200 4131",
     "imei 35\nesn 80\nmeid A1\n", "", nullptr, true},
    {"firmware_revisions", true, qmi_dms, 0x23, "01 0200 6131 10 0200 6231 11 0200 6331",
     "boot-version b1\namss-version a1\npri-version c1\n"},
    {"hardware_revision", true, qmi_dms, 0x2C, "01 0200 4857", "hardware HW\n"},
    {"preferences", true, qmi_nas, 0x34,
     "11 0200 1500 12 0800 80000040 01000000 15 0800 05000080 01000000 1c 0400 03 08050c",
     "mode_prefs cdma2000 1X, GSM, LTE\nband_prefs GSM DCS 1800 band, Reserved\n"
     "lte_band_prefs E-UTRA Operating Band 1, E-UTRA Operating Band 3, E-UTRA Operating Band 32\n"
     "interface_aquisition_order lte, umts, unknown\n",
     "", nullptr, true},
    {"uim_state", false, qmi_dms, 0x44, "01 0100 00", "sim-status SIM Initialized\n",
     "sim-lock pin1-status pin1-retries-left pin1-unblocks-left pin2-status pin2-retries-left "
     "pin2-unblocks-left",
     "700 Could not get UIM States: "},
    {"pin_status", false, qmi_dms, 0x2B, "11 0300 03 03 0a 12 0300 01 02 09",
     "sim-lock SIM_READY\npin1-status PIN is blocked\npin1-retries-left 3\npin1-unblocks-left 10\n"
     "pin2-status PIN is enabled, verified\npin2-retries-left 2\npin2-unblocks-left 9\n",
     "", "700 Could not get PIN States: ", true},
    {"signal_info", false, qmi_nas, 0x4F,
     "10 0300 b0 0f00 11 0800 ae 0900 05 b1ffffff 12 0100 b4 13 0300 b8 0b00"
     " 14 0600 bd f7 9fff 6000",
     "hdr-rssi -82\nhdr-ecio -4.5\nhdr-sinr 5\nhdr-io -79\nlte-rsrq -9\nlte-rsrp -97\n"
     "lte-snr 9.6\nlte-rssi -67\nwcdma-rssi -72\nwcdma-ecio -5.5\ngsm-rssi -76\ncdma-rssi -80\n"
     "cdma-ecio -7.5\nsignal-quality 74\n",
     "", nullptr, true},
    {"bands", false, qmi_nas, 0x31, "01 1000 03 08 7a00 0e06 05 5000 a629 08 7a00 0000",
     "current-bands E-UTRA Operating Band 3, WCDMA I IMT 2000\n"},
    {"operating_mode", false, qmi_dms, 0x2D, "01 0100 08", "modem-status Network Test\n"},
    {"activation", false, qmi_dms, 0x31, "01 0200 0a00", "nam-status OTASP Settings Committed\n"},
    {"prl", false, qmi_dms, 0x30, "01 0200 ffff", "prl-version 65535\n"},
    {"bearer", false, qmi_wds, 0x37, "01 0100 0f", "mode DC HSDPA+ DL, HSUPA UL\n"},
    {"imsi", false, qmi_dms, 0x43, "01 0300 303031", "sim-imsi 001\n", "",
     "700 Failed to get gobi IMSI: "},
    {"iccid", false, qmi_dms, 0x3C, "01 0200 3839", "sim-iccid 89\n", "",
     "700 Failed to get gobi ICCID: "},
    {"serving_system", false, qmi_nas, 0x24,
     "01 0600 02 01 01 02 01 08 10 0100 00 11 0400 03 0b 00 0d 12 0700 0601 0200 02 4e6f"
     " 13 0400 2b10 ffff 16 0100 01",
     "service-status Not Registered, Searching\nnetwork-status Not Registered, Searching\n"
     "mcc 262\nmnc 2\ncarrier Net Two\ncountry Germany\nsid 4139\nnid 65535\n"
     "roaming-status-default Not Roaming\nroaming-status Roaming\nservice-mode LTE, DC-HSDPA+\n"},
    {"voice_numbers", false, qmi_dms, 0x24, "01 0200 3135 10 0200 3136",
     "phone-number1 15\nphone-number2 16\n", "", "700 Failed to get gobi voice number: "},
    {"runtime_settings", false, qmi_wds, 0x2D,
     "1e 0400 0200400a 20 0400 0100400a 21 0400 f8ffffff"
     " 25 1100 20010db8000000000000000000000002 40 26 1100 20010db8000000000000000000000001 40",
     "ipv4address 10.64.0.2\nipv4gateway 10.64.0.1\nipv4subnet 255.255.255.248\n"
     "ipv6address 2001:db8::2\nipv6prefix 64\nipv6gateway 2001:db8::1\n",
     "", nullptr, true},
    {"mip_index", false, qmi_wds, 0x3C, "01 0100 05", "mip-profile-index 5\n", "mip-profile-nai"},
    {"mip_profile", false, qmi_wds, 0x3E, "10 0100 01 15 0300 614062", "mip-profile-nai a@b\n"},
    {"images", false, qmi_dms, 0x47,
     "01 2a00 02 00 000102030405060708090a0b0c0d0e0f 02 4657"
     " 01 ffffffffffffffffffffffffffffffff 03 505249",
     "preferred-firmware FW\npreferred-carrier PRI\n"},
    {"selection", false, qmi_nas, 0x34,
     "11 0200 1500 12 0800 80000040 01000000 15 0800 05000080 01000000 1c 0400 03 08050c",
     "rat CDMA+GSM+LTE\n", "", nullptr, true},
};

static void PrintTo(const request_row &row, std::ostream *out)
{
    *out << (row.info ? "info_" : "status_") << row.name;
}

static texts lines_of(const std::string &text)
{
    texts lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

static std::string key_of(const std::string &line)
{
    return line.substr(0, line.find(' '));
}

class gobi_records : public gobi_fixture
{
protected:
    void SetUp() override
    {
        gobi_fixture::SetUp();
        setenv("TESSERA_TIME_SCALE", "0.4", 1); // 800 ms for an answer, on a busy machine
        // Every answer begins with a TLV that nobody knows.
        for (const request_row &row : request_rows)
            qmuxd.answer(row.service, row.id, std::string("f7 0200 0102 ") + row.answer);
        root.write(marker_is_cdma_gobi, "");
        root.write(marker_is_multicarrier, "");
        root.write("/etc/mcc-mnc-table.csv",
                   "MCC,MCC (int),MNC,MNC (int),ISO,Country,Country Code,Network\n"
                   "262,610,02,47,de,Germany,49,Net Two\n");
        modem.device_state = device_responding;
        modem.session_state = session_connected;
    }

    std::string record(bool info, int mode = output_lines, int result = 0)
    {
        const memory_stream out;
        const auto slot = info ? modem.slots.info : modem.slots.status;
        EXPECT_EQ(slot(modem, out.get(), mode), result);
        return out.text();
    }

    static std::string whole(bool info)
    {
        std::string all = info ? "attached yes\ndriver libgobi LTE\ndevice /dev/cellcommand01\n"
                               : "device-state RESPONDING\nsession-state CONNECTED\n";
        for (const request_row &row : request_rows)
            if (row.info == info) {
                if (row.id == 0x23)
                    all += "serial N/A\n";
                all += row.lines;
            }
        return all;
    }

    std::string value(bool info, const std::string &key)
    {
        for (const std::string &line : lines_of(record(info)))
            if (key_of(line) == key)
                return line.substr(key.size() + 1);
        return "(none)";
    }
    std::string status(const std::string &key) { return value(false, key); }
    std::string information(const std::string &key) { return value(true, key); }
};

TEST_F(gobi_records, hold_every_key_in_order)
{
    attach();
    EXPECT_EQ(record(true), whole(true));
    EXPECT_EQ(record(false), whole(false));
    EXPECT_EQ(record(true, 0) + record(false, 0), "") << "a mode that is none writes nothing";
}

TEST_F(gobi_records, are_the_same_from_answers_in_any_order)
{
    attach();
    qmuxd.gather(7);
    EXPECT_EQ(record(true), whole(true));
    qmuxd.gather(8);
    EXPECT_EQ(record(false), whole(false));
    for (const uint8_t id : std::initializer_list<uint8_t>{0x2B, 0x2D, 0x31, 0x43})
        qmuxd.behave(qmi_dms, id, {qmuxd_reply::error, 23});
    EXPECT_EQ(record(false), whole(false)) << "of a modem that is busy";
    EXPECT_EQ(record(false), whole(false));
}

TEST_F(gobi_records, ask_only_what_the_kind_of_modem_has)
{
    attach();
    (void)record(true);
    EXPECT_EQ(qmuxd.requests(), (texts{"2 21", "2 22", "2 20", "2 25", "2 23", "2 2c", "3 34"}));
    const texts common[] = {{"2 44", "2 2b", "3 4f", "3 31", "2 2d"},
                            {"1 37", "2 43", "2 3c", "3 24", "2 24", "1 2d 10040000030000"}};
    const auto asked = [&](bool cdma, bool carriers) {
        texts all = common[0];
        if (cdma)
            all.insert(all.end(), {"2 31", "2 30"});
        all.insert(all.end(), common[1].begin(), common[1].end());
        if (cdma)
            all.push_back("1 3c");
        if (carriers)
            all.push_back("2 47");
        all.push_back("3 34");
        if (cdma)
            all.push_back("1 3e 01010005");
        return all;
    };
    (void)record(false);
    EXPECT_EQ(qmuxd.requests(), asked(true, true));
    unlink(root.place(marker_is_cdma_gobi).c_str());
    std::string text = record(false);
    EXPECT_EQ(qmuxd.requests(), asked(false, true));
    for (const char *key : {"nam-status", "prl-version", "sid ", "nid ", "mip-"})
        EXPECT_EQ(text.find(key), std::string::npos) << key;
    unlink(root.place(marker_is_multicarrier).c_str());
    text = record(false);
    EXPECT_EQ(qmuxd.requests(), asked(false, false));
    EXPECT_EQ(text.find("preferred-"), std::string::npos);
}

TEST_F(gobi_records, push_only_the_keys_that_others_follow)
{
    attach();
    const auto pushed = [&](bool info, int mode) {
        infod.pushed.clear();
        (void)record(info, mode);
        std::string keys;
        for (const std::string &push : infod.pushed) {
            const size_t at = push.rfind(info ? ".info." : ".status.");
            keys += push.substr(0, 5) + push.substr(at + (info ? 6 : 8)) + "\n";
        }
        return keys;
    };
    for (const int mode : {int{output_lines}, int{output_xml}, 0}) {
        EXPECT_EQ(pushed(true, mode),
                  "text attached=yes\ntext driver=libgobi LTE\ntext device=/dev/cellcommand01\n"
                  "text manufacturer=Qnc\ntext product=LTE-1\n"
                  "text technology=LTE/GSM/UMTS/CDMA2000 1X\ntext imei=35\n");
        EXPECT_EQ(pushed(false, mode),
                  "text device-state=RESPONDING\ntext session-state=CONNECTED\n"
                  "text sim-status=SIM Initialized\ntext hdr-rssi=-82\ntext hdr-ecio=-4.5\n"
                  "text hdr-sinr=5\ntext hdr-io=-79\ntext lte-rsrq=-9\ntext lte-rsrp=-97\n"
                  "text lte-snr=9.6\ntext lte-rssi=-67\ntext wcdma-rssi=-72\ntext wcdma-ecio=-5.5\n"
                  "text gsm-rssi=-76\ntext cdma-rssi=-80\ntext cdma-ecio=-7.5\n"
                  "text mode=DC HSDPA+ DL, HSUPA UL\ntext sim-imsi=001\ntext sim-iccid=89\n"
                  "text carrier=Net Two\ntext phone-number1=15\ntext phone-number2=16\n"
                  "text preferred-firmware=FW\ntext preferred-carrier=PRI\n"
                  "text rat=CDMA+GSM+LTE\n");
    }
}

TEST_F(gobi_records, of_a_modem_that_cannot_be_asked)
{
    modem.device_state = device_unresponsive;
    EXPECT_EQ(record(true), "attached no\ndriver libgobi LTE\ndevice /dev/cellcommand01\n"
                            "serial N/A\n");
    EXPECT_EQ(record(false, output_xml, -1),
              "<status>\n\t<device-state>UNRESPONSIVE</device-state>\n"
              "\t<session-state>CONNECTED</session-state>\n</status>\n");
    EXPECT_EQ(log.count("700 Could not get UIM States: 1"), 1);
    EXPECT_EQ(log.count("700 Could not get PIN States: 1"), 0) << "means nothing without the other";
    attach();
    qmuxd.vanish();
    EXPECT_EQ(record(true), "attached yes\ndriver libgobi LTE\ndevice /dev/cellcommand01\n"
                            "serial N/A\n");
    EXPECT_EQ(record(false, output_lines, -1),
              "device-state UNRESPONSIVE\nsession-state CONNECTED\n");
    qmuxd.appear();
    attach();
    EXPECT_EQ(record(true), whole(true));
}

// ---- every request failing in turn

class gobi_record_failures : public gobi_records, public testing::WithParamInterface<request_row>
{
protected:
    // The record without the lines of this request.
    static std::string rest()
    {
        const request_row &failing = GetParam();
        std::set<std::string> lost;
        for (const std::string &line : lines_of(failing.lines))
            lost.insert(key_of(line));
        std::istringstream also(failing.also_lost);
        for (std::string key; also >> key;)
            lost.insert(key);
        if (failing.id == 0x2B) // what the SIM says stands without its PINs
            lost.erase("sim-lock");
        std::string kept;
        for (const std::string &line : lines_of(whole(failing.info)))
            if (!lost.contains(key_of(line)))
                kept += line + "\n";
        return kept;
    }
};

TEST_P(gobi_record_failures, leave_out_their_keys_and_nothing_else)
{
    const request_row &row = GetParam();
    attach();
    qmuxd.explain(row.service, row.id, row.answer); // an error is one, whatever comes with it
    const int twice = row.service == qmi_wds && row.id == 0x3E ? 1 : 2; // that one has no company
    const struct {
        qmuxd_behaviour behaviour;
        uint32_t code;
    } kinds[] = {
        {{qmuxd_reply::silence, 0, twice}, 12},
        {{qmuxd_reply::error, 71}, 1071},
        {{qmuxd_reply::cut_tlvs}, 1000},
        {{qmuxd_reply::no_result}, 1000},
        {{qmuxd_reply::wrong_transaction, 0, twice}, 12},
    };
    for (const auto &kind : kinds) {
        log.clear();
        qmuxd.behave(row.service, row.id, kind.behaviour);
        EXPECT_EQ(record(row.info), rest()) << kind.code;
        if (row.log_line) {
            EXPECT_EQ(log.count(row.log_line + std::to_string(kind.code)), 1);
        }
        EXPECT_EQ(record(row.info), whole(row.info)) << "the next one is whole";
    }
    qmuxd.behave(row.service, row.id, {qmuxd_reply::only_result});
    EXPECT_EQ(record(row.info), rest()) << "without what it was asked for";
    EXPECT_EQ(log.has("something is missing"), !row.may_be_empty);
}

// Each TLV of the answer in turn, left out and cut to each length.
TEST_P(gobi_record_failures, read_nothing_beyond_the_end)
{
    const request_row &row = GetParam();
    attach();
    const std::vector<uint8_t> answer = octets_of(row.answer);
    std::span<const uint8_t> rest_of_it = answer;
    tlv item;
    while (tlv_next(rest_of_it, item) == 1) {
        const std::string before = digits_of({answer.data(), item.value.data() - tlv_header_bytes});
        const std::string value = digits_of({item.value.begin(), item.value.end()});
        const std::string after = digits_of({rest_of_it.begin(), rest_of_it.end()});
        const auto record_with = [&](const std::string &digits) {
            qmuxd.answer(row.service, row.id, before + digits + after);
            return record(row.info);
        };
        log.clear();
        const std::string without = record_with("");
        const bool needed = item.type < tlv_optional_from || (row.id == 0x3E && item.type == 0x15);
        EXPECT_EQ(log.has("something is missing"), needed) << "without TLV " << int{item.type};
        if (without == whole(row.info))
            continue; // nothing of this record
        for (uint8_t length = 0; length < item.value.size(); length++) {
            const std::string cut =
                digits_of({item.type, length, 0}) + value.substr(0, 2U * length);
            const std::string text = record_with(cut);
            EXPECT_NE(text, whole(row.info)) << cut;
            for (const std::string &line : lines_of(rest()))
                EXPECT_NE(("\n" + text).find("\n" + line + "\n"), std::string::npos) << cut << line;
        }
    }
}

TEST_P(gobi_record_failures, by_a_lost_connection_leave_a_record_all_the_same)
{
    const request_row &row = GetParam();
    attach();
    for (const qmuxd_reply reply : {qmuxd_reply::hang_up, qmuxd_reply::no_frame}) {
        qmuxd.behave(row.service, row.id, {reply});
        const memory_stream out;
        const auto slot = row.info ? modem.slots.info : modem.slots.status;
        (void)slot(modem, out.get(), output_xml);
        pugi::xml_document document;
        EXPECT_TRUE(document.load_string(out.text().c_str()));
        attach();
        EXPECT_EQ(record(row.info), whole(row.info));
    }
}

INSTANTIATE_TEST_SUITE_P(table, gobi_record_failures, testing::ValuesIn(request_rows),
                         [](const auto &row) {
                             return std::string(row.param.info ? "info_" : "status_") +
                                    row.param.name;
                         });

// ---- odd modems

TEST_F(gobi_records, unknown_values_have_no_name_and_do_no_harm)
{
    attach();
    qmuxd.answer(qmi_dms, 0x20, "01 1100 00000001 00000002 ff ff 06 00030bff09c8");
    EXPECT_EQ(information("technology"), "TDS");
    qmuxd.answer(qmi_dms, 0x20, "01 0c00 00000001 00000002 ff ff 01 07");
    EXPECT_EQ(information("technology"), "") << "told, but without a name";
    qmuxd.answer(qmi_nas, 0x34,
                 "11 0200 c0ff 12 0800 000000c0 ffffffff 15 0800 00000000 ffffffff"
                 " 1c 0600 05 ff00090a06");
    EXPECT_EQ(information("mode_prefs"), "");
    EXPECT_EQ(information("band_prefs"), "Reserved, Band Class 15");
    EXPECT_EQ(information("lte_band_prefs"), "");
    EXPECT_EQ(information("interface_aquisition_order"), "unknown, none, tdcdma, unknown, none");
    EXPECT_EQ(status("rat"), "(none)");
    qmuxd.answer(qmi_nas, 0x34, "11 0200 ffff 12 0800 01000080 00000000 15 0800 00000080 00000000");
    EXPECT_EQ(status("rat"), "AUTOMATIC");
    EXPECT_EQ(information("band_prefs"), "Band Class 0, A-System, Band Class 15");
    EXPECT_EQ(information("lte_band_prefs"), "E-UTRA Operating Band 32");
    qmuxd.answer(qmi_nas, 0x34, "11 0200 ffff 1c 0100 00");
    EXPECT_EQ(information("mode_prefs"), "cdma2000 1X, cdma2000 HRPD, GSM, UMTS, LTE, TD-SCDMA");
    EXPECT_EQ(information("interface_aquisition_order"), "(none)");
    EXPECT_EQ(information("band_prefs"), "(none)") << "not told";

    qmuxd.answer(qmi_dms, 0x44, "01 0100 ff");
    EXPECT_EQ(status("sim-status"), "SIM State Unavailable");
    EXPECT_EQ(status("sim-lock"), "SIM_ERROR");
    qmuxd.answer(qmi_dms, 0x2B, "11 0300 08 03 0a 12 0300 07 02 09");
    EXPECT_EQ(status("pin1-status"), "(none)");
    EXPECT_EQ(status("pin1-retries-left"), "(none)");
    EXPECT_EQ(status("pin2-status"), "CDMA Band Class 0");
    EXPECT_EQ(status("pin2-unblocks-left"), "9");
    qmuxd.answer(qmi_nas, 0x31, "01 1000 03 ff ffff 0000 00 1400 0000 0c fa00 0000");
    EXPECT_EQ(status("current-bands"), "Unknown Band, Unknown Band, Unknown Band");
    qmuxd.answer(qmi_dms, 0x2D, "01 0100 ff");
    EXPECT_EQ(status("modem-status"), "(none)");
    qmuxd.answer(qmi_dms, 0x31, "01 0200 0b00");
    EXPECT_EQ(status("nam-status"), "(none)");
    for (const char *bearer : {"01 0100 ff", "01 0100 00", "01 0100 10", "01 0100 7f"}) {
        qmuxd.answer(qmi_wds, 0x37, bearer);
        EXPECT_EQ(status("mode"), "(none)") << bearer;
    }
    qmuxd.answer(qmi_nas, 0x24,
                 "01 0600 05 09 09 09 01 63 10 0100 40 11 0300 02 0e ff"
                 " 12 0500 ffff ffff 00 13 0400 ffff 0000 16 0100 02");
    EXPECT_EQ(status("service-status"), "Unknown");
    EXPECT_EQ(status("mcc"), "65535");
    EXPECT_EQ(status("carrier"), "(none)");
    EXPECT_EQ(status("country"), "(none)");
    EXPECT_EQ(status("roaming-status"), "Roaming");
    EXPECT_EQ(status("roaming-status-default"), "Roaming");
    EXPECT_EQ(status("service-mode"), "No Service");
    qmuxd.answer(qmi_nas, 0x24, "01 0600 00 00 00 00 01 00");
    for (const char *key : {"mcc", "carrier", "sid", "roaming-status"})
        EXPECT_EQ(status(key), "(none)") << key;
    EXPECT_EQ(status("service-status"), "Not Registered");
    EXPECT_EQ(status("service-mode"), "No Service");
}

TEST_F(gobi_records, images_of_other_types_are_named_in_the_log)
{
    attach();
    const std::string id = "000102030405060708090a0b0c0d0eff";
    qmuxd.answer(qmi_dms, 0x47, "01 2600 02 09 " + id + " 01 58 00 " + id + " 00");
    EXPECT_EQ(status("preferred-carrier"), "Automatic");
    EXPECT_EQ(log.count("700 Preferred Firmware 0 - invalid firmware type 9 provided"), 1);
    EXPECT_EQ(
        log.count("700 Preferred Firmware 0: image_type unknown, unique_id " + id + ", build_id X"),
        1);
    EXPECT_EQ(status("preferred-firmware"), "(none)");
    qmuxd.answer(qmi_dms, 0x47, "01 0100 00");
    EXPECT_EQ(status("preferred-carrier"), "Automatic");
    qmuxd.answer(qmi_dms, 0x47, "01 1400 ff 00 " + id + " 01 41");
    EXPECT_EQ(status("preferred-carrier"), "(none)") << "a count that lies";
}

TEST_F(gobi_records, the_lock_is_the_pins_if_it_is_a_pin)
{
    attach();
    const struct {
        const char *uim, *pin1, *status, *lock;
    } rows[] = {
        {"00", "11 0300 00 03 0a", "SIM Initialized", "SIM_READY"},
        {"00", "11 0300 01 03 0a", "SIM Initialized", "SIM_LOCK_PIN"},
        {"01", "11 0300 01 03 0a", "SIM Locked", "SIM_LOCK_PIN"},
        {"01", "11 0300 04 00 0a", "SIM Locked", "SIM_LOCK_PUK"},
        {"01", "11 0300 05 00 00", "SIM Locked", "(none)"},
        {"01", "", "SIM Locked", "(none)"},
        {"02", "", "SIM Not Present", "SIM_ERROR"},
        {"03", "12 0300 01 03 0a", "SIM State Unavailable", "SIM_ERROR"},
    };
    for (const auto &row : rows) {
        qmuxd.answer(qmi_dms, 0x44, std::string("01 0100 ") + row.uim);
        qmuxd.answer(qmi_dms, 0x2B, row.pin1);
        EXPECT_EQ(status("sim-status"), row.status);
        EXPECT_EQ(status("sim-lock"), row.lock) << row.uim << " " << row.pin1;
    }
    const char *names[] = {
        "PIN is not initialized", "PIN is enabled, verified",   "PIN is disabled",
        "PIN is blocked",         "PIN is permanently blocked", "PIN is unblocked",
        "PIN is changed",         "CDMA Band Class 0"};
    for (int state = 0; state < 8; state++) {
        qmuxd.answer(qmi_dms, 0x2B, "11 0300 0" + std::to_string(state) + " 03 0a");
        EXPECT_EQ(status("pin1-status"), names[state]);
    }
}

TEST_F(gobi_records, signal_quality_is_of_the_fastest_network)
{
    attach();
    const struct {
        const char *signal, *quality;
    } rows[] = {
        {"14 0600 8f f7 9fff 6000", "0"},   // -113 dBm
        {"14 0600 90 f7 9fff 6000", "1"},   // -112
        {"14 0600 bd f7 9fff 6000", "74"},  // -67: 74.19
        {"14 0600 cc f7 9fff 6000", "98"},  // -52: 98.39
        {"14 0600 cd f7 9fff 6000", "100"}, // -51
        {"14 0600 ce f7 9fff 6000", "100"}, // -50
        {"14 0600 80 f7 9fff 6000", "0"},   // -128
        {"14 0600 7f f7 9fff 6000", "100"}, // 127
        {"13 0300 cd 0000 12 0100 8f 11 0800 8f000000000000 00", "100"},
        {"12 0100 cd 11 0800 8f 0000 00 00000000", "100"},
        {"11 0800 cd 0000 00 00000000 10 0300 8f 0000", "100"},
        {"10 0300 cd 0000", "100"},
        {"15 0100 cd", "(none)"},
        {"14 0500 cd f7 9fff 60", "(none)"},
    };
    for (const auto &row : rows) {
        qmuxd.answer(qmi_nas, 0x4F, row.signal);
        EXPECT_EQ(status("signal-quality"), row.quality) << row.signal;
    }
    qmuxd.answer(qmi_nas, 0x4F, "10 0300 b0 0080 13 0300 b0 0000 14 0600 bd f7 0080 fbff");
    EXPECT_EQ(status("cdma-ecio"), "16384.0");
    EXPECT_EQ(status("wcdma-ecio"), "0.0");
    EXPECT_EQ(status("lte-snr"), "-0.5");
    EXPECT_EQ(status("lte-rsrp"), "-32768");
}

TEST_F(gobi_records, empty_texts_are_no_values)
{
    attach();
    qmuxd.answer(qmi_dms, 0x21, "01 0000");
    qmuxd.answer(qmi_dms, 0x23, "01 0200 6131 10 0000");
    qmuxd.answer(qmi_dms, 0x43, "01 0000");
    qmuxd.answer(qmi_dms, 0x3C, "01 0100 00");
    qmuxd.answer(qmi_dms, 0x24, "01 0000");
    EXPECT_EQ(information("manufacturer"), "(none)");
    EXPECT_EQ(information("boot-version"), "(none)");
    EXPECT_EQ(information("pri-version"), "(none)");
    EXPECT_EQ(information("amss-version"), "a1");
    const std::string text = record(false);
    for (const char *key : {"sim-imsi", "sim-iccid", "phone-number1", "phone-number2"})
        EXPECT_EQ(text.find(key), std::string::npos) << key;
    for (const char *what : {"sim-imsi", "sim-iccid", "voice phone-number1", "voice phone-number2"})
        EXPECT_EQ(log.count(std::string("700 Gobi ") + what + " was empty"), 1) << what;
}

TEST_F(gobi_records, hostile_texts_stay_one_value_of_well_formed_xml)
{
    attach();
    const std::string broken = "<b>&amp;\xE9\x01\r\n]]></manufacturer><imei>1";
    const std::string shown = "<b>&amp;\xC3\xA9?\r\n]]></manufacturer><imei>1";
    const std::string tlv = "01" + digits_of({static_cast<uint8_t>(broken.size()), 0}) +
                            digits_of({broken.begin(), broken.end()});
    std::string endless = "01 2c01 ";
    for (int i = 0; i < 150; i++)
        endless += "c3a9";
    for (const uint8_t id : std::initializer_list<uint8_t>{0x21, 0x2C, 0x43, 0x3C, 0x24})
        qmuxd.answer(qmi_dms, id, tlv);
    qmuxd.answer(qmi_dms, 0x22, endless);
    for (const bool info : {true, false}) {
        const std::string text = record(info, output_xml);
        pugi::xml_document document;
        ASSERT_TRUE(document.load_string(text.c_str(), pugi::parse_default & ~pugi::parse_eol))
            << text;
        const auto node = document.first_child();
        for (const char *key : {"manufacturer", "hardware", "sim-imsi", "sim-iccid"})
            if (info == (std::string(key).find("sim") == std::string::npos)) {
                EXPECT_EQ(node.child(key).text().get(), shown) << key;
            }
        if (info) {
            EXPECT_EQ(std::string(node.child("product").text().get()).size(), 254u)
                << "cut between characters";
        }
        const auto values = node.children();
        const std::string lines = whole(info);
        EXPECT_EQ(std::distance(values.begin(), values.end()),
                  std::count(lines.begin(), lines.end(), '\n') - (info ? 0 : 1))
            << "as many as ever; a second telephone number was not told";
    }
}

TEST(gobi_names, of_active_bands)
{
    const struct {
        uint16_t band;
        const char *name;
    } rows[] = {
        {0, "CDMA Band Class 0"},
        {19, "CDMA Band Class 19"},
        {40, "GSM 450 Band"},
        {48, "GSM PCS 1900 Band"},
        {80, "WCDMA I IMT 2000"},
        {88, "WCDMA IX 1700"},
        {91, "WCDMA XIX 850"},
        {120, "E-UTRA Operating Band 1"},
        {133, "E-UTRA Operating Band 14"},
        {134, "E-UTRA Operating Band 17"},
        {142, "E-UTRA Operating Band 40"},
        {146, "E-UTRA Operating Band 21"},
        {148, "E-UTRA Operating Band 25"},
        {152, "E-UTRA Operating Band 23"},
        {157, "E-UTRA Operating Band 127"},
        {160, "E-UTRA Operating Band 30"},
        {162, "E-UTRA Operating Band 250"},
        {168, "E-UTRA Operating Band 71"},
        {200, "TD-SCDMA Band A"},
        {205, "TD-SCDMA Band F"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(gobi_active_band_name(row.band), row.name) << row.band;
    for (const uint16_t band :
         std::initializer_list<uint16_t>{20, 39, 49, 89, 92, 119, 169, 206, 65535})
        EXPECT_EQ(gobi_active_band_name(band), "Unknown Band") << band;
}

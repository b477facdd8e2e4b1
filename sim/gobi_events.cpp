// What the Gobi modem tells by itself: it compares what could be told with what was told last, so
// it makes no difference what changed it - a client, the clock or a scenario.

#include "sim/gobi.h"
#include "sim/qmi_tlvs.h"

#include <array>
#include <cmath>

// ---- reports that clients switch on one by one

// One TLV of a service's event report: the request's TLV that switches it on, the indication's, and
// its value. A value of no bytes is not told.
struct event_row {
    uint8_t service;
    uint8_t wish_type;
    uint8_t type;
    void (*write)(const gobi_modem &modem, tlv_writer &out);
};

static void write_pin(const gobi_state &state, int pin, int64_t retries, int64_t unblocks,
                      tlv_writer &out)
{
    out.number(gobi_pin_status(state, pin));
    out.number(u8(retries));
    out.number(u8(unblocks));
}

static void write_pin1(const gobi_modem &modem, tlv_writer &out)
{
    write_pin(modem.state, 1, modem.state.pin1_retries, modem.state.puk1_retries, out);
}

static void write_pin2(const gobi_modem &modem, tlv_writer &out)
{
    write_pin(modem.state, 2, modem.state.pin2_retries, modem.state.puk2_retries, out);
}

static void write_activation(const gobi_modem &modem, tlv_writer &out)
{
    out.number(u16(modem.state.activation));
}

static void write_mode(const gobi_modem &modem, tlv_writer &out)
{
    out.number(u8(modem.state.mode));
}

static void write_uim(const gobi_modem &modem, tlv_writer &out)
{
    out.number(gobi_uim_state(modem.state));
}

static void write_wireless(const gobi_modem &modem, tlv_writer &out)
{
    out.number(uint8_t{modem.state.wireless_disabled});
}

static void write_power(const gobi_modem &modem, tlv_writer &out)
{
    out.number(uint8_t{modem.state.external_power});
    out.number(u8(modem.state.battery));
}

// The serving technology's figures; radio 0 with nothing in service.
struct figures {
    uint8_t radio = 0;
    int64_t rssi_dbm = 0;
    double ecio_db = 0;
};

static figures figures_of(const gobi_state &state)
{
    const std::vector<uint8_t> serving = gobi_serving(state);
    switch (serving.empty() ? uint8_t{0} : serving.front()) {
    case gobi_radio_none:
        return {};
    case gobi_radio_lte:
        return {gobi_radio_lte, state.lte_rssi_dbm, 0};
    case gobi_radio_gsm:
        return {gobi_radio_gsm, state.gsm_rssi_dbm, 0};
    case gobi_radio_cdma:
        return {gobi_radio_cdma, state.cdma_rssi_dbm, state.cdma_ecio_db};
    case gobi_radio_evdo:
        return {gobi_radio_evdo, state.hdr_rssi_dbm, state.hdr_ecio_db};
    default:
        return {serving.front(), state.umts_rssi_dbm, state.umts_ecio_db};
    }
}

static void write_strength(const gobi_modem &modem, tlv_writer &out)
{
    const figures of = figures_of(modem.state);
    if (of.radio == gobi_radio_none)
        return;
    out.number(static_cast<int8_t>(of.rssi_dbm));
    out.number(of.radio);
}

static void write_bands(const gobi_modem &modem, tlv_writer &out)
{
    tlv_writer all;
    gobi_write_bands(modem.state, 0, false, all);
    if (all.end() == 0)
        out.octets(std::span(all.bytes).subspan(tlv_header_bytes));
}

static void write_reject(const gobi_modem &modem, tlv_writer &out)
{
    static constexpr uint8_t both_domains = 3;
    static constexpr uint16_t network_failure = 17;
    if (gobi_registration(modem.state) != 3)
        return;
    out.number(both_domains);
    out.number(network_failure);
}

static void write_rssi(const gobi_modem &modem, tlv_writer &out)
{
    const figures of = figures_of(modem.state);
    if (of.radio == gobi_radio_none)
        return;
    out.number(u8(-of.rssi_dbm));
    out.number(of.radio);
}

static void write_ecio(const gobi_modem &modem, tlv_writer &out)
{
    const figures of = figures_of(modem.state);
    if (of.radio == gobi_radio_none || of.radio == gobi_radio_lte || of.radio == gobi_radio_gsm)
        return;
    out.number(u8(std::lround(-2 * of.ecio_db)));
    out.number(of.radio);
}

static void write_io(const gobi_modem &modem, tlv_writer &out)
{
    if (figures_of(modem.state).radio == gobi_radio_evdo)
        out.number(static_cast<int32_t>(modem.state.hdr_io_dbm));
}

static void write_sinr(const gobi_modem &modem, tlv_writer &out)
{
    if (figures_of(modem.state).radio == gobi_radio_evdo)
        out.number(u8(modem.state.hdr_sinr_level));
}

static void write_snr(const gobi_modem &modem, tlv_writer &out)
{
    if (figures_of(modem.state).radio == gobi_radio_lte)
        out.number(static_cast<int16_t>(std::lround(10 * modem.state.lte_snr_db)));
}

static void write_rsrp(const gobi_modem &modem, tlv_writer &out)
{
    if (figures_of(modem.state).radio == gobi_radio_lte)
        out.number(static_cast<int16_t>(modem.state.lte_rsrp_dbm));
}

static void write_rates(const gobi_modem &modem, tlv_writer &out)
{
    if (!modem.state.session)
        return;
    out.number(static_cast<int32_t>(modem.state.tx_rate));
    out.number(static_cast<int32_t>(modem.state.rx_rate));
}

static void write_bearer(const gobi_modem &modem, tlv_writer &out)
{
    if (modem.state.session)
        out.number(gobi_bearer(modem.state));
}

static void write_dormancy(const gobi_modem &modem, tlv_writer &out)
{
    if (modem.state.session)
        out.number(uint8_t{modem.state.dormant ? uint8_t{1} : uint8_t{2}});
}

static void write_current_bearer(const gobi_modem &modem, tlv_writer &out)
{
    if (modem.state.session)
        gobi_write_bearer(gobi_bearer(modem.state), out);
}

static void write_call(const gobi_modem &modem, tlv_writer &out)
{
    out.number(uint8_t{modem.state.session ? uint8_t{1} : uint8_t{2}});
}

static void write_preferred_system(const gobi_modem &modem, tlv_writer &out)
{
    struct system_row {
        uint8_t radio;
        uint32_t system;
    };
    static constexpr std::array systems = {
        system_row{gobi_radio_cdma, 1}, system_row{gobi_radio_evdo, 2},
        system_row{gobi_radio_gsm, 3},  system_row{gobi_radio_umts, 4},
        system_row{gobi_radio_lte, 5},  system_row{gobi_radio_tdscdma, 6},
    };
    const uint8_t radio = figures_of(modem.state).radio;
    for (const system_row &row : systems)
        if (row.radio == radio)
            out.number(row.system);
}

static constexpr std::array event_rows = {
    event_row{qmi_dms, 0x10, 0x10, write_power},
    event_row{qmi_dms, 0x12, 0x11, write_pin1},
    event_row{qmi_dms, 0x12, 0x12, write_pin2},
    event_row{qmi_dms, 0x13, 0x13, write_activation},
    event_row{qmi_dms, 0x14, 0x14, write_mode},
    event_row{qmi_dms, 0x15, 0x15, write_uim},
    event_row{qmi_dms, 0x16, 0x16, write_wireless},
    event_row{qmi_nas, 0x10, 0x10, write_strength},
    event_row{qmi_nas, 0x11, 0x11, write_bands},
    event_row{qmi_nas, 0x12, 0x12, write_reject},
    event_row{qmi_nas, 0x13, 0x13, write_rssi},
    event_row{qmi_nas, 0x14, 0x14, write_ecio},
    event_row{qmi_nas, 0x15, 0x15, write_io},
    event_row{qmi_nas, 0x16, 0x16, write_sinr},
    event_row{qmi_nas, 0x1B, 0x19, write_snr},
    event_row{qmi_nas, 0x1C, 0x1A, write_rsrp},
    event_row{qmi_wds, 0x10, 0x16, write_rates},
    event_row{qmi_wds, 0x12, 0x17, write_bearer},
    event_row{qmi_wds, 0x13, 0x18, write_dormancy},
    event_row{qmi_wds, 0x15, 0x1D, write_current_bearer},
    event_row{qmi_wds, 0x17, 0x1F, write_call},
    event_row{qmi_wds, 0x18, 0x20, write_preferred_system},
};

static uint16_t event_report_id(uint8_t service)
{
    return service == qmi_nas ? 0x0002 : 0x0001;
}

// ---- indications as a whole

static void write_serving_system(const gobi_modem &modem, tlv_writer &out)
{
    gobi_write_serving_system(modem.state, true, out);
}

static void write_signal_info(const gobi_modem &modem, tlv_writer &out)
{
    gobi_write_signal_info(modem.state, out);
}

static void write_packet_status(const gobi_modem &modem, tlv_writer &out)
{
    const gobi_state &state = modem.state;
    if (state.session) {
        tlv_add(out, 0x01, uint8_t{2}, uint8_t{0});
        tlv_add(out, 0x12, uint8_t{state.session_ip == "ipv6" ? uint8_t{6} : uint8_t{4}});
        return;
    }
    tlv_add(out, 0x01, uint8_t{1}, uint8_t{0});
    if (modem.end_reason != 0)
        tlv_add(out, 0x10, modem.end_reason);
}

struct whole_row {
    uint8_t service;
    uint16_t id;
    uint8_t registration; // the TLV of the registration; 0: every client gets it
    bool registered;      // whether a client that said nothing gets it
    bool broadcast;       // one frame for all clients of the service on a connection
    void (*write)(const gobi_modem &modem, tlv_writer &out);
};

static constexpr std::array whole_rows = {
    whole_row{qmi_nas, 0x0024, 0x13, true, true, write_serving_system},
    whole_row{qmi_nas, 0x0051, 0x19, false, false, write_signal_info},
    whole_row{qmi_wds, 0x0022, 0, true, false, write_packet_status},
};

bool gobi_indication(const gobi_modem &modem, uint8_t service, uint16_t id, tlv_writer &out)
{
    for (const whole_row &row : whole_rows)
        if (row.service == service && row.id == id) {
            row.write(modem, out);
            return true;
        }
    bool found = false;
    for (const event_row &row : event_rows)
        if (row.service == service && event_report_id(service) == id) {
            out.begin(row.type);
            row.write(modem, out);
            found = true;
        }
    return found;
}

// ---- telling

// Whether the value of that row is another one than last time; at the first time it is not.
static bool changed(gobi_modem &modem, size_t row, std::vector<uint8_t> value)
{
    const auto told = modem.told.find(row);
    const bool first = told == modem.told.end();
    if (!first && told->second == value)
        return false;
    modem.told[row] = std::move(value);
    return !first;
}

static bool wishes(const qmi_client &client, uint8_t wish_type)
{
    const auto wish = client.reports.find(wish_type);
    return wish != client.reports.end() && !wish->second.empty() && wish->second[0] != 0;
}

static void announce_events(gobi_modem &modem, qmi_server &server)
{
    std::array<std::vector<uint8_t>, event_rows.size()> values;
    std::array<bool, event_rows.size()> news = {};
    for (size_t i = 0; i < event_rows.size(); i++) {
        tlv_writer value;
        event_rows[i].write(modem, value);
        values[i] = value.bytes;
        news[i] = changed(modem, i, value.bytes) && !values[i].empty();
    }
    for (const uint8_t service : {qmi_dms, qmi_nas, qmi_wds})
        for (const qmi_client *client : server.clients_of(service)) {
            tlv_writer tlvs;
            for (size_t i = 0; i < event_rows.size(); i++) {
                const event_row &row = event_rows[i];
                if (!news[i] || row.service != service || !wishes(*client, row.wish_type))
                    continue;
                tlvs.begin(row.type);
                tlvs.octets(values[i]);
            }
            if (tlvs.end() == 0 && !tlvs.bytes.empty())
                server.indicate(*client, event_report_id(service), tlvs.bytes);
        }
}

static bool wants(const qmi_client &client, const whole_row &row)
{
    const auto said = client.registered.find(row.registration);
    return said == client.registered.end() ? row.registered : said->second;
}

static void announce_wholes(gobi_modem &modem, qmi_server &server)
{
    for (size_t i = 0; i < whole_rows.size(); i++) {
        const whole_row &row = whole_rows[i];
        tlv_writer tlvs;
        row.write(modem, tlvs);
        if (tlvs.end() != 0 || !changed(modem, event_rows.size() + i, tlvs.bytes))
            continue;
        bool wanted = false;
        for (const qmi_client *client : server.clients_of(row.service)) {
            wanted = wanted || wants(*client, row);
            if (!row.broadcast && wants(*client, row))
                server.indicate(*client, row.id, tlvs.bytes);
        }
        if (row.broadcast && wanted)
            server.broadcast(row.service, row.id, tlvs.bytes);
    }
}

void gobi_announce(gobi_modem &modem, qmi_server &server)
{
    announce_wholes(modem, server);
    announce_events(modem, server);
    gobi_take_messages(modem, server);
}

void gobi_send_position(const gobi_modem &modem, qmi_server &server)
{
    const gobi_state &state = modem.state;
    if (!state.gps || !state.gps_tracking)
        return;
    for (const qmi_client *client : server.clients_of(qmi_pds)) {
        tlv_writer tlvs;
        if (wishes(*client, 0x10))
            tlv_add_text(tlvs, 0x10, state.nmea);
        if (wishes(*client, 0x11)) {
            tlv_add(tlvs, 0x11, static_cast<int8_t>(state.gps_mode));
            tlvs.counted_text<uint16_t>(state.nmea);
        }
        if (wishes(*client, 0x12))
            tlv_add(tlvs, 0x12, uint8_t{0});
        if (tlvs.end() == 0 && !tlvs.bytes.empty())
            server.indicate(*client, 0x0001, tlvs.bytes);
    }
}

// A client says every how many seconds it wants them, and which.
void gobi_send_statistics(const gobi_modem &modem, qmi_server &server)
{
    const gobi_state &state = modem.state;
    const int64_t second = sim_loop::now_ms() / 1000;
    if (!state.session)
        return;
    for (const qmi_client *client : server.clients_of(qmi_wds)) {
        const auto wish = client->reports.find(0x11);
        if (wish == client->reports.end())
            continue;
        tlv_fields fields{wish->second};
        uint8_t period_s = 0;
        uint32_t mask = 0;
        if (!fields.number(period_s) || !fields.number(mask) || period_s == 0 ||
            second % period_s != 0)
            continue;
        tlv_writer tlvs;
        const int64_t counts[] = {state.tx_packets, state.rx_packets, 0, 0, 0, 0};
        for (uint8_t i = 0; i < 6; i++)
            if (mask & (1U << i))
                tlv_add(tlvs, static_cast<uint8_t>(0x10 + i), u32(counts[i]));
        if (mask & (1U << 6))
            tlv_add(tlvs, 0x19, u64(state.tx_bytes));
        if (mask & (1U << 7))
            tlv_add(tlvs, 0x1A, u64(state.rx_bytes));
        if (tlvs.end() == 0 && !tlvs.bytes.empty())
            server.indicate(*client, 0x0001, tlvs.bytes);
    }
}

// ---- what clients want to be told

uint16_t gobi_reset_client(gobi_modem &, const qmi_call &call, tlv_writer &)
{
    call.client.reports.clear();
    call.client.registered.clear();
    call.client.ip_family = 0;
    return qmi_error_none;
}

uint16_t gobi_set_event_report(gobi_modem &, const qmi_call &call, tlv_writer &)
{
    std::span<const uint8_t> rest = call.tlvs;
    tlv item;
    if (rest.empty())
        return qmi_error_missing_argument;
    while (tlv_next(rest, item) == 1)
        call.client.reports[item.type].assign(item.value.begin(), item.value.end());
    return qmi_error_none;
}

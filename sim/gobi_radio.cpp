// What follows from the Gobi modem's state: which networks serve it, whether they know it, and what
// they let it do.

#include "sim/gobi.h"
#include "sim/qmi_tlvs.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

// ---- radio interfaces

struct radio_row {
    std::string_view name;
    uint8_t radio;
    uint16_t mode_bit;  // of the mode preference
    uint8_t capability; // data service capability in use
    int8_t bearer;      // data bearer technology
};

static constexpr std::array radio_rows = {
    radio_row{"lte", gobi_radio_lte, 1 << 4, 11, 10},
    radio_row{"tdscdma", gobi_radio_tdscdma, 1 << 5, 5, 18},
    radio_row{"umts", gobi_radio_umts, 1 << 3, 3, 9},
    radio_row{"evdo", gobi_radio_evdo, 1 << 1, 8, 5},
    radio_row{"gsm", gobi_radio_gsm, 1 << 2, 2, 6},
    radio_row{"cdma", gobi_radio_cdma, 1 << 0, 6, 1},
};

static const radio_row *find_radio(uint8_t radio)
{
    for (const radio_row &row : radio_rows)
        if (row.radio == radio)
            return &row;
    return nullptr;
}

bool gobi_radios(std::string_view names, std::vector<uint8_t> &radios)
{
    radios.clear();
    while (!names.empty()) {
        const std::string_view name = names.substr(0, names.find(','));
        const auto named = [name](const radio_row &row) { return row.name == name; };
        const auto *row = std::find_if(radio_rows.begin(), radio_rows.end(), named);
        if (row == radio_rows.end())
            return false;
        radios.push_back(row->radio);
        names.remove_prefix(std::min(name.size() + 1, names.size()));
    }
    return true;
}

// ---- bands

// Active band numbers and the bits of the band preference that allow them.
struct band_row {
    uint16_t active;
    uint64_t bits;
};

static constexpr uint64_t bit(unsigned number)
{
    return uint64_t{1} << number;
}

static constexpr std::array band_rows = {
    band_row{0, bit(0) | bit(1)}, band_row{1, bit(2)},   band_row{2, bit(3)},
    band_row{3, bit(4)},          band_row{4, bit(5)},   band_row{5, bit(6)},
    band_row{6, bit(10)},         band_row{7, bit(11)},  band_row{8, bit(12)},
    band_row{9, bit(13)},         band_row{10, bit(14)}, band_row{11, bit(15)},
    band_row{12, bit(28)},        band_row{14, bit(29)}, band_row{15, bit(31)},
    band_row{16, bit(56)},        band_row{17, bit(57)}, band_row{18, bit(58)},
    band_row{19, bit(59)},        band_row{40, bit(16)}, band_row{41, bit(17)},
    band_row{42, bit(18)},        band_row{43, bit(19)}, band_row{44, bit(8)},
    band_row{45, bit(9)},         band_row{46, bit(20)}, band_row{47, bit(7)},
    band_row{48, bit(21)},        band_row{80, bit(22)}, band_row{81, bit(23)},
    band_row{82, bit(24)},        band_row{83, bit(25)}, band_row{84, bit(26)},
    band_row{85, bit(27)},        band_row{86, bit(48)}, band_row{87, bit(49)},
    band_row{88, bit(50)},        band_row{90, bit(61)}, band_row{91, bit(60)},
};

// E-UTRA bands and their active band numbers, runs of both.
struct lte_band_run {
    int64_t first, last;
    uint16_t active;
};

static constexpr std::array lte_band_runs = {
    lte_band_run{1, 14, 120},  lte_band_run{17, 17, 134}, lte_band_run{18, 21, 143},
    lte_band_run{23, 23, 152}, lte_band_run{24, 25, 147}, lte_band_run{26, 26, 153},
    lte_band_run{27, 27, 164}, lte_band_run{28, 30, 158}, lte_band_run{31, 31, 165},
    lte_band_run{32, 32, 154}, lte_band_run{33, 40, 135}, lte_band_run{41, 43, 149},
    lte_band_run{46, 46, 163}, lte_band_run{47, 48, 166},
};

uint16_t gobi_active_band(const gobi_state &state, uint8_t radio)
{
    switch (radio) {
    case gobi_radio_lte:
        for (const lte_band_run &run : lte_band_runs)
            if (state.lte_band >= run.first && state.lte_band <= run.last)
                return static_cast<uint16_t>(run.active + (state.lte_band - run.first));
        return 0;
    case gobi_radio_umts:
        return static_cast<uint16_t>(state.umts_band);
    case gobi_radio_gsm:
        return static_cast<uint16_t>(state.gsm_band);
    case gobi_radio_tdscdma:
        return 200;
    default:
        return static_cast<uint16_t>(state.cdma_band);
    }
}

uint32_t gobi_active_channel(const gobi_state &state, uint8_t radio)
{
    switch (radio) {
    case gobi_radio_lte:
        return static_cast<uint32_t>(state.lte_channel);
    case gobi_radio_umts:
    case gobi_radio_tdscdma:
        return static_cast<uint32_t>(state.umts_channel);
    case gobi_radio_gsm:
        return static_cast<uint32_t>(state.gsm_channel);
    case gobi_radio_evdo:
        return static_cast<uint32_t>(state.hdr_channel);
    default:
        return static_cast<uint32_t>(state.cdma_channel);
    }
}

static bool band_allowed(const gobi_state &state, uint8_t radio)
{
    if (radio == gobi_radio_tdscdma)
        return true;
    if (radio == gobi_radio_lte)
        return (static_cast<uint64_t>(state.lte_band_preference) &
                bit(static_cast<unsigned>(state.lte_band - 1))) != 0;
    const uint16_t active = gobi_active_band(state, radio);
    for (const band_row &row : band_rows)
        if (row.active == active)
            return (static_cast<uint64_t>(state.band_preference) & row.bits) != 0;
    return true;
}

// ---- SIM

struct pin_state {
    bool enabled, verified;
    int64_t retries, unblocks, forced;
};

static pin_state pin_of(const gobi_state &state, int pin)
{
    if (pin == 1)
        return {state.pin1_enabled, state.pin1_verified, state.pin1_retries, state.puk1_retries,
                state.pin1_status};
    return {state.pin2_enabled, state.pin2_verified, state.pin2_retries, state.puk2_retries,
            state.pin2_status};
}

uint8_t gobi_pin_status(const gobi_state &state, int pin)
{
    const pin_state of = pin_of(state, pin);
    if (of.forced >= 0)
        return static_cast<uint8_t>(of.forced);
    if (state.sim != "present")
        return 0;
    if (of.unblocks == 0)
        return 5;
    if (of.retries == 0)
        return 4;
    if (!of.enabled)
        return 3;
    return of.verified ? 2 : 1;
}

uint8_t gobi_uim_state(const gobi_state &state)
{
    if (state.uim_state >= 0)
        return static_cast<uint8_t>(state.uim_state);
    if (state.sim == "absent")
        return 2;
    const uint8_t pin = gobi_pin_status(state, 1);
    const bool locked = pin == 1 || pin == 4 || pin == 5;
    return state.sim == "present" && !locked ? 0 : 1;
}

// ---- network

// In the acquisition order first, then as a modem would by itself.
std::vector<uint8_t> gobi_serving(const gobi_state &state)
{
    std::vector<uint8_t> able;
    std::vector<uint8_t> covered;
    std::vector<uint8_t> serving;
    if (state.mode != 0 || state.wireless_disabled || gobi_uim_state(state) != 0)
        return serving;
    (void)gobi_radios(state.radios, able);
    (void)gobi_radios(state.coverage, covered);
    const auto has = [](const std::vector<uint8_t> &list, uint8_t radio) {
        return std::find(list.begin(), list.end(), radio) != list.end();
    };
    const auto add = [&](uint8_t radio) {
        const radio_row *row = find_radio(radio);
        if (row && has(able, radio) && has(covered, radio) && !has(serving, radio) &&
            (state.mode_preference & row->mode_bit) && band_allowed(state, radio))
            serving.push_back(radio);
    };
    const char *at = state.acquisition_order.data();
    const char *const end = at + state.acquisition_order.size();
    while (at < end) {
        uint8_t radio = 0;
        const auto [stop, error] = std::from_chars(at, end, radio);
        if (error == std::errc())
            add(radio);
        at = std::find(stop, end, ',');
        at += at < end ? 1 : 0;
    }
    for (const radio_row &row : radio_rows)
        add(row.radio);
    // One network serves; on CDMA networks voice and data are two at the same time.
    if (serving.size() > 1) {
        const auto cdma = [](uint8_t radio) {
            return radio == gobi_radio_cdma || radio == gobi_radio_evdo;
        };
        const bool both = cdma(serving[0]) && cdma(serving[1]);
        serving.resize(both ? 2 : 1);
    }
    return serving;
}

uint8_t gobi_registration(const gobi_state &state)
{
    if (state.registration_raw >= 0)
        return static_cast<uint8_t>(state.registration_raw);
    if (state.mode != 0 || state.wireless_disabled || gobi_uim_state(state) != 0 ||
        state.registration == "none")
        return 0;
    if (gobi_serving(state).empty() || state.registration == "searching")
        return 2;
    if (state.registration == "denied")
        return 3;
    return state.registration == "unknown" ? 4 : 1;
}

bool gobi_may_call(const gobi_state &state)
{
    const uint8_t registration = gobi_registration(state);
    return !gobi_serving(state).empty() && registration != 0 && registration != 2 &&
           registration != 3;
}

uint8_t gobi_roaming(const gobi_state &state)
{
    if (state.roaming >= 0)
        return static_cast<uint8_t>(state.roaming);
    return state.registration == "roaming" ? 0 : 1;
}

static uint8_t data_capability(const gobi_state &state, uint8_t radio)
{
    const radio_row *row = find_radio(radio);
    if (state.capability >= 0)
        return static_cast<uint8_t>(state.capability);
    return row ? row->capability : uint8_t{0};
}

int8_t gobi_bearer(const gobi_state &state)
{
    if (state.bearer >= 0)
        return static_cast<int8_t>(state.bearer);
    const std::vector<uint8_t> serving = gobi_serving(state);
    const radio_row *row = serving.empty() ? nullptr : find_radio(serving.front());
    return row ? row->bearer : int8_t{-1};
}

// ---- sessions

void gobi_end_session(gobi_modem &modem, uint16_t reason)
{
    if (!modem.state.session)
        return;
    modem.state.session = false;
    modem.end_reason = reason;
}

void gobi_settle(gobi_modem &modem)
{
    static constexpr uint16_t no_service = 3;
    if (!gobi_may_call(modem.state))
        gobi_end_session(modem, no_service);
    if (modem.state.session)
        modem.last_bearer = gobi_bearer(modem.state);
}

void gobi_reboot(gobi_modem &modem)
{
    gobi_state &state = modem.state;
    const gobi_state &from = modem.power_up;
    gobi_end_session(modem, 2);
    state.mode = from.mode;
    state.pin1_verified = false;
    state.pin2_verified = false;
    state.mode_preference = from.mode_preference;
    state.band_preference = from.band_preference;
    state.lte_band_preference = from.lte_band_preference;
    state.acquisition_order = from.acquisition_order;
    state.technology_preference = state.technology_persistent;
    state.technology_duration = 0;
    state.gps = from.gps;
    state.gps_tracking = from.gps_tracking;
    modem.transfer_reports = false;
    modem.last_bearer = -1;
}

// ---- pieces that answers and indications share

void gobi_write_serving_system(const gobi_state &state, bool indication, tlv_writer &out)
{
    const std::vector<uint8_t> serving = gobi_serving(state);
    const uint8_t registration = gobi_registration(state);
    const bool known = registration == 1 || registration > 3;
    const bool cdma = !serving.empty() && serving.front() <= gobi_radio_evdo;
    const bool lte = !serving.empty() && serving.front() == gobi_radio_lte;
    const uint8_t attached = known ? 1 : 2;
    tlv_add(out, 0x01, registration, attached, attached,
            uint8_t{serving.empty() ? uint8_t{0}
                    : cdma          ? uint8_t{1}
                                    : uint8_t{2}},
            static_cast<uint8_t>(std::max<size_t>(serving.size(), 1)));
    if (serving.empty())
        out.number(uint8_t{gobi_radio_none});
    for (const uint8_t radio : serving)
        out.number(radio);
    if (!known || serving.empty())
        return;
    const auto default_roaming =
        state.roaming_default >= 0 ? static_cast<uint8_t>(state.roaming_default) : uint8_t{1};
    tlv_add(out, 0x10, gobi_roaming(state));
    tlv_add(out, 0x11, static_cast<uint8_t>(serving.size()));
    for (const uint8_t radio : serving)
        out.number(data_capability(state, radio));
    tlv_add(out, 0x12, static_cast<uint16_t>(state.mcc), static_cast<uint16_t>(state.mnc));
    out.counted_text<uint8_t>(state.network_name);
    if (cdma) {
        tlv_add(out, 0x13, static_cast<uint16_t>(state.sid), static_cast<uint16_t>(state.nid));
        if (!indication)
            tlv_add(out, 0x14, static_cast<uint16_t>(state.bs_id), int32_t{0}, int32_t{0});
    }
    if (!indication) {
        tlv_add(out, 0x15, static_cast<uint8_t>(serving.size()));
        for (const uint8_t radio : serving) {
            out.number(radio);
            out.number(gobi_roaming(state));
        }
    }
    tlv_add(out, 0x16, default_roaming);
    if (!cdma) {
        tlv_add(out, indication ? 0x1D : 0x1C, static_cast<uint16_t>(lte ? 0xFFFE : state.lac));
        tlv_add(out, indication ? 0x1E : 0x1D, static_cast<uint32_t>(state.cell_id));
    }
    tlv_add(out, indication ? 0x22 : 0x21, uint8_t{2}, uint8_t{lte ? uint8_t{2} : uint8_t{3}},
            uint8_t{0}, uint8_t{0}, uint8_t{0});
    if (lte)
        tlv_add(out, indication ? 0x25 : 0x24, static_cast<uint16_t>(state.tac));
    tlv_add(out, indication ? 0x29 : 0x27, static_cast<uint16_t>(state.mcc),
            static_cast<uint16_t>(state.mnc), uint8_t{state.mnc_three_digits});
}

static int16_t half_steps(double db)
{
    return static_cast<int16_t>(std::lround(-2 * db));
}

void gobi_write_signal_info(const gobi_state &state, tlv_writer &out)
{
    for (const uint8_t radio : gobi_serving(state)) {
        switch (radio) {
        case gobi_radio_cdma:
            tlv_add(out, 0x10, static_cast<int8_t>(state.cdma_rssi_dbm),
                    half_steps(state.cdma_ecio_db));
            break;
        case gobi_radio_evdo:
            tlv_add(out, 0x11, static_cast<int8_t>(state.hdr_rssi_dbm),
                    half_steps(state.hdr_ecio_db), static_cast<uint8_t>(state.hdr_sinr_level),
                    static_cast<int32_t>(state.hdr_io_dbm));
            break;
        case gobi_radio_gsm:
            tlv_add(out, 0x12, static_cast<int8_t>(state.gsm_rssi_dbm));
            break;
        case gobi_radio_umts:
            tlv_add(out, 0x13, static_cast<int8_t>(state.umts_rssi_dbm),
                    half_steps(state.umts_ecio_db));
            break;
        case gobi_radio_lte:
            tlv_add(out, 0x14, static_cast<int8_t>(state.lte_rssi_dbm),
                    static_cast<int8_t>(state.lte_rsrq_db),
                    static_cast<int16_t>(state.lte_rsrp_dbm),
                    static_cast<int16_t>(std::lround(10 * state.lte_snr_db)));
            break;
        default:
            tlv_add(out, 0x15, static_cast<int8_t>(state.umts_rssi_dbm));
            break;
        }
    }
}

void gobi_write_bands(const gobi_state &state, uint8_t type, bool wide, tlv_writer &out)
{
    const std::vector<uint8_t> serving = gobi_serving(state);
    tlv_add(out, type, static_cast<uint8_t>(serving.size()));
    for (const uint8_t radio : serving) {
        out.number(radio);
        out.number(gobi_active_band(state, radio));
        if (wide)
            out.number(gobi_active_channel(state, radio));
        else
            out.number(static_cast<uint16_t>(gobi_active_channel(state, radio)));
    }
}

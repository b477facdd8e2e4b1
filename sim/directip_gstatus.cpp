// The layouts of AT!GSTATUS?. The LTE and WCDMA ones are those of modems in the field, tabs, blanks
// at line ends and missing blanks included: a reader of these answers depends on all of them. The
// GSM one follows the WCDMA one; its receive level has no blank behind the colon.

#include "sim/bytes.h"
#include "sim/directip.h"
#include "sim/report.h"

#include <array>

struct gstatus_layout {
    const char *mode;
    const char *head;
    const char *signal; // only with the radio on
};

static constexpr const char lte_head[] =
    "!GSTATUS: \r\n"
    "Current Time:  {uptime_s}\t\tTemperature: {temperature}\r\n"
    "Bootup Time:   {bootup_s}\t\tMode:        {power:15}\r\n"
    "System mode:   {mode:11}\tPS state:    {ps_state:13}\r\n"
    "LTE band:      {band:7}\t\tLTE bw:      {bandwidth:8}\r\n"
    "LTE Rx chan:   {rx_channel}\t\tLTE Tx chan: {tx_channel}\r\n"
    "EMM state:     {emm_state:15}\t{emm_service:15}\r\n"
    "RRC state:     {rrc_state:15}\r\n"
    "IMS reg state: No Srv  \t\t\r\n";

static constexpr const char lte_signal[] =
    "\r\n"
    "RSSI (dBm):    {rssi_dbm}\t\tTx Power:    {tx_power}\r\n"
    "RSRP (dBm):    {rsrp_dbm}\t\tTAC:         {tac_hex}\r\n"
    "RSRQ (dB):     {rsrq_db}\t\tCell ID:     {cell_hex}\r\n"
    "SINR (dB):      {sinr_db}\r\n";

static constexpr const char wcdma_head[] =
    "!GSTATUS: \r\n"
    "Current Time:  {uptime_s:17}Temperature: {temperature}\r\n"
    "Bootup Time:   {bootup_s:17}Mode:        {power:15}\r\n"
    "System mode:   {mode:17}PS state:    {ps_state:13}\r\n"
    "WCDMA band:    {wcdma_band:11}\r\n"
    "WCDMA channel: {wcdma_channel}\r\n"
    "GMM (PS) state:{gmm_state:17}{gmm_service:15}\r\n"
    "MM (CS) state: {mm_state:17}{gmm_service:15}\r\n";

static constexpr const char wcdma_signal[] =
    "\r\n"
    "WCDMA L1 State:{l1_state:17}RRC State:   {rrc_3g:15}\r\n"
    "RX level C0:   {rx_level_c0_dbm:17}LAC:         {lac_hex}\r\n"
    "RX level C1:   {rx_level_c1_dbm:17}Cell ID:     {cell_hex}\r\n";

static constexpr const char gsm_head[] =
    "!GSTATUS: \r\n"
    "Current Time:  {uptime_s:17}Temperature: {temperature}\r\n"
    "Bootup Time:   {bootup_s:17}Mode:        {power:15}\r\n"
    "System mode:   {mode:17}PS state:    {ps_state:13}\r\n"
    "GSM band:      {gsm_band:11}\r\n"
    "GSM channel:   {gsm_channel}\r\n"
    "GMM (PS) state:{gmm_state:17}{gmm_service:15}\r\n"
    "MM (CS) state: {mm_state:17}{gmm_service:15}\r\n";

static constexpr const char gsm_signal[] =
    "\r\n"
    "RX level (dBm):{rx_level_dbm:17}LAC:         {lac_hex}\r\n"
    "                                Cell ID:     {cell_hex}\r\n";

static constexpr std::array layouts = {
    gstatus_layout{"LTE", lte_head, lte_signal},
    gstatus_layout{"WCDMA", wcdma_head, wcdma_signal},
    gstatus_layout{"GSM", gsm_head, gsm_signal},
};

static std::string hex_and_decimal(int64_t number, int digits)
{
    const auto value = static_cast<unsigned long long>(number);
    return sim_format("%0*llX (%llu)", digits, value, value);
}

// What stands in a place depends on whether the network knows the modem.
struct service_text {
    const char *name;
    const char *registered;
    const char *otherwise;
};

static constexpr std::array service_texts = {
    service_text{"ps_state", "Attached", "Not attached"},
    service_text{"emm_state", "Registered", "Deregistered"},
    service_text{"emm_service", "Normal Service", "No Service"},
    service_text{"gmm_state", "REGISTERED", "DEREGISTERED"},
    service_text{"gmm_service", "NORMAL SERVICE", "NO SERVICE"},
    service_text{"mm_state", "IDLE", "IDLE"},
};

// The same for a data session.
static constexpr std::array session_texts = {
    service_text{"rrc_state", "RRC Connected", "RRC Idle"},
    service_text{"rrc_3g", "CELL_DCH", "DISCONNECTED"},
    service_text{"l1_state", "L1M_DCH", "L1M_PCH_SLEEP"},
};

static std::string gstatus_value(const directip_state &state, std::string_view name)
{
    for (const service_text &text : service_texts)
        if (name == text.name)
            return directip_registered(state) ? text.registered : text.otherwise;
    for (const service_text &text : session_texts)
        if (name == text.name)
            return state.session ? text.registered : text.otherwise;
    if (name == "power")
        return state.cfun == 1 ? "ONLINE" : "LOW POWER MODE";
    if (name == "cell_hex")
        return hex_and_decimal(state.cell_id, 8);
    if (name == "tac_hex")
        return hex_and_decimal(state.tac, 4);
    if (name == "lac_hex")
        return hex_and_decimal(state.lac, 4);
    return state_print(state, directip_fields(), name);
}

std::string directip_gstatus(const directip_state &state)
{
    const auto value = [&state](std::string_view name) { return gstatus_value(state, name); };
    std::string text;
    for (const gstatus_layout &layout : layouts) {
        if (state.mode != layout.mode)
            continue;
        text = layout_expand(layout.head, value);
        if (state.cfun == 1)
            text += layout_expand(layout.signal, value);
    }
    return text;
}

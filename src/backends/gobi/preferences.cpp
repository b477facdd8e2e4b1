#include "backends/gobi/names.h"
#include "backends/gobi/operations.h"
#include "platform/log.h"
#include "qmi/messages.h"

#include <algorithm>
#include <iterator>
#include <string_view>

using code_value = unsigned long;

enum mode_bit : uint16_t {
    mode_cdma_1x = 1 << 0,
    mode_hrpd = 1 << 1,
    mode_gsm = 1 << 2,
    mode_umts = 1 << 3,
    mode_lte = 1 << 4,
    mode_td_scdma = 1 << 5,
    mode_any = mode_cdma_1x | mode_hrpd | mode_gsm | mode_umts | mode_lte | mode_td_scdma,
};

// By the number of the radio access technology; what prefers one of two leaves the choice open.
constexpr uint16_t rat_modes[] = {
    mode_any,                        // automatic
    mode_umts,                       //
    mode_gsm,                        //
    mode_any,                        //
    mode_any,                        //
    mode_gsm | mode_umts,            //
    mode_lte,                        //
    mode_gsm | mode_umts | mode_lte, //
    mode_any,                        //
};

int gobi_setrat(cellmodem &, int rat)
{
    uint32_t code = qmi_bad_argument;
    if (rat >= 0 && static_cast<size_t>(rat) < std::size(rat_modes)) {
        qmi_system_selection wanted;
        wanted.mode_mask = rat_modes[rat];
        code = qmi_nas_set_system_selection(gobi_handle(), wanted);
    }
    if (code == qmi_ok)
        return 0;
    log_message(log_error, "Failed to set system mode preference %d: error: %d", rat,
                static_cast<int>(code));
    return -1;
}

// The numbers of the interfaces in a list of names; none at all when one of them is unknown. Of
// several interfaces with that name the first one counts.
static std::vector<uint8_t> acquisition_order(std::string_view names)
{
    std::vector<uint8_t> order;
    while (!names.empty()) {
        const std::string_view name = names.substr(0, names.find(','));
        names.remove_prefix(std::min(names.size(), name.size() + 1));
        if (name.empty())
            continue;
        const auto found =
            std::find(gobi_interface_names.begin(), gobi_interface_names.end(), name);
        if (found == gobi_interface_names.end()) {
            log_message(log_fatal, "Interface %.*s not found", static_cast<int>(name.size()),
                        name.data());
            return {};
        }
        order.push_back(static_cast<uint8_t>(found - gobi_interface_names.begin()));
    }
    return order;
}

int gobi_setsysselect(cellmodem &, const uint32_t *mode_mask, const uint64_t *band_mask,
                      const uint64_t *lte_band_mask, const char *order_names)
{
    qmi_system_selection wanted;
    if (mode_mask)
        wanted.mode_mask = static_cast<uint16_t>(*mode_mask); // there are no modes above
    if (band_mask)
        wanted.band_mask = *band_mask;
    if (lte_band_mask)
        wanted.lte_band_mask = *lte_band_mask;
    const std::vector<uint8_t> order = acquisition_order(order_names ? order_names : "");
    if (!order.empty())
        wanted.acquisition_order = {order};
    const uint32_t code = qmi_nas_set_system_selection(gobi_handle(), wanted);
    if (code == qmi_ok)
        return 0;
    if (code == qmi_bad_argument || code == qmi_too_long)
        log_message(log_error, "Failed to pack system selection prefs request: %d",
                    static_cast<int>(code));
    else
        log_message(log_error, "Failed to set system selection prefs: %d", static_cast<int>(code));
    log_message(log_fatal, "Error setting system selection masks: %lu", code_value{code});
    return 1;
}

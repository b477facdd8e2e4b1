#include "backends/select.h"

#include "backends/gobi/gobi.h"
#include "backends/serial/directip.h"
#include "backends/serial/pantech.h"
#include "backends/sierra/cdma.h"
#include "backends/sierra/gsm.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/markers.h"
#include "platform/log.h"
#include "platform/paths.h"

#include <algorithm>

// A family is fitted when its markers exist; the first row that says so decides.
struct family {
    const char *marker;
    const char *second_marker; // null: the first one is enough
    int (*init)(cellmodem &);
    const char *failure;
};

constexpr family families[] = {
    {marker_is_sierra, marker_is_gsm, sierra_gsm_init, "Failed to support Sierra GSM"},
    {marker_is_sierra, marker_is_cdma, sierra_cdma_init, "Failed to support Sierra CDMA"},
    {marker_is_sierra_directip, marker_is_lte, sierra_directip_lte_init,
     "Failed to support Sierra DirectIP LTE"},
    {marker_is_gobi, nullptr, gobi_init, "Failed to support Gobi Modem"},
    {marker_is_pantech, marker_is_lte, pantech_wmc_init, "Failed to support Pantech LTE"},
};

int cellmodem_select(cellmodem &modem)
{
    const auto *fitted = std::find_if(std::begin(families), std::end(families), [](auto &row) {
        return file_exists(row.marker) && (!row.second_marker || file_exists(row.second_marker));
    });
    if (fitted == std::end(families))
        return -1;
    // A back-end that was chosen before may have a thread that knows the record.
    if (modem.release) {
        modem.release(modem);
        modem.release = nullptr;
    }
    if (fitted->init(modem) != 0) {
        log_message(log_fatal, "%s", fitted->failure);
        return -1;
    }
    return 0;
}

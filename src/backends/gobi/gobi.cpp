#include "backends/gobi/gobi.h"

#include "backends/gobi/operations.h"
#include "cellmodem/cellmodem.h"
#include "cellmodem/slot.h"
#include "platform/log.h"

constexpr int setsysselect_failure = 1;

constexpr cellmodem_slots gobi_slots = {
    .attach = slot<gobi_attach>,
    .detach = slot<gobi_detach>,
    .ping = slot<gobi_ping>,
    .info = slot<gobi_info>,
    .status = slot<gobi_status>,
    .getsms = slot<gobi_getsms>,
    .lte_connect = slot<gobi_connect>,
    .disconnect = slot<gobi_disconnect>,
    .radio = slot<gobi_radio>,
    .data_up = slot<gobi_data_up>,
    .reset = slot<gobi_reset>,
    .simispresent = slot<gobi_simispresent, 0>,
    .unlocksim = slot<gobi_unlocksim>,
    .unblocksim = slot<gobi_unblocksim>,
    .enablegps = slot<gobi_enablegps>,
    .disablegps = slot<gobi_disablegps>,
    .setrat = slot<gobi_setrat>,
    .setsysselect = slot<gobi_setsysselect, setsysselect_failure>,
    .sendsms = slot<gobi_sendsms>,
};

int gobi_init(cellmodem &modem)
{
    modem.attached = false;
    modem.type = type_gobi;
    modem.technology = technology_lte;
    modem.device_path = "/dev/cellcommand01";
    modem.slots = gobi_slots;
    modem.session_state = session_unknown;
    modem.state_b = 0;
    log_message(log_debug, "Gobi Modem is ready.");
    return 0;
}

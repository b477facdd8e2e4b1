#include "cellmodem/cellmodem.h"

#include "platform/log.h"

#include <cstring>
#include <new>

int cellmodem_create(cellmodem **modem)
{
    *modem = new (std::nothrow) cellmodem;
    if (!*modem) {
        log_message(log_fatal, "Failed to create cellmodem.");
        return -1;
    }
    return 0;
}

void cellmodem_destroy(cellmodem **modem)
{
    if (*modem && (*modem)->release)
        (*modem)->release(**modem);
    delete *modem;
    *modem = nullptr;
}

const char *cellmodem_type_text(int type)
{
    switch (type) {
    case type_sierra_gsm:
        return "Sierra Wireless CnS (UMTS/GSM)";
    case type_sierra_cdma:
        return "Sierra Wireless CnS (CDMA)";
    case type_sierra_directip:
        return "Sierra Wireless Direct IP";
    case type_gobi:
        return "libgobi LTE";
    case type_modem_manager:
        return "ModemManager";
    case type_pantech:
        return "Pantech WMC";
    default:
        return "Unknown";
    }
}

char *cellmodem_type_name(int type, char *buffer, size_t size)
{
    if (size > 0)
        strncpy(buffer, cellmodem_type_text(type), size - 1);
    return buffer;
}

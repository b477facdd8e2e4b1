#include "cellmodem/gps.h"

#include "cellmodem/markers.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/tarnwick.h"
#include "platform/xmldb.h"

#include <cstdio>
#include <cstring>

int gps_read_settings(gps_settings &settings)
{
    if (!file_exists(marker_has_gps))
        return 0;
    xmldb *config = xmldb_open(0);
    if (!config) {
        log_message(log_error, "Error opening config database");
        return -1;
    }
    char prefix[48];
    snprintf(prefix, sizeof(prefix), "config.ports.port%d.nmea", tarnwick_serial_count(config));
    const char *enabled = xmldb_getstring(config, prefix, "enabled");
    settings.enabled = enabled && strcmp(enabled, "on") == 0;
    settings.fix_interval_s = xmldb_getsize(config, prefix, "fixfreq");
    return 0;
}

// What the appliance's configuration says about the modem's GPS (NMEA) port: it is configured as the
// serial port whose number equals the number of serial ports.
#pragma once

struct gps_settings {
    bool enabled = false;
    int fix_interval_s = 0;
};

// Reads the settings if the device has GPS (its marker exists); without GPS they stay as they are.
// 0, or -1 after logging that the configuration cannot be read.
[[nodiscard]] int gps_read_settings(gps_settings &settings);

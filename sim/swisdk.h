// The root's /bin/swisdk, the server program that the daemon starts. The modem lives in the
// simulator and outlives its server, as a real one does; so this program is the server's life and
// nothing else: it tells the simulator to serve the channels, and when it ends, however it ends, the
// simulator takes them away.
#pragma once

constexpr const char *swisdk_socket_path = "/var/run/swisdk.sock";

// The program under the name `swisdk`. The result is the exit status.
int swisdk_main();

#include "backends/wwan.h"

#include "platform/process.h"

#include <string>

#define DHCP_PID_PATH "/var/run/udhcpc-wwan0.pid"
#define DHCP_DISCOVERIES "8"
#define DHCP_PAUSE_S "3"

void wwan_up()
{
    process_shell("/sbin/ifconfig wwan0 up &> /dev/null");
    if (process_alive(process_read_pid(DHCP_PID_PATH)))
        process_shell("kill -SIGUSR1 `cat " DHCP_PID_PATH "`");
    else
        process_shell("/sbin/udhcpc -i wwan0 -p " DHCP_PID_PATH " -s /etc/scripts/wwan-up"
                      " -t " DHCP_DISCOVERIES " -T " DHCP_PAUSE_S " &> /dev/null");
}

void wwan_down(const char *script_arguments)
{
    const char *separator = *script_arguments ? " " : "";
    process_shell("/sbin/ifconfig wwan0 down &> /dev/null");
    process_shell(
        (std::string("/etc/scripts/wwan-down") + separator + script_arguments + " &> /dev/null")
            .c_str());
    process_shell("kill `cat " DHCP_PID_PATH "` &> /dev/null");
}

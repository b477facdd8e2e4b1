// The data interface wwan0 and its DHCP client, for the families that offer a network interface.
// The lines go through the shell; the address itself arrives later through /etc/scripts/wwan-up.
#pragma once

// Brings the interface up, then has the running DHCP client renew its lease, or starts one.
void wwan_up();

// Takes the interface down, runs the site's script, with these arguments, and ends the DHCP client.
void wwan_down(const char *script_arguments = "");

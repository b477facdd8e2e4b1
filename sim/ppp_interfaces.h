// The root's point-to-point interfaces: var/run/ppp-interfaces has a line "NAME ADDRESS" for each,
// and whoever asks the root's appliance for its interfaces reads it. Lines of other interfaces than
// the modem's are somebody else's and stay.
#pragma once

#include <string>

// Brings an interface up with this address, or changes its address. 0, or -1 with errno set.
int ppp_interface_up(const std::string &root, const std::string &name, const std::string &address);

// Takes it down; one that is not up is no error. 0, or -1 with errno set.
int ppp_interface_down(const std::string &root, const std::string &name);

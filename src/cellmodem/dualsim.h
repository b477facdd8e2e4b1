// Dual-SIM operations: which SIM holder is connected to the modem, and whether the daemon chooses it
// (automatic) or keeps the user's choice (manual). A platform with a second holder fills a table of
// the nine operations and installs it before start-up; without one, every operation says that the
// device has no second holder.
#pragma once

// SIM indices: 0 and 1 name holders.
enum { sim_index_automatic = -1, sim_index_unknown = -2 };

enum sim_mode { sim_mode_unread = -1, sim_mode_manual = 1, sim_mode_automatic = 2 };

// Each returns 0 for success and -1 for failure, `supported` 1 for yes and 0 for no. The flag of
// set_index and set_next_index is 1: switch now.
struct dualsim_operations {
    int (*supported)() = nullptr;
    int (*init)() = nullptr;
    int (*close)() = nullptr;
    int (*get_index)(int *index) = nullptr;
    int (*set_index)(int index, int flag) = nullptr;
    int (*set_next_index)(int flag) = nullptr; // -1 after the last holder
    int (*reset_index)() = nullptr;
    int (*get_mode)(int *mode) = nullptr;
    int (*set_mode)(int mode) = nullptr;
};

// Installs a platform's operations, all of them filled; null brings the default back. The table
// must outlive the process's use of it.
void dualsim_install(const dualsim_operations *operations);

int dualsim_supported();
int dualsim_init();
int dualsim_close();
int dualsim_get_index(int *index); // stores sim_index_unknown on a device without a second holder
int dualsim_set_index(int index, int flag);
int dualsim_set_next_index(int flag);
int dualsim_reset_index();
int dualsim_get_mode(int *mode);
int dualsim_set_mode(int mode);

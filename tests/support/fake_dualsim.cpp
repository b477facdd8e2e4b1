#include "support/fake_dualsim.h"

#include "cellmodem/dualsim.h"

constexpr int last_holder = 1;

static fake_dualsim *current;

// Stores what an operation would change or tell, unless it is to fail.
static int store(const char *operation, int &place, int value)
{
    if (current->failing.count(operation) != 0)
        return -1;
    place = value;
    return 0;
}

constexpr dualsim_operations operations = {
    .supported = [] { return 1; },
    .init = [] { return 0; },
    .close = [] { return 0; },
    .get_index =
        [](int *index) {
            *index = sim_index_unknown;
            return store("get_index", *index, current->index);
        },
    .set_index = [](int index, int) { return store("set_index", current->index, index); },
    .set_next_index =
        [](int) {
            const int next = current->index + 1;
            return next <= last_holder ? store("set_next_index", current->index, next) : -1;
        },
    .reset_index = [] { return store("reset_index", current->index, -1); },
    .get_mode = [](int *mode) { return store("get_mode", *mode, current->mode); },
    .set_mode = [](int mode) { return store("set_mode", current->mode, mode); },
};

fake_dualsim::fake_dualsim()
{
    current = this;
    dualsim_install(&operations);
}

fake_dualsim::~fake_dualsim()
{
    dualsim_install(nullptr);
    current = nullptr;
}

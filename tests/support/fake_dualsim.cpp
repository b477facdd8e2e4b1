#include "support/fake_dualsim.h"

#include "cellmodem/dualsim.h"

constexpr int last_holder = 1;

static fake_dualsim *current;

static bool fails(const char *operation)
{
    return current->failing.count(operation) != 0;
}

constexpr dualsim_operations operations = {
    .supported = [] { return 1; },
    .init = [] { return 0; },
    .close = [] { return 0; },
    .get_index =
        [](int *index) {
            *index = fails("get_index") ? sim_index_unknown : current->index;
            return fails("get_index") ? -1 : 0;
        },
    .set_index =
        [](int index, int) {
            if (fails("set_index"))
                return -1;
            current->index = index;
            return 0;
        },
    .set_next_index =
        [](int) {
            if (fails("set_next_index") || current->index >= last_holder)
                return -1;
            current->index++;
            return 0;
        },
    .reset_index =
        [] {
            if (fails("reset_index"))
                return -1;
            current->index = -1;
            return 0;
        },
    .get_mode =
        [](int *mode) {
            if (fails("get_mode"))
                return -1;
            *mode = current->mode;
            return 0;
        },
    .set_mode =
        [](int mode) {
            if (fails("set_mode"))
                return -1;
            current->mode = mode;
            return 0;
        },
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

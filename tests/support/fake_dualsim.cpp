#include "support/fake_dualsim.h"

#include "cellmodem/dualsim.h"

constexpr int last_holder = 1;

static fake_dualsim *current;

constexpr dualsim_operations operations = {
    .supported = [] { return 1; },
    .init = [] { return 0; },
    .close = [] { return 0; },
    .get_index =
        [](int *index) {
            *index = current->index;
            return 0;
        },
    .set_index =
        [](int index, int) {
            if (!current->index_settable)
                return -1;
            current->index = index;
            return 0;
        },
    .set_next_index =
        [](int) {
            if (current->index >= last_holder)
                return -1;
            current->index++;
            return 0;
        },
    .reset_index =
        [] {
            current->index = -1;
            return 0;
        },
    .get_mode =
        [](int *mode) {
            if (!current->mode_readable)
                return -1;
            *mode = current->mode;
            return 0;
        },
    .set_mode =
        [](int mode) {
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

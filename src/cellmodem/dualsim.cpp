#include "cellmodem/dualsim.h"

#include "platform/log.h"

// What a device with one holder answers: the result, after saying why.
static int unsupported(int result, const char *what)
{
    log_message(log_info, "This device doesn't support dual-sim%s", what);
    return result;
}

constexpr dualsim_operations default_operations = {
    .supported = [] { return unsupported(0, ""); },
    .init = [] { return unsupported(-1, ", unable to initialise"); },
    .close = [] { return unsupported(0, ""); },
    .get_index =
        [](int *index) {
            *index = sim_index_unknown;
            return unsupported(-1, ", unable to get sim index");
        },
    .set_index = [](int, int) { return unsupported(-1, ", unable to set sim index"); },
    .set_next_index = [](int) { return unsupported(-1, ", unable to set next sim index"); },
    .reset_index = [] { return unsupported(-1, ", unable to reset sim index"); },
    .get_mode = [](int *) { return unsupported(-1, ", unable to get sim mode"); },
    .set_mode = [](int) { return unsupported(-1, ", unable to set sim mode"); },
};

static const dualsim_operations *installed = &default_operations;

void dualsim_install(const dualsim_operations *operations)
{
    installed = operations ? operations : &default_operations;
}

int dualsim_supported()
{
    return installed->supported();
}

int dualsim_init()
{
    return installed->init();
}

int dualsim_close()
{
    return installed->close();
}

int dualsim_get_index(int *index)
{
    return installed->get_index(index);
}

int dualsim_set_index(int index, int flag)
{
    return installed->set_index(index, flag);
}

int dualsim_set_next_index(int flag)
{
    return installed->set_next_index(flag);
}

int dualsim_reset_index()
{
    return installed->reset_index();
}

int dualsim_get_mode(int *mode)
{
    return installed->get_mode(mode);
}

int dualsim_set_mode(int mode)
{
    return installed->set_mode(mode);
}

#include "sim/family.h"

#include "sim/cdma.h"
#include "sim/directip.h"
#include "sim/gobi.h"
#include "sim/gsm.h"
#include "sim/pantech.h"

#include <array>

static constexpr std::array<const sim_family *, 5> all_families = {
    &cdma_family, &directip_family, &gobi_family, &gsm_family, &pantech_family,
};

std::span<const sim_family *const> families()
{
    return all_families;
}

const sim_family *family_find(std::string_view name)
{
    for (const sim_family *family : all_families)
        if (name == family->name)
            return family;
    return nullptr;
}

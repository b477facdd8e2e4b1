// The CDMA modem's provisioning: the lock code opens it, what is written is kept apart, and locking
// commits it and says what is missing.

#include "sim/cdma.h"

#include <algorithm>
#include <string_view>

static constexpr uint8_t only_nam = 0;
static constexpr uint32_t factory_mode = 2;
static constexpr uint32_t commit = 1;
static constexpr size_t mdn_digits_max = 15;

enum missing_item : uint16_t {
    missing_mdn = 0x01,
    missing_imsi = 0x02,
    missing_user = 0x04,
    missing_date = 0x08,
    missing_order = 0x10,
};

static swi_reply check(const cdma_modem &modem, uint8_t nam)
{
    if (!modem.provisioning.unlocked)
        return swi_refuse("Provisioning is locked");
    return nam == only_nam ? swi_reply{} : swi_refuse("NAM not supported");
}

static bool is_number(std::string_view text, size_t digits_max)
{
    return !text.empty() && text.size() <= digits_max &&
           text.find_first_not_of("0123456789") == text.npos;
}

swi_reply cdma_unlock(cdma_modem &modem, uint32_t msl)
{
    const cdma_state &state = modem.state;
    if (msl != state.msl)
        return swi_refuse("Wrong lock code");
    modem.provisioning = {true,       false,          false,         state.mdn,
                          state.imsi, state.home_sid, state.home_nid};
    return {};
}

swi_reply cdma_select_nam(cdma_modem &modem, uint8_t nam)
{
    swi_reply reply = check(modem, nam);
    if (reply.text.empty())
        modem.provisioning.nam_selected = true;
    return reply;
}

static swi_reply write_number(cdma_modem &modem, uint8_t nam, const std::string &number,
                              std::string cdma_provisioning::*member)
{
    swi_reply reply = check(modem, nam);
    if (!reply.text.empty())
        return reply;
    if (!is_number(number, mdn_digits_max))
        return swi_refuse("Not a number of at most 15 digits");
    modem.provisioning.*member = number;
    modem.provisioning.out_of_order |= !modem.provisioning.nam_selected;
    return {};
}

swi_reply cdma_write_mdn(cdma_modem &modem, uint8_t nam, const std::string &mdn)
{
    return write_number(modem, nam, mdn, &cdma_provisioning::mdn);
}

swi_reply cdma_write_imsi(cdma_modem &modem, uint8_t nam, const std::string &imsi)
{
    return write_number(modem, nam, imsi, &cdma_provisioning::imsi);
}

swi_reply cdma_read_home(const cdma_modem &modem, uint8_t nam, swi_home_sid_nid &home)
{
    swi_reply reply = check(modem, nam);
    if (!reply.text.empty())
        return reply;
    home.nam = nam;
    home.sid = static_cast<uint16_t>(modem.provisioning.home_sid);
    home.nid = static_cast<uint16_t>(modem.provisioning.home_nid);
    return {};
}

swi_reply cdma_write_home(cdma_modem &modem, const swi_home_sid_nid &home)
{
    swi_reply reply = check(modem, home.nam);
    if (!reply.text.empty())
        return reply;
    modem.provisioning.home_sid = home.sid;
    modem.provisioning.home_nid = home.nid;
    return {};
}

static uint16_t find_missing(const cdma_state &state, bool out_of_order)
{
    int missing = 0;
    missing |= state.mdn.empty() ? missing_mdn : 0;
    missing |= state.imsi.empty() ? missing_imsi : 0;
    missing |= state.mip_nai.empty() ? missing_user : 0;
    missing |= state.date_set ? 0 : missing_date;
    missing |= out_of_order ? missing_order : 0;
    return static_cast<uint16_t>(missing);
}

// Any other flag than "commit" drops what was written.
swi_reply cdma_lock(cdma_modem &modem, uint32_t flag, swi_lock_result &result)
{
    cdma_state &state = modem.state;
    if (!modem.provisioning.unlocked)
        return swi_refuse("Provisioning is locked");
    const cdma_provisioning written = std::exchange(modem.provisioning, {});
    if (flag != commit)
        return {};
    state.mdn = written.mdn;
    state.imsi = written.imsi;
    state.home_sid = written.home_sid;
    state.home_nid = written.home_nid;
    const uint16_t missing = find_missing(state, written.out_of_order);
    result.missing = static_cast<uint16_t>(swi_given_or(state.missing, missing));
    result.result = swi_given_or(state.lock_result, result.missing == 0);
    return {};
}

swi_reply cdma_factory_reset(cdma_modem &modem, uint32_t mode)
{
    cdma_state &state = modem.state;
    if (!modem.provisioning.unlocked)
        return swi_refuse("Provisioning is locked");
    if (mode != factory_mode)
        return swi_refuse("Mode not supported");
    state.mdn.clear();
    state.imsi.clear();
    state.phone_number.clear();
    state.home_sid = 0;
    state.home_nid = 0;
    state.mip_profile = 0;
    state.mip_nai = state.factory_nai;
    modem.messages.clear_received();
    modem.messages.drop_stored();
    modem.provisioning = {};
    modem.provisioning.unlocked = true;
    modem.factory_boot = true;
    return {};
}

int64_t cdma_power_up(cdma_modem &modem)
{
    modem.provisioning = {};
    modem.messages.rewind();
    modem.messages.drop_stored();
    modem.state.call = "none";
    return std::exchange(modem.factory_boot, false) ? modem.state.factory_boot_ms
                                                    : modem.state.boot_ms;
}

// The Gobi modem's data service: sessions, profiles, what a session has got from the network.

#include "sim/gobi.h"
#include "sim/qmi_tlvs.h"

#include <algorithm>
#include <array>

#include <arpa/inet.h>

static constexpr size_t text_bytes_max = 255;

// Call-end reasons of the public list, with the verbose ones that go with them.
struct end_reason {
    uint16_t reason;
    uint16_t verbose_type;
    int16_t verbose_reason;
};

static constexpr end_reason end_client{2, 3, 2000};
static constexpr end_reason end_no_service{3, 3, 2001};
static constexpr end_reason end_authentication{10, 6, 29};
static constexpr end_reason end_unknown_apn{1013, 6, 27};
static constexpr end_reason end_unknown_pdp{1014, 6, 28};

// ---- the client itself

static uint16_t abort_request(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint16_t transaction = 0;
    (void)fields.number(transaction);
    if (!modem.abort || !modem.abort(call.client, transaction))
        return qmi_error_invalid_transaction_id;
    return qmi_error_none;
}

static uint16_t set_ip_family(gobi_modem &, const qmi_call &call, tlv_writer &)
{
    tlv_fields fields = *call.find(0x01);
    uint8_t family = 0;
    (void)fields.number(family);
    if (family != 4 && family != 6)
        return qmi_error_invalid_argument;
    call.client.ip_family = family;
    return qmi_error_none;
}

// ---- profiles

static constexpr std::array pdp_types = {"ipv4", "ppp", "ipv6", "ipv4v6", "nonip"};

enum profile_error : uint16_t {
    profile_invalid_type = 4,
    profile_invalid_number = 5,
    profile_invalid_argument = 7,
    profile_invalid_length = 9,
    profile_out_of_profiles = 1006,
};

static constexpr size_t profiles_max = 16;

static uint16_t refuse_profile(uint16_t code, tlv_writer &answer)
{
    tlv_add(answer, 0xE0, code);
    return qmi_error_extended_internal;
}

// The profile that a request names; null with the answer's error set if there is none.
static gobi_profile *find_profile(gobi_modem &modem, const qmi_call &call, uint16_t &error,
                                  tlv_writer &answer)
{
    tlv_fields fields = *call.find(0x01);
    uint8_t type = 0;
    uint8_t index = 0;
    (void)(fields.number(type) && fields.number(index));
    for (gobi_profile &profile : modem.profiles)
        if (profile.type == type && profile.index == index)
            return &profile;
    error = refuse_profile(type > 2 ? profile_invalid_type : profile_invalid_number, answer);
    return nullptr;
}

struct profile_text {
    uint8_t type;
    std::string gobi_profile::*text;
};

static constexpr std::array profile_texts = {
    profile_text{0x10, &gobi_profile::name},
    profile_text{0x14, &gobi_profile::apn},
    profile_text{0x1B, &gobi_profile::user},
    profile_text{0x1C, &gobi_profile::password},
};

// Settings that are only kept: how long each is.
struct profile_setting {
    uint8_t type;
    uint8_t bytes;
};

static constexpr std::array profile_settings = {
    profile_setting{0x12, 1},  profile_setting{0x13, 1},  profile_setting{0x15, 4},
    profile_setting{0x16, 4},  profile_setting{0x17, 33}, profile_setting{0x18, 33},
    profile_setting{0x19, 20}, profile_setting{0x1A, 20}, profile_setting{0x1E, 4},
    profile_setting{0x1F, 1},  profile_setting{0x20, 1},  profile_setting{0x21, 1},
    profile_setting{0x22, 1},  profile_setting{0x25, 1},  profile_setting{0x26, 1},
    profile_setting{0x27, 1},  profile_setting{0x28, 16}, profile_setting{0x29, 34},
    profile_setting{0x2A, 34}, profile_setting{0x2B, 16}, profile_setting{0x2C, 16},
    profile_setting{0x2D, 1},  profile_setting{0x2E, 17}, profile_setting{0x2F, 1},
    profile_setting{0x3E, 1},
};

// 0 or a profile error.
static uint16_t change_setting(gobi_profile &profile, const tlv &item)
{
    for (const profile_text &row : profile_texts) {
        if (row.type != item.type)
            continue;
        if (item.value.size() > text_bytes_max)
            return profile_invalid_length;
        (profile.*row.text).assign(item.value.begin(), item.value.end());
        return 0;
    }
    if (item.type == 0x11 || item.type == 0x1D) {
        if (item.value.size() != 1)
            return profile_invalid_length;
        if (item.value[0] >= (item.type == 0x11 ? pdp_types.size() : 4))
            return profile_invalid_argument;
        if (item.type == 0x11)
            profile.pdp_type = pdp_types[item.value[0]];
        else
            profile.auth = item.value[0];
        return 0;
    }
    for (const profile_setting &row : profile_settings) {
        if (row.type != item.type)
            continue;
        if (item.value.size() != row.bytes)
            return profile_invalid_length;
        profile.others[item.type].assign(item.value.begin(), item.value.end());
    }
    return 0;
}

static uint16_t change_settings(gobi_profile &profile, const qmi_call &call, tlv_writer &answer)
{
    gobi_profile changed = profile;
    std::span<const uint8_t> rest = call.tlvs;
    tlv item;
    while (tlv_next(rest, item) == 1)
        if (const uint16_t code = change_setting(changed, item))
            return refuse_profile(code, answer);
    profile = std::move(changed);
    return qmi_error_none;
}

static uint16_t modify_profile(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    uint16_t error = qmi_error_none;
    gobi_profile *profile = find_profile(modem, call, error, answer);
    return profile ? change_settings(*profile, call, answer) : error;
}

static uint16_t create_profile(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    tlv_fields fields = *call.find(0x01);
    gobi_profile profile;
    uint8_t type = 0;
    (void)fields.number(type);
    if (type > 2)
        return refuse_profile(profile_invalid_type, answer);
    if (modem.profiles.size() >= profiles_max)
        return refuse_profile(profile_out_of_profiles, answer);
    profile.type = type;
    const auto taken = [&](const gobi_profile &other) {
        return other.type == type && other.index == profile.index;
    };
    while (std::any_of(modem.profiles.begin(), modem.profiles.end(), taken))
        profile.index++;
    if (const uint16_t error = change_settings(profile, call, answer))
        return error;
    tlv_add(answer, 0x01, type, u8(profile.index));
    modem.profiles.push_back(std::move(profile));
    return qmi_error_none;
}

static uint16_t delete_profile(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    uint16_t error = qmi_error_none;
    const gobi_profile *profile = find_profile(modem, call, error, answer);
    if (profile)
        modem.profiles.erase(modem.profiles.begin() + (profile - modem.profiles.data()));
    return error;
}

static uint16_t list_profiles(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    uint8_t type = 0;
    auto wanted = call.find(0x10);
    const bool all = !wanted || !wanted->number(type);
    std::vector<const gobi_profile *> listed;
    for (const gobi_profile &profile : modem.profiles)
        if (all || profile.type == type)
            listed.push_back(&profile);
    tlv_add(answer, 0x01, static_cast<uint8_t>(listed.size()));
    for (const gobi_profile *profile : listed) {
        answer.number(u8(profile->type));
        answer.number(u8(profile->index));
        answer.counted_text<uint8_t>(profile->name);
    }
    return qmi_error_none;
}

static uint8_t pdp_number(const std::string &name)
{
    const auto *const found = std::find(pdp_types.begin(), pdp_types.end(), name);
    return static_cast<uint8_t>(found - pdp_types.begin());
}

static uint16_t get_profile(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    uint16_t error = qmi_error_none;
    const gobi_profile *profile = find_profile(modem, call, error, answer);
    if (!profile)
        return error;
    for (const profile_text &row : profile_texts)
        tlv_add_text(answer, row.type, profile->*row.text);
    tlv_add(answer, 0x11, pdp_number(profile->pdp_type));
    tlv_add(answer, 0x1D, u8(profile->auth));
    for (const auto &[type, value] : profile->others) {
        answer.begin(type);
        answer.octets(value);
    }
    return qmi_error_none;
}

// Back to what the profile was when the modem woke up. The request's layout is this project's own.
static uint16_t reset_profile(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    uint16_t error = qmi_error_none;
    gobi_profile *profile = find_profile(modem, call, error, answer);
    if (!profile)
        return error;
    gobi_profile fresh;
    fresh.type = profile->type;
    fresh.index = profile->index;
    for (const gobi_profile &old : modem.power_up_profiles)
        if (old.type == profile->type && old.index == profile->index)
            fresh = old;
    *profile = std::move(fresh);
    return qmi_error_none;
}

// ---- sessions

static uint16_t fail_call(const end_reason &reason, tlv_writer &answer)
{
    tlv_add(answer, 0x10, reason.reason);
    if (reason.verbose_type != 0)
        tlv_add(answer, 0x11, reason.verbose_type, reason.verbose_reason);
    return qmi_error_call_failed;
}

enum ip_versions : unsigned { ip_none = 0, ip_v4 = 1, ip_v6 = 2, ip_both = 3 };

static unsigned versions_of(std::string_view name)
{
    return name == "ipv4" ? ip_v4 : name == "ipv6" ? ip_v6 : name == "ipv4v6" ? ip_both : ip_none;
}

static constexpr std::array version_names = {"", "ipv4", "ipv6", "ipv4v6"};

static unsigned versions_asked(const gobi_profile &profile, const qmi_call &call)
{
    uint8_t family = call.client.ip_family;
    if (auto fields = call.find(0x19))
        (void)fields->number(family);
    return family == 4 ? ip_v4 : family == 6 ? ip_v6 : versions_of(profile.pdp_type);
}

// What a start asks for: the profile, and what the request says in its place.
static uint16_t read_start(const gobi_modem &modem, const qmi_call &call, gobi_profile &out)
{
    uint8_t index = 1;
    if (auto fields = call.find(0x31))
        (void)fields->number(index);
    else if (auto cdma = call.find(0x32))
        (void)cdma->number(index);
    const auto wanted = [index](const gobi_profile &profile) { return profile.index == index; };
    const auto found = std::find_if(modem.profiles.begin(), modem.profiles.end(), wanted);
    if (found == modem.profiles.end())
        return qmi_error_invalid_profile;
    out = *found;
    struct given_text {
        uint8_t type;
        std::string &text;
    };
    const given_text texts[] = {{0x14, out.apn}, {0x17, out.user}, {0x18, out.password}};
    for (const given_text &row : texts) {
        const auto fields = call.find(row.type);
        if (fields && fields->rest.size() > text_bytes_max)
            return qmi_error_argument_too_long;
        if (fields)
            row.text.assign(fields->rest.begin(), fields->rest.end());
    }
    uint8_t bits = u8(out.auth);
    if (auto fields = call.find(0x16))
        (void)fields->number(bits);
    out.auth = bits;
    return qmi_error_none;
}

// Why the network would not have this session; null if it would.
static const end_reason *refusal_of(const gobi_state &state, const gobi_profile &asked,
                                    unsigned versions)
{
    if (!gobi_may_call(state))
        return &end_no_service;
    if (!state.accept_apn.empty() && asked.apn != state.accept_apn)
        return &end_unknown_apn;
    if (!state.accept_user.empty() && (asked.auth == 0 || asked.user != state.accept_user ||
                                       asked.password != state.accept_password))
        return &end_authentication;
    return (versions & versions_of(state.network_ip)) ? nullptr : &end_unknown_pdp;
}

static uint16_t start_network(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    static constexpr int64_t first_handle = 0x10000000;
    gobi_state &state = modem.state;
    gobi_profile asked;
    if (state.session)
        return qmi_error_no_effect;
    if (const uint16_t error = read_start(modem, call, asked))
        return error;
    const unsigned versions = versions_asked(asked, call);
    if (state.call_end_reason != 0)
        return fail_call({static_cast<uint16_t>(state.call_end_reason),
                          static_cast<uint16_t>(state.verbose_type),
                          static_cast<int16_t>(state.verbose_reason)},
                         answer);
    if (const end_reason *reason = refusal_of(state, asked, versions))
        return fail_call(*reason, answer);
    state.session = true;
    state.session_ip = version_names[versions & versions_of(state.network_ip)];
    state.session_apn = asked.apn;
    state.session_profile = asked.index;
    state.session_handle =
        state.session_handle < first_handle || state.session_handle >= 2 * first_handle
            ? first_handle + 1
            : state.session_handle + 1;
    modem.session_client = call.client.id;
    modem.connected_at_ms = sim_loop::now_ms();
    tlv_add(answer, 0x01, u32(state.session_handle));
    return qmi_error_none;
}

static uint16_t stop_network(gobi_modem &modem, const qmi_call &call, tlv_writer &)
{
    static constexpr uint32_t any_handle = 0xFFFFFFFF;
    tlv_fields fields = *call.find(0x01);
    uint32_t handle = 0;
    uint8_t no_autoconnect = 0;
    (void)fields.number(handle);
    if (auto given = call.find(0x10))
        (void)given->number(no_autoconnect);
    if (no_autoconnect != 0)
        modem.state.autoconnect = 0;
    if (!modem.state.session)
        return qmi_error_no_effect;
    if (handle != u32(modem.state.session_handle) && !(handle == any_handle && no_autoconnect != 0))
        return qmi_error_invalid_handle;
    gobi_end_session(modem, end_client.reason);
    return qmi_error_none;
}

static uint16_t get_packet_status(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, uint8_t{modem.state.session ? uint8_t{2} : uint8_t{1}});
    return qmi_error_none;
}

static uint16_t get_rates(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    if (!state.session)
        return qmi_error_out_of_call;
    tlv_add(answer, 0x01, u32(state.tx_rate), u32(state.rx_rate), u32(state.max_tx_rate),
            u32(state.max_rx_rate));
    return qmi_error_none;
}

static uint16_t get_statistics(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    tlv_fields fields = *call.find(0x01);
    uint32_t mask = 0;
    (void)fields.number(mask);
    if (!state.session)
        return qmi_error_out_of_call;
    const int64_t counts[] = {state.tx_packets, state.rx_packets, 0, 0, 0, 0};
    for (uint8_t i = 0; i < 6; i++)
        if (mask & (1U << i))
            tlv_add(answer, static_cast<uint8_t>(0x10 + i), u32(counts[i]));
    if (mask & (1U << 6))
        tlv_add(answer, 0x19, u64(state.tx_bytes));
    if (mask & (1U << 7))
        tlv_add(answer, 0x1A, u64(state.rx_bytes));
    return qmi_error_none;
}

static uint16_t get_autoconnect(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    tlv_add(answer, 0x01, u8(modem.state.autoconnect));
    tlv_add(answer, 0x10, uint8_t{0});
    return qmi_error_none;
}

// Milliseconds, eight bytes: there is no public layout, this one is the project's own.
static uint16_t get_duration(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    if (!modem.state.session)
        return qmi_error_out_of_call;
    tlv_add(answer, 0x01, u64(sim_loop::now_ms() - modem.connected_at_ms));
    return qmi_error_none;
}

// ---- bearers

static uint16_t get_bearer(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    if (modem.state.session) {
        tlv_add(answer, 0x01, gobi_bearer(modem.state));
        return qmi_error_none;
    }
    tlv_add(answer, 0x10, static_cast<int8_t>(modem.last_bearer));
    return qmi_error_out_of_call;
}

// The mask form of a data bearer technology.
struct bearer_row {
    int8_t bearer;
    uint8_t network; // 1 3GPP2, 2 3GPP
    uint32_t rats;
};

static constexpr std::array bearer_rows = {
    bearer_row{1, 1, 1 << 0},
    bearer_row{2, 1, 1 << 1},
    bearer_row{3, 2, 1 << 1},
    bearer_row{4, 2, 1 << 0},
    bearer_row{5, 1, 1 << 2},
    bearer_row{6, 2, 1 << 4},
    bearer_row{7, 2, 1 << 0 | 1 << 2},
    bearer_row{8, 2, 1 << 0 | 1 << 3},
    bearer_row{9, 2, 1 << 2 | 1 << 3},
    bearer_row{10, 2, 1 << 5},
    bearer_row{11, 1, 1 << 4},
    bearer_row{12, 2, 1 << 0 | 1 << 6},
    bearer_row{13, 2, 1 << 3 | 1 << 6},
    bearer_row{14, 2, 1 << 0 | 1 << 7},
    bearer_row{15, 2, 1 << 3 | 1 << 7},
    bearer_row{16, 2, 1 << 6 | 1 << 8},
    bearer_row{17, 2, 1 << 3 | 1 << 6 | 1 << 8},
    bearer_row{18, 2, 1 << 9},
    bearer_row{19, 2, 1 << 2 | 1 << 9},
    bearer_row{20, 2, 1 << 3 | 1 << 9},
};

void gobi_write_bearer(int8_t bearer, tlv_writer &out)
{
    for (const bearer_row &row : bearer_rows) {
        if (row.bearer != bearer)
            continue;
        const uint32_t rev_a = row.network == 1 && bearer == 5 ? 1 : 0; // a service option
        out.number(row.network);
        out.number(row.rats);
        out.number(rev_a);
        return;
    }
    out.number(uint8_t{0});
    out.number(uint32_t{0});
    out.number(uint32_t{0});
}

static uint16_t get_current_bearer(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    if (modem.state.session) {
        answer.begin(0x01);
        gobi_write_bearer(gobi_bearer(modem.state), answer);
        return qmi_error_none;
    }
    answer.begin(0x10);
    gobi_write_bearer(static_cast<int8_t>(modem.last_bearer), answer);
    return qmi_error_out_of_call;
}

// ---- what a session has got

// An IPv4 address as QMI has it: the first number of the dotted form in the highest byte.
static uint32_t ipv4_number(const std::string &text)
{
    struct in_addr address = {};
    (void)inet_pton(AF_INET, text.c_str(), &address);
    return ntohl(address.s_addr);
}

static void write_ipv6(tlv_writer &out, uint8_t type, const std::string &text)
{
    struct in6_addr address = {};
    (void)inet_pton(AF_INET6, text.c_str(), &address);
    out.begin(type);
    out.octets(std::span<const uint8_t>(address.s6_addr));
}

enum setting_bit : unsigned {
    wants_profile_id = 1 << 0,
    wants_profile_name = 1 << 1,
    wants_pdp_type = 1 << 2,
    wants_apn = 1 << 3,
    wants_dns = 1 << 4,
    wants_user = 1 << 6,
    wants_authentication = 1 << 7,
    wants_address = 1 << 8,
    wants_gateway = 1 << 9,
    wants_mtu = 1 << 13,
    wants_ip_family = 1 << 15,
};

static uint16_t get_settings(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    const gobi_state &state = modem.state;
    if (!state.session)
        return qmi_error_out_of_call;
    uint32_t mask = 0xFFFFFFFF;
    if (auto fields = call.find(0x10))
        (void)fields->number(mask);
    gobi_profile profile;
    for (const gobi_profile &one : modem.profiles)
        if (one.index == state.session_profile)
            profile = one;
    const unsigned versions = versions_of(state.session_ip);
    const bool v4 = (versions & ip_v4) && call.client.ip_family != 6;
    const bool v6 = (versions & ip_v6) && call.client.ip_family != 4;
    if (mask & wants_profile_name)
        tlv_add_text(answer, 0x10, profile.name);
    if (mask & wants_pdp_type)
        tlv_add(answer, 0x11, pdp_number(state.session_ip));
    if (mask & wants_apn)
        tlv_add_text(answer, 0x14, state.session_apn);
    if ((mask & wants_dns) && v4) {
        tlv_add(answer, 0x15, ipv4_number(state.ipv4_dns1));
        tlv_add(answer, 0x16, ipv4_number(state.ipv4_dns2));
    }
    if (mask & wants_user)
        tlv_add_text(answer, 0x1B, profile.user);
    if (mask & wants_authentication)
        tlv_add(answer, 0x1D, u8(profile.auth));
    if ((mask & wants_address) && v4)
        tlv_add(answer, 0x1E, ipv4_number(state.ipv4));
    if (mask & wants_profile_id)
        tlv_add(answer, 0x1F, uint8_t{0}, u8(state.session_profile));
    if ((mask & wants_gateway) && v4) {
        tlv_add(answer, 0x20, ipv4_number(state.ipv4_gateway));
        tlv_add(answer, 0x21, ipv4_number(state.ipv4_mask));
    }
    if ((mask & wants_address) && v6) {
        write_ipv6(answer, 0x25, state.ipv6);
        answer.number(u8(state.ipv6_prefix));
    }
    if ((mask & wants_gateway) && v6) {
        write_ipv6(answer, 0x26, state.ipv6_gateway);
        answer.number(u8(state.ipv6_prefix));
    }
    if ((mask & wants_dns) && v6) {
        write_ipv6(answer, 0x27, state.ipv6_dns1);
        write_ipv6(answer, 0x28, state.ipv6_dns2);
    }
    if (mask & wants_mtu)
        tlv_add(answer, 0x29, u32(state.mtu));
    if (mask & wants_ip_family)
        tlv_add(answer, 0x2B, uint8_t{v4 ? uint8_t{4} : uint8_t{6}});
    return qmi_error_none;
}

// ---- mobile IP, of which there is no public layout: these are the project's own

static uint16_t get_mip_profile(gobi_modem &modem, const qmi_call &, tlv_writer &answer)
{
    if (modem.state.mip_profile < 0)
        return qmi_error_invalid_qmi_command;
    tlv_add(answer, 0x01, u8(modem.state.mip_profile));
    return qmi_error_none;
}

static uint16_t read_mip_profile(gobi_modem &modem, const qmi_call &call, tlv_writer &answer)
{
    if (modem.state.mip_profile < 0)
        return qmi_error_invalid_qmi_command;
    tlv_fields fields = *call.find(0x01);
    uint8_t index = 0;
    (void)fields.number(index);
    if (index != u8(modem.state.mip_profile))
        return qmi_error_invalid_profile;
    tlv_add(answer, 0x10, uint8_t{1}); // enabled
    tlv_add_text(answer, 0x15, modem.state.mip_nai);
    return qmi_error_none;
}

static constexpr std::array rows = {
    gobi_row{0x0000, {"Reset"}, gobi_reset_client},
    gobi_row{0x0001, {"Set event report"}, gobi_set_event_report},
    gobi_row{0x0002, {"Abort", 2}, abort_request},
    gobi_row{0x0020, {"Start network interface"}, start_network},
    gobi_row{0x0021, {"Stop network interface", 4}, stop_network},
    gobi_row{0x0022, {"Get packet service status"}, get_packet_status},
    gobi_row{0x0023, {"Get channel rates"}, get_rates},
    gobi_row{0x0024, {"Get packet statistics", 4}, get_statistics},
    gobi_row{0x0027, {"Create profile", 1}, create_profile},
    gobi_row{0x0028, {"Modify profile settings", 2}, modify_profile},
    gobi_row{0x0029, {"Delete profile", 2}, delete_profile},
    gobi_row{0x002A, {"Get profile list"}, list_profiles},
    gobi_row{0x002B, {"Get profile settings", 2}, get_profile},
    gobi_row{0x002D, {"Get runtime settings"}, get_settings},
    gobi_row{0x0034, {"Get autoconnect setting"}, get_autoconnect},
    gobi_row{0x0035, {"Get call duration"}, get_duration},
    gobi_row{0x0037, {"Get data bearer technology"}, get_bearer},
    gobi_row{0x003C, {"Get active mobile IP profile"}, get_mip_profile},
    gobi_row{0x003E, {"Read mobile IP profile", 1}, read_mip_profile},
    gobi_row{0x0044, {"Get current data bearer technology"}, get_current_bearer},
    gobi_row{0x004B, {"Reset profile to default", 2}, reset_profile},
    gobi_row{0x004D, {"Set client IP family", 1}, set_ip_family},
};

std::span<const gobi_row> gobi_wds_rows()
{
    return rows;
}

// The information record: what the modem is and what it is set to.

#include "backends/gobi/record.h"
#include "cellmodem/cellmodem.h"
#include "publish/output.h"
#include "qmi/messages.h"

#include <array>

enum info_query {
    ask_manufacturer,
    ask_model,
    ask_capabilities,
    ask_serials,
    ask_revisions,
    ask_hardware,
    ask_selection,
    info_queries,
};

struct info_facts {
    const cellmodem &modem;
    std::array<uint32_t, info_queries> codes;
    std::string manufacturer, model, hardware;
    qmi_capabilities capabilities;
    qmi_serial_numbers serials;
    qmi_firmware_revisions revisions;
    qmi_system_selection selection;

    explicit info_facts(const cellmodem &of) : modem(of) { codes.fill(gobi_not_asked); }
};

using facts = const info_facts &;
using query = gobi_query<info_facts>;
using row = gobi_row<info_facts>;

static gobi_value mode_names(facts f)
{
    const auto &mask = f.selection.mode_mask;
    return mask ? gobi_value(gobi_list{gobi_bit_list(gobi_mode_names, *mask, ", ")}) : gobi_value();
}

static gobi_value band_names(facts f)
{
    const auto &mask = f.selection.band_mask;
    return mask ? gobi_value(gobi_list{gobi_bit_list(gobi_band_names, *mask, ", ")}) : gobi_value();
}

static gobi_value lte_band_names(facts f)
{
    const auto &mask = f.selection.lte_band_mask;
    return mask ? gobi_value(gobi_list{gobi_lte_band_list(*mask)}) : gobi_value();
}

// Nothing for an empty order.
static gobi_value acquisition_order(facts f)
{
    std::string list;
    if (f.selection.acquisition_order) {
        for (const uint8_t radio : f.selection.acquisition_order->items) {
            const char *name = gobi_name(gobi_interface_names, radio);
            gobi_list_add(list, ", ", name ? name : "unknown");
        }
    }
    return list;
}

static gobi_value technology(facts f)
{
    return gobi_list{gobi_name_list(gobi_technology_names, f.capabilities.radios.items, "/")};
}

// clang-format off
// In the order of info_query.
constexpr query queries[] = {
    {[](info_facts &f) { return qmi_dms_manufacturer(f.manufacturer); }},
    {[](info_facts &f) { return qmi_dms_model(f.model); }},
    {[](info_facts &f) { return qmi_dms_capabilities(f.capabilities); }},
    {[](info_facts &f) { return qmi_dms_serial_numbers(f.serials); }},
    {[](info_facts &f) { return qmi_dms_firmware_revisions(f.revisions); }},
    {[](info_facts &f) { return qmi_dms_hardware_revision(f.hardware); }},
    {[](info_facts &f) { return qmi_nas_system_selection(f.selection); }},
};
static_assert(std::size(queries) == info_queries);

constexpr bool push = true;

constexpr row rows[] = {
    {"attached", gobi_no_query, [](facts f) { return gobi_value(std::string(f.modem.attached ? "yes" : "no")); }, push},
    {"driver", gobi_no_query, [](facts f) { return gobi_value(std::string(cellmodem_type_text(f.modem.type))); }, push},
    {"device", gobi_no_query, [](facts f) { return gobi_value(f.modem.device_path); }, push},
    {"manufacturer", ask_manufacturer, [](facts f) { return gobi_text_value(f.manufacturer); }, push},
    {"product", ask_model, [](facts f) { return gobi_text_value(f.model); }, push},
    {"technology", ask_capabilities, technology, push},
    {"imei", ask_serials, [](facts f) { return gobi_text_value(f.serials.imei); }, push},
    {"esn", ask_serials, [](facts f) { return gobi_text_value(f.serials.esn); }},
    {"meid", ask_serials, [](facts f) { return gobi_text_value(f.serials.meid); }},
    {"serial", gobi_no_query, [](facts) { return gobi_value(std::string("N/A")); }},
    {"boot-version", ask_revisions, [](facts f) { return gobi_text_value(f.revisions.boot); }},
    {"amss-version", ask_revisions, [](facts f) { return gobi_text_value(f.revisions.amss); }},
    {"pri-version", ask_revisions, [](facts f) { return gobi_text_value(f.revisions.pri); }},
    {"hardware", ask_hardware, [](facts f) { return gobi_text_value(f.hardware); }},
    {"mode_prefs", ask_selection, mode_names},
    {"band_prefs", ask_selection, band_names},
    {"lte_band_prefs", ask_selection, lte_band_names},
    {"interface_aquisition_order", ask_selection, acquisition_order},
};
// clang-format on

int gobi_info(cellmodem &modem, FILE *out, int mode)
{
    info_facts known(modem);
    (void)gobi_ask<info_facts>(queries, known);
    info_begin(out, mode);
    gobi_write<info_facts>(rows, known, out, mode);
    info_end(out, mode);
    return 0;
}

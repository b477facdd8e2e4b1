// The Gobi family's names of codes, masks and bands, and how lists of them read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// Names by code; a null one and those behind the end are of codes without a name.
using gobi_names = std::span<const char *const>;

extern const gobi_names gobi_technology_names;   // radio interfaces that the device has
extern const gobi_names gobi_interface_names;    // radio interfaces as users name them
extern const gobi_names gobi_mode_names;         // bits of a mode preference
extern const gobi_names gobi_rat_names;          // the same bits as users name them
extern const gobi_names gobi_band_names;         // the low bits of a band preference
extern const gobi_names gobi_pin_names;          // PIN states
extern const gobi_names gobi_modem_status_names; // operating modes
extern const gobi_names gobi_nam_status_names;   // activation states
extern const gobi_names gobi_registration_names;
extern const gobi_names gobi_bearer_names;       // data bearer technologies
extern const gobi_names gobi_data_service_names; // data service capabilities

// The name of a code, or null.
[[nodiscard]] const char *gobi_name(gobi_names names, size_t code);

// Appends an entry to a list.
void gobi_list_add(std::string &list, std::string_view separator, std::string_view entry);

// The names of the codes that have one.
[[nodiscard]] std::string gobi_name_list(gobi_names names, std::span<const uint8_t> codes,
                                         std::string_view separator);

// The names of the bits of a mask; bits behind the last name are not looked at.
[[nodiscard]] std::string gobi_bit_list(gobi_names names, uint64_t mask,
                                        std::string_view separator);

// The bands of an LTE band preference, of which the low 32 bits are looked at.
[[nodiscard]] std::string gobi_lte_band_list(uint64_t mask);

// The name of an active band's number.
[[nodiscard]] std::string gobi_active_band_name(uint16_t band);

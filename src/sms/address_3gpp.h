// Semi-octets: numbers and times in 3GPP messages.
//
// Facts: 3GPP TS 23.040 (address fields, TP-SCTS), TS 24.011 (service centre address).
#pragma once

#include "sms/bits.h"
#include "sms/pdu.h"

// Reads an address whose length counts semi-octets (TP-OA, TP-DA, TP-RA). 0 or -1.
[[nodiscard]] int address_3gpp_read(octet_reader &reader, sms_address &address);

// Reads the service centre's address, whose length counts octets; nothing when that is 0. 0 or -1.
[[nodiscard]] int address_3gpp_read_smsc(octet_reader &reader, std::optional<sms_address> &address);

// The reverse: appends the address. 0, or -1 when it has a character that is no digit (or, in a
// name, not in the GSM alphabet) or is longer than 20 digits or 11 septets.
[[nodiscard]] int address_3gpp_write(const sms_address &address, std::vector<uint8_t> &octets);
[[nodiscard]] int address_3gpp_write_smsc(const std::optional<sms_address> &address,
                                          std::vector<uint8_t> &octets);

constexpr size_t time_3gpp_octets = 7;

// A time stamp; nothing when its digits name no time, which is no reason to lose the message.
// Years are 20YY.
[[nodiscard]] std::optional<sms_time> time_3gpp_read(std::span<const uint8_t> octets);

// Appends a time stamp; a time without a zone goes out as UTC. 0, or -1 when it is not valid, or its
// year or zone cannot be written.
[[nodiscard]] int time_3gpp_write(const sms_time &time, std::vector<uint8_t> &octets);

// The value of two decimal digits, the first one in the low half; nothing when they are none.
[[nodiscard]] std::optional<int> semi_octets_value(uint8_t octet);

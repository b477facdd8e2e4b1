// Numbers and times in 3GPP2 messages.
//
// Facts: 3GPP2 C.S0015 (address parameters, call-back number, time stamps).
#pragma once

#include "sms/bits.h"
#include "sms/pdu.h"

// An address of the transport layer may also be one of a data network; a call-back number not.
enum address_cdma_form { address_cdma_transport, address_cdma_callback };

// Reads an address from its parameter. 0, or -1 when it is too short or has a digit that is none.
[[nodiscard]] int address_cdma_read(std::span<const uint8_t> octets, address_cdma_form form,
                                    sms_address &address);

// The reverse. Numbers of unknown type become 4-bit digits, others 8-bit ones with their type. 0, or
// -1 when the number has a character that is no digit or is too long for its count.
[[nodiscard]] int address_cdma_write(const sms_address &address, address_cdma_form form,
                                     std::vector<uint8_t> &octets);

constexpr size_t time_cdma_octets = 6;

// The value of two decimal digits, the first one in the high half; nothing when they are none.
[[nodiscard]] std::optional<uint8_t> bcd_value(uint8_t octet);
[[nodiscard]] uint8_t bcd_of(int value); // of 0 to 99

// A time stamp; nothing when its digits name no time. Years 96 to 99 are 19YY.
[[nodiscard]] std::optional<sms_time> time_cdma_read(std::span<const uint8_t> octets);

// The reverse; a zone is left out. 0, or -1 when the time is not valid or its year not 1996 to 2095.
[[nodiscard]] int time_cdma_write(const sms_time &time, std::vector<uint8_t> &octets);

// Writers: everything the daemon tells about the modem is a record of key and value pairs. A writer
// formats one pair for a stream (an XML element, or a line "key value") and pushes the value to
// infod under the record's prefix. A mode that is neither writes nothing and pushes all the same.
//
// An unreachable infod never stops a record: each value that is lost says so in the log.
#pragma once

#include <cstdint>
#include <cstdio>

struct in_addr;
struct in6_addr;

constexpr const char *info_prefix = "config.cellmodem.tessera.info";
constexpr const char *status_prefix = "config.cellmodem.tessera.status";

constexpr size_t output_key_max = 96; // longer infod keys are cut

// Brackets of the two records: "<info>" and so on in XML, nothing in lines; between them values
// are pushed below the record's prefix.
void info_begin(FILE *out, int mode);
void info_end(FILE *out, int mode);
void status_begin(FILE *out, int mode);
void status_end(FILE *out, int mode);

// One pair. Text is UTF-8; a null text writes and pushes nothing. In XML its markup characters are
// escaped and control characters that XML forbids become "?"; lines and infod get the text itself.
void output_text(FILE *out, const char *key, const char *value, int mode, bool push);
void output_hex(FILE *out, const char *key, uint32_t value, int mode, bool push);

// infod receives the low 32 bits only: a long is no wider on the appliance.
void output_longlong(FILE *out, const char *key, int64_t value, int mode, bool push);

// Addresses in network order, written as text.
void output_ipv4(FILE *out, const char *key, const in_addr &address, int mode, bool push);
void output_ipv6(FILE *out, const char *key, const in6_addr &address, int mode, bool push);

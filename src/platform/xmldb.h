// The appliance's configuration database, as its client library declares it. On the appliance the
// library itself is linked; elsewhere standalone/xmldb.cpp reads an XML file.
#pragma once

struct xmldb;

extern "C" {

// Opens the database; flags is 0. Null with errno when it cannot be read. The handle belongs to
// the library and stays valid until the next open: there is nothing to close.
struct xmldb *xmldb_open(int flags);

// The text of the field below a dotted prefix ("config.ports.port5.nmea", "enabled"), or null when
// there is none. Valid until the next xmldb_open.
const char *xmldb_getstring(struct xmldb *db, const char *prefix, const char *field);

// The field as a number from 0 to INT_MAX; 0 when it is missing or no such number.
int xmldb_getsize(struct xmldb *db, const char *prefix, const char *field);
}

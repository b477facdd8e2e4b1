// The configuration database outside the appliance: /etc/config/config.xml, one element per part of
// a dotted name. config.ports.port5.nmea + enabled is <config><ports><port5><nmea><enabled>.

#include "platform/xmldb.h"

#include "platform/paths.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <pugixml.hpp>
#include <string>

constexpr const char *config_path = "/etc/config/config.xml";

struct xmldb {
    pugi::xml_document document;
};

xmldb *xmldb_open(int)
{
    static xmldb database;
    const pugi::xml_parse_result result =
        database.document.load_file(rooted(config_path).c_str(), pugi::parse_default);
    if (result)
        return &database;
    errno = result.status == pugi::status_file_not_found ? ENOENT : EINVAL;
    return nullptr;
}

const char *xmldb_getstring(xmldb *db, const char *prefix, const char *field)
{
    if (!db)
        return nullptr;
    std::string path(prefix);
    std::replace(path.begin(), path.end(), '.', '/');
    const pugi::xml_node node = db->document.first_element_by_path(path.c_str()).child(field);
    return node ? node.text().get() : nullptr;
}

int xmldb_getsize(xmldb *db, const char *prefix, const char *field)
{
    const char *text = xmldb_getstring(db, prefix, field);
    if (!text)
        return 0;
    char *end = nullptr;
    const long value = std::strtol(text, &end, 10);
    return end != text && *end == '\0' && value >= 0 && value <= INT_MAX ? static_cast<int>(value)
                                                                         : 0;
}

// What a CDMA modem is called: some firmwares leave the name out of what the server knows of them.

#include "backends/sierra/cdma_family.h"
#include "platform/log.h"
#include "platform/paths.h"
#include "platform/tarnwick.h"
#include "platform/text.h"
#include "swi/calls.h"

#include <cstdio>
#include <cstring>
#include <memory>

constexpr const char *listing_command = "/bin/lua /etc/scripts/usb-enum > /tmp/usb-listing";
constexpr const char *listing_path = "/tmp/usb-listing";
constexpr const char *model_mark = "MC5";
constexpr const char *product_key = "Product=";
constexpr size_t chunk_bytes = 63;

// Looks through the listing of USB devices in chunks, not in lines: whatever follows the key up to
// the chunk's end is the name, and a name that a chunk divides is not found.
static std::optional<std::string> find_in_listing()
{
    const std::unique_ptr<FILE, int (*)(FILE *)> listing(fopen(rooted(listing_path).c_str(), "re"),
                                                         fclose);
    char chunk[chunk_bytes + 1];
    size_t length;
    while (listing && (length = fread(chunk, 1, chunk_bytes, listing.get())) > 0) {
        chunk[length] = '\0';
        if (!strstr(chunk, model_mark))
            continue;
        const char *key = strstr(chunk, product_key);
        const char *name = key ? key + strlen(product_key) : "";
        if (*name)
            return text_from_bytes(name);
        break;
    }
    return std::nullopt;
}

static std::optional<std::string> product_of_hardware()
{
    swi_text version;
    const int result = swi_get_hardware_version(version, sierra_timeout_ms);
    if (result != swi_ok) {
        log_message(log_error, "SwiGetHardwareVersion() failed: %d\n", result);
        return std::nullopt;
    }
    const std::string text = text_from_bytes(version.text);
    return text.substr(0, text.find(' '));
}

std::optional<std::string> cdma_product()
{
    if (cdma.identity.product[0] != '\0')
        return text_from_bytes(cdma.identity.product);
    if (tarnwick_system(listing_command) != 0) {
        log_message(log_warning, "Failed to enumerate USB devices");
        return std::nullopt;
    }
    std::optional<std::string> listed = find_in_listing();
    return listed ? listed : product_of_hardware();
}

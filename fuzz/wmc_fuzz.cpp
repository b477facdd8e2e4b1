// Any reply gives UTF-8 within the fields' widths, or an error; any texts give a frame that ends
// once, where it should.

#include "backends/serial/pantech_wire.h"
#include "cellmodem/cellmodem.h"
#include "platform/infod.h"
#include "platform/text.h"

#include <cstdlib>

// Latin-1 takes up to two bytes for each character.
constexpr size_t widest = 2;

// Nothing is pushed anywhere.
int infod_push_multiple_start(int *)
{
    return 1;
}
int infod_push_multiple_text(int, const char *, int, const char *)
{
    return 1;
}
int infod_push_multiple_long(int, const char *, int, long)
{
    return 1;
}
int infod_push_multiple_end(int)
{
    return 1;
}

static void read_reply(wmc_bytes reply)
{
    char *written = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&written, &length);
    pantech_write_fields(out, output_lines, reply, pantech_info_fields);
    pantech_write_fields(out, output_lines, reply, pantech_eps_fields);
    pantech_write_fields(out, output_xml, reply, pantech_ip_config_fields);
    pantech_write_service(out, output_lines, reply);
    fclose(out);
    pantech_message message;
    const int result = pantech_read_message(reply, message);
    if (!text_is_utf8({written, length}) || !text_is_utf8(message.text) ||
        message.text.size() > widest * pantech_text_max ||
        pantech_model(reply).size() > widest * 63)
        abort();
    if (result == 0 && !message.number.empty() && message.identifier.size() != 32)
        abort();
    free(written);
}

static void make_message(std::string_view bytes)
{
    const std::string_view number = bytes.substr(0, bytes.size() / 4);
    const std::string_view smsc = bytes.substr(number.size(), bytes.size() / 4);
    const std::string_view text = bytes.substr(number.size() + smsc.size());
    if (bytes.find('\r') != bytes.npos || text.size() == pantech_text_unsendable)
        return;
    const pantech_message_frame frame = pantech_make_message(number, smsc, text);
    const std::string_view line(frame.data(), frame.size());
    const size_t length = std::min(text.size(), pantech_text_max);
    if (line.substr(259, length) != text.substr(0, length) || line.find('\r') != 1281 - length)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    read_reply({data, size});
    make_message({reinterpret_cast<const char *>(data), size});
    return 0;
}

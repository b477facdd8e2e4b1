#include "publish/output.h"

#include "cellmodem/cellmodem.h"
#include "platform/log.h"
#include "publish/push.h"

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstring>

#include <arpa/inet.h>
#include <netinet/in.h>

static std::atomic<const char *> current_prefix = nullptr;

static void begin(FILE *out, int mode, const char *tag, const char *prefix)
{
    if (mode == output_xml)
        fprintf(out, "<%s>\n", tag);
    current_prefix = prefix;
}

static void end(FILE *out, int mode, const char *tag)
{
    if (mode == output_xml)
        fprintf(out, "</%s>\n", tag);
    current_prefix = nullptr;
}

void info_begin(FILE *out, int mode)
{
    begin(out, mode, "info", info_prefix);
}

void info_end(FILE *out, int mode)
{
    end(out, mode, "info");
}

void status_begin(FILE *out, int mode)
{
    begin(out, mode, "status", status_prefix);
}

void status_end(FILE *out, int mode)
{
    end(out, mode, "status");
}

// U+FFFE and U+FFFF are well-formed UTF-8, but no XML parser takes them.
static bool is_noncharacter(const char *p)
{
    return strncmp(p, "\xEF\xBF\xBE", 3) == 0 || strncmp(p, "\xEF\xBF\xBF", 3) == 0;
}

static void write_escaped(FILE *out, const char *text)
{
    for (const char *p = text; *p; p++) {
        const auto byte = static_cast<unsigned char>(*p);
        if (is_noncharacter(p)) {
            fputc('?', out);
            p += 2;
        } else if (byte == '&')
            fputs("&amp;", out);
        else if (byte == '<')
            fputs("&lt;", out);
        else if (byte == '>')
            fputs("&gt;", out);
        else if (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r')
            fputc('?', out);
        else
            fputc(byte, out);
    }
}

static void write_pair(FILE *out, const char *key, const char *value, int mode)
{
    if (mode == output_xml) {
        fprintf(out, "\t<%s>", key);
        write_escaped(out, value);
        fprintf(out, "</%s>\n", key);
    } else if (mode == output_lines) {
        fprintf(out, "%s %s\n", key, value);
    }
}

// The infod key of a value. Outside a record the prefix is a null string, and reads like one.
struct infod_key {
    char text[output_key_max + 1];
    explicit infod_key(const char *key)
    {
        const char *prefix = current_prefix;
        snprintf(text, sizeof(text), "%s.%s", prefix ? prefix : "(null)", key);
    }
};

// A value that infod did not take costs its line in the log and nothing else.
static void report_lost(int code)
{
    if (code != 0)
        log_message(log_error, "Could not open infod socket: %d: %s (%d)", errno, strerror(errno),
                    code);
}

void output_text(FILE *out, const char *key, const char *value, int mode, bool push)
{
    if (!value)
        return;
    write_pair(out, key, value, mode);
    if (push)
        report_lost(push_text(infod_key(key).text, value, push_goes_on));
}

void output_hex(FILE *out, const char *key, uint32_t value, int mode, bool push)
{
    char text[16];
    snprintf(text, sizeof(text), "0x%" PRIx32, value);
    write_pair(out, key, text, mode);
    if (push)
        report_lost(push_long(infod_key(key).text, static_cast<long>(value), push_goes_on));
}

void output_longlong(FILE *out, const char *key, int64_t value, int mode, bool push)
{
    char text[24];
    snprintf(text, sizeof(text), "%" PRId64, value);
    write_pair(out, key, text, mode);
    if (push)
        report_lost(
            push_long(infod_key(key).text, static_cast<int32_t>(value & 0xFFFFFFFF), push_goes_on));
}

void output_ipv4(FILE *out, const char *key, const in_addr &address, int mode, bool push)
{
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address, text, sizeof(text));
    output_text(out, key, text, mode, push);
}

void output_ipv6(FILE *out, const char *key, const in6_addr &address, int mode, bool push)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, &address, text, sizeof(text));
    output_text(out, key, text, mode, push);
}

#include "backends/gobi/record.h"

#include "publish/output.h"

struct writer {
    FILE *out;
    const char *key;
    int mode;
    bool push;

    void operator()(std::monostate) const {}
    void operator()(const std::string &text) const
    {
        if (!text.empty())
            output_text(out, key, text.c_str(), mode, push);
    }
    void operator()(const gobi_list &list) const
    {
        output_text(out, key, list.names.c_str(), mode, push);
    }
    void operator()(int64_t number) const { output_longlong(out, key, number, mode, push); }
    void operator()(const in_addr &address) const { output_ipv4(out, key, address, mode, push); }
    void operator()(const in6_addr &address) const { output_ipv6(out, key, address, mode, push); }
};

void gobi_output(FILE *out, const char *key, const gobi_value &value, int mode, bool push)
{
    std::visit(writer{out, key, mode, push}, value);
}

gobi_value gobi_text_value(const std::optional<std::string> &bytes)
{
    return bytes ? gobi_value(gobi_text(*bytes)) : gobi_value();
}

gobi_value gobi_name_value(gobi_names names, size_t code)
{
    const char *name = gobi_name(names, code);
    return name ? gobi_value(std::string(name)) : gobi_value();
}

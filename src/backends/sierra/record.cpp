#include "backends/sierra/record.h"

#include "platform/log.h"
#include "platform/text.h"
#include "swi/result.h"

int record_answered(int result, const char *failure)
{
    if (result == swi_ok)
        return query_ok;
    log_message(log_error, "%s: %d", failure, result);
    return query_failed;
}

std::string record_cut(const char *bytes, size_t bytes_max)
{
    return std::string(text_cut(text_from_bytes(bytes), bytes_max));
}

void record_output(FILE *out, const char *key, const record_value &value, int mode)
{
    if (value.kind == record_value::kind::text)
        output_text(out, key, value.text.c_str(), mode, true);
    else if (value.kind == record_value::kind::number)
        output_longlong(out, key, value.number, mode, true);
}

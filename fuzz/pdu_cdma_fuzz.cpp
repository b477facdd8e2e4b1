// Any octets are refused or decoded; what was decoded and can be encoded is decoded to the same text.

#include "platform/text.h"
#include "sms/pdu_cdma.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    pdu_cdma message, again;
    std::vector<uint8_t> pdu;
    if (pdu_cdma_decode({data, size}, message) != 0)
        return 0;
    if (!text_is_utf8(message.body.text.value_or("")))
        abort();
    if (pdu_cdma_encode(message, pdu) != 0)
        return 0;
    if (pdu_cdma_decode(pdu, again) != 0 || again.body.text != message.body.text ||
        again.body.data.size() > size * 8 || pdu.size() > pdu_cdma_octets_max)
        abort();
    return 0;
}

// Messages a second: what a modem's full storage costs to read, and a long text to send.

#include "sms/split.h"

#include <benchmark/benchmark.h>

static const pdu_3gpp &form_3gpp()
{
    static const pdu_3gpp form = [] {
        pdu_3gpp message;
        message.kind = pdu_3gpp_deliver;
        message.smsc = sms_address_from_text("+15551230000");
        message.number = sms_address_from_text("+15551234567");
        message.sent = sms_time{2024, 2, 29, 23, 59, 58, 0};
        return message;
    }();
    return form;
}

static const pdu_cdma &form_cdma()
{
    static const pdu_cdma form = [] {
        pdu_cdma message;
        message.kind = pdu_cdma_deliver;
        message.number = sms_address_from_text("5551234567");
        message.sent = sms_time{2024, 2, 29, 23, 59, 58, {}};
        return message;
    }();
    return form;
}

// As many characters as one message holds.
static std::string full_text(bool latin)
{
    std::string text;
    for (int i = 0; i < (latin ? 160 : 70); i++)
        text += latin ? std::string(1, static_cast<char>('a' + i % 26)) : "ж";
    return text;
}

template <typename message>
static void decode(benchmark::State &state, const std::vector<std::vector<uint8_t>> &pdus,
                   int (*decoder)(std::span<const uint8_t>, message &))
{
    if (pdus.size() != 1) {
        state.SkipWithError("no message");
        return;
    }
    while (state.KeepRunning()) {
        message decoded;
        if (decoder(pdus.front(), decoded) != 0)
            state.SkipWithError("refused");
        benchmark::DoNotOptimize(decoded.body.text);
    }
    state.SetItemsProcessed(state.iterations());
}

static void decode_3gpp(benchmark::State &state)
{
    std::vector<std::vector<uint8_t>> pdus;
    if (sms_encode_3gpp(form_3gpp(), full_text(state.range(0)), {}, pdus) == 0)
        decode(state, pdus, pdu_3gpp_decode);
}
BENCHMARK(decode_3gpp)->ArgName("7bit")->Arg(1)->Arg(0);

static void decode_cdma(benchmark::State &state)
{
    std::vector<std::vector<uint8_t>> pdus;
    if (sms_encode_cdma(form_cdma(), full_text(state.range(0)), {}, pdus) == 0)
        decode(state, pdus, pdu_cdma_decode);
}
BENCHMARK(decode_cdma)->ArgName("7bit")->Arg(1)->Arg(0);

static void encode_long_text(benchmark::State &state)
{
    std::string text;
    std::vector<std::vector<uint8_t>> pdus;
    while (text.size() < 1000)
        text += full_text(true);
    while (state.KeepRunning()) {
        if (sms_encode_3gpp(form_3gpp(), text, {1}, pdus) != 0)
            state.SkipWithError("refused");
        benchmark::DoNotOptimize(pdus);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(pdus.size()));
}
BENCHMARK(encode_long_text);

#include "backends/gobi/call_end.h"

#include <algorithm>
#include <iterator>

struct call_end_row {
    uint32_t code;
    const char *name;
};

// General reasons, then those of CDMA (from 500), 3GPP (from 1000) and HDR networks (from 1500).
constexpr call_end_row call_end_rows[] = {
    {1, "Unspecified"},
    {2, "Client end"},
    {3, "No service"},
    {4, "Fade"},
    {5, "Rel normal"},
    {6, "Acc in progress"},
    {7, "Acc fail"},
    {8, "Redir or handoff"},
    {9, "Close in progress"},
    {10, "Authentication failed"},
    {11, "Internal error"},
    {500, "CDMA lock"},
    {501, "Intercept"},
    {502, "Reorder"},
    {503, "Rel so reject"},
    {504, "Incoming call"},
    {505, "Alert stop"},
    {506, "Activation"},
    {507, "Max access probe"},
    {508, "CCS not supported by BS"},
    {509, "No response from BS"},
    {510, "Rejected by BS"},
    {511, "Incompatible"},
    {512, "Already in TC"},
    {513, "User call originated during GPS"},
    {514, "User call originated during SMS"},
    {515, "No CDMA Service"},
    {1000, "Conf Failed"},
    {1001, "Incoming Rejected"},
    {1002, "No gateway service"},
    {1003, "Network ended"},
    {1004, "LLC SNDCP Failure"},
    {1005, "Insufficient resources"},
    {1006, "Option temp OOO"},
    {1007, "NSAPI already used"},
    {1008, "Regular deactivation"},
    {1009, "Network failure"},
    {1010, "UMTS reattach request"},
    {1011, "UMTS protocol error"},
    {1012, "Operator barring"},
    {1013, "Unknown APN"},
    {1014, "Unknown PDP"},
    {1015, "GGSN reject"},
    {1016, "Activation reject"},
    {1017, "Option not supported"},
    {1018, "Option unsubscribed"},
    {1019, "QoS not accepted"},
    {1020, "TFT semantic error"},
    {1021, "TFT syntax error"},
    {1022, "Unknown PDP context"},
    {1023, "Filter semantic error"},
    {1024, "Filter syntax error"},
    {1025, "PDP without active TFT"},
    {1026, "Invalid transaction ID"},
    {1027, "Message semantic error"},
    {1028, "Invallid mandatory info"},
    {1029, "Type unsupported"},
    {1030, "Message type wrong for state"},
    {1031, "Unknown info element"},
    {1032, "Conditional IE error"},
    {1033, "Message wrong for protocol"},
    {1034, "APN type conflict"},
    {1035, "No GPRS context"},
    {1036, "Feature not supported"},
    {1500, "CD gen or busy"},
    {1501, "CD bill or auth"},
    {1502, "CHG HDR"},
    {1503, "Exit HDR"},
    {1504, "HDR no session"},
    {1505, "HDR originated during GPS fix"},
    {1506, "HDR CS timeout"},
    {1507, "HDR release by CM"},
};

constexpr bool by_code(const call_end_row &a, const call_end_row &b)
{
    return a.code < b.code;
}
static_assert(std::is_sorted(std::begin(call_end_rows), std::end(call_end_rows), by_code));

static const char *name_of(uint32_t code)
{
    const auto *row = std::lower_bound(std::begin(call_end_rows), std::end(call_end_rows),
                                       call_end_row{code, nullptr}, by_code);
    return row != std::end(call_end_rows) && row->code == code ? row->name : "Unknown error";
}

std::string gobi_call_end_text(std::optional<uint16_t> reason, uint32_t code)
{
    // Codes of requests are no reasons, although some have the same numbers.
    return reason ? std::to_string(*reason) + ": " + name_of(*reason)
                  : std::to_string(code) + ": " + name_of(UINT32_MAX);
}

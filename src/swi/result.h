// Result codes of the SDK client. Callers log them as numbers beside the name of the call.
#pragma once

enum swi_result {
    swi_ok = 0,
    swi_not_supported = 1,
    swi_small_buffer = 2,
    swi_closed = 3, // nobody serves the channels
    swi_invalid_parameter = 4,
    swi_failed = 5,
    swi_unexpected_response = 6, // another kind of packet than the request's
    swi_modem_timeout = 7,       // the server answered, the modem did not
    swi_busy = 8,
    swi_system_error = 9,
    swi_not_open = 10,
    swi_not_initialised = 11,
    swi_malformed_header = 18,
    swi_not_applicable = 19, // refused here: not for this modem's technology
    swi_no_response = 153,
    swi_cns_error = 600, // the modem's own refusal; swi_last_error_text has its words
    swi_tracking_off = 1062,
    swi_tracking_on = 1063,
};

// States as JSON text, merged into the modems of the simulator.
#pragma once

#include "sim/json.h"

#include <string>

#include <gtest/gtest.h>

inline json_ref json_of(const std::string &text)
{
    json_error_t error;
    json_ref value(json_loads(text.c_str(), 0, &error));
    EXPECT_TRUE(value) << text << ": " << error.text;
    return value;
}

// Why the modem refuses the state; "" if it takes it.
template <class Modem>
std::string merge_text(int (*merge)(Modem &, json_t *, json_refusal &), Modem &modem,
                       const std::string &state)
{
    json_refusal refusal;
    return merge(modem, json_of(state).get(), refusal) == 0 ? "" : json_refusal_text(refusal);
}

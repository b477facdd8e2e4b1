// The way into a slot: a back-end's function wrapped so that nothing that a library or the allocator
// throws gets past it. A back-end writes `.attach = slot<its_attach>`.
#pragma once

#include "platform/log.h"

#include <exception>

template <auto Operation, class Signature>
struct slot_guard;

template <auto Operation, class... Arguments>
struct slot_guard<Operation, int (*)(Arguments...)> {
    static int call(Arguments... arguments)
    {
        try {
            return Operation(arguments...);
        } catch (const std::exception &reason) {
            log_message(log_error, "Operation given up: %s", reason.what());
            return -1;
        }
    }
};

template <auto Operation>
inline constexpr auto slot = slot_guard<Operation, decltype(Operation)>::call;

// The way into a slot: a back-end's function wrapped so that nothing that a library or the allocator
// throws gets past it. A back-end writes `.attach = slot<its_attach>`, and for an operation whose
// failure is not -1 names that value too.
#pragma once

#include "platform/log.h"

#include <exception>

template <auto Operation, int Failure, class Signature>
struct slot_guard;

template <auto Operation, int Failure, class... Arguments>
struct slot_guard<Operation, Failure, int (*)(Arguments...)> {
    static int call(Arguments... arguments)
    {
        try {
            return Operation(arguments...);
        } catch (const std::exception &reason) {
            log_message(log_error, "Operation given up: %s", reason.what());
            return Failure;
        }
    }
};

template <auto Operation, int Failure = -1>
inline constexpr auto slot = slot_guard<Operation, Failure, decltype(Operation)>::call;

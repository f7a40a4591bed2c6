#pragma once

#include "session/console.h"

#include <exception>

namespace hv {

/// Runs `action` and returns its result. Exceptions of the containers (no memory) end here: one error line, and
/// `fallback`, as none may cross into the host.
template <class Result, class Action>
Result Guarded(Result fallback, Action action)
{
    try {
        return action();
    } catch (const std::exception&) {
        PrintError("not enough memory");
        return fallback;
    }
}

/// The same for work without a result.
template <class Action>
void Guarded(Action action)
{
    Guarded(0, [&] {
        action();
        return 0;
    });
}

}  // namespace hv

#pragma once

#include "session/console.h"

#include <exception>
#include <new>
#include <stdexcept>

namespace hv {

/// Runs `action` and returns its result. What is thrown, memory that cannot be had before all, ends here as one line of
/// the report and gives `fallback`: no exception may cross into the host.
template <class Result, class Action>
Result Guarded(Result fallback, Action&& action) noexcept
{
    try {
        return action();
    } catch (const std::bad_alloc&) {
        PrintError("not enough memory");
    } catch (const std::length_error&) {
        PrintError("not enough memory");
    } catch (const std::exception& exception) {
        PrintError(exception.what());
    } catch (...) {
        PrintError("unknown exception");
    }
    return fallback;
}

/// The same for work without a result.
template <class Action>
void Guarded(Action&& action) noexcept
{
    Guarded(0, [&] {
        action();
        return 0;
    });
}

}  // namespace hv

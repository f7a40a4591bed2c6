#pragma once

#include "session/console.h"

#include <exception>
#include <string>

namespace hv {

/// Runs the body of an export. What is thrown, memory that cannot be had before all, ends as one line of the report.
/// Returns whether the body came to its end.
template <class Work>
bool AtBorder(Work&& work) noexcept
{
    try {
        work();
        return true;
    } catch (const std::exception& exception) {
        PrintError(exception.what());
    } catch (...) {
        PrintError("unknown exception");
    }
    return false;
}

}  // namespace hv

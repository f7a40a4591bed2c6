#pragma once

#include "session/console.h"

#include <exception>
#include <new>

namespace hv {

/// Runs the body of an export. What is thrown, before all for want of memory, ends as one line of the report.
/// Returns whether the body came to its end.
template <class Work>
bool AtBorder(Work&& work) noexcept
{
    try {
        work();
        return true;
    } catch (const std::bad_alloc&) {
        PrintError("out of memory");
    } catch (const std::exception& exception) {
        PrintError(exception.what());
    } catch (...) {
        PrintError("unknown exception");
    }
    return false;
}

}  // namespace hv

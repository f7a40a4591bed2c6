#pragma once

#include <optional>

/// Runs the commands that render nothing, `lint` and `keywords`, when the first argument is one of them. Returns the
/// exit status, or nothing when the command line is that of a render. A folder of such a name is written "./lint".
std::optional<int> RunCommand(int argument_count, char** arguments);

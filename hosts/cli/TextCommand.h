#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// Sends a snippet of text; returns when it has arrived, or not.
[[nodiscard]] ExitCode runText(Program& program, const TextOptions& options);

}  // namespace vesko

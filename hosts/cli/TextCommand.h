#pragma once

#include "hosts/cli/Run.h"

namespace vesko {

/// Sends a snippet of text; returns when it has arrived, or not.
[[nodiscard]] ExitCode runText(Program& program, const TextOptions& options);

}  // namespace vesko

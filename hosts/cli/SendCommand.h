#pragma once

#include "hosts/cli/Run.h"

namespace vesko {

/// Sends files and folders; returns when they have arrived, or not.
[[nodiscard]] ExitCode runSend(Program& program, const SendOptions& options);

}  // namespace vesko

#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// Sends files and folders; returns when they have arrived, or not.
[[nodiscard]] ExitCode runSend(Program& program, const SendOptions& options);

}  // namespace vesko

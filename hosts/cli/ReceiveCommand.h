#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// Receives until interrupted or, where that is asked for, until the first transfer has ended.
[[nodiscard]] ExitCode runReceive(Program& program, const ReceiveOptions& options);

}  // namespace vesko

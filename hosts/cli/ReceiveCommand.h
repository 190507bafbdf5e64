#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// `vesko receive`: receives until interrupted or, with --once, until the first transfer has ended.
[[nodiscard]] ExitCode runReceive(Program& program, const ReceiveOptions& options);

}  // namespace vesko

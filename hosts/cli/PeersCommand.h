#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// Lists the other machines, or goes on telling who comes and goes until interrupted.
[[nodiscard]] ExitCode runPeers(Program& program, const PeersOptions& options);

}  // namespace vesko

#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// `vesko peers`: lists the other machines, saves their pictures, or with --watch prints changes until interrupted.
[[nodiscard]] ExitCode runPeers(Program& program, const PeersOptions& options);

}  // namespace vesko

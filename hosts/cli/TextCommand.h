#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// `vesko text`: sends a text; returns when it has arrived or the transfer has failed.
[[nodiscard]] ExitCode runText(Program& program, const TextOptions& options);

}  // namespace vesko

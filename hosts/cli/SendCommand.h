#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// `vesko send`: sends files and folders; returns when they have arrived or the transfer has failed.
[[nodiscard]] ExitCode runSend(Program& program, const SendOptions& options);

}  // namespace vesko

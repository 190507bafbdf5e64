#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// Prints why nobody may be found, group by group; quiet: only warnings and problems. The result is success when there
/// is no problem.
[[nodiscard]] ExitCode runDoctor(Program& program);

}  // namespace vesko

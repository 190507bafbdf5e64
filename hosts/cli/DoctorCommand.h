#pragma once

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"

namespace vesko {

/// `vesko doctor`: runs all checks and prints the findings in groups; with --quiet only warnings and problems. Success
/// unless a finding is a problem.
[[nodiscard]] ExitCode runDoctor(Program& program);

}  // namespace vesko

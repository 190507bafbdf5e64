#pragma once

#include <functional>

#include "hosts/cli/Run.h"
#include "hosts/common/doctor/Doctor.h"

namespace vesko {

/// Prints why nobody may be found, group by group; quiet: only warnings and problems. `checkHello`, which says hello to
/// all and waits for answers, is called once. The result is success when there is no problem.
[[nodiscard]] ExitCode runDoctor(Program& program, const std::function<HelloCheck()>& checkHello);

}  // namespace vesko

#pragma once

#include "hosts/cli/Program.h"
#include "hosts/common/doctor/Doctor.h"

namespace vesko {

/// Broadcasts a hello, itself or by the host that runs, and waits up to 2 seconds for answers. What the result proves
/// and what it does not is said at `HelloCheck`.
[[nodiscard]] HelloCheck checkHello(Program& program);

}  // namespace vesko

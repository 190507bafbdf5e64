#pragma once

#include "hosts/cli/Program.h"
#include "hosts/common/doctor/Doctor.h"

namespace vesko {

/// Says hello to all and waits two seconds for answers, or until there are some.
[[nodiscard]] HelloCheck checkHello(Program& program);

}  // namespace vesko

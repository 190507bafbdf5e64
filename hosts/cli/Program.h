#pragma once

#include "hosts/cli/Console.h"
#include "hosts/cli/Interrupts.h"
#include "hosts/cli/Options.h"
#include "hosts/cli/Reporter.h"

namespace vesko {

/// What every command needs. The references stay valid while the command runs.
struct Program {
  const CommonOptions& options;
  Console& console;
  Reporter& reporter;
  Interrupts& interrupts;
};

}  // namespace vesko

#pragma once

#include <functional>
#include <memory>

#include "hosts/cli/ExitCode.h"

namespace vesko {

/// SIGINT, SIGTERM and, unless it is ignored, SIGHUP, waited for by a thread that lives as long as the process, so that
/// nothing is done in a handler.
class Interrupts {
 public:
  /// From now on each of them ends the process at once, as interrupted. Also has SIGPIPE and SIGXFSZ ignored: a reader
  /// of the output that goes away, or a limit of file sizes, must not take transfers with it. Requires: no other thread
  /// runs yet.
  Interrupts();

  /// From now on the first signal calls `onInterrupt`, on the waiting thread. A later one, unless it comes on the heels
  /// of the first, ends the process at once as interrupted; 1.8 seconds after the first it ends with `overdue`,
  /// whatever holds it up. An empty function makes it as it was at first.
  void handle(std::function<void()> onInterrupt, ExitCode overdue);

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace vesko

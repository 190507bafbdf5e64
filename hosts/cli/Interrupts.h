#pragma once

#include <functional>
#include <memory>

#include "hosts/cli/ExitCode.h"

namespace vesko {

/// Handles SIGINT, SIGTERM and, unless it is ignored, SIGHUP. A thread that lives as long as the process waits for
/// them, so no code runs in a signal handler.
///
///     Interrupts interrupts;                              // first in main, before any thread: signals end the process
///     interrupts.handle(stop, ExitCode::success);         // the first signal calls `stop`, the second ends the
///     process interrupts.handle({}, ExitCode::interrupted);       // signals end the process again
class Interrupts {
 public:
  /// From now on each signal ends the process at once with `ExitCode::interrupted`. Also ignores SIGPIPE and SIGXFSZ: a
  /// closed pipe or a limit of file sizes must fail one write, not end the process. Requires: no other thread runs yet.
  Interrupts();

  /// From now on the first signal calls `onInterrupt`, on the waiting thread. A second signal, more than 0.2 seconds
  /// later, ends the process at once with `ExitCode::interrupted`. Without one the process ends 1.8 seconds after the
  /// first with `overdue`, if it has not ended by itself. An empty function restores the initial state. Any thread.
  void handle(std::function<void()> onInterrupt, ExitCode overdue);

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace vesko

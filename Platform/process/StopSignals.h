#pragma once

#include <chrono>

/// The signals that ask a program to end: SIGINT, SIGTERM and SIGHUP, the last unless it was ignored when the process
/// began (nohup does that). A thread waits for them, so that nothing has to be done in a signal handler.
namespace vesko::StopSignals {

/// Blocks these signals on this thread and the threads it starts from now on, so that `wait` receives them, and SIGINT
/// even if the shell had it ignored. Also ignores SIGPIPE and SIGXFSZ: a reader that goes away, or a file beyond the
/// size limit, must not end the process. Requires: no other thread runs yet.
void hold() noexcept;

/// Waits for one of the signals. Requires: `hold` was called; only one thread waits.
void wait() noexcept;

/// The same for `limit` at most; false when none came.
[[nodiscard]] bool waitFor(std::chrono::nanoseconds limit) noexcept;

}  // namespace vesko::StopSignals

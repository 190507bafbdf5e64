#pragma once

#include <chrono>

/// SIGINT, SIGTERM and, unless it was ignored when the process began (as nohup has it), SIGHUP: something a thread
/// waits for, so that nothing is done in a handler.
namespace vesko::StopSignals {

/// Keeps them from ending the process, on this thread and those it starts from now on, and makes SIGINT reach it even
/// where a shell has it ignored. Also has those ignored that come of writing: a reader of the output that goes away, or
/// a file that grows beyond the limit, must not take the process with it. Requires: no other thread runs yet.
void hold() noexcept;

/// Waits for one of them. Requires: `hold` was called; one thread waits.
void wait() noexcept;

/// The same for `limit` at most; false when none came.
[[nodiscard]] bool waitFor(std::chrono::nanoseconds limit) noexcept;

}  // namespace vesko::StopSignals

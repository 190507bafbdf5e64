#pragma once

#include <chrono>

/// SIGINT and SIGTERM as something a thread waits for, so that nothing is done in a handler.
namespace vesko::StopSignals {

/// Keeps both from ending the process, on this thread and those it starts from now on, and makes them reach it even
/// where a shell has them ignored. Also has SIGPIPE ignored: a reader of the output that goes away must not take the
/// process with it. Requires: no other thread runs yet.
void hold() noexcept;

/// Waits for either signal. Requires: `hold` was called; one thread waits.
void wait() noexcept;

/// The same for `limit` at most; false when none came.
[[nodiscard]] bool waitFor(std::chrono::nanoseconds limit) noexcept;

}  // namespace vesko::StopSignals

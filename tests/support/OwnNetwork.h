#pragma once

namespace vesko {

/// Moves this process, and so what it starts from now on, into a network of its own that consists of loopback alone:
/// what it announces reaches no real network. False when that is not permitted. Requires: no other thread runs yet.
[[nodiscard]] bool enterOwnNetwork();

}  // namespace vesko

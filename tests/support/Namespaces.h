#pragma once

#include <string>

namespace vesko {

// What moves this process, and so what it starts from now on, into namespaces of its own. False where that is not
// permitted. An ordinary user may have them only among users of its own, where it stays who it is. Requires: no other
// thread runs yet.

/// `kinds`: as unshare(2) has them, CLONE_NEWNET and the like.
[[nodiscard]] bool enterOwnSpaces(int kinds);

/// What is mounted from now on is seen by nobody else. `more`: other kinds of namespaces.
[[nodiscard]] bool enterOwnMounts(int more = 0);

/// A network that consists of loopback alone: what is announced there reaches no real one.
[[nodiscard]] bool enterOwnNetwork();

/// Puts `folder` in the place of another one. Requires: mounts of its own.
[[nodiscard]] bool replaceFolder(const char* replaced, const std::string& folder);

}  // namespace vesko

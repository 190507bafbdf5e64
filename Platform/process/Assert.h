#pragma once

#include <string>

namespace vesko {

/// Reports a mistake of the caller. In builds with assertions (no `NDEBUG`) the message goes to standard error and the
/// process is aborted. In others nothing happens, and the operation goes on as its comment says. Any thread.
void assertionFailure(const std::string& message);

/// Writes the message to standard error and aborts the process: for states from which nothing can go on. Any thread.
[[noreturn]] void fatalError(const std::string& message);

}  // namespace vesko

#pragma once

#include <string>

namespace vesko {

/// Reports a mistake of the caller: in builds with assertions (no `NDEBUG`) the message goes to standard error and the
/// process stops; elsewhere nothing happens and the operation goes on as its documentation says. Any thread.
void assertionFailure(const std::string& message);

/// Stops the process, the message on standard error: for what leaves nothing to go on with. Any thread.
[[noreturn]] void fatalError(const std::string& message);

}  // namespace vesko

#pragma once

#include <cstdint>
#include <string>

namespace vesko {

/// The folder with the control sockets of the user's hosts: `$XDG_RUNTIME_DIR/vesko` or, where that is not set,
/// `vesko-UID` in `$TMPDIR` or /tmp. Variables that hold no absolute path count as not set. Any thread.
[[nodiscard]] std::string controlFolder();

/// The path of the control socket of the host on the service port `port`. Any thread.
[[nodiscard]] std::string controlPath(std::uint16_t port);

}  // namespace vesko

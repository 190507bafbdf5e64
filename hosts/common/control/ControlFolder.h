#pragma once

#include <cstdint>
#include <string>

namespace vesko {

/// Where the running hosts of one user listen for the user's other programs: `$XDG_RUNTIME_DIR/vesko` or, where that is
/// not set, a folder of the user's own below the folder for temporary files (`$TMPDIR`, else /tmp).
[[nodiscard]] std::string controlFolder();

/// The socket of the host that runs on the service port `port`.
[[nodiscard]] std::string controlPath(std::uint16_t port);

}  // namespace vesko

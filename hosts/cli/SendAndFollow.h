#pragma once

#include <functional>

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"
#include "hosts/common/session/Session.h"

namespace vesko {

/// Sends what `prepare` returns to `peer`, reports its events, and returns when the transfer has ended. Without items
/// it does not connect and returns `incomplete`, or `usage` when a single file has the reserved name of texts.
[[nodiscard]] ExitCode sendAndFollow(Program& program, const PeerView& peer,
                                     const std::function<PreparedTransfer(Session&)>& prepare);

}  // namespace vesko

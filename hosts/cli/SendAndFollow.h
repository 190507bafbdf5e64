#pragma once

#include <functional>

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"
#include "hosts/common/session/Session.h"

namespace vesko {

/// Sends what `prepare` prepares, and follows it to its end. Where that is nothing, nobody is connected to and the
/// result is that all was left out, or that it has to be called for otherwise.
[[nodiscard]] ExitCode sendAndFollow(Program& program, const PeerView& peer,
                                     const std::function<PreparedTransfer(Session&)>& prepare);

}  // namespace vesko

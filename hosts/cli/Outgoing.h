#pragma once

#include <functional>
#include <optional>
#include <string>

#include "hosts/cli/Run.h"
#include "hosts/common/PeerAddress.h"
#include "hosts/common/Session.h"

namespace vesko {

/// The peer that `name` stands for; none, and the user has been told, when there is no such peer.
[[nodiscard]] std::optional<PeerAddress> findPeer(Program& program, const std::string& name);

/// Follows the one transfer that `start` starts in a session to its end. `start` tells whether there was anything to be
/// sent; without that nothing is connected to and the result is that everything was left out.
[[nodiscard]] ExitCode followTransfer(Program& program, const std::function<bool(Session&)>& start);

}  // namespace vesko

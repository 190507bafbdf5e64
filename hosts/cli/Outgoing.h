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

/// Sends what `prepare` prepares, and follows it to its end. Where that is nothing, nobody is connected to and the
/// result is that all was left out.
[[nodiscard]] ExitCode sendAndFollow(Program& program, const PeerAddress& peer,
                                     const std::function<PreparedTransfer(Session&)>& prepare);

}  // namespace vesko

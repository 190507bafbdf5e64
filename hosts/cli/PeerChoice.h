#pragma once

#include <chrono>
#include <string>
#include <variant>

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"
#include "hosts/common/events/Events.h"

namespace vesko {

/// The recipient, of which perhaps only the address is known; or the exit code of an error that was reported to the
/// user.
using PeerOrCode = std::variant<PeerView, ExitCode>;

/// Finds the recipient `name`: an address, a name or a part of one. An empty `name` lets the user choose at the
/// terminal.
///
/// `wait`: how long to wait for answers of other machines. A complete name ends the wait early. A part of a name takes
/// the whole wait, minus the time that a running host has listened already: a second machine that matches may be slow
/// to answer, and it must not depend on chance to which of them a file is sent.
[[nodiscard]] PeerOrCode findPeer(Program& program, const std::string& name, std::chrono::duration<double> wait);

}  // namespace vesko

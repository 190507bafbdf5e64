#pragma once

#include <chrono>
#include <string>
#include <variant>

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"
#include "hosts/common/events/Events.h"

namespace vesko {

/// Whom to send to, of whom no more than the address need be known; or why there is no answer, of which the user has
/// been told.
using PeerOrCode = std::variant<PeerView, ExitCode>;

/// The machine that the user means by `name`: an address, or what it is called, or a part of that; where it is empty,
/// the one that the user chooses at the terminal. `wait`: how long others may take to answer. A part of a name takes
/// all of it, but for what a host of the user's has been listening already: a second machine that it fits may be slow.
[[nodiscard]] PeerOrCode findPeer(Program& program, const std::string& name, std::chrono::duration<double> wait);

}  // namespace vesko

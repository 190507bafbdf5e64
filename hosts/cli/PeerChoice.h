#pragma once

#include <chrono>
#include <string>
#include <variant>

#include "hosts/cli/Run.h"
#include "hosts/common/PeerAddress.h"

namespace vesko {

/// Where to send to, or why there is no answer, of which the user has been told.
using PeerOrCode = std::variant<PeerAddress, ExitCode>;

/// The machine that the user means by `name`: an address, or what it is called, or a part of that; where it is empty,
/// the one that the user chooses at the terminal. `wait`: how long others may take to answer.
[[nodiscard]] PeerOrCode findPeer(Program& program, const std::string& name, std::chrono::duration<double> wait);

}  // namespace vesko

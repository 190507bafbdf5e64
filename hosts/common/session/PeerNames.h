#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/events/Events.h"

// Machines as people name them. Pure functions; any thread. Names hold what the machines say of themselves, control
// characters included.
namespace vesko {

/// What a machine calls itself, "Sam Example at Office-PC": the signature without what all of them end with. The
/// address where that is empty.
[[nodiscard]] std::string nameOfPeer(const PeerView& peer);

/// The machine's address, with the port where that is not the usual one.
[[nodiscard]] std::string addressOfPeer(const PeerView& peer);

/// "Sam Example at Office-PC (192.0.2.7)"; the address alone where there is no name.
[[nodiscard]] std::string describedPeer(const PeerView& peer);

/// The machines of a peer table, in the order of their names.
[[nodiscard]] std::vector<PeerView> peersByName(const std::map<std::string, PeerView>& peers);

/// True when `text` is the whole name or signature, letter case ignored.
[[nodiscard]] bool isWholeNameOf(const PeerView& peer, std::string_view text);

/// The machines that `text` may mean: those of which it is the whole name or signature, else those whose signature
/// it is a part of. Letter case is ignored. Requires: `text` is not empty.
[[nodiscard]] std::vector<PeerView> peersMatching(const std::map<std::string, PeerView>& peers, std::string_view text);

}  // namespace vesko

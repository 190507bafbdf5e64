#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/events/Events.h"

// Names of machines for people. Pure functions; any thread. A name is what the machine announces and may contain
// control characters: escape it before printing.
namespace vesko {

/// The announced name, "Sam Example at Office-PC": the signature without its fixed ending " [Vesko] (Macintosh)". The
/// address when the name is empty.
[[nodiscard]] std::string nameOfPeer(const PeerView& peer);

/// The address of a machine, followed by the port unless it is the default one.
[[nodiscard]] std::string addressOfPeer(const PeerView& peer);

/// "Sam Example at Office-PC (192.0.2.7)"; only the address when no name is known.
[[nodiscard]] std::string describedPeer(const PeerView& peer);

/// The machines of a peer table sorted by name, letter case ignored.
[[nodiscard]] std::vector<PeerView> peersByName(const std::map<std::string, PeerView>& peers);

/// True when `text` is the complete name or signature, letter case ignored.
[[nodiscard]] bool isWholeNameOf(const PeerView& peer, std::string_view text);

/// The machines whose complete name or signature is `text`; without any, those whose signature contains it. Letter case
/// is ignored. Requires: `text` is not empty.
[[nodiscard]] std::vector<PeerView> peersMatching(const std::map<std::string, PeerView>& peers, std::string_view text);

}  // namespace vesko

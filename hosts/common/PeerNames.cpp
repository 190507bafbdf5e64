#include "hosts/common/PeerNames.h"

#include <algorithm>

#include "Platform/LetterCase.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {
namespace {

constexpr std::string_view commonEnding = " [Vesko] (Macintosh)";

}  // namespace

std::string nameOfPeer(const PeerView& peer) {
  std::string_view name = peer.systemSignature;
  if (name.ends_with(commonEnding)) name.remove_suffix(commonEnding.size());
  return name.empty() ? peer.ip : std::string(name);
}

std::string addressOfPeer(const PeerView& peer) {
  return peer.port == VeskoServer::defaultPort ? peer.ip : peer.ip + ':' + std::to_string(peer.port);
}

std::string describedPeer(const PeerView& peer) { return nameOfPeer(peer) + " (" + addressOfPeer(peer) + ')'; }

std::vector<PeerView> peersByName(const std::map<std::string, PeerView>& peers) {
  std::vector<PeerView> list;
  list.reserve(peers.size());
  for (const auto& [key, peer] : peers) list.push_back(peer);
  std::ranges::stable_sort(list, {}, [](const PeerView& peer) { return smallLetters(nameOfPeer(peer)); });
  return list;
}

PeerMatches peersMatching(const std::map<std::string, PeerView>& peers, std::string_view text) {
  const std::u32string wanted = smallLetters(text);
  PeerMatches whole{{}, true};
  PeerMatches partial;
  for (const auto& [key, peer] : peers) {
    const std::u32string signature = smallLetters(peer.systemSignature);
    if (signature == wanted || smallLetters(nameOfPeer(peer)) == wanted) {
      whole.peers.push_back(peer);
    } else if (signature.find(wanted) != std::u32string::npos) {
      partial.peers.push_back(peer);
    }
  }
  return whole.peers.empty() ? partial : whole;
}

}  // namespace vesko

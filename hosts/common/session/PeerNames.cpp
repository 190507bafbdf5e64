#include "hosts/common/session/PeerNames.h"

#include <algorithm>

#include "Platform/files/LetterCase.h"
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

std::string describedPeer(const PeerView& peer) {
  const std::string name = nameOfPeer(peer);
  return name == peer.ip ? addressOfPeer(peer) : name + " (" + addressOfPeer(peer) + ')';
}

std::vector<PeerView> peersByName(const std::map<std::string, PeerView>& peers) {
  std::vector<PeerView> list;
  list.reserve(peers.size());
  for (const auto& [key, peer] : peers) list.push_back(peer);
  std::ranges::stable_sort(list, {}, [](const PeerView& peer) { return smallLetters(nameOfPeer(peer)); });
  return list;
}

bool isWholeNameOf(const PeerView& peer, std::string_view text) {
  const std::u32string wanted = smallLetters(text);
  return smallLetters(peer.systemSignature) == wanted || smallLetters(nameOfPeer(peer)) == wanted;
}

std::vector<PeerView> peersMatching(const std::map<std::string, PeerView>& peers, std::string_view text) {
  const std::u32string wanted = smallLetters(text);
  std::vector<PeerView> whole;
  std::vector<PeerView> partial;
  for (const auto& [key, peer] : peers) {
    if (isWholeNameOf(peer, text)) {
      whole.push_back(peer);
    } else if (smallLetters(peer.systemSignature).find(wanted) != std::u32string::npos) {
      partial.push_back(peer);
    }
  }
  return whole.empty() ? partial : whole;
}

}  // namespace vesko

#include "hosts/common/PeerObserver.h"

#include <utility>

namespace vesko {
namespace {

/// The picture itself is for who asks for it: events only tell whether there is one.
std::string stateOfAvatar(const std::string& avatar) { return avatar.empty() || avatar == "loading" ? avatar : "png"; }

}  // namespace

PeerView& PeerObserver::refreshed(const std::string& key, const VeskoPeer& peer) {
  PeerView& view = known_[key];
  if (view.key.empty()) view.since = std::chrono::floor<std::chrono::seconds>(peer.lastActiveTime());
  view.key = key;
  view.ip = peer.ip();
  view.port = peer.port();
  view.systemSignature = peer.systemSignature();
  view.avatar = stateOfAvatar(peer.avatar());
  return view;
}

void PeerObserver::peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) {
  sink_->publish(PeerAppearedEvent{refreshed(key, *peer)});
}

void PeerObserver::peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) {
  sink_->publish(PeerUpdatedEvent{refreshed(key, *peer)});
}

void PeerObserver::peerDidDisappear(const std::string& key) {
  if (auto known = known_.extract(key)) sink_->publish(PeerDisappearedEvent{std::move(known.mapped())});
}

}  // namespace vesko

#include "hosts/common/events/PeerObserver.h"

#include <utility>

namespace vesko {
namespace {

void refresh(PeerView& view, const VeskoPeer& peer) {
  view.ip = peer.ip();
  view.port = peer.port();
  view.systemSignature = peer.systemSignature();
  // Only the state: a picture of megabytes does not belong in every event. `Session::avatarOf` returns it.
  view.avatar = peer.avatarState();
}

}  // namespace

void PeerObserver::peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) {
  const std::scoped_lock lock(mutex_);
  PeerView& view = known_[key];
  view.key = key;
  view.since = std::chrono::floor<std::chrono::seconds>(peer->lastActiveTime());
  refresh(view, *peer);
  sink_->publish(PeerAppearedEvent{view});
}

void PeerObserver::peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) {
  const std::scoped_lock lock(mutex_);
  // A picture may arrive after the goodbye of its machine, because it is reported on another thread.
  const auto known = known_.find(key);
  if (known == known_.end()) return;
  refresh(known->second, *peer);
  sink_->publish(PeerUpdatedEvent{known->second});
}

void PeerObserver::peerDidDisappear(const std::string& key) {
  const std::scoped_lock lock(mutex_);
  if (auto known = known_.extract(key)) sink_->publish(PeerDisappearedEvent{std::move(known.mapped())});
}

}  // namespace vesko

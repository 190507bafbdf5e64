#include <limits>
#include <utility>

#include "Platform/http/SelectorEventLoop.h"
#include "Platform/queues/MainQueue.h"
#include "VeskoKit/AvatarEndpoint.h"
#include "VeskoKit/AvatarFetches.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {

namespace {

/// Avatars are served on the port after the service port. After 65535 there is none.
std::optional<std::uint16_t> avatarPortOf(std::uint16_t servicePort) {
  if (servicePort == std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
  return static_cast<std::uint16_t>(servicePort + 1);
}

}  // namespace

void VeskoServer::makeAvatarEndpoint() {
  loop_ = std::make_shared<SelectorEventLoop>();
  avatarFetches_ = std::make_shared<AvatarFetches>(loop_, broadcastQueue_);
  const auto port = localTcpPort == 0 ? 0 : avatarPortOf(localTcpPort);
  if (port) server_ = std::make_unique<AvatarEndpoint>(loop_, *port);
}

void VeskoServer::startAvatarEndpoint() {
  std::error_code error;
  if (!server_ || server_->port() != 0 || server_->start(error)) return;
  showFailure({"http",
               "Our cute veskos cannot put their ears on the TCP port 4645 so they cannot know how other veskos look.",
               error});
}

const DefaultHTTPServer* VeskoServer::server() const noexcept { return server_ ? &server_->server() : nullptr; }

std::uint16_t VeskoServer::boundHttpPort() const { return server_ ? server_->port() : std::uint16_t{0}; }

/// Set to "loading" before the request, so that the next hello of this peer does not start another one. The avatar
/// comes back to this queue; see `AvatarFetches` for its way.
void VeskoServer::handleAvatar(const std::shared_ptr<VeskoPeer>& peer) {
  const auto port = avatarPortOf(peer->port());
  if (!port || !peer->avatarState().empty()) return;
  peer->setAvatar("loading");
  avatarFetches_->get(peer, *port,
                      [weak = weak_from_this()](const std::shared_ptr<VeskoPeer>& owner, std::string avatar) {
                        if (const auto self = weak.lock()) self->keepAvatar(owner, std::move(avatar));
                      });
}

/// Only avatars of peers in the table count for the memory bound. A record that left the table is kept by the host
/// alone, if at all.
void VeskoServer::keepAvatar(const std::shared_ptr<VeskoPeer>& peer, std::string avatar) {
  const std::string key = peer->key();
  const auto known = peers_.find(key);  // no lock: only this queue changes the table
  if (known != peers_.end() && known->second == peer) avatarFetches_->shares().take(key, avatar.size());
  peer->setAvatar(std::move(avatar));
  if (known != peers_.end()) tellOfAvatarSoon(key, peer);
}

void VeskoServer::forgetAvatar(const VeskoPeer& peer, const std::string& key) {
  avatarFetches_->drop(peer);
  avatarFetches_->shares().giveBack(key);
}

/// A host may never run the main queue. So at most one task waits there, and for each peer only the last record is
/// noted, and weakly: what waits for such a host stays small.
void VeskoServer::tellOfAvatarSoon(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) {
  {
    const std::scoped_lock lock(mutex_);
    untoldAvatars_[key] = peer;
    if (std::exchange(isTellingOfAvatars_, true)) return;
  }
  MainQueue::shared()->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tellOfAvatars();
  });
}

/// The observer is called without the lock, since it may use the service. A peer that has said goodbye in the meantime
/// is left out.
void VeskoServer::tellOfAvatars() {
  std::map<std::string, std::weak_ptr<VeskoPeer>> untold;
  {
    const std::scoped_lock lock(mutex_);
    untold.swap(untoldAvatars_);
    isTellingOfAvatars_ = false;
  }
  for (const auto& [key, weak] : untold) {
    const auto peer = weak.lock();
    const auto observer = peer && peerWithKey(key) ? delegate() : nullptr;
    if (observer) observer->peerDidUpdate(key, peer);
  }
}

}  // namespace vesko

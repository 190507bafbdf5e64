#include <limits>
#include <utility>

#include "Platform/Base64.h"
#include "Platform/DispatchQueue.h"
#include "Platform/HTTPSession.h"
#include "Platform/NSImage.h"
#include "Platform/SelectorEventLoop.h"
#include "VeskoKit/AvatarEndpoint.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {

namespace {

/// Bytes of a picture that is taken from another machine, and pixels it may have each way: far above what account
/// pictures are, and what a table full of them can bear.
constexpr std::size_t maximumPicture = 4U << 20U;
constexpr std::uint32_t maximumSide = 4096;

constexpr std::chrono::seconds fetchPatience{10};
constexpr std::size_t maximumFetches = 8;

constexpr int statusOk = 200;

/// The port beside a service port; none beside the highest.
std::optional<std::uint16_t> avatarPortOf(std::uint16_t servicePort) {
  if (servicePort == std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
  return static_cast<std::uint16_t>(servicePort + 1);
}

}  // namespace

void VeskoServer::makeAvatarEndpoint() {
  loop_ = std::make_shared<SelectorEventLoop>();
  avatarRequests_ = std::make_unique<HTTPSession>(loop_, maximumFetches);
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

std::uint16_t VeskoServer::boundHttpPort() const { return server_ ? server_->port() : std::uint16_t{0}; }

void VeskoServer::handleAvatar(const std::shared_ptr<VeskoPeer>& peer) {
  const auto port = avatarPortOf(peer->port());
  if (!port || !peer->avatar().empty()) return;
  peer->setAvatar("loading");
  // Taken apart where that keeps nobody waiting, and one after the other: a picture may be small on its way and large
  // in memory.
  avatarRequests_->get({peer->ip(), *port, AvatarEndpoint::path, maximumPicture, fetchPatience}, pictureQueue_,
                       [weak = weak_from_this(), peer](std::optional<HTTPResponse> response) {
                         if (!response || response->status != statusOk) return;
                         if (!isSanePng(response->body, maximumSide)) return;
                         const auto self = weak.lock();
                         if (self) self->deliverAvatar(peer, "data:image/png;base64," + base64Encoded(response->body));
                       });
}

void VeskoServer::deliverAvatar(const std::shared_ptr<VeskoPeer>& peer, std::string picture) {
  broadcastQueue_->async([weak = weak_from_this(), peer, picture = std::move(picture)]() mutable {
    peer->setAvatar(std::move(picture));
    MainQueue::shared()->async([weak, peer] {
      const auto self = weak.lock();
      if (self) self->tellOfAvatar(peer);
    });
  });
}

void VeskoServer::tellOfAvatar(const std::shared_ptr<VeskoPeer>& peer) {
  const std::string key = peer->key();
  std::shared_ptr<VeskoPeerDiscoveryDelegate> observer;
  {
    const std::scoped_lock lock(mutex_);
    if (peers_.contains(key)) observer = delegate_;
  }
  if (observer) observer->peerDidUpdate(key, peer);
}

}  // namespace vesko

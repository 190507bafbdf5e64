#include "VeskoKit/AvatarFetches.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/text/Base64.h"
#include "Platform/user/NSImage.h"
#include "VeskoKit/AvatarEndpoint.h"
#include "VeskoKit/VeskoPeer.h"

namespace vesko {

namespace {

/// From connecting to the last byte; and for the connection, which a machine of the same network that is there makes
/// within milliseconds: one that is gone must not keep a place for long.
constexpr std::chrono::seconds patience{10};
constexpr std::chrono::seconds connectPatience{2};

/// Those that wait, beside the machines of a full table.
constexpr std::size_t maximumWaiting = 65'536;

constexpr int statusOk = 200;

constexpr std::string_view urlBeginning = "data:image/png;base64,";

/// Bytes of the largest PNG whose data URL has at most `length` of them.
std::size_t pngLengthWithin(std::size_t length) {
  return length < urlBeginning.size() ? 0 : (length - urlBeginning.size()) / 4 * 3;
}

/// The avatar in an answer, as a data URL, in just the memory it takes.
std::optional<std::string> avatarIn(const std::optional<HTTPResponse>& response) {
  if (!response || response->status != statusOk) return std::nullopt;
  if (!isSanePng(response->body, AvatarFetches::maximumSide)) return std::nullopt;
  const std::string encoded = base64Encoded(response->body);
  std::string url;
  url.reserve(urlBeginning.size() + encoded.size());
  url.append(urlBeginning).append(encoded);
  return url;
}

}  // namespace

AvatarFetches::AvatarFetches(std::shared_ptr<SelectorEventLoop> loop, std::shared_ptr<DispatchQueue> queue)
    : queue_(std::move(queue)),
      avatarQueue_(DispatchQueue::serial("avatars")),
      session_(std::move(loop), queue_->clock()) {}

void AvatarFetches::get(const std::shared_ptr<VeskoPeer>& peer, std::uint16_t port, Keep keep) {
  if (waiting_.size() >= maximumWaiting || !turns_.emplace(peer.get(), lastTurn_ + 1).second) return;
  waiting_.emplace(++lastTurn_, Fetch{peer, port, std::move(keep)});
  startNext();
}

void AvatarFetches::drop(const VeskoPeer& peer) {
  const auto turn = turns_.extract(&peer);
  if (!turn || waiting_.erase(turn.mapped()) > 0) return;
  // Its place is free only when nothing of it is left, which is soon: whoever comes and goes all the time would
  // otherwise have more under way than there are places.
  Fetch& fetch = underWay_.at(turn.mapped());
  fetch.peer.reset();
  session_.cancel(fetch.task);
}

void AvatarFetches::startNext() {
  while (underWay_.size() < maximumAtOnce && !waiting_.empty()) {
    const auto first = underWay_.insert(waiting_.extract(waiting_.begin())).position;
    start(first->first, first->second);
  }
}

/// Avatars are taken apart on a queue of their own, where that keeps nobody else waiting, and one after the other: one
/// may be small on its way and large in memory.
void AvatarFetches::start(Turn turn, Fetch& fetch) {
  const std::size_t most = std::min(maximumAvatar, pngLengthWithin(shares_.room()));
  fetch.task = session_.get({fetch.peer->ip(), fetch.port, AvatarEndpoint::path, most, connectPatience, patience},
                            avatarQueue_, [weak = weak_from_this(), queue = queue_, turn](const auto& response) {
                              queue->async([weak, turn, avatar = avatarIn(response)]() mutable {
                                if (const auto self = weak.lock()) self->onEnd(turn, std::move(avatar));
                              });
                            });
}

void AvatarFetches::onEnd(Turn turn, std::optional<std::string> avatar) {
  const Fetch fetch = std::move(underWay_.extract(turn).mapped());
  if (fetch.peer) {
    turns_.erase(fetch.peer.get());
    if (avatar && avatar->size() <= shares_.room()) fetch.keep(fetch.peer, std::move(*avatar));
  }
  startNext();
}

}  // namespace vesko

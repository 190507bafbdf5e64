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

/// For a whole request, and for its connection alone. A machine in the same network accepts a connection within
/// milliseconds; one that has gone must not keep a place for long.
constexpr std::chrono::seconds patience{10};
constexpr std::chrono::seconds connectPatience{2};

/// Fetches that wait for a place: one for each peer of a full table.
constexpr std::size_t maximumWaiting = 65'536;

constexpr int statusOk = 200;

constexpr std::string_view urlBeginning = "data:image/png;base64,";

/// The largest length of a PNG whose data URL has at most `length` bytes. Base 64 makes 4 characters of 3 bytes.
std::size_t pngLengthWithin(std::size_t length) {
  return length < urlBeginning.size() ? 0 : (length - urlBeginning.size()) / 4 * 3;
}

/// The avatar in an answer as a data URL, without spare memory, since it is kept for long.
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
  // The fetch keeps its place until the cancelled request has ended, which is soon. If the place were free at once,
  // peers that come and go all the time could have more requests under way than there are places.
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

/// An avatar that is small as it is sent may be large in memory. So avatars are checked one at a time, on a queue of
/// their own, where that delays nobody else. The result goes back to `queue_`.
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

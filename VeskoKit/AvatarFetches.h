#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Platform/http/HTTPSession.h"
#include "VeskoKit/AvatarShares.h"

namespace vesko {

class VeskoPeer;

/// Fetches the avatars of peers, a few at a time. A fetch keeps its place until its avatar has been passed to `Keep`,
/// so that only so many avatars are in memory on their way. All calls, those of `Keep` included, are on one queue.
///
/// The way of an avatar, queue by queue: (1) `get` on the service's queue starts the request; (2) the HTTP loop reads
/// the answer; (3) the queue "avatars" checks and decodes the PNG, which may take long, and encodes it as a data URL;
/// (4) the service's queue stores it in the record; (5) the main queue tells the host.
class AvatarFetches : public std::enable_shared_from_this<AvatarFetches> {
 public:
  /// Takes an avatar as a data URL of a PNG (RFC 2397), no larger than `AvatarShares::room`.
  using Keep = std::function<void(const std::shared_ptr<VeskoPeer>& peer, std::string avatar)>;

  /// Fetches at the same time.
  static constexpr std::size_t maximumAtOnce = 8;

  /// Bytes of a PNG as it is sent (4 MiB), and its pixels in each direction: far more than account pictures have.
  static constexpr std::size_t maximumAvatar = std::size_t{4} << 20U;
  static constexpr std::uint32_t maximumSide = 4096;

  /// `loop` carries out the requests; it must have been stopped before this is destroyed. Time is that of `queue`.
  AvatarFetches(std::shared_ptr<SelectorEventLoop> loop, std::shared_ptr<DispatchQueue> queue);

  /// Fetches the avatar of `peer` from `port` of its machine, when one of the places is free, and calls `keep` with it.
  /// `keep` is not called when nothing arrives that is a PNG within the limits. Does nothing when that avatar is
  /// already being fetched.
  void get(const std::shared_ptr<VeskoPeer>& peer, std::uint16_t port, Keep keep);

  /// Cancels the fetch for `peer`, or removes it from the waiting ones, and releases the record.
  void drop(const VeskoPeer& peer);

  /// The memory that the kept avatars take.
  [[nodiscard]] AvatarShares& shares() noexcept { return shares_; }

 private:
  /// Identifies a fetch; fetches are started in this order.
  using Turn = std::uint64_t;

  struct Fetch {
    std::shared_ptr<VeskoPeer> peer;  ///< none once it was dropped
    std::uint16_t port = 0;
    Keep keep;
    HTTPSession::Task task = 0;  ///< set once the request has been started
  };

  void startNext();
  void start(Turn turn, Fetch& fetch);
  void onEnd(Turn turn, std::optional<std::string> avatar);

  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<DispatchQueue> avatarQueue_;
  AvatarShares shares_;
  Turn lastTurn_ = 0;
  std::map<const VeskoPeer*, Turn> turns_;
  std::map<Turn, Fetch> waiting_;
  std::map<Turn, Fetch> underWay_;
  HTTPSession session_;
};

}  // namespace vesko

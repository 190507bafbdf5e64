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

/// Gets the avatars of other machines, a few at a time: each holds its place until its avatar is kept, so that no
/// more than so many are in memory on their way. Used on one queue only, which all calls come on.
class AvatarFetches : public std::enable_shared_from_this<AvatarFetches> {
 public:
  /// Takes an avatar, a data URL of a PNG (RFC 2397), which is no larger than there is room for.
  using Keep = std::function<void(const std::shared_ptr<VeskoPeer>& peer, std::string avatar)>;

  /// Avatars under way at once.
  static constexpr std::size_t maximumAtOnce = 8;

  /// Bytes of an avatar as it comes, and pixels it may have each way: far above what account pictures are.
  static constexpr std::size_t maximumAvatar = std::size_t{4} << 20U;
  static constexpr std::uint32_t maximumSide = 4096;

  /// `loop`, which must have been stopped when this goes, carries the requests; the clock is that of `queue`.
  AvatarFetches(std::shared_ptr<SelectorEventLoop> loop, std::shared_ptr<DispatchQueue> queue);

  /// Gets the avatar of `peer` from `port` of its machine when its turn has come, and calls `keep` with it. Nothing is
  /// called where nothing comes that is a PNG of sane size, and nothing happens while that avatar is on its way.
  void get(const std::shared_ptr<VeskoPeer>& peer, std::uint16_t port, Keep keep);

  /// Breaks off what is under way for `peer`, or waits for its turn, and lets go of the record.
  void drop(const VeskoPeer& peer);

  /// What the avatars that were kept take.
  [[nodiscard]] AvatarShares& shares() noexcept { return shares_; }

 private:
  using Turn = std::uint64_t;

  struct Fetch {
    std::shared_ptr<VeskoPeer> peer;  ///< none when it was dropped
    std::uint16_t port = 0;
    Keep keep;
    HTTPSession::Task task = 0;  ///< once it is under way
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

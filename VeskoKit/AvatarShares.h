#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace vesko {

/// Counts the memory that the avatars of the peers in the table take. For one queue.
class AvatarShares {
 public:
  /// Bytes of all avatars together: enough for some thousand, and acceptable for a program in the background.
  static constexpr std::size_t maximum = std::size_t{64} << 20U;

  /// One avatar may take at most 1/`most` of the bytes that are left. So the first few large ones cannot use up
  /// everything: the fuller it is, the smaller an avatar has to be.
  static constexpr std::size_t most = 8;

  /// Bytes that the next avatar may take.
  [[nodiscard]] std::size_t room() const noexcept { return (maximum - taken_) / most; }

  /// Counts `bytes` (at most `room`) for the peer with this key, in place of what was counted for it before.
  void take(const std::string& key, std::size_t bytes) {
    giveBack(key);
    shares_.emplace(key, bytes);
    taken_ += bytes;
  }

  /// Counts nothing for this peer any more.
  void giveBack(const std::string& key) {
    const auto share = shares_.find(key);
    if (share == shares_.end()) return;
    taken_ -= share->second;
    shares_.erase(share);
  }

 private:
  std::map<std::string, std::size_t> shares_;
  std::size_t taken_ = 0;
};

}  // namespace vesko

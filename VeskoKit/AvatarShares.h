#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace vesko {

/// How much memory the avatars of the machines in the table take. For one queue.
class AvatarShares {
 public:
  /// Of all avatars together; bytes. Some thousand of them, and what a program in the background may take.
  static constexpr std::size_t maximum = std::size_t{64} << 20U;

  /// An avatar may take one in so many of the bytes that are left: the larger the avatars that came first, the more
  /// is kept for small ones.
  static constexpr std::size_t most = 8;

  /// Bytes that one more avatar may take.
  [[nodiscard]] std::size_t room() const noexcept { return (maximum - taken_) / most; }

  /// Counts `bytes`, at most `room`, for the machine with this key, in place of what was counted for it.
  void take(const std::string& key, std::size_t bytes) {
    giveBack(key);
    shares_.emplace(key, bytes);
    taken_ += bytes;
  }

  /// Counts nothing for it any more.
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

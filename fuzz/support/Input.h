#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vesko::fuzz {

/// The bytes of one run, taken from the front. Where they have ended, what is taken is 0 or empty.
class Input {
 public:
  Input(const std::uint8_t* bytes, std::size_t length) noexcept : rest_(reinterpret_cast<const char*>(bytes), length) {}

  [[nodiscard]] std::string_view rest() const noexcept { return rest_; }
  [[nodiscard]] bool empty() const noexcept { return rest_.empty(); }

  std::uint8_t takeByte() noexcept {
    const auto byte = take(1);
    return byte.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(byte.front());
  }

  /// At most `length` bytes.
  std::string_view take(std::size_t length) noexcept {
    const auto taken = rest_.substr(0, length);
    rest_.remove_prefix(taken.size());
    return taken;
  }

 private:
  std::string_view rest_;
};

}  // namespace vesko::fuzz

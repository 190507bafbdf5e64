#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vesko {

struct ImageSize {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

/// The size that the first bytes of a PNG (RFC 2083) declare; none when `bytes` do not begin as a PNG does. Any thread.
[[nodiscard]] std::optional<ImageSize> sizeOfPng(std::string_view bytes);

/// True when `bytes` are a PNG that can be decoded and has 1 to `maximumSide` pixels in each direction. The declared
/// size is checked before memory for pixels is allocated. Any thread.
[[nodiscard]] bool isSanePng(std::string_view bytes, std::uint32_t maximumSide);

/// A decoded picture from a file of this machine. Any thread, one at a time.
class NSImage {
 public:
  /// Pixels in each direction that a picture may have, inclusive; account pictures are smaller, and memory grows with
  /// the square.
  static constexpr std::uint32_t maximumSide = 4096;

  /// Decodes PNG, JPEG, BMP or GIF (the first picture of it). None when `bytes` are none of these, or too large.
  [[nodiscard]] static std::optional<NSImage> decode(std::string_view bytes);

  [[nodiscard]] ImageSize size() const noexcept { return size_; }

  /// The picture as PNG; none when it cannot be encoded.
  [[nodiscard]] std::optional<std::string> pngRepresentation() const;

 private:
  NSImage(ImageSize size, std::string pixels) : size_(size), pixels_(std::move(pixels)) {}

  ImageSize size_;
  std::string pixels_;  // red, green, blue, alpha; a byte each; row by row from the upper left
};

}  // namespace vesko

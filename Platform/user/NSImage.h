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

/// What a PNG (RFC 2083) says of its size in its first bytes; none when `bytes` do not begin as one does. Any thread.
[[nodiscard]] std::optional<ImageSize> sizeOfPng(std::string_view bytes);

/// True when all of `bytes` is a PNG that can be decoded and that has between 1 and `maximumSide` pixels each way. Its
/// size is looked at before memory is taken for its pixels. Any thread.
[[nodiscard]] bool isSanePng(std::string_view bytes, std::uint32_t maximumSide);

/// A picture of a file of ours, decoded.
class NSImage {
 public:
  /// Pixels each way that a picture may have: more is no account picture, but a lot of memory.
  static constexpr std::uint32_t maximumSide = 4096;

  /// Decodes PNG, JPEG, BMP or GIF (its first picture); none when `bytes` are nothing of that, or too large. Any
  /// thread.
  [[nodiscard]] static std::optional<NSImage> decode(std::string_view bytes);

  [[nodiscard]] ImageSize size() const noexcept { return size_; }

  /// The picture as PNG; none when it cannot be encoded.
  [[nodiscard]] std::optional<std::string> pngRepresentation() const;

 private:
  NSImage(ImageSize size, std::string pixels) : size_(size), pixels_(std::move(pixels)) {}

  ImageSize size_;
  std::string pixels_;  // red, green, blue, opacity, a byte each, from the upper left on
};

}  // namespace vesko

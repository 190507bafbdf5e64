#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace vesko {

/// The functions of stb that are used here. They are compiled into one source with internal names, since a program that
/// embeds the library may have a stb of its own. `bytes` must not be longer than an `int` can count. Any thread.
namespace StbImage {

constexpr int bytesPerPixel = 4;  ///< red, green, blue, alpha

/// As the decoder tells it: the height of a BMP whose first row is the upper one is negative.
struct Size {
  int width = 0;
  int height = 0;
};

struct PixelsDeleter {
  void operator()(unsigned char* pixels) const noexcept;
};

struct Decoded {
  Size size;
  std::unique_ptr<unsigned char, PixelsDeleter> pixels;  ///< none when it cannot be decoded
};

/// The size that a BMP, GIF, JPEG or PNG declares, without decoding it; false when `bytes` are none of these.
[[nodiscard]] bool readSize(std::string_view bytes, Size& size) noexcept;

[[nodiscard]] Decoded decode(std::string_view bytes) noexcept;

/// A PNG of `pixels`, given row by row; empty when there is no memory for it.
[[nodiscard]] std::string encodePng(std::string_view pixels, Size size);

/// True when `bytes` are zlib data (RFC 1950) whose uncompressed form fits into `buffer`, where it is written.
[[nodiscard]] bool inflatesInto(std::string_view bytes, std::span<char> buffer) noexcept;

}  // namespace StbImage
}  // namespace vesko

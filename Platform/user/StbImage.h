#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace vesko {

/// What this project asks of stb, whose own functions stay inside one source: a program that embeds the library may
/// bring a stb of its own. `bytes` are at most as many as an `int` counts. Any thread.
namespace StbImage {

constexpr int bytesPerPixel = 4;  ///< red, green, blue, alpha

/// As the decoder has them; a BMP whose first row is the upper one has a negative height.
struct Size {
  int width = 0;
  int height = 0;
};

struct PixelsDeleter {
  void operator()(unsigned char* pixels) const noexcept;
};

struct Decoded {
  Size size;
  std::unique_ptr<unsigned char, PixelsDeleter> pixels;  ///< none: it cannot be decoded
};

/// What a BMP, GIF, JPEG or PNG says of its size, without decoding it; false when it is none of them.
[[nodiscard]] bool readSize(std::string_view bytes, Size& size) noexcept;

[[nodiscard]] Decoded decode(std::string_view bytes) noexcept;

/// A PNG of `pixels`, row by row; empty when there is no memory for it.
[[nodiscard]] std::string encodePng(std::string_view pixels, Size size);

/// True when `bytes` are what zlib packed (RFC 1950) and, unpacked into `buffer`, fit there.
[[nodiscard]] bool inflatesInto(std::string_view bytes, std::span<char> buffer) noexcept;

}  // namespace StbImage
}  // namespace vesko

#include "Platform/user/NSImage.h"

#include <memory>
#include <utility>

#include "Platform/user/ImageChecks.h"

#define STBI_NO_STDIO
#include <stb/stb_image.h>
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>

namespace vesko {
namespace {

using ImageChecks::pngSignature;

constexpr int bytesPerPixel = STBI_rgb_alpha;

struct PixelsDeleter {
  void operator()(stbi_uc* pixels) const noexcept { stbi_image_free(pixels); }
};
using Pixels = std::unique_ptr<stbi_uc, PixelsDeleter>;

const stbi_uc* firstOf(std::string_view bytes) noexcept { return reinterpret_cast<const stbi_uc*>(bytes.data()); }

/// What a picture of any kind says of its size.
std::optional<ImageSize> sizeOfImage(std::string_view bytes) {
  if (bytes.starts_with(pngSignature)) return sizeOfPng(bytes);
  const bool mayBeJpeg = bytes.starts_with('\xff');
  if (mayBeJpeg && !ImageChecks::hasModestTables(bytes)) return std::nullopt;
  int width = 0;
  int height = 0;
  int channels = 0;
  const int length = static_cast<int>(bytes.size());
  if (stbi_info_from_memory(firstOf(bytes), length, &width, &height, &channels) == 0) return std::nullopt;
  // A BMP whose first row is the upper one has a negative height.
  const auto rows = static_cast<std::uint32_t>(height);
  return ImageSize{static_cast<std::uint32_t>(width), height < 0 ? 0 - rows : rows};
}

struct DecodedImage {
  ImageSize size;
  Pixels pixels;
};

std::optional<DecodedImage> decodedImage(std::string_view bytes, std::uint32_t maximumSide) {
  if (!std::in_range<int>(bytes.size())) return std::nullopt;
  const auto size = sizeOfImage(bytes);
  const auto isFitting = [maximumSide](std::uint32_t side) { return side > 0 && side <= maximumSide; };
  if (!size || !isFitting(size->width) || !isFitting(size->height)) return std::nullopt;
  if (bytes.starts_with(pngSignature) && !ImageChecks::isModestPng(bytes, *size)) return std::nullopt;
  int width = 0;
  int height = 0;
  int channels = 0;
  const int length = static_cast<int>(bytes.size());
  Pixels pixels(stbi_load_from_memory(firstOf(bytes), length, &width, &height, &channels, bytesPerPixel));
  const bool isAsAnnounced = std::cmp_equal(width, size->width) && std::cmp_equal(height, size->height);
  if (pixels == nullptr || !isAsAnnounced) return std::nullopt;
  return DecodedImage{*size, std::move(pixels)};
}

void append(void* text, void* bytes, int length) {
  static_cast<std::string*>(text)->append(static_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

}  // namespace

std::optional<ImageSize> sizeOfPng(std::string_view bytes) {
  constexpr std::string_view header("\0\0\0\x0dIHDR", 8);
  constexpr std::size_t sizeLength = 8;
  if (!bytes.starts_with(pngSignature)) return std::nullopt;
  bytes.remove_prefix(pngSignature.size());
  if (!bytes.starts_with(header) || bytes.size() < header.size() + sizeLength) return std::nullopt;
  bytes.remove_prefix(header.size());
  return ImageSize{ImageChecks::bigEndianNumber(bytes.substr(0, 4)), ImageChecks::bigEndianNumber(bytes.substr(4, 4))};
}

bool isSanePng(std::string_view bytes, std::uint32_t maximumSide) {
  return bytes.starts_with(pngSignature) && decodedImage(bytes, maximumSide).has_value();
}

std::optional<NSImage> NSImage::decode(std::string_view bytes) {
  const auto image = decodedImage(bytes, maximumSide);
  if (!image) return std::nullopt;
  const auto length = std::size_t{image->size.width} * image->size.height * bytesPerPixel;
  return NSImage(image->size, std::string(reinterpret_cast<const char*>(image->pixels.get()), length));
}

std::optional<std::string> NSImage::pngRepresentation() const {
  const int width = static_cast<int>(size_.width);
  const int height = static_cast<int>(size_.height);
  std::string png;
  if (stbi_write_png_to_func(append, &png, width, height, bytesPerPixel, pixels_.data(), width * bytesPerPixel) == 0) {
    return std::nullopt;
  }
  return png;
}

}  // namespace vesko

#include "Platform/user/NSImage.h"

#include <utility>

#include "Platform/user/ImageChecks.h"
#include "Platform/user/StbImage.h"

namespace vesko {
namespace {

using ImageChecks::pngSignature;

/// What a picture of any kind says of its size.
std::optional<ImageSize> sizeOfImage(std::string_view bytes) {
  if (bytes.starts_with(pngSignature)) return sizeOfPng(bytes);
  const bool mayBeJpeg = bytes.starts_with('\xff');
  if (mayBeJpeg && !ImageChecks::hasModestTables(bytes)) return std::nullopt;
  StbImage::Size size;
  if (!StbImage::readSize(bytes, size)) return std::nullopt;
  const auto rows = static_cast<std::uint32_t>(size.height);
  return ImageSize{static_cast<std::uint32_t>(size.width), size.height < 0 ? 0 - rows : rows};
}

struct DecodedImage {
  ImageSize size;
  StbImage::Decoded decoded;
};

std::optional<DecodedImage> decodedImage(std::string_view bytes, std::uint32_t maximumSide) {
  if (!std::in_range<int>(bytes.size())) return std::nullopt;
  const auto size = sizeOfImage(bytes);
  const auto isFitting = [maximumSide](std::uint32_t side) { return side > 0 && side <= maximumSide; };
  if (!size || !isFitting(size->width) || !isFitting(size->height)) return std::nullopt;
  if (bytes.starts_with(pngSignature) && !ImageChecks::decodesWithin(bytes, *size)) return std::nullopt;
  auto decoded = StbImage::decode(bytes);
  const bool isAsAnnounced =
      std::cmp_equal(decoded.size.width, size->width) && std::cmp_equal(decoded.size.height, size->height);
  if (decoded.pixels == nullptr || !isAsAnnounced) return std::nullopt;
  return DecodedImage{*size, std::move(decoded)};
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
  const auto length = std::size_t{image->size.width} * image->size.height * StbImage::bytesPerPixel;
  return NSImage(image->size, std::string(reinterpret_cast<const char*>(image->decoded.pixels.get()), length));
}

std::optional<std::string> NSImage::pngRepresentation() const {
  std::string png = StbImage::encodePng(pixels_, {static_cast<int>(size_.width), static_cast<int>(size_.height)});
  if (png.empty()) return std::nullopt;
  return png;
}

}  // namespace vesko

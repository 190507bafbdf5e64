#include "Platform/user/ImageChecks.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Platform/user/StbImage.h"

namespace vesko::ImageChecks {
namespace {

constexpr std::size_t chunkHeader = 8;    // length and type
constexpr std::size_t chunkChecksum = 4;  // after the data

/// The data of all IDAT chunks of a PNG; none when a chunk is longer than what is there.
std::optional<std::string> compressedPixels(std::string_view png) {
  std::string compressed;
  png.remove_prefix(pngSignature.size());
  while (png.size() >= chunkHeader) {
    const std::size_t length = bigEndianNumber(png.substr(0, 4));
    const auto type = png.substr(4, 4);
    if (type == "IEND") return compressed;
    if (length + chunkHeader + chunkChecksum > png.size()) break;
    if (type == "IDAT") compressed += png.substr(chunkHeader, length);
    png.remove_prefix(chunkHeader + length + chunkChecksum);
  }
  return std::nullopt;
}

/// Whether the tables of a segment fit.
bool areModest(std::string_view tables) {
  constexpr std::size_t header = 17;      // what it is for, and how many codes there are of each length from 1 to 16
  constexpr std::size_t mostCodes = 255;  // the number after them is the decoder's sign for none
  while (tables.size() >= header) {
    std::size_t codes = 0;
    for (const char count : tables.substr(1, header - 1)) codes += static_cast<std::uint8_t>(count);
    if (codes > mostCodes) return false;
    tables.remove_prefix(std::min(header + codes, tables.size()));
  }
  return tables.empty();
}

void skipTo(std::size_t index, std::string_view& text) { text.remove_prefix(std::min(index, text.size())); }

}  // namespace

std::uint32_t bigEndianNumber(std::string_view bytes) noexcept {
  std::uint32_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<std::uint8_t>(byte);
  return number;
}

bool decodesWithin(std::string_view png, ImageSize size) {
  constexpr std::uint64_t widestPixel = 8;
  constexpr std::uint64_t surplus = 65536;  // is passed over by decoders
  // Interlaced, it has up to this many rows, each with one byte before and one for pixels that do not fill theirs.
  const std::uint64_t rows = 2 * std::uint64_t{size.height} + 7;
  const std::uint64_t capacity = size.width * widestPixel * size.height + 2 * rows + surplus;
  const auto compressed = compressedPixels(png);
  if (!compressed || !std::in_range<int>(compressed->size()) || !std::in_range<int>(capacity)) return false;
  const auto buffer = std::make_unique_for_overwrite<char[]>(capacity);
  return StbImage::inflatesInto(*compressed, {buffer.get(), capacity});
}

bool hasModestTables(std::string_view jpeg) {
  constexpr char escape = '\xff';  // before a marker, any number of times
  while (true) {
    skipTo(jpeg.find(escape), jpeg);
    skipTo(jpeg.find_first_not_of(escape), jpeg);
    if (jpeg.empty()) return true;
    const auto marker = static_cast<std::uint8_t>(jpeg.front());
    jpeg.remove_prefix(1);
    if (marker == 0xD9) return true;
    // A pixel's byte, where decoding can be taken up again, or the beginning.
    if (marker == 0 || (marker >= 0xD0 && marker <= 0xD8)) continue;
    const std::size_t length = bigEndianNumber(jpeg.substr(0, 2));
    if (length < 2 || length > jpeg.size()) return false;
    if (marker == 0xC4 && !areModest(jpeg.substr(2, length - 2))) return false;
    jpeg.remove_prefix(length);
  }
}

}  // namespace vesko::ImageChecks

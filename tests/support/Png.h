#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vesko {

/// PNGs put together by hand, so that anything in them can be wrong.
namespace Png {

inline const std::string signature = "\x89PNG\r\n\x1a\n";

inline std::string bigEndian(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xFF);
  return bytes;
}

/// `length` is what the chunk says of itself. Its checksum is that of nothing: decoders in use do not look at it.
inline std::string chunk(std::string_view type, std::string_view data, std::uint32_t length) {
  return bigEndian(length).append(type).append(data).append(4, '\0');
}
inline std::string chunk(std::string_view type, std::string_view data) {
  return chunk(type, data, static_cast<std::uint32_t>(data.size()));
}

/// The chunk of the size; pixels are red, green and blue, a byte each.
inline std::string header(std::uint32_t width, std::uint32_t height) {
  return signature + chunk("IHDR", bigEndian(width) + bigEndian(height) + std::string("\x08\x02\0\0\0", 5));
}

/// zlib data of one stored block, its checksum missing.
inline std::string stored(const std::string& bytes) {
  const auto low = static_cast<char>(bytes.size() & 0xFF);
  const auto high = static_cast<char>(bytes.size() >> 8);
  return std::string("\x78\x01\x01") + low + high + static_cast<char>(~low) + static_cast<char>(~high) + bytes;
}

/// A picture whose rows are given, each with a byte for its filter in front.
inline std::string ofRows(std::uint32_t width, std::uint32_t height, const std::string& rows) {
  return header(width, height) + chunk("IDAT", stored(rows)) + chunk("IEND", "");
}

/// One pixel.
inline std::string ofColor(std::string_view redGreenBlue) {
  return ofRows(1, 1, std::string(1, '\0').append(redGreenBlue));
}

}  // namespace Png
}  // namespace vesko

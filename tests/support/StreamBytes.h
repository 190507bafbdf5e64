#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// The bytes of a transfer, put together by hand.
namespace vesko::StreamBytes {

constexpr std::uint64_t folderSize = ~std::uint64_t{0};
constexpr std::string_view textName = "___VIRNO___TEXT___";

inline std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  while (count-- > 0) result += text;
  return result;
}

inline std::string number(std::uint64_t value) {
  std::string bytes;
  for (int shift = 0; shift < 64; shift += 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

inline std::string metadata(std::uint64_t elementCount, std::uint64_t totalSize) {
  return number(elementCount) + number(totalSize);
}

inline std::string header(std::string_view name, std::uint64_t size) { return std::string(name) + '\0' + number(size); }

inline std::string folder(std::string_view name) { return header(name, folderSize); }

inline std::string file(std::string_view name, std::string_view body) {
  return header(name, body.size()) + std::string(body);
}

/// A folder A with a file b.txt of five bytes.
inline std::string folderWithFile() { return metadata(2, 5) + folder("A") + file("A/b.txt", "hello"); }

}  // namespace vesko::StreamBytes

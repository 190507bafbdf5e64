#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/files/Data.h"

/// The bytes of a transfer: 16 bytes of metadata, then for each element its name, a 0x00 byte, its size and its body.
/// Pure functions; any thread.
namespace vesko::TransferStream {

struct Metadata {
  std::uint64_t elementCount = 0;
  std::uint64_t totalSize = 0;  ///< bytes of all bodies
  friend bool operator==(const Metadata&, const Metadata&) = default;
};

constexpr std::uint64_t metadataLength = 16;  ///< bytes
constexpr std::uint64_t sizeFieldLength = 8;  ///< bytes

/// The value of a folder's size field: all 64 bits set. No file can be of this length.
constexpr std::uint64_t folderMark = ~std::uint64_t{0};

/// The name of a snippet of text, which is the only element of its transfer.
constexpr std::string_view textName = "___VIRNO___TEXT___";

/// A name may have this many bytes: the longest path that Linux takes (PATH_MAX, limits.h).
constexpr std::size_t maximumNameLength = 4096;

/// And this many components, so that nobody makes us build a tower of folders.
constexpr std::size_t maximumNameDepth = 256;

[[nodiscard]] Data encodeMetadata(const Metadata& metadata);
[[nodiscard]] Metadata decodeMetadata(const Data& bytes);  ///< Requires: `metadataLength` bytes.

[[nodiscard]] Data encodeHeader(std::string_view name, std::uint64_t sizeField);
[[nodiscard]] std::uint64_t decodeSizeField(const Data& bytes);  ///< Requires: `sizeFieldLength` bytes.

[[nodiscard]] bool isText(std::string_view name, std::uint64_t elementCount) noexcept;

enum class NameVerdict : std::uint8_t {
  good,
  unsafe,   ///< empty, ".", absolute, or with a ".." component
  invalid,  ///< not UTF-8
  tooLong,
  tooDeep,
};

/// What to think of an element's name. Anything not named above is good, control characters included. One that could
/// lead out of the folder received into is refused, never rewritten: what it was to mean is anybody's guess.
[[nodiscard]] NameVerdict checkName(std::string_view name) noexcept;

/// The components of a good name, without empty and "." ones: at least one.
[[nodiscard]] std::vector<std::string> componentsOfName(std::string_view name);

}  // namespace vesko::TransferStream

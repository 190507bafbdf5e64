#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/files/Data.h"

/// The stream of bytes of a transfer: encoding and decoding. Pure functions; any thread.
///
///     metadata  8 bytes number of elements, 8 bytes total size of all bodies
///     element   name in UTF-8, 0x00, 8 bytes size (all bits set: a folder), body of that size; repeated
///
/// Numbers are unsigned and little-endian.
namespace vesko::TransferStream {

struct Metadata {
  std::uint64_t elementCount = 0;
  std::uint64_t totalSize = 0;  ///< bytes of all bodies
  friend bool operator==(const Metadata&, const Metadata&) = default;
};

constexpr std::uint64_t metadataLength = 16;  ///< bytes
constexpr std::uint64_t sizeFieldLength = 8;  ///< bytes

/// The size field of a folder, which has no body.
constexpr std::uint64_t folderMark = ~std::uint64_t{0};

/// The name of a text. It means a text only where it is the only element.
constexpr std::string_view textName = "___VIRNO___TEXT___";

/// A name has at most this many bytes, inclusive: the longest path that Linux accepts (PATH_MAX, limits.h).
constexpr std::size_t maximumNameLength = 4096;

/// And at most this many components, inclusive, so that a sender cannot make the receiver create folders without end.
constexpr std::size_t maximumNameDepth = 256;

[[nodiscard]] Data encodeMetadata(const Metadata& metadata);
[[nodiscard]] Metadata decodeMetadata(const Data& bytes);  ///< Requires: `metadataLength` bytes.

/// The header of an element: name, 0x00, size field.
[[nodiscard]] Data encodeHeader(std::string_view name, std::uint64_t sizeField);
[[nodiscard]] std::uint64_t decodeSizeField(const Data& bytes);  ///< Requires: `sizeFieldLength` bytes.

/// True when the only element of a transfer has the name of a text.
[[nodiscard]] bool isText(std::string_view name, std::uint64_t elementCount) noexcept;

enum class NameVerdict : std::uint8_t {
  good,
  unsafe,   ///< empty, ".", absolute, or with a ".." component
  invalid,  ///< not UTF-8
  tooLong,
  tooDeep,
};

/// Judges the name of a received element. Whatever is not listed above is good, control characters included. An unsafe
/// name is refused rather than corrected, because nobody can know what it was meant to be.
[[nodiscard]] NameVerdict checkName(std::string_view name) noexcept;

/// The components of a good name, at least one, without those that are empty or ".".
[[nodiscard]] std::vector<std::string> componentsOfName(std::string_view name);

}  // namespace vesko::TransferStream

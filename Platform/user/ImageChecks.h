#pragma once

#include <cstdint>
#include <string_view>

#include "Platform/user/NSImage.h"

/// Checks that the decoders of pictures rely on but do not make themselves. Any thread.
namespace vesko::ImageChecks {

/// The first bytes of every PNG.
inline constexpr std::string_view pngSignature = "\x89PNG\r\n\x1a\n";

/// The big-endian number in at most four bytes.
[[nodiscard]] std::uint32_t bigEndianNumber(std::string_view bytes) noexcept;

/// True when the pixels of a PNG, uncompressed, take no more memory than a picture of this size may. The decoder
/// believes the lengths of chunks, and it would allocate a thousand times the length of compressed pixels. Requires:
/// `png` begins with the signature.
[[nodiscard]] bool decodesWithin(std::string_view png, ImageSize size);

/// True when no Huffman table of a JPEG has more codes than the decoder has room for, and none is cut off.
[[nodiscard]] bool hasModestTables(std::string_view jpeg);

}  // namespace vesko::ImageChecks

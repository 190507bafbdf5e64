#pragma once

#include <cstdint>
#include <string_view>

#include "Platform/user/NSImage.h"

/// What the decoders of pictures do not check themselves, although they rely on it. Any thread.
namespace vesko::ImageChecks {

/// What a PNG begins with.
inline constexpr std::string_view pngSignature = "\x89PNG\r\n\x1a\n";

/// The number that at most four bytes stand for, the first being the highest.
[[nodiscard]] std::uint32_t bigEndianNumber(std::string_view bytes) noexcept;

/// True when the pixels of a PNG take about as much memory as this size asks for at most. The decoder believes the
/// length of a chunk, and gives compressed pixels as much as they ask for: a thousand times their own length. Requires:
/// `png` begins with the signature.
[[nodiscard]] bool decodesWithin(std::string_view png, ImageSize size);

/// True when no table of codes in a JPEG has more of them than the decoder has room for, and none is cut off.
[[nodiscard]] bool hasModestTables(std::string_view jpeg);

}  // namespace vesko::ImageChecks

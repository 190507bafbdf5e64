#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vesko {

/// `bytes` in base 64 (RFC 4648, section 4), padded, without line breaks. Any thread.
[[nodiscard]] std::string base64Encoded(std::string_view bytes);

/// The bytes that `text` encodes. None unless it is exactly what `base64Encoded` writes for them: padded, without line
/// breaks, the unused bits 0. Any thread.
[[nodiscard]] std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace vesko

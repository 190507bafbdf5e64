#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vesko {

/// A way of storing text as bytes. Texts inside the library are always UTF-8.
enum class TextEncoding : std::uint8_t { utf8, cp1252, utf16LittleEndian };

/// The name of the encoding, for messages.
[[nodiscard]] std::string_view nameOfEncoding(TextEncoding encoding) noexcept;

/// A character and the number of bytes it takes in UTF-8; a length of 0 means that there is none.
struct Utf8Character {
  char32_t codePoint = 0;
  std::size_t length = 0;
};

/// The character that `bytes` begin with. None when they are empty or do not begin with well-formed UTF-8. Any thread.
[[nodiscard]] Utf8Character firstUtf8Character(std::string_view bytes) noexcept;

/// True when `bytes` are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF). Any
/// thread.
[[nodiscard]] bool isValidUtf8(std::string_view bytes) noexcept;

/// The longest beginning of the UTF-8 `text` that has at most `length` bytes and does not cut a character. Any thread.
[[nodiscard]] std::string_view beginningOfUtf8(std::string_view text, std::size_t length) noexcept;

/// `bytes` as valid UTF-8: each byte that is not part of a character is replaced by U+FFFD. Any thread.
[[nodiscard]] std::string withReplacements(std::string_view bytes);

/// The UTF-8 `text` in another encoding. None when `text` is not UTF-8 or has a character that `encoding` lacks. Any
/// thread.
[[nodiscard]] std::optional<std::string> encodeText(std::string_view text, TextEncoding encoding);

/// The text that `bytes` are in `encoding`, as UTF-8. None when they are not valid in it. Any thread.
[[nodiscard]] std::optional<std::string> decodeText(std::string_view bytes, TextEncoding encoding);

}  // namespace vesko

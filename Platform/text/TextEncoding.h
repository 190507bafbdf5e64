#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vesko {

/// A way of writing texts as bytes. Texts of this program are UTF-8 throughout.
enum class TextEncoding : std::uint8_t { utf8, cp1252, utf16LittleEndian };

/// A readable name of the encoding, for messages.
[[nodiscard]] std::string_view nameOfEncoding(TextEncoding encoding) noexcept;

/// One character and the bytes it takes in UTF-8; 0 bytes: none.
struct Utf8Character {
  char32_t codePoint = 0;
  std::size_t length = 0;
};

/// The character that `bytes` begin with, or none when they are empty or begin with something ill-formed.
[[nodiscard]] Utf8Character firstUtf8Character(std::string_view bytes) noexcept;

/// True when `bytes` are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF).
[[nodiscard]] bool isValidUtf8(std::string_view bytes) noexcept;

/// The longest beginning of `text`, which is UTF-8, that has at most `length` bytes and cuts no character. Any thread.
[[nodiscard]] std::string_view beginningOfUtf8(std::string_view text, std::size_t length) noexcept;

/// The bytes as UTF-8, each one that is no part of it replaced by U+FFFD. Any thread.
[[nodiscard]] std::string withReplacements(std::string_view bytes);

/// The text in `encoding`, or none when a character cannot be written in it or `text` is not UTF-8. Any thread.
[[nodiscard]] std::optional<std::string> encodeText(std::string_view text, TextEncoding encoding);

/// The text whose bytes in `encoding` are given, or none when they are not text in it. Any thread.
[[nodiscard]] std::optional<std::string> decodeText(std::string_view bytes, TextEncoding encoding);

}  // namespace vesko

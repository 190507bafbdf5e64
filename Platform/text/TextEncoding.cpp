#include "Platform/text/TextEncoding.h"

#include <iconv.h>

#include <algorithm>
#include <cstring>

namespace vesko {
namespace {

// How many of the first bytes are certainly ASCII, counted in words.
std::size_t lengthOfAsciiWords(std::string_view bytes) noexcept {
  constexpr std::uint64_t highBits = 0x8080808080808080U;
  std::uint64_t word = 0;
  std::size_t length = 0;
  for (; bytes.size() - length >= sizeof word; length += sizeof word) {
    std::memcpy(&word, bytes.data() + length, sizeof word);
    if ((word & highBits) != 0) break;
  }
  return length;
}

bool isAscii(std::string_view text) noexcept {
  text.remove_prefix(lengthOfAsciiWords(text));
  return std::none_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) != 0; });
}

// The length a first byte announces and the range of the second byte, which is where overlong forms, surrogates and
// characters above U+10FFFF show (RFC 3629, section 4).
struct Utf8Form {
  std::size_t length;
  std::uint8_t lowestSecond;
  std::uint8_t highestSecond;
};

constexpr Utf8Form formOf(std::uint8_t first) noexcept {
  if (first < 0x80) return {1, 0, 0};
  if (first < 0xC2) return {0, 0, 0};
  if (first < 0xE0) return {2, 0x80, 0xBF};
  if (first < 0xF0) return {3, std::uint8_t(first == 0xE0 ? 0xA0 : 0x80), std::uint8_t(first == 0xED ? 0x9F : 0xBF)};
  if (first < 0xF5) return {4, std::uint8_t(first == 0xF0 ? 0x90 : 0x80), std::uint8_t(first == 0xF4 ? 0x8F : 0xBF)};
  return {0, 0, 0};
}

const char* iconvName(TextEncoding encoding) noexcept {
  switch (encoding) {
    case TextEncoding::utf8:
      return "UTF-8";
    case TextEncoding::cp1252:
      return "CP1252";
    case TextEncoding::utf16LittleEndian:
      return "UTF-16LE";
  }
  return "";
}

class Converter {
 public:
  Converter(TextEncoding to, TextEncoding from) noexcept : handle_(::iconv_open(iconvName(to), iconvName(from))) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (isOpen()) ::iconv_close(handle_);
  }

  // None as well when the system lacks the encoding: then nothing can be written in it.
  [[nodiscard]] std::optional<std::string> convert(std::string_view bytes) const {
    if (!isOpen()) return std::nullopt;
    // One byte of code page 1252 becomes at most three of UTF-8; no other pair grows more.
    std::string converted(bytes.size() * 3, '\0');
    char* input = const_cast<char*>(bytes.data());
    std::size_t inputLeft = bytes.size();
    char* output = converted.data();
    std::size_t outputLeft = converted.size();
    if (::iconv(handle_, &input, &inputLeft, &output, &outputLeft) != 0) return std::nullopt;
    converted.resize(converted.size() - outputLeft);
    return converted;
  }

 private:
  [[nodiscard]] bool isOpen() const noexcept { return handle_ != reinterpret_cast<iconv_t>(-1); }

  iconv_t handle_;
};

std::optional<std::string> copyIf(bool isText, std::string_view bytes) {
  return isText ? std::optional<std::string>(bytes) : std::nullopt;
}

}  // namespace

std::string_view nameOfEncoding(TextEncoding encoding) noexcept {
  switch (encoding) {
    case TextEncoding::utf8:
      return "Unicode (UTF-8)";
    case TextEncoding::cp1252:
      return "Western European (code page 1252)";
    case TextEncoding::utf16LittleEndian:
      return "Unicode (UTF-16, little-endian)";
  }
  return "";
}

Utf8Character firstUtf8Character(std::string_view bytes) noexcept {
  const auto byteAt = [bytes](std::size_t index) { return static_cast<std::uint8_t>(bytes[index]); };
  if (bytes.empty()) return {};
  const auto [length, lowestSecond, highestSecond] = formOf(byteAt(0));
  if (length == 1) return {byteAt(0), 1};
  if (length == 0 || length > bytes.size() || byteAt(1) < lowestSecond || byteAt(1) > highestSecond) return {};
  char32_t codePoint = byteAt(0) & (0x7FU >> length);
  for (std::size_t index = 1; index < length; ++index) {
    if ((byteAt(index) & 0xC0) != 0x80) return {};
    codePoint = codePoint << 6 | (byteAt(index) & 0x3FU);
  }
  return {codePoint, length};
}

bool isValidUtf8(std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    bytes.remove_prefix(lengthOfAsciiWords(bytes));
    // A run without a whole ASCII word is walked in one go, so that the word test is not repeated for each character.
    for (std::size_t walked = 0; walked < sizeof(std::uint64_t) && !bytes.empty();) {
      const auto length = firstUtf8Character(bytes).length;
      if (length == 0) return false;
      bytes.remove_prefix(length);
      walked += length;
    }
  }
  return true;
}

std::string_view beginningOfUtf8(std::string_view text, std::size_t length) noexcept {
  if (text.size() <= length) return text;
  while (length > 0 && (text[length] & 0xC0) == 0x80) --length;
  return text.substr(0, length);
}

std::string withReplacements(std::string_view bytes) {
  constexpr std::string_view replacement = "\uFFFD";
  std::string text;
  while (!bytes.empty()) {
    const auto length = firstUtf8Character(bytes).length;
    text += length > 0 ? bytes.substr(0, length) : replacement;
    bytes.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return text;
}

std::optional<std::string> encodeText(std::string_view text, TextEncoding encoding) {
  if (encoding == TextEncoding::utf8) return copyIf(isValidUtf8(text), text);
  if (encoding == TextEncoding::cp1252 && isAscii(text)) return std::string(text);
  return isValidUtf8(text) ? Converter(encoding, TextEncoding::utf8).convert(text) : std::nullopt;
}

std::optional<std::string> decodeText(std::string_view bytes, TextEncoding encoding) {
  if (encoding == TextEncoding::utf8) return copyIf(isValidUtf8(bytes), bytes);
  if (encoding == TextEncoding::cp1252 && isAscii(bytes)) return std::string(bytes);
  return Converter(TextEncoding::utf8, encoding).convert(bytes);
}

}  // namespace vesko

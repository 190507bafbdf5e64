#include <algorithm>
#include <utility>

#include "Platform/files/Data.h"
#include "Platform/process/Assert.h"
#include "Platform/text/TextEncoding.h"
#include "VeskoKit/BinUtils.h"
#include "VeskoKit/Log.h"

namespace vesko {
namespace {

constexpr std::string_view digits = "0123456789ABCDEF";

char upperCase(char character) noexcept {
  return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

/// The number of bytes in `text` before an offset that is counted in UTF-16 units. None when the offset lies outside
/// the text or inside a character.
std::optional<std::size_t> bytesBefore(std::size_t utf16Offset, std::string_view text) noexcept {
  std::size_t bytes = 0;
  for (std::size_t units = 0; units < utf16Offset;) {
    if (bytes == text.size()) return std::nullopt;
    const auto [codePoint, length] = firstUtf8Character(text.substr(bytes));
    units += codePoint > 0xFFFF ? 2 : 1;
    if (units > utf16Offset) return std::nullopt;
    bytes += std::max<std::size_t>(length, 1);
  }
  return bytes;
}

}  // namespace

std::string hexlify(const Data& data) { return data.hexEncodedString(); }

std::optional<Data> unhexlify(std::string_view text) {
  std::string bytes;
  std::size_t count = 0;
  for (const char character : text) {
    if (character == ' ') continue;
    // Only ASCII letters count: no other character has a hexadecimal digit as its upper case.
    const auto digit = digits.find(upperCase(character));
    if (digit == digits.npos) {
      const auto range = std::to_string(count) + "..<" + std::to_string(count + 1);
      Log::line("-- found non hex character at range", range);
      return std::nullopt;
    }
    if (count++ % 2 == 0) {
      bytes += static_cast<char>(digit << 4);
    } else {
      bytes.back() = static_cast<char>(static_cast<std::uint8_t>(bytes.back()) | digit);
    }
  }
  if (count % 2 != 0) {
    Log::line("-- found odd number of hex characters:", count);
    return std::nullopt;
  }
  return Data(std::move(bytes));
}

std::string substring(std::string_view text, std::size_t i, std::size_t j) {
  const auto first = bytesBefore(i, text);
  const auto last = bytesBefore(j, text);
  if (!first || !last || i > j) {
    assertionFailure("no range of the text: " + std::to_string(i) + "..<" + std::to_string(j));
    return {};
  }
  return std::string(text.substr(*first, *last - *first));
}

}  // namespace vesko

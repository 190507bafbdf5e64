#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Packs typed values into bytes and unpacks them again, as a short format says; also bytes to hexadecimal digits and
/// back. Everything here is without state; any thread.
///
///     const Data packed = pack("<H2s", {UInt{4644}, std::string("ok")});        // bytes 24 12 6f 6b
///     const std::vector<Unpackable> values = unpack("<H2s", packed);            // UInt{4644}, "ok"
///
/// This is for programs that embed the library, for formats of their own. The library does not use it: the formats on
/// the network are written and read by `TransferStream` and `DiscoveryDatagram`.
///
/// A format is one character for the byte order ("<" and "=" little-endian, ">" and "!" big-endian), followed by items,
/// each with an optional decimal count in front: 0 or none means one. The count repeats the item; for "s" it is the
/// length in bytes.
///
///     x   one byte without a value          ?     bool, 1 byte
///     c   text, one code of the encoding    s     text, count bytes, cut or padded with 0
///     b B  Int, UInt, 1 byte                h H   Int, UInt, 2 bytes
///     i l  Int, 4 bytes                     I L   UInt, 4 bytes
///     q Q  int64, uint64, 8 bytes           f d   double, stored in 4 or 8 bytes
///
/// Integers are narrowed without a check of their range. A big-endian `pack` reverses the bytes of every item, texts
/// included; a big-endian `unpack` reverses numbers only.
///
/// Formats and values that do not fit are mistakes of the caller: an assertion fails in debug builds ("after the
/// assertion" below); other builds return what the operation says.
namespace vesko {

class Data;
enum class TextEncoding : std::uint8_t;

/// A signed and an unsigned number of 64 bits. They are types of their own, different from `std::int64_t` and
/// `std::uint64_t`, because the items of a format distinguish them.
struct Int {
  std::int64_t value = 0;
  friend bool operator==(Int, Int) = default;
};
struct UInt {
  std::uint64_t value = 0;
  friend bool operator==(UInt, UInt) = default;
};

/// One value that `pack` takes or `unpack` returns. Its type must be exactly the one that the item of the format has.
using Unpackable = std::variant<std::string, bool, Int, UInt, std::int64_t, std::uint64_t, double>;

/// A type of fixed width that is written as its bytes in the machine's order.
template <class T>
/// A type of fixed width that is stored as its bytes in the machine's order.
concept DataConvertible = std::same_as<T, bool> || std::same_as<T, std::int8_t> || std::same_as<T, std::int16_t> ||
    std::same_as<T, std::int32_t> || std::same_as<T, std::int64_t> || std::same_as<T, std::uint8_t> ||
    std::same_as<T, std::uint16_t> || std::same_as<T, std::uint32_t> || std::same_as<T, std::uint64_t> ||
    std::same_as<T, float> || std::same_as<T, double>;

/// What `unpack` throws.
class BinUtilsError : public std::runtime_error {
 public:
  /// The format asks for another number of bytes than there are. (The name says the opposite and is kept.)
  struct FormatDoesMatchDataLength {
    std::string format;
    std::uint64_t dataSize = 0;  ///< bytes
  };

  /// A character that `unpack` does not know; empty when the format is.
  struct UnsupportedFormat {
    std::string character;
  };

  using Case = std::variant<FormatDoesMatchDataLength, UnsupportedFormat>;

  [[nodiscard]] static BinUtilsError formatDoesMatchDataLength(std::string_view format, std::uint64_t dataSize);
  [[nodiscard]] static BinUtilsError unsupportedFormat(std::string_view character);

  /// Which of the two it is, and its details.
  [[nodiscard]] const Case& kind() const noexcept { return kind_; }

 private:
  BinUtilsError(const std::string& message, Case kind) : std::runtime_error(message), kind_(std::move(kind)) {}

  Case kind_;
};

/// The bytes of `values` in the order of `format`. Values left over are ignored. `encoding` applies to "c" alone and is
/// code page 1252 unless given; "s" writes UTF-8. An unknown item takes a value and writes nothing. Empty, after the
/// assertion, when the format is empty, a value is missing or of another type, or a text cannot be encoded.
[[nodiscard]] Data pack(std::string_view format, const std::vector<Unpackable>& values);
[[nodiscard]] Data pack(std::string_view format, const std::vector<Unpackable>& values, TextEncoding encoding);

/// The values in `data`, in the order of `format`. `encoding` applies to "s" alone and is code page 1252 unless given;
/// "c" reads UTF-8. A blank in the format is skipped. Throws `BinUtilsError` when `data` is not as long as the format
/// says (after a log line), when an item is unknown, and, after the assertion, when the format is empty. Returns
/// nothing, after the assertion, when bytes are not text in the encoding.
[[nodiscard]] std::vector<Unpackable> unpack(std::string_view format, const Data& data);
[[nodiscard]] std::vector<Unpackable> unpack(std::string_view format, const Data& data, TextEncoding encoding);

/// How many bytes `format` stands for. Blanks and byte-order characters count 0 wherever they are, "P" counts 8, an
/// unknown character counts 0 after the assertion. A sum that would overflow is the largest value.
[[nodiscard]] std::int64_t numberOfBytesInFormat(std::string_view format);

/// True when `data` is as long as `format` says; otherwise it writes a log line.
[[nodiscard]] bool formatDoesMatchDataLength(std::string_view format, const Data& data);

/// True when `format` begins with ">" or "!". False after the assertion when its first character is no byte order.
[[nodiscard]] bool isBigEndianFromMandatoryByteOrderFirstCharacter(std::string_view format);

/// The value whose bytes, in the machine's order, are given. None when their number is not the width of the type. A
/// bool is true when the lowest bit is set.
template <DataConvertible T>
[[nodiscard]] std::optional<T> valueFromBytes(std::span<const std::uint8_t> bytes) noexcept {
  std::array<std::uint8_t, sizeof(T)> stored;
  if (bytes.size() != stored.size()) return std::nullopt;
  std::copy(bytes.begin(), bytes.end(), stored.begin());
  if constexpr (std::same_as<T, bool>)
    return (stored[0] & 1) != 0;
  else
    return std::bit_cast<T>(stored);
}

/// Two lower-case hexadecimal digits for each byte, nothing between them.
[[nodiscard]] std::string hexlify(const Data& data);

/// The bytes that pairs of hexadecimal digits of either case stand for. Spaces, but no other blanks, may be anywhere.
/// None, after a log line, when there is another character or an odd number of digits; the line counts characters
/// without the spaces.
[[nodiscard]] std::optional<Data> unhexlify(std::string_view text);

/// The part of a UTF-8 text from offset `i` up to, but not including, `j`, both counted in UTF-16 units. Requires: 0 <=
/// i <= j <= the length, neither inside a character; otherwise empty after the assertion.
[[nodiscard]] std::string substring(std::string_view text, std::size_t i, std::size_t j);

namespace detail {
[[nodiscard]] Data dataFromBytes(std::span<const std::uint8_t> bytes);
[[nodiscard]] std::vector<std::uint8_t> bytesOfData(const Data& data);
}  // namespace detail

/// The same from and to a `Data`, in the machine's order.
template <DataConvertible T>
[[nodiscard]] std::optional<T> valueFromData(const Data& data) {
  return valueFromBytes<T>(detail::bytesOfData(data));
}

template <DataConvertible T>
[[nodiscard]] auto dataFromValue(T value) {
  return detail::dataFromBytes(std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(value));
}

/// The value at `loc` (in bytes from the start), in the machine's order; moves `loc` past it. Requires: the value lies
/// inside `bytes`.
template <DataConvertible T>
[[nodiscard]] T readIntegerType(std::span<const std::uint8_t> bytes, std::size_t& loc) {
  const auto stored = bytes.subspan(loc, sizeof(T));
  loc += sizeof(T);
  return *valueFromBytes<T>(stored);
}

/// The same for floating point; its bytes are reversed first when `isBigEndian`.
template <DataConvertible T>
[[nodiscard]] T readFloatingPointType(std::span<const std::uint8_t> bytes, std::size_t& loc, bool isBigEndian) {
  std::array<std::uint8_t, sizeof(T)> stored;
  std::copy_n(bytes.subspan(loc, sizeof(T)).begin(), sizeof(T), stored.begin());
  if (isBigEndian) std::reverse(stored.begin(), stored.end());
  loc += sizeof(T);
  return *valueFromBytes<T>(stored);
}

}  // namespace vesko

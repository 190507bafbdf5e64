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

/// Typed values <-> bytes, driven by a short format; and bytes <-> their digits. Everything here is free of state and
/// may be used on any thread.
///
/// Offered to programs that embed the library, for formats of theirs. The library itself does not use it: what goes
/// over the wire is made by `TransferStream` and `DiscoveryDatagram`, each with a writer and a reader of its own.
///
/// A format is one byte-order character ("<" and "=" little-endian, ">" and "!" big-endian) and then items, each with
/// an optional decimal count in front: 0 or none means one. The count repeats the item, except for "s", whose length in
/// bytes it is.
///
///     x   one byte without a value          ?     bool, 1 byte
///     c   text, one code of the encoding    s     text, count bytes, cut or padded with 0
///     b B  Int, UInt, 1 byte                h H   Int, UInt, 2 bytes
///     i l  Int, 4 bytes                     I L   UInt, 4 bytes
///     q Q  int64, uint64, 8 bytes           f d   double, stored in 4 or 8 bytes
///
/// Integers are narrowed without a range check. A big-endian `pack` reverses the bytes of every item, texts included; a
/// big-endian `unpack` reverses numbers only.
///
/// Formats and values that make no sense are mistakes of the caller: an assertion in debug builds, and in the others
/// what the operation says.
namespace vesko {

class Data;
enum class TextEncoding : std::uint8_t;

/// A signed and an unsigned machine word: kinds of their own, although a 64-bit integer is as wide.
struct Int {
  std::int64_t value = 0;
  friend bool operator==(Int, Int) = default;
};
struct UInt {
  std::uint64_t value = 0;
  friend bool operator==(UInt, UInt) = default;
};

/// One value that `pack` takes or `unpack` yields. The kind counts: each item of a format has exactly one.
using Unpackable = std::variant<std::string, bool, Int, UInt, std::int64_t, std::uint64_t, double>;

/// A type of fixed width that is written as its bytes in the machine's order.
template <class T>
concept DataConvertible = std::same_as<T, bool> || std::same_as<T, std::int8_t> || std::same_as<T, std::int16_t> ||
    std::same_as<T, std::int32_t> || std::same_as<T, std::int64_t> || std::same_as<T, std::uint8_t> ||
    std::same_as<T, std::uint16_t> || std::same_as<T, std::uint32_t> || std::same_as<T, std::uint64_t> ||
    std::same_as<T, float> || std::same_as<T, double>;

/// What `unpack` throws.
class BinUtilsError : public std::runtime_error {
 public:
  /// The format asks for another number of bytes than there are (the name notwithstanding).
  struct FormatDoesMatchDataLength {
    std::string format;
    std::uint64_t dataSize = 0;  ///< bytes
  };

  /// `unpack` does not decode this character; empty when the format is.
  struct UnsupportedFormat {
    std::string character;
  };

  using Case = std::variant<FormatDoesMatchDataLength, UnsupportedFormat>;

  [[nodiscard]] static BinUtilsError formatDoesMatchDataLength(std::string_view format, std::uint64_t dataSize);
  [[nodiscard]] static BinUtilsError unsupportedFormat(std::string_view character);

  /// Which of the two it is, with what belongs to it.
  [[nodiscard]] const Case& kind() const noexcept { return kind_; }

 private:
  BinUtilsError(const std::string& message, Case kind) : std::runtime_error(message), kind_(std::move(kind)) {}

  Case kind_;
};

/// The bytes of `values` in the order of `format`. Values left over are ignored. `encoding` is that of "c" alone (code
/// page 1252 unless given); "s" writes UTF-8. A character that is no item takes a value and writes nothing. Empty after
/// the assertion when the format is empty, a value is missing or of another kind, or a text cannot be encoded.
[[nodiscard]] Data pack(std::string_view format, const std::vector<Unpackable>& values);
[[nodiscard]] Data pack(std::string_view format, const std::vector<Unpackable>& values, TextEncoding encoding);

/// The values in `data`, in the order of `format`. `encoding` is that of "s" alone (code page 1252 unless given); "c"
/// reads UTF-8. Throws `BinUtilsError` when the lengths differ (after a log line) or a character is not decoded (a
/// blank is skipped), and for an empty format after the assertion. Empty after the assertion when bytes are not text.
[[nodiscard]] std::vector<Unpackable> unpack(std::string_view format, const Data& data);
[[nodiscard]] std::vector<Unpackable> unpack(std::string_view format, const Data& data, TextEncoding encoding);

/// The bytes that `format` stands for. Blanks and byte-order characters count 0 anywhere, "P" counts 8, an unknown
/// character 0 after the assertion. A sum that would overflow stays at the largest value.
[[nodiscard]] std::int64_t numberOfBytesInFormat(std::string_view format);

/// True when `data` is as long as `format` says; writes a log line when it is not.
[[nodiscard]] bool formatDoesMatchDataLength(std::string_view format, const Data& data);

/// True when `format` begins with ">" or "!"; false after the assertion when its first character gives no order.
[[nodiscard]] bool isBigEndianFromMandatoryByteOrderFirstCharacter(std::string_view format);

/// The bytes of a value in the machine's order, and the way back. A length other than the width of the type gives none;
/// a bool is true when the lowest bit is set.
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

/// Two lower-case hexadecimal digits a byte, nothing between them.
[[nodiscard]] std::string hexlify(const Data& data);

/// The bytes that pairs of hexadecimal digits of either case stand for; spaces, and no other blanks, may be anywhere.
/// None, after a log line, when another character is found or a digit is left over. The line counts characters without
/// the spaces.
[[nodiscard]] std::optional<Data> unhexlify(std::string_view text);

/// The part of a UTF-8 text from offset `i` up to, not including, `j`, both in units of UTF-16. Requires: 0 <= i <= j
/// <= the length, neither inside of a character; empty after the assertion otherwise.
[[nodiscard]] std::string substring(std::string_view text, std::size_t i, std::size_t j);

namespace detail {
[[nodiscard]] Data dataFromBytes(std::span<const std::uint8_t> bytes);
[[nodiscard]] std::vector<std::uint8_t> bytesOfData(const Data& data);
}  // namespace detail

template <DataConvertible T>
[[nodiscard]] std::optional<T> valueFromData(const Data& data) {
  return valueFromBytes<T>(detail::bytesOfData(data));
}

template <DataConvertible T>
[[nodiscard]] auto dataFromValue(T value) {
  return detail::dataFromBytes(std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(value));
}

/// The value at `loc` (bytes from the start) in the machine's order; `loc` moves past it. Requires: it lies inside
/// `bytes`.
template <DataConvertible T>
[[nodiscard]] T readIntegerType(std::span<const std::uint8_t> bytes, std::size_t& loc) {
  const auto stored = bytes.subspan(loc, sizeof(T));
  loc += sizeof(T);
  return *valueFromBytes<T>(stored);
}

/// The same for floating point, its bytes reversed first when `isBigEndian`.
template <DataConvertible T>
[[nodiscard]] T readFloatingPointType(std::span<const std::uint8_t> bytes, std::size_t& loc, bool isBigEndian) {
  std::array<std::uint8_t, sizeof(T)> stored;
  std::copy_n(bytes.subspan(loc, sizeof(T)).begin(), sizeof(T), stored.begin());
  if (isBigEndian) std::reverse(stored.begin(), stored.end());
  loc += sizeof(T);
  return *valueFromBytes<T>(stored);
}

}  // namespace vesko

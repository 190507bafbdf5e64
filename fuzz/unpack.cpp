// Formats, values and digits.

#include <algorithm>
#include <array>
#include <bit>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/files/Data.h"
#include "Platform/process/Assert.h"
#include "Platform/text/TextEncoding.h"
#include "VeskoKit/BinUtils.h"
#include "fuzz/support/Check.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCheck.h"

namespace vesko {

// In place of the library's own: formats that make no sense are mistakes of the caller, and here they come by design.
// What follows from them must be what a build without assertions promises.
void assertionFailure(const std::string& /*message*/) {}
void fatalError(const std::string& message) { fuzz::broken(message); }

namespace fuzz {
namespace {

/// What is tried to be packed at most, bytes: a count is the caller's own, and is believed.
constexpr std::int64_t maximumPacked = 1 << 16;

/// Equal as bytes, so that a value that is no number equals itself.
bool areSame(const Unpackable& left, const Unpackable& right) {
  const auto* const first = std::get_if<double>(&left);
  const auto* const second = std::get_if<double>(&right);
  if (first == nullptr || second == nullptr) return left == right;
  return std::bit_cast<std::uint64_t>(*first) == std::bit_cast<std::uint64_t>(*second);
}

bool holdsText(const std::vector<Unpackable>& values) {
  return std::ranges::any_of(values, [](const auto& value) { return std::holds_alternative<std::string>(value); });
}

/// Not so where no order is given or where there are blanks, each of which takes a value when packing, nor for texts in
/// big-endian order, which are turned round on their way into bytes alone.
bool isReversible(std::string_view format, const std::vector<Unpackable>& values) {
  if (std::string_view("=<>!").find(format.front()) == std::string_view::npos) return false;
  if (format.find(' ') != format.npos) return false;
  return !holdsText(values) || !isBigEndianFromMandatoryByteOrderFirstCharacter(format);
}

void checkRoundTrip(std::string_view format, const std::vector<Unpackable>& values, std::size_t length) {
  const auto packed = pack(format, values, TextEncoding::utf8);
  check(packed.size() == length, "what was unpacked packs into as many bytes");
  const auto again = unpack(format, packed, TextEncoding::utf8);
  check(std::ranges::equal(values, again, areSame), "what was packed unpacks the same");
}

void checkUnpack(std::string_view format, const Data& data, TextEncoding encoding) {
  const auto expected = numberOfBytesInFormat(format);
  check(expected >= 0, "no format has fewer bytes than none");
  try {
    const auto values = unpack(format, data, encoding);
    check(std::cmp_equal(expected, data.size()), "only as many bytes as the format says are unpacked");
    check(values.size() <= data.size(), "no value comes out of nothing");
    const bool isAsPacked = encoding == TextEncoding::utf8 && !values.empty() && isReversible(format, values);
    if (isAsPacked) checkRoundTrip(format, values, data.size());
  } catch (const BinUtilsError& error) {
    const bool isOfLength = std::holds_alternative<BinUtilsError::FormatDoesMatchDataLength>(error.kind());
    check(isOfLength == (!std::cmp_equal(expected, data.size()) && !format.empty()), "an error says what it is");
  }
}

Unpackable takeValue(Input& input) {
  const auto kind = input.takeByte() % std::variant_size_v<Unpackable>;
  const std::uint64_t number = std::uint64_t{input.takeByte()} * 0x0123456789ABCDEFU;
  switch (kind) {
    case 0:
      return std::string(input.take(number % 16));
    case 1:
      return number % 2 == 1;
    case 2:
      return Int{static_cast<std::int64_t>(number)};
    case 3:
      return UInt{number};
    case 4:
      return static_cast<std::int64_t>(number);
    case 5:
      return number;
    default:
      return std::bit_cast<double>(number);
  }
}

void checkPack(std::string_view format, Input input, TextEncoding encoding) {
  const auto length = numberOfBytesInFormat(format);
  if (length > maximumPacked) return;
  std::vector<Unpackable> values;
  while (!input.empty()) values.push_back(takeValue(input));
  const auto packed = pack(format, values, encoding);
  // What is no item of its own takes no bytes here; only "c" may take more, one character being several of them.
  check(std::cmp_less_equal(packed.size(), 3 * length), "no more is packed than the format says");
}

void checkDigits(std::string_view text) {
  const auto digits = hexlify(Data(text));
  check(digits.size() == 2 * text.size(), "a byte has two digits");
  const auto bytes = unhexlify(digits);
  check(bytes && bytes->view() == text, "digits stand for the bytes they were made of");
  const auto read = unhexlify(text);
  if (!read) return;
  std::string expected;
  for (const char character : text) {
    if (character != ' ')
      expected += static_cast<char>(character >= 'A' && character <= 'F' ? character + 0x20 : character);
  }
  check(hexlify(*read) == expected, "digits that were read are written the same");
}

void checkSubstring(std::string_view text, std::size_t first, std::size_t last) {
  const auto part = substring(text, first, last);
  check(text.find(part) != text.npos, "a part of a text is in it");
  check(!isValidUtf8(text) || isValidUtf8(part), "a part of a text is text");
}

void run(Input input) {
  constexpr std::array encodings = {TextEncoding::utf8, TextEncoding::cp1252, TextEncoding::utf16LittleEndian};
  const auto options = input.takeByte();
  listenToLog((options & 0xC0) == 0xC0);
  const auto encoding = encodings[options % encodings.size()];
  checkDigits(input.rest());
  checkSubstring(input.rest(), options >> 2 & 7, options >> 3 & 15);
  const auto format = input.takeUpTo('\0');
  checkUnpack(format, Data(input.rest()), encoding);
  checkPack(format, input, encoding);
}

}  // namespace
}  // namespace fuzz
}  // namespace vesko

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  vesko::fuzz::run({bytes, length});
  return 0;
}

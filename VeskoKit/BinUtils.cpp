#include "VeskoKit/BinUtils.h"

#include <iterator>
#include <limits>
#include <utility>

#include "Platform/files/Data.h"
#include "Platform/process/Assert.h"
#include "Platform/text/TextEncoding.h"
#include "VeskoKit/Log.h"

namespace vesko {
namespace {

constexpr std::int64_t maximumByteCount = std::numeric_limits<std::int64_t>::max();

// So that the product with the size of the widest item does not overflow.
constexpr std::int64_t maximumRepetitions = maximumByteCount / 8;

std::string_view takeCharacter(std::string_view& text) noexcept {
  const auto length = std::max<std::size_t>(firstUtf8Character(text).length, 1);
  const auto character = text.substr(0, length);
  text.remove_prefix(character.size());
  return character;
}

struct FormatItem {
  std::string_view character;
  std::int64_t repetitions = 1;

  // 0 for a character outside ASCII, which is never an item.
  [[nodiscard]] char code() const noexcept { return character.size() == 1 ? character.front() : '\0'; }
};

// Removes the next item from `format` and returns it; none at the end, also when only digits are left.
std::optional<FormatItem> takeItem(std::string_view& format) noexcept {
  std::int64_t count = 0;
  while (!format.empty()) {
    const auto character = takeCharacter(format);
    const char code = character.front();
    if (code < '0' || code > '9') return FormatItem{character, std::max<std::int64_t>(count, 1)};
    count = std::min(count, maximumRepetitions / 10 - 1) * 10 + (code - '0');
  }
  return std::nullopt;
}

template <class Kind>
auto numberOf(const Kind& value) noexcept {
  if constexpr (requires { value.value; })
    return value.value;
  else
    return value;
}

template <class Kind>
const Kind* valueOfKind(const Unpackable& value) {
  const auto* found = std::get_if<Kind>(&value);
  if (found == nullptr) assertionFailure("value of another kind than its item takes");
  return found;
}

// A number of type `Kind` as the bytes of a `Stored`, in the machine's order.
template <class Kind, DataConvertible Stored>
std::optional<std::string> packedNumber(const Unpackable& value) {
  const auto* number = valueOfKind<Kind>(value);
  if (number == nullptr) return std::nullopt;
  const auto stored = std::bit_cast<std::array<char, sizeof(Stored)>>(static_cast<Stored>(numberOf(*number)));
  return std::string(stored.begin(), stored.end());
}

template <class Kind, DataConvertible Stored>
Unpackable unpackedNumber(std::span<const std::uint8_t> bytes, std::size_t& loc, bool isBigEndian) {
  if constexpr (std::floating_point<Stored>) {
    return Kind{readFloatingPointType<Stored>(bytes, loc, isBigEndian)};
  } else {
    auto stored = std::bit_cast<std::array<std::uint8_t, sizeof(Stored)>>(readIntegerType<Stored>(bytes, loc));
    if (isBigEndian) std::reverse(stored.begin(), stored.end());
    return Kind{std::bit_cast<Stored>(stored)};
  }
}

struct NumberItem {
  std::string_view characters;
  std::int64_t size;
  std::optional<std::string> (*pack)(const Unpackable& value);
  Unpackable (*unpack)(std::span<const std::uint8_t> bytes, std::size_t& loc, bool isBigEndian);
};

template <class Kind, DataConvertible Stored>
constexpr NumberItem numberItem(std::string_view characters) {
  return {characters, sizeof(Stored), packedNumber<Kind, Stored>, unpackedNumber<Kind, Stored>};
}

constexpr NumberItem numberItems[] = {
    numberItem<bool, bool>("?"),
    numberItem<Int, std::int8_t>("b"),
    numberItem<UInt, std::uint8_t>("B"),
    numberItem<Int, std::int16_t>("h"),
    numberItem<UInt, std::uint16_t>("H"),
    numberItem<Int, std::int32_t>("il"),
    numberItem<UInt, std::uint32_t>("IL"),
    numberItem<std::int64_t, std::int64_t>("q"),
    numberItem<std::uint64_t, std::uint64_t>("Q"),
    numberItem<double, float>("f"),
    numberItem<double, double>("d"),
};

const NumberItem* numberItemOf(char code) noexcept {
  const auto* found = std::find_if(std::begin(numberItems), std::end(numberItems), [code](const NumberItem& item) {
    return item.characters.find(code) != std::string_view::npos;
  });
  return found == std::end(numberItems) ? nullptr : found;
}

std::int64_t numberOfBytesInItem(const FormatItem& item) {
  const char code = item.code();
  if (const auto* number = numberItemOf(code)) return number->size;
  if (code == 'c' || code == 's' || code == 'x') return 1;
  if (code == 'P') return 8;
  if (constexpr std::string_view withoutBytes = "@<=>! "; withoutBytes.find(code) == std::string_view::npos) {
    assertionFailure("-- unsupported format " + std::string(item.character));
  }
  return 0;
}

std::optional<std::string> packedCharacter(const Unpackable& value, TextEncoding encoding) {
  const auto* text = valueOfKind<std::string>(value);
  if (text == nullptr) return std::nullopt;
  std::string_view rest = *text;
  const auto character = takeCharacter(rest);
  // "c" takes one UTF-16 unit. A character above U+FFFF has two, and no encoding can write half of it.
  const bool isWholeUnit = !character.empty() && character.size() <= 3;
  auto bytes = isWholeUnit ? encodeText(character, encoding) : std::nullopt;
  if (!bytes) {
    assertionFailure("cannot decode character " + std::string(character) + " using encoding " +
                     std::string(nameOfEncoding(encoding)));
  }
  return bytes;
}

std::optional<std::string> packedText(const Unpackable& value, std::int64_t length) {
  const auto* text = valueOfKind<std::string>(value);
  if (text == nullptr) return std::nullopt;
  auto bytes = encodeText(*text, TextEncoding::utf8);
  if (bytes)
    bytes->resize(static_cast<std::size_t>(length));
  else
    assertionFailure("");
  return bytes;
}

std::optional<std::string> packedItem(const FormatItem& item, const Unpackable& value, TextEncoding encoding) {
  if (const auto* number = numberItemOf(item.code())) return number->pack(value);
  if (item.code() == 's') return packedText(value, item.repetitions);
  if (item.code() == 'c') return packedCharacter(value, encoding);
  assertionFailure("Unsupported packing format: " + std::string(item.character));
  return std::string();
}

bool isBigEndianToPack(std::string_view character) {
  if (character == ">" || character == "!") return true;
  if (character == "@")
    assertionFailure("native size and alignment '@' is unsupported'");
  else if (character != "<" && character != "=")
    assertionFailure("unsupported format chacracter'");
  return false;
}

// Packs one item and removes its values from the front of `values`. False after a mistake of the caller.
bool packRepetitions(const FormatItem& item, std::span<const Unpackable>& values, bool isBigEndian,
                     TextEncoding encoding, std::string& packed) {
  if (item.code() == 'x') {
    packed.append(static_cast<std::size_t>(item.repetitions), '\0');
    return true;
  }
  const std::int64_t repetitions = item.code() == 's' ? 1 : item.repetitions;
  for (std::int64_t done = 0; done < repetitions; ++done) {
    if (values.empty()) {
      assertionFailure("fewer values than the format takes");
      return false;
    }
    auto bytes = packedItem(item, values.front(), encoding);
    values = values.subspan(1);
    if (!bytes) return false;
    if (isBigEndian) std::reverse(bytes->begin(), bytes->end());
    packed += *bytes;
  }
  return true;
}

// Reads items from bytes whose number fits the format.
class Unpacker {
 public:
  Unpacker(std::span<const std::uint8_t> bytes, bool isBigEndian, TextEncoding encoding) noexcept
      : bytes_(bytes), isBigEndian_(isBigEndian), encoding_(encoding) {}

  // Appends the values of `item` to `results`; false when bytes are not text.
  bool read(const FormatItem& item, std::vector<Unpackable>& results) {
    if (item.code() == ' ') return true;
    if (item.code() == 's') return readText(static_cast<std::size_t>(item.repetitions), results);
    const auto* number = numberItemOf(item.code());
    for (std::int64_t done = 0; done < item.repetitions; ++done) {
      if (number != nullptr)
        results.push_back(number->unpack(bytes_, loc_, isBigEndian_));
      else if (item.code() == 'x')
        ++loc_;
      else if (item.code() != 'c')
        throw BinUtilsError::unsupportedFormat(item.character);
      else if (!readCharacter(results))
        return false;
    }
    return true;
  }

 private:
  bool readText(std::size_t length, std::vector<Unpackable>& results) {
    const auto stored = bytes_.subspan(loc_, length);
    auto text = decodeText(std::string(stored.begin(), stored.end()), encoding_);
    if (!text) {
      std::string list;
      for (const auto byte : stored) list += (list.empty() ? "" : ", ") + std::to_string(byte);
      assertionFailure("-- not a string: [" + list + "]");
      return false;
    }
    loc_ += length;
    results.emplace_back(*std::move(text));
    return true;
  }

  bool readCharacter(std::vector<Unpackable>& results) {
    const std::string byte(1, static_cast<char>(readIntegerType<std::uint8_t>(bytes_, loc_)));
    auto text = decodeText(byte, TextEncoding::utf8);
    if (!text) {
      assertionFailure("");
      return false;
    }
    results.emplace_back(*std::move(text));
    return true;
  }

  std::span<const std::uint8_t> bytes_;
  bool isBigEndian_;
  TextEncoding encoding_;
  std::size_t loc_ = 0;
};

}  // namespace

BinUtilsError BinUtilsError::formatDoesMatchDataLength(std::string_view format, std::uint64_t dataSize) {
  return {"format \"" + std::string(format) + "\" does not fit " + std::to_string(dataSize) + " bytes",
          FormatDoesMatchDataLength{std::string(format), dataSize}};
}

BinUtilsError BinUtilsError::unsupportedFormat(std::string_view character) {
  return {"unsupported format character '" + std::string(character) + "'", UnsupportedFormat{std::string(character)}};
}

Data detail::dataFromBytes(std::span<const std::uint8_t> bytes) { return Data(bytes); }

std::vector<std::uint8_t> detail::bytesOfData(const Data& data) { return data.bytes(); }

Data pack(std::string_view format, const std::vector<Unpackable>& values) {
  return pack(format, values, TextEncoding::cp1252);
}

Data pack(std::string_view format, const std::vector<Unpackable>& values, TextEncoding encoding) {
  if (format.empty()) {
    assertionFailure("empty format");
    return {};
  }
  const bool isBigEndian = isBigEndianToPack(takeCharacter(format));
  std::span<const Unpackable> rest(values);
  std::string packed;
  while (const auto item = takeItem(format)) {
    if (!packRepetitions(*item, rest, isBigEndian, encoding, packed)) return {};
  }
  return Data(std::move(packed));
}

std::vector<Unpackable> unpack(std::string_view format, const Data& data) {
  return unpack(format, data, TextEncoding::cp1252);
}

std::vector<Unpackable> unpack(std::string_view format, const Data& data, TextEncoding encoding) {
  if constexpr (std::endian::native != std::endian::little) {
    assertionFailure("VeskoKit/BinUtils assumes little endian, but host is big endian");
  }
  const bool isBigEndian = isBigEndianFromMandatoryByteOrderFirstCharacter(format);
  if (format.empty()) throw BinUtilsError::unsupportedFormat(format);
  if (!formatDoesMatchDataLength(format, data)) throw BinUtilsError::formatDoesMatchDataLength(format, data.size());
  const auto bytes = data.bytes();
  Unpacker unpacker(bytes, isBigEndian, encoding);
  std::vector<Unpackable> results;
  takeCharacter(format);
  while (const auto item = takeItem(format)) {
    if (!unpacker.read(*item, results)) return {};
  }
  return results;
}

std::int64_t numberOfBytesInFormat(std::string_view format) {
  std::int64_t total = 0;
  while (const auto item = takeItem(format)) {
    const std::int64_t size = numberOfBytesInItem(*item) * item->repetitions;
    total = total > maximumByteCount - size ? maximumByteCount : total + size;
  }
  return total;
}

bool formatDoesMatchDataLength(std::string_view format, const Data& data) {
  const auto expected = numberOfBytesInFormat(format);
  if (std::cmp_equal(expected, data.size())) return true;
  Log::line("format", '"' + std::string(format) + '"', "expects", expected, "bytes but data is", data.size(), "bytes");
  return false;
}

bool isBigEndianFromMandatoryByteOrderFirstCharacter(std::string_view format) {
  if (format.empty()) {
    assertionFailure("empty format");
    return false;
  }
  const char order = format.front();
  if (order == '@') assertionFailure("native size and alignment is unsupported");
  if (order == '=' || order == '<') return false;
  if (order == '>' || order == '!') return true;
  assertionFailure("format '" + std::string(format) + "' first character must be among '=<>!'");
  return false;
}

}  // namespace vesko

#include "VeskoKit/BinUtils.h"

#include <gtest/gtest.h>

#include <functional>

#include "Platform/files/Data.h"
#include "Platform/text/TextEncoding.h"
#include "tests/support/Recorder.h"

namespace vesko {
namespace {

using namespace std::string_literals;
using Values = std::vector<Unpackable>;

TEST(BinUtils, PacksAndUnpacksTheSameBytes) {
  const Values small = {Int{-1}, UInt{255}, Int{-2}, UInt{65534}, Int{-3}, Int{-4}, UInt{5}, UInt{6}};
  const Values large = {std::int64_t{-2}, ~std::uint64_t{1}, 1.5, -0.1, true};
  const struct {
    const char* format;
    Values values;
    const char* bytes;
  } cases[] = {
      {"<bBhHilIL", small, "fffffefffefffdfffffffcffffff0500000006000000"},
      {">bBhHilIL", small, "fffffffefffefffffffdfffffffc0000000500000006"},
      {"=qQfd?", large, "fefffffffffffffffeffffffffffffff0000c03f9a9999999999b9bf01"},
      {"!qQfd?", large, "fffffffffffffffefffffffffffffffe3fc00000bfb999999999999a01"},
      {"<2x3?", {true, false, true}, "0000010001"},
      {"<0H2H3", {UInt{7}, UInt{8}, UInt{9}}, "070008000900"},
      {"<3s2c0s", {"abc"s, "d"s, "~"s, "f"s}, "616263647e66"},
      {"<", {}, ""},
  };
  for (const auto& [format, values, bytes] : cases) {
    SCOPED_TRACE(format);
    const Data packed = pack(format, values);
    EXPECT_EQ(hexlify(packed), bytes);
    EXPECT_EQ(unpack(format, packed), values);
    EXPECT_EQ(numberOfBytesInFormat(format), static_cast<std::int64_t>(packed.size()));
  }
}

TEST(BinUtils, WhatOnlyOneOfThemDoes) {
  const struct {
    const char* format;
    Values values;
    const char* bytes;
  } packed[] = {
      {"<b", {Int{200}}, "c8"},     {"<H", {UInt{70000}}, "7011"},  {"<l", {Int{0x1'0000'0002}}, "02000000"},
      {"<f", {1e300}, "0000807f"},  {"<3s", {"abcdef"s}, "616263"}, {"<5s", {"ab"s}, "6162000000"},
      {"<s", {"xyz"s}, "78"},       {"<2s", {"\u20ac"s}, "e282"},   {">3s", {"abc"s}, "636261"},
      {">4s", {"ab"s}, "00006261"}, {"<c", {"\u20acuro"s}, "80"},   {"<B", {UInt{1}, "left over"s}, "01"},
  };
  for (const auto& [format, values, bytes] : packed) EXPECT_EQ(hexlify(pack(format, values)), bytes) << format;
  EXPECT_EQ(hexlify(pack("<c", {"\u20ac"s}, TextEncoding::utf16LittleEndian)), "ac20");
  EXPECT_EQ(hexlify(pack(">c", {"\u20ac"s}, TextEncoding::utf8)), "ac82e2");

  EXPECT_EQ(unpack("<2? xB", Data("\2\3?\1")), (Values{false, true, UInt{1}}));
  EXPECT_EQ(unpack(">3s2c", Data("abcde")), (Values{"abc"s, "d"s, "e"s}));
  EXPECT_EQ(unpack("<s", Data("\x80")), Values{"\u20ac"s});
  EXPECT_EQ(unpack("<3s", Data("\u20ac"), TextEncoding::utf8), Values{"\u20ac"s});
  EXPECT_EQ(numberOfBytesInFormat("@ 9!>h2P"), 18);
  const auto huge = std::string(40, '9');
  EXPECT_GT(numberOfBytesInFormat("<" + huge + "Q" + huge + "Q" + huge + "s"), std::int64_t{1} << 60);
}

TEST(BinUtils, UnpackReportsWrongLengthsAndCharacters) {
  const auto log = std::make_shared<Recorder>();
  Log::setSink(log);
  const auto errorOf = [](std::string_view format, std::size_t size) -> std::string {
    try {
      static_cast<void>(unpack(format, Data(std::string(size, '\0'))));
    } catch (const BinUtilsError& error) {
      const auto* const bad = std::get_if<BinUtilsError::UnsupportedFormat>(&error.kind());
      return bad != nullptr ? "no " + bad->character : error.what();
    }
    return "unpacked";
  };
  EXPECT_EQ(errorOf("<H", 3), "format \"<H\" does not fit 3 bytes");
  Log::setSink(nullptr);
  EXPECT_EQ(log->all(), std::vector{"format \"<H\" expects 2 bytes but data is 3 bytes"s});
  EXPECT_EQ(errorOf("<P", 8), "no P");
#ifdef NDEBUG
  EXPECT_EQ(errorOf("<\u20ac", 0), "no \u20ac");
  EXPECT_EQ(errorOf("", 0), "no ");
#endif
}

TEST(BinUtils, HexDigitsBothWays) {
  EXPECT_EQ(hexlify(Data("\0\xff\x7f\x8a"s)), "00ff7f8a");
  const std::pair<std::string, std::string> good[] = {
      {"", ""}, {" 0 a\x20 1B  ", "\x0a\x1b"}, {"00ff7F8A", "\0\xff\x7f\x8a"s}};
  for (const auto& [text, bytes] : good) EXPECT_EQ(unhexlify(text), Data(bytes)) << text;
  const std::string other = "-- found non hex character at range ";
  const std::pair<std::string, std::string> bad[] = {
      {"0x10", other + "1..<2"},     {"ab\tcd", other + "2..<3"},
      {"\0"s, other + "0..<1"},      {"/", other + "0..<1"},
      {":", other + "0..<1"},        {"@", other + "0..<1"},
      {"G", other + "0..<1"},        {"`", other + "0..<1"},
      {"g", other + "0..<1"},        {"a\u00a0b", other + "1..<2"},
      {"aa\uff11", other + "2..<3"}, {"\xff", other + "0..<1"},
      {"a bc d g", other + "4..<5"}, {"a bc", "-- found odd number of hex characters: 3"}};
  for (const auto& [text, line] : bad) {
    const auto log = std::make_shared<Recorder>();
    Log::setSink(log);
    EXPECT_EQ(unhexlify(text), std::nullopt) << text;
    Log::setSink(nullptr);
    EXPECT_EQ(log->all(), std::vector{line});
  }
}

/// Makes a mistake, which stops with its message where assertions are on, and else has an outcome.
void expectMistake(const std::function<std::string()>& mistake, [[maybe_unused]] const char* message,
                   [[maybe_unused]] const std::string& outcome) {
#ifdef NDEBUG
  EXPECT_EQ(mistake(), outcome);
#else
  EXPECT_DEATH(static_cast<void>(mistake()), message);
#endif
}

TEST(BinUtilsDeathTest, MistakesInPacking) {
  const struct {
    const char* format;
    Values values;
    const char *message, *outcome;
  } cases[] = {
      {"@H", {UInt{1}}, "native size and alignment '@' is unsupported", "0100"},
      {"HH", {UInt{1}}, "unsupported format", "0100"},
      {"", {UInt{1}}, "empty format", ""},
      {"<PB", {"taken"s, UInt{1}}, "Unsupported packing format: P\n", "01"},
      {"<\u00e9B", {"taken"s, UInt{1}}, "Unsupported packing format: \u00e9\n", "01"},
      {"<BH", {UInt{1}}, "fewer values", ""},
      {"<H", {Int{1}}, "another kind", ""},
      {"<s", {1.0}, "another kind", ""},
      {"<c", {UInt{1}}, "another kind", ""},
      {"<Bs", {UInt{1}, "\xff"s}, "failed: \n", ""},
      {"<Bc", {UInt{1}, "\u03a9"s}, "cannot decode character \u03a9 using encoding West", ""},
      {"<Bc", {UInt{1}, "\U0001f600"s}, "cannot decode character \U0001f600", ""},
      {"<Bc", {UInt{1}, ""s}, "cannot decode character  using", ""},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.format);
    expectMistake([&one] { return hexlify(pack(one.format, one.values)); }, one.message, one.outcome);
  }
  expectMistake([] { return hexlify(pack("<c", {"\U0001f600"s}, TextEncoding::utf8)); },
                "cannot decode character \U0001f600", "");
}

TEST(BinUtilsDeathTest, OtherMistakes) {
  const auto expect = [](const auto& mistake, const char* message, const auto& outcome) {
    expectMistake([&] { return testing::PrintToString(mistake()); }, message, testing::PrintToString(outcome));
  };
  const auto isBigEndian = [](const char* format) {
    return [format] { return isBigEndianFromMandatoryByteOrderFirstCharacter(format); };
  };
  expect(isBigEndian(""), "empty format", false);
  expect(isBigEndian("@H"), "native size and alignment is unsupported", false);
  expect(isBigEndian("Q>"), "format 'Q>' first character must be among '=<>!'", false);
  expect([] { return numberOfBytesInFormat("<H2z"); }, "unsupported format z", 2);
  expect([] { return unpack("HB", Data("\1\2\3")).size(); }, "first character must be among", 1);
  expect([] { return unpack("<Bc", Data("\1\x80")).size(); }, "failed: \n", 0);
  expect([] { return unpack("<B2s", Data("\1h\x81")).size(); }, "not a string: \\[104, 129\\]", 0);
  const auto part = [](std::size_t i, std::size_t j) {
    return [i, j] { return substring("a\u20ac\U0001f600z", i, j); };
  };
  for (const auto& [i, j] : {std::pair(5U, 6U), {2U, 1U}, {3U, 4U}, {0U, ~0U}}) expect(part(i, j), "no range of", ""s);
  EXPECT_EQ(part(0, 5)(), "a\u20ac\U0001f600z") << "in units of UTF-16";
  EXPECT_EQ(part(1, 2)() + part(2, 4)() + part(4, 5)() + part(5, 5)(), "\u20ac\U0001f600z");
}

TEST(BinUtils, ValuesAreReadFromTheirExactWidthOnly) {
  const auto expect = [](auto value) {
    using Value = decltype(value);
    auto bytes = dataFromValue(value).bytes();
    EXPECT_EQ(valueFromData<Value>(Data(bytes)), value);
    std::size_t loc = 0;
    EXPECT_EQ(readIntegerType<Value>(bytes, loc), value);
    EXPECT_EQ(loc, sizeof value);
    bytes.push_back(0);
    EXPECT_EQ(valueFromBytes<Value>(bytes), std::nullopt);
    EXPECT_EQ(valueFromBytes<Value>({}), std::nullopt);
  };
  const auto expectAll = [&](auto... values) { (expect(values), ...); };
  expectAll(true, std::int8_t{-3}, std::uint16_t{65533}, -3, ~std::uint64_t{2}, -3.0F, -3.0);
}

}  // namespace
}  // namespace vesko

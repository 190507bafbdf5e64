#include "VeskoKit/BinUtils.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Platform/files/Data.h"
#include "Platform/text/TextEncoding.h"
#include "tests/support/Recorder.h"

namespace vesko {
namespace {

using namespace std::string_literals;
using Values = std::vector<Unpackable>;

std::string hex(const Data& data) { return hexlify(data); }

TEST(BinUtils, PacksAndUnpacksTheSameBytes) {
  const struct {
    const char* format;
    Values values;
    const char* bytes;
  } cases[] = {
      {"<H", {UInt{4645}}, "2512"},
      {">H", {UInt{4645}}, "1225"},
      {"!H", {UInt{4645}}, "1225"},
      {"=H", {UInt{4676}}, "4412"},
      {">I", {UInt{256}}, "00000100"},
      {"<QQ", {std::uint64_t{1}, std::uint64_t{2}}, "01000000000000000200000000000000"},
      {"<Q", {std::numeric_limits<std::uint64_t>::max()}, "ffffffffffffffff"},
      {">q", {std::int64_t{-2}}, "fffffffffffffffe"},
      {"<bBhHilIL",
       {Int{-1}, UInt{255}, Int{-2}, UInt{65535}, Int{-3}, Int{-4}, UInt{5}, UInt{6}},
       "fffffeffff"
       "fffdfffffffcffffff0500000006000000"},
      {">hi", {Int{-2}, Int{-3}}, "fffefffffffd"},
      {"<f", {1.5}, "0000c03f"},
      {">f", {1.5}, "3fc00000"},
      {"<d", {-0.1}, "9a9999999999b9bf"},
      {">d", {-0.1}, "bfb999999999999a"},
      {"<2x?", {true}, "000001"},
      {"<3?", {true, false, true}, "010001"},
      {"<0H", {UInt{7}}, "0700"},
      {"<2H3", {UInt{7}, UInt{8}}, "07000800"},
      {"<2c", {"a"s, "~"s}, "617e"},
      {"<3sB", {"abc"s, UInt{9}}, "61626309"},
      {"<0s", {"x"s}, "78"},
      {"<", {}, ""},
  };
  for (const auto& [format, values, bytes] : cases) {
    SCOPED_TRACE(format);
    const Data packed = pack(format, values);
    EXPECT_EQ(hex(packed), bytes);
    EXPECT_EQ(unpack(format, packed), values);
    EXPECT_EQ(numberOfBytesInFormat(format), static_cast<std::int64_t>(packed.size()));
  }
}

TEST(BinUtils, PackNarrowsCutsPadsAndReverses) {
  const struct {
    const char* format;
    Values values;
    const char* bytes;
  } cases[] = {
      {"<b", {Int{200}}, "c8"},     {"<H", {UInt{70000}}, "7011"},  {"<l", {Int{0x1'0000'0002}}, "02000000"},
      {"<f", {1e300}, "0000807f"},  {"<3s", {"abcdef"s}, "616263"}, {"<5s", {"ab"s}, "6162000000"},
      {"<s", {"xyz"s}, "78"},       {"<2s", {"\u20ac"s}, "e282"},   {">3s", {"abc"s}, "636261"},
      {">4s", {"ab"s}, "00006261"}, {"<c", {"\u20acuro"s}, "80"},   {"<B", {UInt{1}, "left over"s}, "01"},
  };
  for (const auto& [format, values, bytes] : cases) EXPECT_EQ(hex(pack(format, values)), bytes) << format;
  EXPECT_EQ(hex(pack("<c", {"\u20ac"s}, TextEncoding::utf16LittleEndian)), "ac20");
  EXPECT_EQ(hex(pack(">c", {"\u20ac"s}, TextEncoding::utf8)), "ac82e2");
}

TEST(BinUtils, UnpackReadsWhatPackWouldNotWrite) {
  EXPECT_EQ(unpack("<?", Data("\x02")), Values{false});
  EXPECT_EQ(unpack("<?", Data("\x03")), Values{true});
  EXPECT_EQ(unpack("<xH", Data("?\x44\x12"s)), Values{UInt{4676}});
  EXPECT_EQ(unpack("<Q H", Data("\1\0\0\0\0\0\0\0\2\0"s)), (Values{std::uint64_t{1}, UInt{2}}));
  EXPECT_EQ(unpack(">3s2c", Data("abcde")), (Values{"abc"s, "d"s, "e"s}));
  EXPECT_EQ(unpack("<s", Data("\x80")), Values{"\u20ac"s});
  EXPECT_EQ(unpack("<3s", Data("\u20ac"), TextEncoding::utf8), Values{"\u20ac"s});
}

TEST(BinUtils, NumberOfBytesInFormat) {
  EXPECT_EQ(numberOfBytesInFormat("<P2P"), 24);
  EXPECT_EQ(numberOfBytesInFormat("@ 9!>h"), 2);
  EXPECT_EQ(numberOfBytesInFormat(""), 0);
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
      if (const auto* bad = std::get_if<BinUtilsError::UnsupportedFormat>(&error.kind())) return "no " + bad->character;
      const auto& mismatch = std::get<BinUtilsError::FormatDoesMatchDataLength>(error.kind());
      return mismatch.format + " but " + std::to_string(mismatch.dataSize);
    }
    return "unpacked";
  };
  EXPECT_EQ(errorOf("<H", 3), "<H but 3");
  Log::setSink(nullptr);
  EXPECT_EQ(log->all(), std::vector{"format \"<H\" expects 2 bytes but data is 3 bytes"s});
  EXPECT_EQ(errorOf("<Q", 0), "<Q but 0");
  EXPECT_EQ(errorOf("<P", 8), "no P");
  EXPECT_EQ(errorOf("<H<H", 4), "no <");
#ifdef NDEBUG
  EXPECT_EQ(errorOf("<Hz", 2), "no z");
  EXPECT_EQ(errorOf("<\u20ac", 0), "no \u20ac");
  EXPECT_EQ(errorOf("", 0), "no ");
#endif
}

TEST(BinUtils, HexDigitsBothWays) {
  const struct {
    const char* text;
    std::string bytes;
    const char* again;
  } cases[] = {
      {"", "", ""},
      {"  ", "", ""},
      {"0a1B", "\x0a\x1b", "0a1b"},
      {" d e\x20 ad  BE Ef ", "\xde\xad\xbe\xef", "deadbeef"},
      {"00ff7F80", "\0\xff\x7f\x80"s, "00ff7f80"},
  };
  for (const auto& [text, bytes, again] : cases) {
    EXPECT_EQ(unhexlify(text), Data(bytes)) << text;
    EXPECT_EQ(hexlify(Data(bytes)), again);
  }
}

TEST(BinUtils, UnhexlifySaysWhatIsNoDigit) {
  const std::string other = "-- found non hex character at range ";
  const struct {
    std::string text;
    std::string line;
  } cases[] = {
      {"0x10", other + "1..<2"},     {" a b g", other + "2..<3"},   {"ab\tcd", other + "2..<3"},
      {"ab\n", other + "2..<3"},     {"\0"s, other + "0..<1"},      {"/:@G`g", other + "0..<1"},
      {"{", other + "0..<1"},        {"a\u00a0b", other + "1..<2"}, {"aa\uff11", other + "2..<3"},
      {"aa\ufb00", other + "2..<3"}, {"\xff", other + "0..<1"},     {"abc", "-- found odd number of hex characters: 3"},
      {"a bc d g", other + "4..<5"},
  };
  for (const auto& [text, line] : cases) {
    const auto log = std::make_shared<Recorder>();
    Log::setSink(log);
    EXPECT_EQ(unhexlify(text), std::nullopt) << text;
    Log::setSink(nullptr);
    EXPECT_EQ(log->all(), std::vector{line});
  }
}

// Runs a mistake: stops with its message where assertions are on, else yields what the operation goes on with.
#ifdef NDEBUG
#define EXPECT_MISTAKE(expression, message, outcome) EXPECT_EQ(expression, outcome)
#else
#define EXPECT_MISTAKE(expression, message, outcome) EXPECT_DEATH(static_cast<void>(expression), message)
#endif

TEST(BinUtilsDeathTest, MistakesInFormats) {
  EXPECT_MISTAKE(isBigEndianFromMandatoryByteOrderFirstCharacter(""), "failed: empty format\n", false);
  EXPECT_MISTAKE(isBigEndianFromMandatoryByteOrderFirstCharacter("@H"),
                 "failed: native size and alignment is unsupported\n", false);
  EXPECT_MISTAKE(isBigEndianFromMandatoryByteOrderFirstCharacter("Q>"),
                 "failed: format 'Q>' first character must be among '=<>!'\n", false);
  EXPECT_MISTAKE(numberOfBytesInFormat("<H2z"), "failed: -- unsupported format z\n", 2);
  EXPECT_MISTAKE(hex(pack("@H", {UInt{1}})), "failed: native size and alignment '@' is unsupported'\n", "0100");
  EXPECT_MISTAKE(hex(pack("HH", {UInt{1}})), "failed: unsupported format chacracter'\n", "0100");
  EXPECT_MISTAKE(hex(pack("", {UInt{1}})), "failed: empty format\n", "");
  for (const std::string character : {"P", " ", "<", "z", "\u00e9"}) {
    EXPECT_MISTAKE(hex(pack("<" + character + "B", {"taken"s, UInt{1}})),
                   "failed: Unsupported packing format: " + character + "\n", "01");
  }
  EXPECT_MISTAKE(unpack("HB", Data("\1\2\3")), "first character must be among", Values{UInt{1}});
}

TEST(BinUtilsDeathTest, MistakesInValues) {
  EXPECT_MISTAKE(hex(pack("<BH", {UInt{1}})), "fewer values", "");
  EXPECT_MISTAKE(hex(pack("<H", {std::uint64_t{1}})), "another kind", "");
  EXPECT_MISTAKE(hex(pack("<H", {Int{1}})), "another kind", "");
  EXPECT_MISTAKE(hex(pack("<Q", {UInt{1}})), "another kind", "");
  EXPECT_MISTAKE(hex(pack("<s", {1.0})), "another kind", "");
  EXPECT_MISTAKE(hex(pack("<Bs", {UInt{1}, "\xff"s})), "failed: \n", "");
  for (const std::string text : {"\u03a9", "\U0001f600", ""}) {
    EXPECT_MISTAKE(hex(pack("<Bc", {UInt{1}, text})),
                   "failed: cannot decode character " + text + " using encoding West", "");
  }
  EXPECT_MISTAKE(unpack("<Bc", Data("\1\x80")), "failed: \n", Values{});
  EXPECT_MISTAKE(unpack("<B2s", Data("\1h\x81")), "failed: -- not a string: \\[104, 129\\]\n", Values{});
}

TEST(BinUtilsDeathTest, SubstringCountsUtf16) {
  const std::string text = "a\u20ac\U0001f600z";
  EXPECT_EQ(substring(text, 0, 5), text);
  EXPECT_EQ(substring(text, 1, 2), "\u20ac");
  EXPECT_EQ(substring(text, 2, 4), "\U0001f600");
  EXPECT_EQ(substring(text, 4, 5), "z");
  EXPECT_EQ(substring(text, 5, 5), "");
  EXPECT_MISTAKE(substring(text, 5, 6), "no range of the text: 5..<6\n", "");
  EXPECT_MISTAKE(substring(text, 2, 1), "no range of the text", "");
  EXPECT_MISTAKE(substring(text, 3, 4), "no range of the text", "");
  EXPECT_MISTAKE(substring(text, 0, std::string::npos), "no range of the text", "");
}

template <class T>
class DataConvertibleTest : public testing::Test {};
using FixedWidthTypes = testing::Types<bool, std::int8_t, std::int16_t, std::int32_t, std::int64_t, std::uint8_t,
                                       std::uint16_t, std::uint32_t, std::uint64_t, float, double>;
TYPED_TEST_SUITE(DataConvertibleTest, FixedWidthTypes);

TYPED_TEST(DataConvertibleTest, ReadsItsExactWidthOnly) {
  const auto value = static_cast<TypeParam>(-3);
  const Data data = dataFromValue(value);
  EXPECT_EQ(data.size(), sizeof(TypeParam));
  EXPECT_EQ(valueFromData<TypeParam>(data), value);
  auto bytes = data.bytes();
  bytes.push_back(0);
  EXPECT_EQ(valueFromBytes<TypeParam>(bytes), std::nullopt);
  EXPECT_EQ(valueFromBytes<TypeParam>({}), std::nullopt);
  std::size_t loc = 0;
  EXPECT_EQ(readIntegerType<TypeParam>(bytes, loc), value);
  EXPECT_EQ(loc, sizeof(TypeParam));
}

}  // namespace
}  // namespace vesko

#include "Platform/text/TextEncoding.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

#include "Platform/text/Base64.h"

namespace vesko {
namespace {

using namespace std::string_literals;

std::vector<std::string> wordsOf(const char* text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

TEST(TextEncoding, AcceptsWellFormedUtf8Only) {
  const auto wellFormed = wordsOf(
      "\x7f \xc2\x80 \xdf\xbf \xe0\xa0\x80 \xed\x9f\xbf \xee\x80\x80 \xef\xbf\xbf \xf0\x90\x80\x80 \xf4\x8f\xbf\xbf");
  const char32_t codePoints[] = {0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xE000, 0xFFFF, 0x10000, 0x10FFFF};
  const auto illFormed = wordsOf(
      "\x80 \xbf \xc0\x80 \xc1\xbf \xc2 \xc2\x41 \xc2\xc2\x80 \xe0\x9f\xbf \xe1\x80 \xe1\x80\x41 \xed\xa0\x80 "
      "\xed\xbf\xbf \xf0\x8f\xbf\xbf \xf1\x80\x80 \xf4\x90\x80\x80 \xf5\x80\x80\x80 \xfe \xff");
  ASSERT_EQ(wellFormed.size(), std::size(codePoints));
  // At every place around the words in which ASCII is skipped.
  for (std::size_t before = 0; before < 18; ++before) {
    for (std::size_t after = 0; after < 10; ++after) {
      const auto isValidWithin = [&](const std::string& bytes) {
        return isValidUtf8(std::string(before, 'a').append(bytes).append(after, 'b'));
      };
      for (const auto& bytes : wellFormed) EXPECT_TRUE(isValidWithin(bytes)) << testing::PrintToString(bytes);
      for (const auto& bytes : illFormed) EXPECT_FALSE(isValidWithin(bytes)) << testing::PrintToString(bytes);
    }
  }
  for (std::size_t i = 0; i < wellFormed.size(); ++i) {
    EXPECT_EQ(firstUtf8Character(wellFormed[i] + "\xff").codePoint, codePoints[i]);
    EXPECT_EQ(firstUtf8Character(wellFormed[i]).length, wellFormed[i].size());
  }
  EXPECT_EQ(firstUtf8Character("\0"s).length, 1U);
  for (const auto& bytes : illFormed) EXPECT_EQ(firstUtf8Character(bytes).length, 0U) << testing::PrintToString(bytes);
  EXPECT_EQ(firstUtf8Character("").length, 0U);
  EXPECT_TRUE(isValidUtf8(""));
}

TEST(TextEncoding, ConvertsBothWaysOrNotAtAll) {
  const struct {
    TextEncoding encoding;
    std::string text, bytes;
  } cases[] = {
      {TextEncoding::utf8, "\u00e9\u20ac", "\u00e9\u20ac"},
      {TextEncoding::cp1252, "caf\u00e9 5 \u20ac", "caf\xe9 5 \x80"},
      {TextEncoding::cp1252, "", ""},
      {TextEncoding::utf16LittleEndian, "a\U0001f600", "a\0\x3d\xd8\0\xde"s},
  };
  for (const auto& [encoding, text, bytes] : cases) {
    SCOPED_TRACE(std::string(nameOfEncoding(encoding)) + ": " + text);
    EXPECT_EQ(encodeText(text, encoding), bytes);
    EXPECT_EQ(decodeText(bytes, encoding), text);
    EXPECT_EQ(encodeText("ill-formed \xff", encoding), std::nullopt);
  }
  EXPECT_EQ(encodeText("\u03a9", TextEncoding::cp1252), std::nullopt);
  EXPECT_EQ(decodeText("\x81", TextEncoding::cp1252), std::nullopt);
  EXPECT_EQ(decodeText("\xe9", TextEncoding::utf8), std::nullopt);
  EXPECT_EQ(decodeText("\x3d\xd8"s, TextEncoding::utf16LittleEndian), std::nullopt);
  EXPECT_EQ(decodeText("a", TextEncoding::utf16LittleEndian), std::nullopt);
}

TEST(Base64, EncodesAndDecodes) {
  const std::pair<std::string, const char*> cases[] = {{"", ""},
                                                       {"f", "Zg=="},
                                                       {"fo", "Zm8="},
                                                       {"foob", "Zm9vYg=="},
                                                       {"foobar", "Zm9vYmFy"},
                                                       {"\0\x10\x83\xff\xef\xbe"s, "ABCD/+++"}};
  for (const auto& [bytes, text] : cases) {
    EXPECT_EQ(base64Encoded(bytes), text);
    EXPECT_EQ(base64Decoded(text), bytes) << text;
  }
}

TEST(Base64, RefusesWhatItWouldNotWrite) {
  for (const auto& text : {"Z"s, "Zg"s, "Zg="s, "Zg==="s, "===="s, "Z==="s, "Zg==Zg=="s, "Zm=v"s, "=m9v"s, "Zm9v\n"s,
                           "Zm\r\n"s, "Zm9 "s, "Zm-_"s, "Zm9\0"s, "Zm9\xff"s, "Zh=="s, "Zm9="s}) {
    EXPECT_EQ(base64Decoded(text), std::nullopt) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace vesko

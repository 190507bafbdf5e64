#include "VeskoKit/TransferStream.h"

#include <gtest/gtest.h>

#include "tests/support/StreamBytes.h"

namespace vesko::TransferStream {
namespace {

using namespace std::string_view_literals;
using StreamBytes::repeated;

TEST(TransferStream, WritesElementsAndTexts) {
  Data stream = encodeMetadata({2, 5});
  stream.append(encodeHeader("A", folderMark).view());
  stream.append(encodeHeader("A/b.txt", 5).view());
  EXPECT_EQ(stream.view(),
            "\2\0\0\0\0\0\0\0\5\0\0\0\0\0\0\0"
            "A\0\xff\xff\xff\xff\xff\xff\xff\xff"
            "A/b.txt\0\5\0\0\0\0\0\0\0"sv);
  EXPECT_EQ(encodeHeader(textName, 2).view(), "___VIRNO___TEXT___\0\2\0\0\0\0\0\0\0"sv);
}

TEST(TransferStream, ReadsWhatItWrites) {
  const Metadata largest{~std::uint64_t{0}, ~std::uint64_t{0}};
  for (const Metadata& metadata : {Metadata{}, Metadata{0x0807060504030201, 0x100f0e0d0c0b0a09}, largest}) {
    EXPECT_EQ(decodeMetadata(encodeMetadata(metadata)), metadata);
  }
  EXPECT_EQ(decodeSizeField(Data("\1\2\3\4\5\6\7\x88"sv)), 0x8807060504030201);
  EXPECT_EQ(encodeHeader("Gr\u00f6\u00dfe\n", 3).view(), "Gr\u00f6\u00dfe\n\0\3\0\0\0\0\0\0\0"sv);
}

TEST(TransferStream, JudgesNames) {
  const std::string longest = repeated(repeated("n", 255) + "/", 15) + repeated("n", 256);
  ASSERT_EQ(longest.size(), maximumNameLength);
  const std::string deepest = repeated("d/", 255) + "d";
  const std::pair<NameVerdict, std::vector<std::string>> cases[] = {
      {NameVerdict::good,
       {"a", "Photos/2019/a.jpg", ".hidden", "...", "a..b/..c/d..", "a//b/./c/", "./a", "C:\\..\\a\x1b[2J\n",
        "\xf0\x9f\x93\xb7.jpg", longest, deepest, deepest + "/.//."}},
      {NameVerdict::unsafe,
       {"", ".", "./", ".//./.", "/", "/etc/passwd", "//a", "..", "../a", "a/..", "a/../b", "a/b/../", deepest + "/..",
        "..\xff/.."}},
      {NameVerdict::invalid, {"caf\xe9", "a/\xc0\xaf", longest.substr(1) + "\xc3"}},
      {NameVerdict::tooLong, {longest + "n", longest + "/.."}},
      {NameVerdict::tooDeep, {deepest + "/d"}},
  };
  for (const auto& [verdict, names] : cases) {
    for (const auto& name : names) EXPECT_EQ(checkName(name), verdict) << name;
  }
}

}  // namespace
}  // namespace vesko::TransferStream

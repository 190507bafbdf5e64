#include "VeskoKit/TransferStream.h"

#include <gtest/gtest.h>

namespace vesko::TransferStream {
namespace {

using namespace std::string_view_literals;

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  while (count-- > 0) result += text;
  return result;
}

TEST(TransferStream, WritesAFolderWithAFile) {
  Data stream = encodeMetadata({2, 5});
  stream.append(encodeHeader("A", folderMark).view());
  stream.append(encodeHeader("A/b.txt", 5).view());
  stream.append("hello");
  EXPECT_EQ(stream.view(),
            "\2\0\0\0\0\0\0\0\5\0\0\0\0\0\0\0"
            "A\0\xff\xff\xff\xff\xff\xff\xff\xff"
            "A/b.txt\0\5\0\0\0\0\0\0\0hello"sv);
  EXPECT_EQ(stream.size(), 47U);
}

TEST(TransferStream, WritesAText) {
  Data stream = encodeMetadata({1, 2});
  stream.append(encodeHeader(textName, 2).view());
  stream.append("hi");
  EXPECT_EQ(stream.view(),
            "\1\0\0\0\0\0\0\0\2\0\0\0\0\0\0\0"
            "___VIRNO___TEXT___\0\2\0\0\0\0\0\0\0hi"sv);
  EXPECT_EQ(stream.size(), 45U);
}

TEST(TransferStream, ReadsWhatItWrites) {
  const Metadata largest{~std::uint64_t{0}, ~std::uint64_t{0}};
  for (const Metadata& metadata : {Metadata{}, Metadata{0x0807060504030201, 0x100f0e0d0c0b0a09}, largest}) {
    EXPECT_EQ(decodeMetadata(encodeMetadata(metadata)), metadata);
  }
  EXPECT_EQ(decodeSizeField(Data("\1\2\3\4\5\6\7\x88"sv)), 0x8807060504030201);
  EXPECT_EQ(decodeSizeField(Data("\xff\xff\xff\xff\xff\xff\xff\xff"sv)), folderMark);
  EXPECT_EQ(encodeHeader("Größe\n", 3).view(),
            "Gr\xc3\xb6\xc3\x9f"
            "e\n\0\3\0\0\0\0\0\0\0"sv);
}

TEST(TransferStream, TakesOnlyALoneElementForAText) {
  EXPECT_TRUE(isText("___VIRNO___TEXT___", 1));
  EXPECT_FALSE(isText("___VIRNO___TEXT___", 2));
  EXPECT_FALSE(isText("___virno___text___", 1));
  EXPECT_FALSE(isText("./___VIRNO___TEXT___", 1));
}

TEST(TransferStream, JudgesNames) {
  const std::string longest = repeated(repeated("n", 255) + "/", 15) + repeated("n", 256);
  ASSERT_EQ(longest.size(), maximumNameLength);
  const std::string deepest = repeated("d/", 255) + "d";
  const struct {
    std::string name;
    NameVerdict verdict;
  } cases[] = {
      {"a", NameVerdict::good},
      {"Photos/2019/a.jpg", NameVerdict::good},
      {".hidden", NameVerdict::good},
      {"...", NameVerdict::good},
      {"a..b/..c/d..", NameVerdict::good},
      {"a//b/./c/", NameVerdict::good},
      {"./a", NameVerdict::good},
      {"C:\\..\\a\x1b[2J\n", NameVerdict::good},
      {"\xf0\x9f\x93\xb7.jpg", NameVerdict::good},
      {longest, NameVerdict::good},
      {deepest, NameVerdict::good},
      {deepest + "/.//.", NameVerdict::good},
      {"", NameVerdict::unsafe},
      {".", NameVerdict::unsafe},
      {"./", NameVerdict::unsafe},
      {".//./.", NameVerdict::unsafe},
      {"/", NameVerdict::unsafe},
      {"/etc/passwd", NameVerdict::unsafe},
      {"//a", NameVerdict::unsafe},
      {"..", NameVerdict::unsafe},
      {"../a", NameVerdict::unsafe},
      {"a/..", NameVerdict::unsafe},
      {"a/../b", NameVerdict::unsafe},
      {"a/b/../", NameVerdict::unsafe},
      {deepest + "/..", NameVerdict::unsafe},
      {"..\xff/..", NameVerdict::unsafe},
      {"caf\xe9", NameVerdict::invalid},
      {"a/\xc0\xaf"
       "b",
       NameVerdict::invalid},
      {longest.substr(1) + "\xc3", NameVerdict::invalid},
      {longest + "n", NameVerdict::tooLong},
      {longest + "/..", NameVerdict::tooLong},
      {deepest + "/d", NameVerdict::tooDeep},
  };
  for (const auto& [name, verdict] : cases) EXPECT_EQ(checkName(name), verdict) << name;
}

TEST(TransferStream, TakesNamesApart) {
  using Components = std::vector<std::string>;
  EXPECT_EQ(componentsOfName("Photos/2019/a.jpg"), (Components{"Photos", "2019", "a.jpg"}));
  EXPECT_EQ(componentsOfName(".//a/./.b//"), (Components{"a", ".b"}));
  EXPECT_EQ(componentsOfName(repeated("d/", maximumNameDepth)).size(), maximumNameDepth);
}

}  // namespace
}  // namespace vesko::TransferStream

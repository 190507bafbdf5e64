#include "Platform/user/NSImage.h"

#include <gtest/gtest.h>

#include "tests/support/Png.h"

namespace vesko {
namespace {

using namespace std::string_literals;

const std::string red = "\xff\0\0"s;

// 24 bits a pixel; a negative height: the upper row comes first.
std::string bmp(std::uint8_t width, std::int8_t height, const std::string& rows) {
  const char sign = height < 0 ? '\xff' : '\0';
  return "BM\0\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0"s + static_cast<char>(width) + "\0\0\0"s + static_cast<char>(height) +
         std::string(3, sign) + "\x01\0\x18\0"s + std::string(24, '\0') + rows;
}

// One red pixel as the first of two pictures.
const std::string gif =
    "GIF89a\1\0\1\0\x80\0\0\xff\0\0\0\0\xff"s
    ",\0\0\0\0\1\0\1\0\0\2\2\x44\1\0"s
    ",\0\0\0\0\1\0\1\0\0\2\2\x4c\1\0;"s;

// Eight by eight pixels of medium grey.
const std::string jpeg = "\xff\xd8\xff\xdb\0\x43\0"s + std::string(64, '\1') +
                         "\xff\xc0\0\x0b\x08\0\x08\0\x08\1\1\x11\0"s              // frame
                         "\xff\xc4\0\x14\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s    // one code for a difference of 0
                         "\xff\xc4\0\x14\x10\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s  // one code for the end
                         "\xff\xda\0\x08\1\1\0\0\x3f\0\x3f\xff\xd9"s;

// Zlib data of these bits, its checksum missing.
std::string zlib(std::string bits) {
  bits.resize((bits.size() + 7) / 8 * 8, '0');
  std::string bytes = "\x78\x01";
  for (std::size_t index = 0; index < bits.size(); index += 8) {
    int byte = 0;
    for (std::size_t bit = 0; bit < 8; ++bit) byte |= (bits[index + bit] - '0') << bit;
    bytes += static_cast<char>(byte);
  }
  return bytes + std::string(4, '\0');
}

// A thousand times shorter than the zeros it stands for: one, and copies of 258 at distance 1.
std::string bomb(std::size_t copies, const std::string& first = "00110000") {
  std::string bits = "110" + first;
  for (std::size_t index = 0; index < copies; ++index) bits += "1100010100000";
  return zlib(bits + "0000000");
}

std::string grey(std::uint32_t side) {
  std::string rows;
  for (std::uint32_t row = 0; row < side; ++row) rows += '\0' + std::string(side * 3, '\x80');
  return Png::ofRows(side, side, rows);
}

TEST(NSImage, DecodesEveryKindToTheSamePng) {
  const std::string blue = "\0\0\xff"s;
  const std::string redAboveBlue = Png::ofRows(1, 2, '\0' + red + '\0' + blue);
  const struct {
    const char* name;
    std::string bytes, same;
  } cases[] = {
      {"bmp", bmp(1, 1, "\0\0\xff\0"s), Png::ofColor(red)},
      {"gif", gif, Png::ofColor(red)},
      {"jpeg", jpeg, grey(8)},
      {"bmp from below", bmp(1, 2, "\xff\0\0\0\0\0\xff\0"s), redAboveBlue},
      {"bmp from above", bmp(1, -2, "\0\0\xff\0\xff\0\0\0"s), redAboveBlue},
  };
  for (const auto& [name, bytes, same] : cases) {
    SCOPED_TRACE(name);
    const auto image = NSImage::decode(bytes);
    const auto expected = NSImage::decode(same);
    ASSERT_TRUE(image && expected);
    const auto png = image->pngRepresentation();
    ASSERT_TRUE(png);
    EXPECT_EQ(png, expected->pngRepresentation());
    EXPECT_TRUE(isSanePng(*png, 8));
    EXPECT_EQ(sizeOfPng(*png)->height, image->size().height);
    EXPECT_FALSE(isSanePng(bytes, 8)) << "is no PNG";
    EXPECT_FALSE(NSImage::decode(bytes.substr(0, 12)));
  }
}

TEST(NSImage, AcceptsWhatDecodersAccept) {
  const std::string png = Png::ofColor(red);
  EXPECT_TRUE(isSanePng(png, 1));
  EXPECT_TRUE(isSanePng(png + "left over", 1));
  EXPECT_TRUE(isSanePng(png.substr(0, png.size() - 4), 1)) << "without its last checksum";
  const std::string data = Png::stored('\0' + red);
  const std::string inPieces = Png::chunk("tEXt", "Author") + Png::chunk("IDAT", data.substr(0, 5)) +
                               Png::chunk("IDAT", "") + Png::chunk("IDAT", data.substr(5));
  EXPECT_TRUE(isSanePng(Png::header(1, 1) + inPieces + Png::chunk("IEND", ""), 1));
  EXPECT_TRUE(isSanePng(Png::header(1, 1) + Png::chunk("IDAT", bomb(1)) + Png::chunk("IEND", ""), 1)) << "surplus";
  EXPECT_TRUE(isSanePng(grey(64), 64));
  EXPECT_FALSE(isSanePng(grey(64), 63));
  EXPECT_FALSE(isSanePng(Png::ofRows(1, 2, '\0' + red + '\0' + red), 1));
}

TEST(NSImage, RefusesHostilePictures) {
  const auto end = Png::chunk("IEND", "");
  const auto withData = [&](const std::string& data) { return Png::header(1, 1) + Png::chunk("IDAT", data) + end; };
  const std::string png = Png::ofColor(red);
  const std::pair<const char*, std::string> cases[] = {
      {"only a signature", Png::signature},
      {"no size first", Png::signature + Png::chunk("IDAT", Png::stored('\0' + red)) + end},
      {"a square megametre", Png::header(1'000'000, 1'000'000) + Png::chunk("IDAT", bomb(10)) + end},
      {"the widest", Png::header(0xFFFFFFFF, 1) + Png::chunk("IDAT", bomb(10)) + end},
      {"no width", Png::ofRows(0, 1, "\0"s)},
      {"two sizes", Png::header(1, 1) + png.substr(Png::signature.size())},
      {"another size later", Png::header(1, 1) + Png::header(4096, 4096).substr(Png::signature.size()) + end},
      {"fewer rows than said", Png::ofRows(1, 2, '\0' + red)},
      {"an unknown filter", Png::ofRows(1, 1, '\x09' + red)},
      {"no pixels", Png::header(1, 1) + end},
      {"no end", Png::header(1, 1) + Png::chunk("IDAT", Png::stored('\0' + red))},
      {"a chunk of 2 GiB", Png::header(1, 1) + Png::chunk("IDAT", "", 0x7FFFFFFF) + end},
      {"a chunk of 4 GiB", Png::header(1, 1) + Png::chunk("tEXt", "", 0xFFFFFFFF) + end},
      {"no zlib data", withData("not compressed")},
      {"broken zlib data", withData("\x78\x01\x07" + red)},
      {"a copy of what is not there", withData(bomb(1, ""))},
      {"far more pixels than said", withData(bomb(4000))},
      {"other data first", "GIF89a" + png},
  };
  for (const auto& [name, bytes] : cases) {
    EXPECT_FALSE(isSanePng(bytes, NSImage::maximumSide)) << name;
    EXPECT_FALSE(NSImage::decode(bytes)) << name;
  }
  for (std::size_t length = 0; length < png.size() - 8; ++length) EXPECT_FALSE(isSanePng(png.substr(0, length), 1));
}

TEST(NSImage, RefusesHostilePicturesOfOtherKinds) {
  const auto changed = [](std::string bytes, std::size_t offset, const std::string& change) {
    return bytes.replace(offset, change.size(), change);
  };
  EXPECT_FALSE(NSImage::decode(changed(gif, 6, "\xff\xff\xff\xff")));
  EXPECT_FALSE(NSImage::decode(changed(bmp(1, 1, ""), 22, "\0\0\0\x80"s))) << "the least number is no height";
  const auto table = jpeg.find("\xff\xc4");
  EXPECT_TRUE(NSImage::decode(changed(jpeg, jpeg.find("\x3f\xff\xd9"), "\xff")));
  // Each of these makes a decoder that does not count write behind a table.
  const std::string codes(16, '\xff');
  EXPECT_FALSE(NSImage::decode(changed(jpeg, table + 5, codes))) << "4080 codes";
  EXPECT_FALSE(NSImage::decode(changed(jpeg, table + 2, "\xff\xff\0"s + codes))) << "longer than the file";
  EXPECT_FALSE(NSImage::decode(changed(jpeg, table + 3, "\x15").insert(table + 22, '\0' + codes))) << "cut off";
  const auto withoutTables = NSImage::decode(std::string(jpeg).erase(table, 44));
  ASSERT_TRUE(withoutTables);
  EXPECT_EQ(withoutTables->pngRepresentation(), NSImage::decode(jpeg)->pngRepresentation());
}

}  // namespace
}  // namespace vesko

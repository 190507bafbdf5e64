#include "VeskoKit/VeskoItem.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Platform/files/Data.h"
#include "Platform/files/FileHandle.h"
#include "Platform/sockets/SocketError.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

using namespace std::literals;

constexpr std::uint64_t mebibyte = 1024 * 1024;

class VeskoItemTest : public testing::Test {
 protected:
  /// A file of `size` bytes that takes no room on the disk.
  std::string makeFile(std::uint64_t size) const {
    const std::string path = folder_.write("file", "");
    std::filesystem::resize_file(path, size);
    return path;
  }

  TemporaryFolder folder_;
};

TEST_F(VeskoItemTest, AFileIsReadAtItsListedLengthOrIsAnErrorThatStays) {
  VeskoFile grown(folder_.write("file", "abc"));
  folder_.write("file", "abcdef");
  const Data chunk = grown.nextChunk();
  std::filesystem::remove(grown.path());
  EXPECT_EQ(chunk.bytes(), (std::vector<std::uint8_t>{'a', 'b', 'c'})) << "also without its name";
  EXPECT_FALSE(grown.sourceError());

  VeskoFile shrunk(makeFile(25 * mebibyte));
  std::filesystem::resize_file(shrunk.path(), 12 * mebibyte);
  for (const auto length : {10 * mebibyte, 2 * mebibyte, 0 * mebibyte}) EXPECT_EQ(shrunk.nextChunk().size(), length);
  EXPECT_EQ(shrunk.sourceError(), SocketErrc::sourceEnded);
  EXPECT_EQ(shrunk.handle(), nullptr);

  for (const std::uint64_t size : {std::uint64_t{0}, 3 * mebibyte}) {
    VeskoFile vanished(makeFile(size));
    VeskoFile replaced(vanished.path());
    std::filesystem::remove(vanished.path());
    EXPECT_TRUE(vanished.nextChunk().empty());
    EXPECT_EQ(vanished.sourceError(), std::errc::no_such_file_or_directory);
    ASSERT_EQ(::mkfifo(replaced.path().c_str(), 0600), 0);
    EXPECT_TRUE(replaced.nextChunk().empty());
    EXPECT_EQ(replaced.sourceError(), std::errc::invalid_argument);
    std::filesystem::remove(replaced.path());
  }
}

TEST_F(VeskoItemTest, HeadersHoldNameAndSizeFieldAndTextsComeWhole) {
  EXPECT_EQ(VeskoFile(folder_.write("x", "abc")).header().view(), "x\0\3\0\0\0\0\0\0\0"sv);
  EXPECT_EQ(VeskoFile(folder_.path("x"), "A/y").header().view(), "A/y\0\3\0\0\0\0\0\0\0"sv);
  const auto folder = std::make_shared<const VeskoItemFolder>(VeskoItemFolder{"/home/u/A/B", "A/B"});
  EXPECT_EQ(VeskoDir(folder).path(), "/home/u/A/B");
  EXPECT_EQ(VeskoDir(folder).header().view(), "A/B\0\xff\xff\xff\xff\xff\xff\xff\xff"sv);
  const VeskoFile file(folder, "c.txt", 7);
  EXPECT_EQ(file.path(), "/home/u/A/B/c.txt");
  EXPECT_EQ(file.header().view(), "A/B/c.txt\0\7\0\0\0\0\0\0\0"sv);
  VeskoText text("a\0b\0"s);
  EXPECT_EQ(text.size(), 4U);
  for (int call = 0; call < 2; ++call) EXPECT_EQ(text.nextChunk().view(), "a\0b\0"sv);
}

}  // namespace
}  // namespace vesko

#include "Platform/files/FileHandle.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>

#include "Platform/files/DirectoryHandle.h"
#include "Platform/files/FileDescriptor.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/LocalPeer.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

TEST(FileHandleTest, OpensFilesAndNothingElse) {
  const TemporaryFolder folder;
  folder.makeFolder("folder");
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  const FileDescriptor socket = openRaw(folder.path("socket"), Use::listen);
  std::error_code error;
  for (const std::string& path : {folder.path("folder"), folder.path("pipe"), folder.path("socket"),
                                  std::string("/dev/null"), std::string("/dev/tty")}) {
    EXPECT_EQ(FileHandle::forReadingAtPath(path, error), nullptr) << path;
    EXPECT_EQ(error, std::errc::invalid_argument) << path << ": " << error.message();
  }
  EXPECT_EQ(FileHandle::forReadingAtPath(folder.path("missing"), error), nullptr);
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  EXPECT_NE(FileHandle::forReadingAtPath(folder.write("file", "x"), error), nullptr);
  EXPECT_FALSE(error) << error.message();
}

TEST(FileHandleTest, ReadsWhatIsThereAndSaysWhyItCannot) {
  const TemporaryFolder folder;
  std::error_code error;
  const auto file = FileHandle::forReadingAtPath(folder.write("file", "12345"), error);
  ASSERT_NE(file, nullptr);
  std::array<char, 4> buffer{};
  EXPECT_EQ(file->readAt(3, buffer, error), 2U);
  EXPECT_EQ(file->readAt(9, buffer, error), 0U);
  EXPECT_FALSE(error) << error.message();
  EXPECT_EQ(file->readAt(std::uint64_t{1} << 63U, buffer, error), 0U);
  EXPECT_EQ(error, std::errc::invalid_argument) << "no file is that long";
  file->writeData("x", error);
  EXPECT_EQ(error, std::errc::bad_file_descriptor);
  EXPECT_EQ(folder.read("file"), "12345");
  const auto base = DirectoryHandle::open(folder.path(), error);
  const auto output = base->makeFile("output", error);
  ASSERT_NE(output, nullptr);
  EXPECT_EQ(output->readAt(0, buffer, error), 0U);
  EXPECT_EQ(error, std::errc::bad_file_descriptor);
  const FewDescriptors none(0);
  EXPECT_EQ(FileHandle::nullDevice(error), nullptr);
  EXPECT_EQ(error, std::errc::too_many_files_open);
}

}  // namespace
}  // namespace vesko

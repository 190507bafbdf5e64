#include "Platform/files/DirectoryHandle.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Namespaces.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

std::shared_ptr<DirectoryHandle> opened(const std::string& path) {
  std::error_code error;
  auto folder = DirectoryHandle::open(path, error);
  EXPECT_FALSE(error) << path << ": " << error.message();
  return folder;
}

TEST(DirectoryHandleTest, RemovesWhatItMayAndSaysWhatItMayNot) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give folders to others";
  const TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms(0777));
  folder.write("tree/closed/file", "theirs");
  folder.write("tree/open/file", "ours");
  folder.write("tree/readable/file", "theirs");
  fs::permissions(folder.path("tree/closed"), fs::perms(0));
  constexpr uid_t nobody = 65534;
  for (const auto* ours : {"tree", "tree/open", "tree/open/file"}) {
    ASSERT_EQ(::chown(folder.path(ours).c_str(), nobody, nobody), 0);
  }
  EXPECT_TRUE(passesAsOrdinaryUser([&] {
    const auto base = opened(folder.path());
    std::error_code error;
    base->removeTree("tree", error);
    EXPECT_EQ(error, std::errc::permission_denied) << error.message();
    base->removeTree("gone", error);
    EXPECT_FALSE(error) << "nothing there is no failure";
    EXPECT_FALSE(opened("/")->attributes("etc", true, error).isOwnReadable);
  }));
  EXPECT_EQ(folder.entries("tree"), (Names{"closed", "readable"}));
  EXPECT_EQ(folder.read("tree/closed/file") + folder.read("tree/readable/file"), "theirstheirs");
}

/// Mounts an empty file system, for this process only.
[[nodiscard]] bool mountAt(const std::string& path) {
  return enterOwnMounts() && ::mount("none", path.c_str(), "tmpfs", 0, "size=1m") == 0;
}

TEST(DirectoryHandleTest, RemovesNothingThatIsMountedInATree) {
  const TemporaryFolder folder;
  const std::string mounted = folder.makeFolder("tree/a/mounted");
  if (!passesInChild([&] { ::_exit(mountAt(mounted) ? 0 : 1); })) {
    GTEST_SKIP() << "a mount namespace of one's own is not permitted here";
  }
  EXPECT_TRUE(passesInChild([&] {
    ASSERT_TRUE(mountAt(mounted));
    folder.write("tree/a/mounted/file", "elsewhere");
    folder.write("tree/a/file", "here");
    std::error_code error;
    opened(folder.path())->removeTree("tree", error);
    EXPECT_EQ(error, std::errc::cross_device_link) << error.message();
    EXPECT_EQ(folder.read("tree/a/mounted/file"), "elsewhere");
    EXPECT_FALSE(folder.exists("tree/a/file"));
  }));
}

TEST(DirectoryHandleTest, TakesAnyRoomWhereTheSystemDoesNotSay) {
  std::error_code error;
  EXPECT_EQ(opened("/proc")->freeBytes(error), std::numeric_limits<std::uint64_t>::max());
  EXPECT_FALSE(error) << error.message();
}

#ifndef NDEBUG
TEST(DirectoryHandleDeathTest, NamesAreComponents) {
  const TemporaryFolder folder;
  const auto base = opened(folder.path());
  std::error_code error;
  for (const std::string name : {"", ".", "..", "a/b", "/"}) {
    EXPECT_DEATH((void)base->makeFile(name, error), "isComponent") << name;
  }
}
#endif

}  // namespace
}  // namespace vesko

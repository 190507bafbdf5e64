#include "Platform/files/DirectoryHandle.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <functional>
#include <limits>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/LocalPeer.h"
#include "tests/support/Namespaces.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

/// What renaming without replacing fails with, as on a file system that cannot do so; 0: nothing.
int renameFailure = 0;

/// What somebody else does just before the file "last" is removed.
std::function<void()> beforeRemoval;

}  // namespace
}  // namespace vesko

extern "C" int renameat2(int from, const char* name, int to, const char* newName, unsigned flags) noexcept {
  errno = vesko::renameFailure;
  return errno != 0 ? -1 : static_cast<int>(::syscall(SYS_renameat2, from, name, to, newName, flags));
}

extern "C" int unlinkat(int folder, const char* name, int flags) noexcept {
  const bool isLast = std::string_view(name) == "last";
  if (const auto act = isLast ? std::exchange(vesko::beforeRemoval, {}) : nullptr) act();
  return static_cast<int>(::syscall(SYS_unlinkat, folder, name, flags));
}

namespace vesko {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
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
  for (const auto* name : {"closed", "open", "readable"}) folder.write("tree/"s + name + "/file", name);
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
  EXPECT_EQ(folder.read("tree/closed/file") + folder.read("tree/readable/file"), "closedreadable");
}

TEST(DirectoryHandleTest, RemovesNothingThatIsMountedInATree) {
  const TemporaryFolder folder;
  const std::string mounted = folder.makeFolder("tree/a/mounted");
  const auto mountThere = [&] {
    return enterOwnMounts() && ::mount("none", mounted.c_str(), "tmpfs", 0, "size=1m") == 0;
  };
  expectToPassPrepared(mountThere, [&] {
    folder.write("tree/a/mounted/file", "elsewhere");
    folder.write("tree/a/file", "here");
    std::error_code error;
    opened(folder.path())->removeTree("tree", error);
    EXPECT_EQ(error, std::errc::cross_device_link) << error.message();
    EXPECT_EQ(folder.read("tree/a/mounted/file"), "elsewhere");
    EXPECT_FALSE(folder.exists("tree/a/file"));
  });
}

TEST(DirectoryHandleTest, TakesAnyRoomWhereTheSystemDoesNotSay) {
  std::error_code error;
  EXPECT_EQ(opened("/proc")->freeBytes(error), std::numeric_limits<std::uint64_t>::max());
  EXPECT_FALSE(error) << error.message();
}

/// Each kind of entry, moved onto each kind of entry and to a free name.
void expectMovesWithoutReplacing() {
  const std::string kinds[] = {"file", "folder", "link", "empty folder"};
  for (const auto& kind : kinds) {
    const TemporaryFolder folder;
    for (const std::string side : {"from/", "to/"}) {
      folder.write(side + "file", side);
      folder.write(side + "folder/inner", side);
      folder.makeFolder(side + "empty folder");
      fs::create_symlink("nowhere", folder.path(side + "link"));
    }
    const auto from = opened(folder.path("from"));
    const auto to = opened(folder.path("to"));
    std::error_code error;
    for (const auto& taken : kinds) {
      from->moveWithoutReplacing(kind, *to, taken, error);
      EXPECT_EQ(error, std::errc::file_exists) << kind << " onto " << taken;
    }
    EXPECT_EQ(folder.entries("from"), folder.entries("to"));
    EXPECT_EQ(folder.read("to/file") + folder.read("to/folder/inner"), "to/to/");
    from->moveWithoutReplacing(kind, *to, "free", error);
    EXPECT_FALSE(error) << kind << ": " << error.message();
    EXPECT_FALSE(folder.exists("from/" + kind));
    EXPECT_EQ(fs::symlink_status(folder.path("to/free")).type(), fs::symlink_status(folder.path("to/" + kind)).type());
    const bool hasContents = kind == "file" || kind == "folder";
    EXPECT_EQ(folder.read("to/free") + folder.read("to/free/inner"), hasContents ? "from/" : "");
  }
}

/// What is not there, and a folder into itself.
void expectNothingOfAMoveThatFails() {
  const TemporaryFolder folder;
  const auto from = opened(folder.path());
  const auto inner = opened(folder.makeFolder("folder"));
  std::error_code error;
  from->moveWithoutReplacing("missing", *inner, "new", error);
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  from->moveWithoutReplacing("folder", *inner, "new", error);
  EXPECT_EQ(error, std::errc::invalid_argument);
  EXPECT_EQ(folder.entries("folder"), std::vector<std::string>()) << "the reserved name is free again";
}

TEST(DirectoryHandleTest, MovesWithoutReplacing) {
  for (const int failure : {0, EINVAL, ENOSYS, EOPNOTSUPP}) {
    SCOPED_TRACE(failure);
    renameFailure = failure;
    expectMovesWithoutReplacing();
    expectNothingOfAMoveThatFails();
    renameFailure = 0;
  }
}

TEST(DirectoryHandleTest, RemovesTreesWithoutRightsDeeperThanPathsAndDescriptorsReach) {
  EXPECT_TRUE(passesAsOrdinaryUser([] {
    const TemporaryFolder folder;
    for (const unsigned rights : {0555U, 0300U, 0U}) {
      const auto name = "tree/" + std::to_string(rights);
      folder.write(name + "/inner/file", "");
      for (const auto& path : {name + "/inner", name}) fs::permissions(folder.path(path), fs::perms(rights));
    }
    std::error_code error;
    const std::string name(200, 'd');
    for (auto [level, parent] = std::pair(0, opened(folder.path("tree"))); level < 64; ++level) {
      parent->makeFolder(name, error);
      parent = parent->openFolder(name, error);
      ASSERT_FALSE(error);
    }
    const auto base = opened(folder.path());
    const FewDescriptors few(24);
    base->removeTree("tree", error);
    EXPECT_FALSE(error) << error.message();
    EXPECT_FALSE(folder.exists("tree"));
  }));
}

TEST(DirectoryHandleTest, RemovesNothingElsewhereWhenSomebodyMovesTheFolderItIsIn) {
  const TemporaryFolder folder;
  for (const auto* file : {"tree/a/b/last", "tree/a/file", "outside/file"}) folder.write(file, "");
  beforeRemoval = [&] { fs::rename(folder.path("tree/a/b"), folder.path("outside/b")); };
  std::error_code error;
  opened(folder.path())->removeTree("tree", error);
  EXPECT_TRUE(error);
  EXPECT_EQ(folder.entries("outside"), (Names{"b", "file"}));
}

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

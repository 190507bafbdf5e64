#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Platform/files/DirectoryHandle.h"
#include "Platform/files/FileManager.h"
#include "Platform/text/DateFormatter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TimeZone.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;

std::shared_ptr<DirectoryHandle> opened(const std::string& path) {
  std::error_code error;
  auto folder = DirectoryHandle::open(path, error);
  EXPECT_FALSE(error) << path << ": " << error.message();
  return folder;
}

TEST(DateFormatterTest, WritesTheUsersTimeByPattern) {
  using std::chrono::minutes;
  const auto text = [](const char* zoneName, std::chrono::seconds time, const char* pattern) {
    const TimeZone zone(zoneName);
    constexpr std::chrono::sys_days day = std::chrono::year{2026} / 11 / 16;
    return DateFormatter(pattern).stringFromDate(std::chrono::system_clock::time_point(day) + time);
  };
  EXPECT_EQ(text("UTC0", minutes(5), "hh-mm"), "12-05");
  EXPECT_EQ(text("UTC0", minutes(12 * 60 + 5), "hh-mm"), "12-05");
  EXPECT_EQ(text("UTC0", std::chrono::seconds(50'707), "d.M. H:m:s, yyyyy"), "16.11. 14:5:7, 02026");
  EXPECT_EQ(text("JST-9", minutes(16 * 60), "dd HH"), "17 01");
  EXPECT_EQ(text("EST5", minutes(4 * 60), "dd hh"), "15 11");
}

TEST(FileManagerTest, FindsAndMakesTheDownloadsFolder) {
  const TemporaryFolder folder;
  const auto home = folder.makeFolder("home");
  const auto config = folder.makeFolder("config");
  std::vector<std::pair<std::string, std::string>> cases = {
      {" XDG_DOWNLOAD_DIR = \"$HOME/Gel\u00e4nde/\" # here\n", home + "/Gel\u00e4nde"},
      {"XDG_DOWNLOAD_DIR=\"" + folder.path("far away") + "\"\n", folder.path("far away")},
      {"XDG_DOWNLOAD_DIR=\"$HOME/a \\\"b\\\" \\$c \\\\\"\n", home + "/a \"b\" $c \\"},
      {"XDG_DOWNLOAD_DIR=\"$HOME/First\"\nXDG_DOWNLOAD_DIR=\"$HOME/Last\"", home + "/Last"},
  };
  for (const char* none :
       {"", "# XDG_DOWNLOAD_DIR=\"$HOME/Comment\"\nXDG_MUSIC_DIR=\"$HOME/Music\"\n", "XDG_DOWNLOAD_DIR=\"$HOME/\"\n",
        "XDG_DOWNLOAD_DIR=\"relative\"\n", "XDG_DOWNLOAD_DIR=\"$HOMEwork\"\n", "XDG_DOWNLOAD_DIR=\"$HOME/open\n",
        "XDG_DOWNLOAD_DIR=$HOME/bare\nXDG_DOWNLOAD_DIRECTORY=\"/tmp\"\n"}) {
    cases.emplace_back(none, home + "/Downloads");
  }
  std::error_code error;
  for (const auto& [file, downloads] : cases) {
    folder.write("config/user-dirs.dirs", file);
    EXPECT_EQ(FileManager::downloadsDirectory(home + "/", config, error), downloads) << file;
    EXPECT_TRUE(!error && fs::is_directory(downloads)) << file;
  }
  folder.write("home/.config/user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"$HOME/Default\"\n");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "", error), home + "/Default");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "config", error), home + "/Default");
  fs::remove(home + "/Default");
  folder.write("home/Default", "");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "", error), "");
  EXPECT_EQ(error, std::errc::not_a_directory);
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

/// Makes the kernel answer so, as for a file system that cannot rename without replacing.
void refuseExclusiveRenames(unsigned answer) {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | answer),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {std::size(program), program};
  ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0), 0);
}

TEST(DirectoryHandleTest, MovesWithoutReplacing) {
  expectMovesWithoutReplacing();
  expectNothingOfAMoveThatFails();
  for (const int answer : {EINVAL, ENOSYS, EOPNOTSUPP}) {
    EXPECT_TRUE(passesInChild([&] {
      refuseExclusiveRenames(static_cast<unsigned>(answer));
      expectMovesWithoutReplacing();
      expectNothingOfAMoveThatFails();
    })) << answer;
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
  // A round in which the removal outruns the move proves nothing.
  bool isMoved = false;
  for (int round = 0; round < 100 && !isMoved; ++round) {
    const TemporaryFolder folder;
    const auto inner = opened(folder.makeFolder("tree/a/b"));
    folder.makeFolder("outside");
    const auto file = folder.write("file", "");  // the entries cost no file of their own
    for (const auto& [name, count] : {std::pair("tree/a/b/", 3000), {"tree/a/", 20}, {"outside/", 20}}) {
      for (int index = 0; index < count; ++index) fs::create_hard_link(file, folder.path(name + std::to_string(index)));
    }
    std::error_code error;
    const auto names = inner->contents(error);
    std::jthread mover([&] {
      std::error_code failure;
      // The last name of the list goes first.
      while (!failure) (void)inner->attributes(names.back(), false, failure);
      fs::rename(folder.path("tree/a/b"), folder.path("outside/b"), failure);
      isMoved = !failure;
    });
    opened(folder.path())->removeTree("tree", error);
    mover.join();
    EXPECT_EQ(isMoved, static_cast<bool>(error));
    EXPECT_EQ(folder.entries("outside").size(), isMoved ? 21U : 20U);
  }
  EXPECT_TRUE(isMoved);
}

}  // namespace
}  // namespace vesko

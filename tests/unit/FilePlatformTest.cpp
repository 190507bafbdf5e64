#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Platform/DateFormatter.h"
#include "Platform/DirectoryHandle.h"
#include "Platform/FileHandle.h"
#include "Platform/FileManager.h"
#include "tests/support/ChildProcess.h"
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
  using std::chrono::hours, std::chrono::minutes, std::chrono::seconds;
  const auto midnight = std::chrono::system_clock::time_point(std::chrono::sys_days{std::chrono::year{2026} / 11 / 16});
  struct Case {
    const char* zone;
    std::chrono::seconds time;
    const char* pattern;
    const char* text;
  };
  const Case cases[] = {
      {"UTC0", hours(22) + minutes(25) + seconds(33), "yyyyMMddhhmmss", "20261116102533"},
      {"UTC0", hours(22) + minutes(25) + seconds(33), "yyyy-MM-dd hh-mm", "2026-11-16 10-25"},
      {"UTC0", minutes(5), "hh-mm", "12-05"},
      {"UTC0", hours(12) + minutes(5), "hh-mm", "12-05"},
      {"UTC0", hours(14) + minutes(5), "hh-mm", "02-05"},
      {"UTC0", hours(2) + minutes(5), "hh-mm", "02-05"},
      {"UTC0", hours(14) + minutes(5) + seconds(7), "d.M. H:m:s, yyyyy", "16.11. 14:5:7, 02026"},
      {"JST-9", hours(16), "dd HH", "17 01"},
      {"EST5", hours(4), "dd hh", "15 11"},
      {"UTC0", hours(0), "", ""},
  };
  for (const auto& example : cases) {
    const TimeZone zone(example.zone);
    EXPECT_EQ(DateFormatter(example.pattern).stringFromDate(midnight + example.time), example.text);
  }
}

TEST(FileManagerTest, FindsAndMakesTheDownloadsFolder) {
  const TemporaryFolder folder;
  const auto home = folder.makeFolder("home");
  const auto config = folder.makeFolder("config");
  struct Case {
    std::string file;
    std::string downloads;
  };
  const Case cases[] = {
      {"", home + "/Downloads"},
      {"# XDG_DOWNLOAD_DIR=\"$HOME/Comment\"\nXDG_MUSIC_DIR=\"$HOME/Music\"\n", home + "/Downloads"},
      {"XDG_DOWNLOAD_DIR=\"$HOME/Loads/New\"", home + "/Loads/New"},
      {" XDG_DOWNLOAD_DIR = \"$HOME/Gel\xC3\xA4"
       "den/\" # here\n",
       home + "/Gel\xC3\xA4"
              "den"},
      {"XDG_DOWNLOAD_DIR=\"" + folder.path("far away") + "\"\n", folder.path("far away")},
      {"XDG_DOWNLOAD_DIR=\"$HOME/a \\\"b\\\" \\$c \\\\\"\n", home + "/a \"b\" $c \\"},
      {"XDG_DOWNLOAD_DIR=\"$HOME/First\"\nXDG_DOWNLOAD_DIR=\"$HOME/Last\"\n", home + "/Last"},
      {"XDG_DOWNLOAD_DIR=\"$HOME/\"\n", home + "/Downloads"},
      {"XDG_DOWNLOAD_DIR=\"relative\"\n", home + "/Downloads"},
      {"XDG_DOWNLOAD_DIR=\"$HOMEwork\"\n", home + "/Downloads"},
      {"XDG_DOWNLOAD_DIR=\"$HOME/open\n", home + "/Downloads"},
      {"XDG_DOWNLOAD_DIR=$HOME/bare\nXDG_DOWNLOAD_DIRECTORY=\"/tmp\"\n", home + "/Downloads"},
  };
  std::error_code error;
  for (const auto& example : cases) {
    folder.write("config/user-dirs.dirs", example.file);
    EXPECT_EQ(FileManager::downloadsDirectory(home + "/", config, error), example.downloads) << example.file;
    EXPECT_TRUE(!error && fs::is_directory(example.downloads)) << example.file;
  }
  folder.write("home/.config/user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"$HOME/Default\"\n");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "", error), home + "/Default");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "config", error), home + "/Default");

  folder.write("home/.config/user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"$HOME/File\"\n");
  folder.write("home/File", "");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "", error), "");
  EXPECT_EQ(error, std::errc::not_a_directory);
}

TEST(FileHandleTest, OpensOnlyRegularFiles) {
  const TemporaryFolder folder;
  folder.write("file", "contents");
  folder.makeFolder("folder");
  fs::create_symlink("file", folder.path("link"));
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  const struct {
    const char* name;
    std::error_condition error;
  } cases[] = {
      {"file", {}},
      {"link", {}},
      {"folder", std::errc::invalid_argument},
      {"pipe", std::errc::invalid_argument},
      {"absent", std::errc::no_such_file_or_directory},
  };
  for (const auto& [name, expected] : cases) {
    std::error_code error;
    const auto file = FileHandle::forReadingAtPath(folder.path(name), error);
    EXPECT_EQ(error.value(), expected.value()) << name;
    EXPECT_EQ(file != nullptr, !expected) << name;
  }
}

TEST(FileHandleTest, ReadsToTheEndThatTheFileHasNow) {
  const TemporaryFolder folder;
  const auto path = folder.write("file", "0123456789");
  std::error_code error;
  const auto file = FileHandle::forReadingAtPath(path, error);
  ASSERT_TRUE(file);
  const auto first = file->readDataOfLength(4, error);
  EXPECT_EQ(first.bytes(), (std::vector<std::uint8_t>{'0', '1', '2', '3'}));
  EXPECT_EQ(file->readDataOfLength(100, error).size(), 6U);
  EXPECT_TRUE(file->readDataOfLength(1, error).empty());
  fs::resize_file(path, 2);
  EXPECT_TRUE(file->readDataOfLength(1, error).empty());
  EXPECT_EQ(file->offsetInFile(), 10U);
  std::array<char, 8> buffer{};
  EXPECT_EQ(file->readAt(1, buffer, error), 1U);
  EXPECT_FALSE(error);
  EXPECT_THROW((void)first.bytes(), std::system_error);
  file->closeFile();
  EXPECT_TRUE(file->readDataOfLength(1, error).empty());
  EXPECT_EQ(error, std::errc::bad_file_descriptor);
}

TEST(FileHandleTest, ReportsWhatCouldNotBeWritten) {
  std::error_code error;
  FileHandle full(FileDescriptor(::open("/dev/full", O_WRONLY | O_CLOEXEC)));
  full.writeData("bytes", error);
  EXPECT_EQ(error, std::errc::no_space_on_device);
  EXPECT_EQ(full.offsetInFile(), 0U);
  const auto nowhere = FileHandle::nullDevice(error);
  ASSERT_TRUE(nowhere);
  nowhere->writeData("bytes", error);
  EXPECT_TRUE(!error && nowhere->offsetInFile() == 5);
}

/// Each kind of entry, moved to a free name and onto each kind of entry.
void expectMovesWithoutReplacing() {
  const std::string kinds[] = {"file", "folder", "link", "empty folder"};
  for (const auto& kind : kinds) {
    const TemporaryFolder folder;
    const auto from = opened(folder.makeFolder("from"));
    const auto to = opened(folder.makeFolder("to"));
    for (const auto* side : {"from/", "to/"}) {
      folder.write(std::string(side) + "file", side);
      folder.write(std::string(side) + "folder/inner", side);
      folder.makeFolder(std::string(side) + "empty folder");
      fs::create_symlink("nowhere", folder.path(std::string(side) + "link"));
    }
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
    EXPECT_EQ(folder.read("to/free"), kind == "file" ? "from/" : "");
    EXPECT_EQ(folder.exists("to/free/inner"), kind == "folder");
    from->moveWithoutReplacing("absent", *to, "other", error);
    EXPECT_EQ(error, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(folder.exists("to/other"));
  }
}

/// Makes the kernel answer as for a file system that cannot rename without replacing.
void refuseExclusiveRenames() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {std::size(program), program};
  ASSERT_EQ(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0), 0);
}

TEST(DirectoryHandleTest, MovesWithoutReplacing) { expectMovesWithoutReplacing(); }

TEST(DirectoryHandleTest, MovesWithoutReplacingWhereTheFileSystemCannot) {
  EXPECT_TRUE(passesInChild([] {
    refuseExclusiveRenames();
    expectMovesWithoutReplacing();
  }));
}

TEST(DirectoryHandleTest, RemovesATreeButNothingThatItsLinksLeadTo) {
  const TemporaryFolder folder;
  folder.write("outside/file", "kept");
  folder.write("base/tree/a/b/file", "");
  folder.makeFolder("base/tree/a/empty");
  fs::create_directory_symlink(folder.path("outside"), folder.path("base/tree/a/link"));
  fs::create_symlink(folder.path("outside/file"), folder.path("base/tree/link"));
  fs::create_directory_symlink(folder.path("outside"), folder.path("base/link"));
  ASSERT_EQ(::mkfifo(folder.path("base/tree/pipe").c_str(), 0600), 0);
  const auto base = opened(folder.path("base"));
  std::error_code error;
  for (const auto* name : {"tree", "link", "absent"}) {
    base->removeTree(name, error);
    EXPECT_FALSE(error) << name << ": " << error.message();
  }
  EXPECT_TRUE(folder.entries("base").empty());
  EXPECT_EQ(folder.read("outside/file"), "kept");
}

TEST(DirectoryHandleTest, RemovesTreesWithoutRightsDeeperThanPathsAndDescriptorsReach) {
  EXPECT_TRUE(passesAsOrdinaryUser([] {
    const TemporaryFolder folder;
    for (const auto* name : {"unwritable", "unreadable", "closed"}) {
      folder.write("tree/" + std::string(name) + "/inner/file", "");
    }
    fs::permissions(folder.path("tree/unwritable/inner"), fs::perms(0555));
    fs::permissions(folder.path("tree/unwritable"), fs::perms(0555));
    fs::permissions(folder.path("tree/unreadable"), fs::perms(0300));
    fs::permissions(folder.path("tree/closed"), fs::perms::none);
    std::error_code error;
    const std::string name(200, 'd');
    for (auto [level, parent] = std::pair(0, opened(folder.path("tree"))); level < 64; ++level) {
      parent->makeFolder(name, error);
      parent = parent->openFolder(name, error);
      ASSERT_FALSE(error);
    }
    const auto base = opened(folder.path());
    const rlimit few = {32, 32};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    base->removeTree("tree", error);
    EXPECT_FALSE(error) << error.message();
    EXPECT_FALSE(folder.exists("tree"));
  }));
}

TEST(DirectoryHandleTest, GoesOnRemovingAfterAFailure) {
  EXPECT_TRUE(passesInChild([] {
    const TemporaryFolder folder;
    for (const auto* name : {"tree/a/inner", "tree/b/inner", "tree/1", "tree/2", "tree/3"}) folder.write(name, "");
    const auto base = opened(folder.path());
    // One for the tree, one for a folder inside, none left to list that one.
    const int free = ::dup(0);
    ::close(free);
    const rlimit before = {1024, 1024};
    const rlimit two = {static_cast<rlim_t>(free) + 2, 1024};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &two), 0);
    std::error_code error;
    base->removeTree("tree", error);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(error, std::errc::too_many_files_open);
    EXPECT_EQ(folder.entries("tree"), (std::vector<std::string>{"a", "b"}));
  }));
}

/// Entries that cost no file of their own.
void makeLinks(const std::string& file, const std::string& folder, int count) {
  for (int index = 0; index < count; ++index) fs::create_hard_link(file, folder + "/" + std::to_string(index));
}

TEST(DirectoryHandleTest, RemovesNothingElsewhereWhenSomebodyMovesTheFolderItIsIn) {
  // A round in which the removal outruns the move proves nothing.
  bool isMoved = false;
  for (int round = 0; round < 100 && !isMoved; ++round) {
    const TemporaryFolder folder;
    const auto inner = opened(folder.makeFolder("tree/a/b"));
    const auto file = folder.write("file", "");
    makeLinks(file, folder.path("tree/a/b"), 3000);
    makeLinks(file, folder.path("tree/a"), 20);
    makeLinks(file, folder.makeFolder("outside"), 20);
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

TEST(DirectoryHandleTest, TellsWhatMayBeReadAndNeverOpensLinks) {
  EXPECT_TRUE(passesAsOrdinaryUser([] {
    const TemporaryFolder folder;
    folder.write("open", "");
    folder.write("closed", "");
    folder.makeFolder("folder");
    fs::create_symlink("open", folder.path("link"));
    fs::create_symlink("closed", folder.path("link to closed"));
    fs::create_directory_symlink("folder", folder.path("link to folder"));
    fs::create_symlink("absent", folder.path("dangling"));
    fs::permissions(folder.path("closed"), fs::perms::none);
    const auto base = opened(folder.path());
    for (const auto* name : {"open", "link", "folder", "link to folder"}) EXPECT_TRUE(base->isReadable(name)) << name;
    for (const auto* name : {"closed", "link to closed", "dangling", "absent"}) {
      EXPECT_FALSE(base->isReadable(name)) << name;
    }
    std::error_code error;
    EXPECT_FALSE(base->openFolder("link to folder", error));
    EXPECT_EQ(error, std::errc::not_a_directory);
    EXPECT_FALSE(base->makeFile("dangling", error));
    EXPECT_EQ(error, std::errc::file_exists);
    EXPECT_EQ(base->attributes("link", false, error).kind, EntryKind::other);
    EXPECT_EQ(base->attributes("link", true, error).kind, EntryKind::file);
  }));
}

}  // namespace
}  // namespace vesko

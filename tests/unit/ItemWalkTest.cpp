#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "Platform/Data.h"
#include "Platform/DirectoryHandle.h"
#include "Platform/FileHandle.h"
#include "VeskoKit/VeskoItem.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
using enum VeskoFailureReason;

using Reasons = std::map<std::string, VeskoFailureReason>;  // by path relative to the temporary folder

/// While it lives, the process is not root, who may read everything.
class OrdinaryUser {
 public:
  OrdinaryUser() {
    if (isRoot_ && ::seteuid(65534) != 0) throw std::system_error(errno, std::generic_category(), "seteuid");
  }
  ~OrdinaryUser() {
    if (isRoot_ && ::seteuid(0) != 0) std::abort();
  }

 private:
  bool isRoot_ = ::geteuid() == 0;
};

/// While it lives, the process has room for few more descriptors.
class FewDescriptors {
 public:
  FewDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    rlimit few = before_;
    few.rlim_cur = 32;
    ::setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

class ItemWalkTest : public testing::Test {
 protected:
  void walk(const std::vector<std::string>& names) {
    std::vector<std::string> paths;
    for (const auto& name : names) paths.push_back(folder_.path(name));
    leftOut_.clear();
    items_ = walkPaths(paths, leftOut_);
  }

  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& item : items_) result.push_back(item->name());
    return result;
  }

  [[nodiscard]] std::vector<std::string> sortedNames() const {
    auto result = names();
    std::ranges::sort(result);
    return result;
  }

  [[nodiscard]] Reasons reasons() const {
    Reasons result;
    for (const auto& [element, reason, error] : leftOut_) result[element.substr(folder_.path().size() + 1)] = reason;
    EXPECT_EQ(result.size(), leftOut_.size());
    return result;
  }

  [[nodiscard]] std::shared_ptr<VeskoItem> itemNamed(const std::string& name) const {
    const auto found = std::ranges::find(items_, name, [](const auto& item) { return item->name(); });
    return found == items_.end() ? nullptr : *found;
  }

  TemporaryFolder folder_;
  VeskoItems items_;
  std::vector<VeskoSkippedElement> leftOut_;
};

using Names = std::vector<std::string>;

void addExpected(const fs::path& path, const std::string& name, Names& expected) {
  expected.push_back(name);
  if (!fs::is_directory(path)) return;
  for (const auto& entry : fs::directory_iterator(path)) {
    addExpected(entry.path(), name + "/" + entry.path().filename().string(), expected);
  }
}

TEST_F(ItemWalkTest, FoldersComeBeforeTheirContentsInListingOrder) {
  for (const char* name :
       {"Photos/a.jpg", "Photos/.hidden", "Photos/2019/b.jpg", "Photos/2019/.git/config", "Photos/z"})
    folder_.write(name, "12345");
  folder_.makeFolder("Photos/empty");
  folder_.write("first", "");

  walk({"first", "Photos/", "Photos/2019"});
  Names expected;
  addExpected(folder_.path("first"), "first", expected);
  addExpected(folder_.path("Photos"), "Photos", expected);
  addExpected(folder_.path("Photos/2019"), "2019", expected);
  EXPECT_EQ(names(), expected);
  EXPECT_TRUE(leftOut_.empty());
  for (const auto& item : items_) {
    const bool isFolder = item->protocolSize() == ~std::uint64_t{0};
    EXPECT_EQ(item->size(), isFolder || item->name() == "first" ? 0U : 5U) << item->name();
  }
}

TEST_F(ItemWalkTest, LeavesOutChosenPathsThatCannotBeSent) {
  folder_.write("file", "");
  ASSERT_EQ(::mkfifo(folder_.path("pipe").c_str(), 0600), 0);
  walk({"missing", "file/", "pipe", "caf\xe9", ".", "file/..", "file"});
  EXPECT_EQ(reasons(), (Reasons{{"missing", notFound},
                                {"file/", notFound},
                                {"pipe", notReadable},
                                {"caf\xe9", invalidText},
                                {".", unsafeName},
                                {"file/..", unsafeName}}));
  EXPECT_EQ(names(), Names{"file"});

  leftOut_.clear();
  EXPECT_TRUE(walkPaths({"", "/", ".."}, leftOut_).empty());
  for (const auto& skipped : leftOut_) EXPECT_EQ(skipped.reason, unsafeName) << skipped.element;
  EXPECT_EQ(leftOut_.size(), 3U);
}

TEST_F(ItemWalkTest, LeavesOutEntriesThatCannotBeSent) {
  folder_.write("top/kept", "");
  folder_.write("top/caf\xe9.txt", "");
  folder_.write("top/\xff/inside", "");
  ASSERT_EQ(::mkfifo(folder_.path("top/pipe").c_str(), 0600), 0);
  fs::create_symlink("/dev/null", folder_.path("top/device"));
  walk({"top"});
  EXPECT_EQ(sortedNames(), (Names{"top", "top/kept"}));
  EXPECT_EQ(reasons(), (Reasons{{"top/caf\xe9.txt", invalidText},
                                {"top/\xff", invalidText},
                                {"top/pipe", notReadable},
                                {"top/device", notReadable}}));
}

TEST_F(ItemWalkTest, FollowsLinksButNotInCircles) {
  folder_.write("elsewhere/file", "12345");
  folder_.makeFolder("top/a");
  folder_.makeFolder("top/b");
  fs::create_symlink("../elsewhere/file", folder_.path("top/toFile"));
  fs::create_symlink("../elsewhere", folder_.path("top/toFolder"));
  fs::create_symlink("nowhere", folder_.path("top/dangling"));
  fs::create_symlink("itself", folder_.path("top/itself"));
  fs::create_symlink(".", folder_.path("top/here"));
  fs::create_symlink("../b", folder_.path("top/a/toB"));
  fs::create_symlink("../a", folder_.path("top/b/toA"));
  fs::create_symlink(folder_.path("top"), folder_.path("chosen"));

  walk({"chosen"});
  EXPECT_EQ(sortedNames(), (Names{"chosen", "chosen/a", "chosen/a/toB", "chosen/b", "chosen/b/toA", "chosen/toFile",
                                  "chosen/toFolder", "chosen/toFolder/file"}));
  EXPECT_EQ(reasons(), (Reasons{{"chosen/dangling", notFound},
                                {"chosen/itself", notReadable},
                                {"chosen/here", notReadable},
                                {"chosen/a/toB/toA", notReadable},
                                {"chosen/b/toA/toB", notReadable}}));
  for (const auto& [element, reason, error] : leftOut_) {
    EXPECT_EQ(reason == notReadable, error == std::errc::too_many_symbolic_link_levels) << element;
  }
  for (const char* name : {"chosen/toFile", "chosen/toFolder/file"}) {
    const auto file = itemNamed(name);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->size(), 5U);
    EXPECT_EQ(file->nextChunk().bytes().size(), 5U);
  }
}

TEST_F(ItemWalkTest, LeavesOutWhatThisUserMayNotRead) {
  const Names closed = {"top/secret", "top/closed", "top/unlistable", "top/unsearchable", "alone"};
  folder_.write("top/public", "");
  folder_.write("top/secret", "");
  folder_.write("top/closed/inside", "");
  folder_.write("top/unlistable/inside", "");
  folder_.write("top/unsearchable/inside", "");
  folder_.write("alone", "");
  fs::permissions(folder_.path(), fs::perms{0755});
  for (const auto& name : closed) fs::permissions(folder_.path(name), fs::perms::none);
  fs::permissions(folder_.path("top/unlistable"), fs::perms{0111});
  fs::permissions(folder_.path("top/unsearchable"), fs::perms{0444});
  {
    const OrdinaryUser user;
    walk({"top", "alone"});
  }
  EXPECT_EQ(sortedNames(), (Names{"top", "top/public"}));
  Reasons expected;
  for (const auto& name : closed) expected[name] = notReadable;
  EXPECT_EQ(reasons(), expected);
  for (const auto& name : closed) fs::permissions(folder_.path(name), fs::perms::owner_all);
}

TEST_F(ItemWalkTest, GoesAsDeepAsNamesMayBe) {
  std::string name = "d";
  for (int level = 1; level < 256; ++level) name += "/d";
  folder_.makeFolder(name + "/tooDeep/below");
  {
    const FewDescriptors few;
    walk({"d"});
  }
  EXPECT_EQ(items_.size(), 256U);
  EXPECT_EQ(items_.back()->name(), name);
  EXPECT_EQ(reasons(), (Reasons{{name + "/tooDeep", limit}}));
}

TEST_F(ItemWalkTest, LeavesOutWhatNoPathReaches) {
  const std::string leaf(200, 'n');
  std::error_code error;
  auto deepest = DirectoryHandle::open(folder_.path(), error);
  std::string path = folder_.path();
  while (path.size() + 1 + leaf.size() < 4095 - 20) {
    path += "/" + leaf;
    deepest->makeFolder(leaf, error);
    deepest = deepest->openFolder(leaf, error);
    ASSERT_FALSE(error);
  }
  const std::size_t room = 4095 - path.size() - 1;
  for (const std::size_t length : {room, room + 1}) {
    (void)deepest->makeFile(std::string(length, 'f'), error);
    deepest->makeFolder(std::string(length, 'd'), error);
    ASSERT_FALSE(error);
  }

  walk({leaf});
  for (const auto& item : items_) {
    (void)item->nextChunk();
    EXPECT_FALSE(item->sourceError());
  }
  ASSERT_EQ(leftOut_.size(), 2U);
  for (const auto& skipped : leftOut_) {
    EXPECT_EQ(skipped.element.size(), 4096U);
    EXPECT_EQ(skipped.reason, limit);
  }
}

}  // namespace
}  // namespace vesko

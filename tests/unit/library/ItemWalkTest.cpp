#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <set>

#include "Platform/files/Data.h"
#include "Platform/files/DirectoryHandle.h"
#include "Platform/files/FileHandle.h"
#include "VeskoKit/ItemWalk.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using enum VeskoFailureReason;

using Names = std::vector<std::string>;
using NameSet = std::set<std::string>;
using Reasons = std::map<VeskoFailureReason, NameSet>;  // what was left out, by path relative to the temporary folder

class ItemWalkTest : public testing::Test {
 protected:
  void walk(const Names& names) {
    Names paths;
    for (const auto& name : names) paths.push_back(folder_.path(name));
    leftOut_.clear();
    items_ = walkPaths(paths, leftOut_);
  }

  [[nodiscard]] Names names() const {
    Names result;
    for (const auto& item : items_) result.push_back(item->name());
    return result;
  }

  [[nodiscard]] NameSet nameSet() const {
    const Names all = names();
    return {all.begin(), all.end()};
  }

  [[nodiscard]] Reasons reasons() const {
    Reasons result;
    for (const auto& [element, reason, error] : leftOut_) {
      EXPECT_TRUE(result[reason].insert(element.substr(folder_.path().size() + 1)).second) << element;
    }
    return result;
  }

  TemporaryFolder folder_;
  VeskoItems items_;
  std::vector<VeskoSkippedElement> leftOut_;
};

TEST_F(ItemWalkTest, FoldersComeBeforeTheirContentsInListingOrder) {
  for (const char* name :
       {"Photos/a.jpg", "Photos/.hidden", "Photos/2019/b.jpg", "Photos/2019/.git/config", "Photos/z"})
    folder_.write(name, "12345");
  folder_.makeFolder("Photos/empty");
  folder_.write("first", "");

  walk({"first", "Photos/", "Photos/2019"});
  Names expected = {"first"};
  for (const fs::path top : {folder_.path("Photos"), folder_.path("Photos/2019")}) {
    expected.push_back(top.filename());
    for (const auto& entry : fs::recursive_directory_iterator(top)) {
      expected.push_back(entry.path().lexically_relative(top.parent_path()));
    }
  }
  EXPECT_EQ(names(), expected);
  EXPECT_TRUE(leftOut_.empty());
  for (const auto& item : items_) {
    const bool isFolder = item->protocolSize() == ~std::uint64_t{0};
    EXPECT_EQ(item->size(), isFolder || item->name() == "first" ? 0U : 5U) << item->name();
  }
}

TEST_F(ItemWalkTest, LeavesOutWhatCannotBeSent) {
  folder_.write("file", "");
  folder_.write("top/kept", "");
  folder_.write("top/caf\xe9.txt", "");
  folder_.write("top/\xff/inside", "");
  ASSERT_EQ(::mkfifo(folder_.path("pipe").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo(folder_.path("top/pipe").c_str(), 0600), 0);
  fs::create_symlink("/dev/null", folder_.path("top/device"));
  walk({"missing", "file/", "pipe", "caf\xe9", ".", "file/..", "file", "top"});
  EXPECT_EQ(nameSet(), (NameSet{"file", "top", "top/kept"}));
  EXPECT_EQ(reasons(), (Reasons{{notFound, {"missing"}},
                                {notReadable, {"file/", "pipe", "top/pipe", "top/device"}},
                                {invalidText, {"caf\xe9", "top/caf\xe9.txt", "top/\xff"}},
                                {unsafeName, {".", "file/.."}}}));

  leftOut_.clear();
  EXPECT_TRUE(walkPaths({"", "/", ".."}, leftOut_).empty());
  for (const auto& skipped : leftOut_) EXPECT_EQ(skipped.reason, unsafeName) << skipped.element;
  EXPECT_EQ(leftOut_.size(), 3U);
}

TEST_F(ItemWalkTest, LeavesOutWhatWouldArriveAsSomethingElse) {
  const std::string text = "___VIRNO___TEXT___";
  folder_.write("text/" + text, "x");
  folder_.makeFolder("emptyFolder/" + text);
  folder_.write("fullFolder/" + text + "/x", "");
  folder_.write("mixed/empty", "");
  // The kernel knows how long this is only once somebody has read it.
  fs::create_symlink("/proc/cpuinfo", folder_.path("mixed/unmeasured"));
  const struct {
    Names chosen, sent;
    std::string leftOut;
    std::error_code error;
  } cases[] = {
      {{"text/" + text}, {}, "text/" + text, VeskoItemErrc::textName},
      {{"emptyFolder/" + text}, {}, "emptyFolder/" + text, VeskoItemErrc::textName},
      {{"text/" + text, "mixed/empty"}, {text, "empty"}, "", {}},
      {{"text"}, {"text", "text/" + text}, "", {}},
      {{"fullFolder/" + text}, {text, text + "/x"}, "", {}},
      {{"mixed"}, {"mixed", "mixed/empty"}, "mixed/unmeasured", VeskoItemErrc::lengthUnknown},
      {{"mixed/unmeasured"}, {}, "mixed/unmeasured", VeskoItemErrc::lengthUnknown},
      {{"mixed/empty/"}, {}, "mixed/empty/", VeskoItemErrc::notAFolder},
  };
  for (const auto& [chosen, sent, leftOut, error] : cases) {
    SCOPED_TRACE(chosen.front());
    walk(chosen);
    EXPECT_EQ(names(), sent);
    EXPECT_EQ(leftOut_.size(), leftOut.empty() ? 0U : 1U);
    for (const auto& one : leftOut_) EXPECT_TRUE(one.element == folder_.path(leftOut) && one.error == error);
  }
  walk({"missing", "text/" + text});
  EXPECT_EQ(leftOut_.size(), 2U) << "also where others are left out";
}

TEST_F(ItemWalkTest, FollowsLinksButNotInCircles) {
  folder_.write("elsewhere/file", "12345");
  folder_.makeFolder("top/a");
  folder_.makeFolder("top/b");
  const std::pair<const char*, const char*> links[] = {{"top/toFile", "../elsewhere/file"},
                                                       {"top/toFolder", "../elsewhere"},
                                                       {"top/dangling", "nowhere"},
                                                       {"top/itself", "itself"},
                                                       {"top/here", "."},
                                                       {"top/a/toB", "../b"},
                                                       {"top/b/toA", "../a"}};
  for (const auto& [name, target] : links) fs::create_symlink(target, folder_.path(name));
  fs::create_symlink(folder_.path("top"), folder_.path("chosen"));

  walk({"chosen"});
  EXPECT_EQ(nameSet(), (NameSet{"chosen", "chosen/a", "chosen/a/toB", "chosen/b", "chosen/b/toA", "chosen/toFile",
                                "chosen/toFolder", "chosen/toFolder/file"}));
  EXPECT_EQ(reasons(),
            (Reasons{{notFound, {"chosen/dangling"}},
                     {notReadable, {"chosen/itself", "chosen/here", "chosen/a/toB/toA", "chosen/b/toA/toB"}}}));
  for (const auto& [element, reason, error] : leftOut_) {
    EXPECT_EQ(reason == notReadable, error == std::errc::too_many_symbolic_link_levels) << element;
  }
  for (const auto& item : items_) {
    const bool isFile = item->name() == "chosen/toFile" || item->name() == "chosen/toFolder/file";
    EXPECT_EQ(item->nextChunk().bytes().size(), isFile ? 5U : 0U) << item->name();
  }
}

TEST_F(ItemWalkTest, LeavesOutWhatThisUserMayNotRead) {
  EXPECT_TRUE(passesAsOrdinaryUser([] {
    const TemporaryFolder folder;
    std::vector<VeskoSkippedElement> leftOut;
    std::multiset<std::string> expected = {folder.path("secret")};
    folder.write("public", "");
    for (const auto& [name, rights] :
         {std::pair("secret", 0U), {"closed", 0U}, {"unlistable", 0111U}, {"unsearchable", 0444U}}) {
      folder.write(name == "secret"s ? "secret" : name + "/inside"s, "");
      fs::permissions(*expected.insert(folder.path(name)), fs::perms(rights));
    }
    const auto items = walkPaths({folder.path(), folder.path("secret")}, leftOut);
    EXPECT_EQ(items.size(), 2U);
    EXPECT_TRUE(items.back()->name().ends_with("/public"));
    std::multiset<std::string> found;
    for (const auto& skipped : leftOut) found.insert(skipped.reason == notReadable ? skipped.element : "?");
    EXPECT_EQ(found, expected);
    for (const auto& path : expected) fs::permissions(path, fs::perms::owner_all);
  }));
}

TEST_F(ItemWalkTest, GoesAsDeepAsNamesMayBe) {
  std::string name = "d";
  for (int level = 1; level < 256; ++level) name += "/d";
  folder_.makeFolder(name + "/tooDeep/below");
  {
    const FewDescriptors few(24);
    walk({"d"});
  }
  EXPECT_EQ(items_.size(), 256U);
  EXPECT_EQ(items_.back()->name(), name);
  EXPECT_EQ(reasons(), (Reasons{{limit, {name + "/tooDeep"}}}));
}

TEST_F(ItemWalkTest, LeavesOutWhatNoPathReaches) {
  constexpr std::size_t longest = 4095;
  const std::string leaf(200, 'n');
  std::error_code error;
  auto deepest = DirectoryHandle::open(folder_.path(), error);
  std::size_t length = folder_.path().size();
  for (; length + 1 + leaf.size() < longest - 20; length += 1 + leaf.size()) {
    deepest->makeFolder(leaf, error);
    deepest = deepest->openFolder(leaf, error);
  }
  for (const std::size_t room : {longest - length - 1, longest - length}) {
    (void)deepest->makeFile(std::string(room, 'f'), error);
  }
  walk({leaf});
  for (const auto& item : items_) {
    (void)item->nextChunk();
    EXPECT_FALSE(item->sourceError());
  }
  EXPECT_EQ(folder_.path(items_.back()->name()).size(), longest);
  ASSERT_EQ(leftOut_.size(), 1U);
  EXPECT_TRUE(leftOut_[0].element.size() == longest + 1 && leftOut_[0].reason == limit);
}

}  // namespace
}  // namespace vesko

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "VeskoKit/DeliveryNames.h"
#include "VeskoKit/RandomText.h"
#include "VeskoKit/ReceivedItemStorage.h"
#include "tests/faults/FaultsFixture.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;
using Verdict = ReceivedItemStorage::Verdict;

std::string inSmallLetters(std::string name) {
  for (char& letter : name) letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return name;
}

std::string decomposed(std::string name) {
  const std::string composed = "\u00F6";
  for (auto at = name.find(composed); at != std::string::npos; at = name.find(composed)) {
    name.replace(at, composed.size(), "o\u0308");
  }
  return name;
}

std::string withoutColons(std::string name) { return name.find(':') == std::string::npos ? name : ""; }

/// What the storage makes of file systems that are unlike those of this machine.
class OtherFileSystemsTest : public FaultsTest {
 protected:
  [[nodiscard]] std::unique_ptr<ReceivedItemStorage> makeStorage() const {
    return std::make_unique<ReceivedItemStorage>(downloads(), std::chrono::system_clock::time_point(),
                                                 [] { return generateRandomStringWithLength(32); });
  }

  /// A name that ends in "/" is a folder's.
  static Verdict store(ReceivedItemStorage& storage, const std::string& name, const std::string& contents = {}) {
    if (name.ends_with('/')) return storage.prepareFolder(name).verdict;
    const auto prepared = storage.prepareFile(name, contents.size());
    std::error_code error;
    if (prepared.file) prepared.file->writeData(contents, error);
    return prepared.verdict;
  }
};

TEST_F(OtherFileSystemsTest, WhatTheyTakeForAnotherNameIsLeftOut) {
  const struct {
    std::string (*spelling)(std::string);
    Names elements;  // those to be left out marked "!"; files hold their place in the list
    std::string delivered;
    Tree tree;
  } cases[] = {
      {inSmallLetters,
       {"Sub/", "Sub/Readme", "!Sub/README", "!sub/", "!sub/x", "!SUB", "Sub/x/y", "!Sub/X/y", "!Sub/X", "Sub/Readme"},
       "Sub",
       {{"sub", "/"}, {"sub/readme", "9"}, {"sub/x", "/"}, {"sub/x/y", "6"}}},
      {inSmallLetters, {"Readme", "!README", "!readme/x"}, "Readme", {{"readme", "0"}}},
      {decomposed,
       {"d/\u00F6", "!d/o\u0308", "d/O\u0308", "d/\u00F6"},
       "d",
       {{"d", "/"}, {"d/o\u0308", "3"}, {"d/O\u0308", "2"}}},
      {withoutColons, {"!a:b", "c", "!d:e/f", "!g:h/"}, "c", {{"c", "1"}}},
  };
  for (const auto& [spelling, elements, delivered, tree] : cases) {
    SCOPED_TRACE(testing::PrintToString(elements));
    SystemFaults faults({});
    faults.spellNames(spelling);
    std::error_code error;
    const auto path = faults.asProduct([&, &all = elements] {
      const auto storage = makeStorage();
      for (std::size_t i = 0; i < all.size(); ++i) {
        const bool hasPlace = all[i][0] != '!';
        EXPECT_EQ(store(*storage, all[i].substr(hasPlace ? 0 : 1), std::to_string(i)),
                  hasPlace ? Verdict::stored : Verdict::dropped)
            << all[i];
      }
      return storage->settle(error).value_or(error.message());
    });
    EXPECT_EQ(path, downloads() + "/" + delivered);
    EXPECT_EQ(folder_.tree("downloads"), tree);
    fs::remove_all(downloads());
    folder_.makeFolder("downloads");
  }
}

TEST_F(OtherFileSystemsTest, WhetherAnErrorIsOfTheNameIsAskedOfTheFolder) {
  for (const int error : {ENOENT, EPERM, EOPNOTSUPP}) {
    for (const auto* name : {"name", "folder/", "folder/name"}) {
      SCOPED_TRACE(testing::Message() << name << ": " << std::strerror(error));
      // The second file made: the first is what the folder is examined with.
      const SystemFaults::Fault ofName{error, {std::strchr(name, '/') == nullptr ? "openat creating" : "mkdirat"}, 2};
      auto ofFolder = ofName;
      ofFolder.calls = {"openat creating", "mkdirat"};
      ofFolder.first = 3;
      ofFolder.count = SystemFaults::forever;
      for (const auto& [fault, verdict] : {std::pair(ofName, Verdict::dropped), std::pair(ofFolder, Verdict::failed)}) {
        SystemFaults faults({fault});
        faults.asProduct([&, &expected = verdict] {
          const auto storage = makeStorage();
          EXPECT_EQ(store(*storage, name), expected);
          if (expected == Verdict::failed) return;
          EXPECT_EQ(store(*storage, name), Verdict::stored);
        });
      }
    }
  }
  EXPECT_EQ(folder_.entries("downloads"), Names());
}

TEST_F(OtherFileSystemsTest, SweepsAStorageFolderListedInSmallLetters) {
  const auto name = std::string(DeliveryNames::storagePrefix) + "20260102030405" + std::string(32, 'z');
  folder_.write("downloads/" + inSmallLetters(name) + "/file", "");
  SystemFaults faults({});
  const auto sweep = [&] { return faults.asProduct([&] { return ReceivedItemStorage::sweep(downloads()); }); };
  EXPECT_EQ(sweep(), 0U) << "where letter case counts, it is something else";
  faults.spellNames(inSmallLetters);
  EXPECT_EQ(sweep(), 1U);
}

}  // namespace
}  // namespace vesko

#include "VeskoKit/ReceivedItemStorage.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <limits>
#include <set>
#include <thread>

#include "Platform/files/FileHandle.h"
#include "VeskoKit/PathText.h"
#include "VeskoKit/RandomText.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/StreamBytes.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TimeZone.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours, std::chrono::minutes, std::chrono::seconds;
using StreamBytes::repeated;
using Names = std::vector<std::string>;
using Verdict = ReceivedItemStorage::Verdict;

const std::string storagePrefix = ".VeskoTransferIntermediateStorage";
const auto midnight = std::chrono::system_clock::time_point(std::chrono::sys_days{std::chrono::year{2026} / 11 / 16});
const auto evening = midnight + hours(22) + minutes(25) + seconds(33);

std::string randomText() { return generateRandomStringWithLength(32); }

/// Stores an element as a stream brings it: a name that ends in "/" is a folder's, the name is the contents of a file.
Verdict store(ReceivedItemStorage& storage, const std::string& name) {
  if (name.ends_with('/')) return storage.prepareFolder(name).verdict;
  const auto prepared = storage.prepareFile(name, name.size());
  std::error_code error;
  if (prepared.file) prepared.file->writeData(name, error);
  EXPECT_EQ(prepared.file != nullptr, prepared.verdict == Verdict::stored);
  return error ? Verdict::failed : prepared.verdict;
}

std::string settled(ReceivedItemStorage& storage) {
  std::error_code error;
  const auto path = storage.settle(error);
  EXPECT_TRUE(path && !error) << error.message();
  return path.value_or("nothing");
}

/// A downloads folder, and beside it what must never change.
class ReceivedItemStorageTest : public testing::Test {
 protected:
  ReceivedItemStorageTest() {
    folder_.makeFolder("downloads");
    folder_.write("outside/sentinel", "sentinel");
  }

  ~ReceivedItemStorageTest() override {
    EXPECT_EQ(folder_.entries(), (Names{"downloads", "outside"}));
    EXPECT_EQ(folder_.entries("outside"), Names{"sentinel"});
    EXPECT_EQ(folder_.read("outside/sentinel"), "sentinel");
  }

  [[nodiscard]] std::string downloads() const { return folder_.path("downloads"); }
  [[nodiscard]] Names delivered() const { return folder_.entries("downloads"); }

  /// What lands in the downloads folder when these elements arrive: its last component.
  std::string deliver(const Names& elements, std::chrono::system_clock::time_point startTime = evening) const {
    ReceivedItemStorage storage(downloads(), startTime, randomText);
    for (const auto& name : elements) EXPECT_EQ(store(storage, name), Verdict::stored) << name;
    const auto path = settled(storage);
    EXPECT_TRUE(path.starts_with(downloads() + "/") && fs::exists(path)) << path;
    EXPECT_FALSE(fs::exists(storage.path()));
    return lastPathComponent(path);
  }

  TimeZone zone_{"UTC0"};
  TemporaryFolder folder_;
};

TEST_F(ReceivedItemStorageTest, DeliversASingleEntryUnderTheFirstFreeName) {
  const std::string umlaut = "\xC3\xA4";
  const auto umlauts = repeated(umlaut, 125) + ".txt";
  const auto with = [](const std::string& beginning, std::size_t count) { return beginning + std::string(count, 'x'); };
  const std::pair<Names, Names> cases[] = {
      {{"photo.jpg"}, {"photo.jpg", "photo (2).jpg", "photo (3).jpg"}},
      {{"backup.tar.gz"}, {"backup.tar.gz", "backup.tar (2).gz"}},
      {{"README"}, {"README", "README (2)"}},
      {{".bashrc"}, {".bashrc", ".bashrc (2)"}},
      {{"Holiday/", "Holiday/a/b.txt", "Holiday/c.txt"}, {"Holiday", "Holiday (2)", "Holiday (3)"}},
      {{"made on demand/file"}, {"made on demand", "made on demand (2)"}},
      {{"./dots//./file.txt/"}, {"dots", "dots (2)"}},
      {{"line\nfeed \x1b[1m.txt"}, {"line\nfeed \x1b[1m.txt", "line\nfeed \x1b[1m (2).txt"}},
      {{umlauts}, {umlauts, repeated(umlaut, 123) + " (2).txt"}},
      {{with("a.", 200)}, {with("a.", 200), with("a (2).", 200)}},
      {{with("abcde.", 249)}, {with("abcde.", 249), with("a (2).", 249)}},
      {{with(umlaut + "b.", 249)}, {with(umlaut + "b.", 249), with(umlaut + "b.", 247) + " (2)"}},
      {{with("a.", 253)}, {with("a.", 253), with("a.", 249) + " (2)"}},
  };
  for (const auto& [elements, names] : cases) {
    for (const auto& name : names) EXPECT_EQ(deliver(elements), name);
  }
  EXPECT_EQ(folder_.read("downloads/photo (3).jpg"), "photo.jpg");
  EXPECT_EQ(folder_.read("downloads/Holiday (3)/a/b.txt"), "Holiday/a/b.txt");
}

TEST_F(ReceivedItemStorageTest, TakesNoNameThatAnythingHas) {
  folder_.write("downloads/report.pdf", "mine");
  folder_.makeFolder("downloads/report (2).pdf");
  fs::create_symlink("../outside/sentinel", folder_.path("downloads/report (3).pdf"));
  fs::create_symlink("nowhere", folder_.path("downloads/report (4).pdf"));
  EXPECT_EQ(deliver({"report.pdf"}), "report (5).pdf");
  EXPECT_EQ(deliver({"report.pdf/inner"}), "report (6).pdf");
  EXPECT_EQ(folder_.read("downloads/report.pdf"), "mine");
}

TEST_F(ReceivedItemStorageTest, DeliversSeveralEntriesInAFolderNamedAfterTheStart) {
  const std::string name = "Received by Vesko at 2026-11-16 ";
  EXPECT_EQ(deliver({"a", "b"}), name + "10-25");
  EXPECT_EQ(deliver({".x", ".y", "z/z"}, evening + seconds(20)), name + "10-25 (2)");
  EXPECT_EQ(folder_.entries("downloads/" + name + "10-25 (2)"), (Names{".x", ".y", "z"}));
  EXPECT_EQ(deliver({"a", "b/"}, midnight + hours(14) + minutes(5)), name + "02-05");
  EXPECT_EQ(deliver({"a", "b/"}, midnight + hours(2) + minutes(5)), name + "02-05 (2)");
}

TEST_F(ReceivedItemStorageTest, MakesTheStorageFolderWithTheFirstElementUnderANameOfItsOwn) {
  const auto name = [](char letter) { return storagePrefix + "20261116102533" + std::string(32, letter); };
  folder_.write("downloads/" + name('a'), "taken before");
  ReceivedItemStorage storage(downloads(), evening, [letter = 'a']() mutable { return std::string(32, letter++); });
  EXPECT_EQ(storage.path(), downloads() + "/" + name('b'));
  std::error_code error;
  EXPECT_EQ(storage.settle(error), std::nullopt);
  EXPECT_FALSE(error);
  EXPECT_EQ(delivered(), Names{name('a')});

  fs::create_directory_symlink(folder_.path("outside"), folder_.path("downloads/" + name('b')));
  EXPECT_EQ(store(storage, "file"), Verdict::stored);
  EXPECT_EQ(storage.path(), downloads() + "/" + name('c'));
  EXPECT_EQ(folder_.read("downloads/" + name('c') + "/file"), "file");

  // A link that leads nowhere is not found before a folder is to take its place.
  fs::create_symlink("nowhere", folder_.path("downloads/" + name('d')));
  int asked = 0;
  ReceivedItemStorage unlucky(downloads(), evening, [&] { return ++asked, std::string(32, 'd'); });
  EXPECT_EQ(unlucky.prepareFile("file", 1).error, std::errc::device_or_resource_busy);
  EXPECT_EQ(asked, 16) << "it gives up";
}

TEST_F(ReceivedItemStorageTest, DropsWhatHasNoPlaceAndGoesOn) {
  const std::string longest(255, 'x');
  const auto deepest = repeated("d/", 255) + "file";
  // Elements, those that have no place marked "!", and what is there of them.
  const std::pair<Names, Names> cases[] = {
      {{"a", "!a/b", "!a/b/", "c"}, {"a", "c"}},
      {{"a", "!a/", "c"}, {"a", "c"}},
      {{"a/", "!a", "a/b", "c"}, {"a", "c"}},
      {{"a/", "a/", "c"}, {"a", "c"}},
      {{longest, "!" + longest + "x", "!" + longest + "x/", "!a/" + longest + "x/b"}, {"a", longest}},
      {{deepest, deepest + "2", "a"}, {"a", "d"}},
  };
  const FewDescriptors few(8);  // however deep the folders are
  for (const auto& [elements, entries] : cases) {
    SCOPED_TRACE(testing::PrintToString(elements));
    ReceivedItemStorage storage(downloads(), evening, randomText);
    for (const auto& element : elements) {
      const bool fits = element[0] != '!';
      EXPECT_EQ(store(storage, element.substr(fits ? 0 : 1)), fits ? Verdict::stored : Verdict::dropped) << element;
    }
    EXPECT_EQ(folder_.entries("downloads/" + lastPathComponent(settled(storage))), entries);
  }
}

TEST_F(ReceivedItemStorageTest, ReplacesOnlyWhatTheSameTransferBrought) {
  ReceivedItemStorage storage(downloads(), evening, randomText);
  std::error_code error;
  const auto first = storage.prepareFile("a", 5);
  first.file->writeData("first", error);
  const auto second = storage.prepareFile("./a", 6);
  second.file->writeData("second", error);
  first.file->writeData("late", error);
  EXPECT_EQ(settled(storage), downloads() + "/a");
  EXPECT_EQ(folder_.read("downloads/a"), "second");
}

TEST_F(ReceivedItemStorageTest, FollowsNoLinkPlantedInTheStorageFolder) {
  ReceivedItemStorage storage(downloads(), evening, randomText);
  EXPECT_EQ(store(storage, "held/one"), Verdict::stored);
  const auto inStorage = [&](const char* name) { return storage.path() + "/" + name; };
  fs::create_symlink(folder_.path("outside/sentinel"), inStorage("file"));
  fs::create_directory_symlink(folder_.path("outside"), inStorage("folder"));
  fs::create_symlink("/nowhere", inStorage("dangling"));
  for (const auto* name : {"folder/", "folder/planted"}) EXPECT_EQ(store(storage, name), Verdict::dropped) << name;
  for (const auto* name : {"file", "dangling", "held/two"}) EXPECT_EQ(store(storage, name), Verdict::stored) << name;
  fs::rename(inStorage("held"), inStorage("moved"));
  fs::create_directory_symlink(folder_.path("outside"), inStorage("held"));
  EXPECT_EQ(store(storage, "held/three"), Verdict::stored);
  EXPECT_EQ(fs::symlink_status(inStorage("file")).type(), fs::file_type::regular);
  storage.remove();
  EXPECT_EQ(delivered(), Names{}) << "links are removed, not what they lead to";
}

TEST_F(ReceivedItemStorageTest, LeavesNothingBehindUnlessSettled) {
  {
    ReceivedItemStorage storage(downloads(), evening, randomText);
    for (const auto* name : {"a/b/c", "a/d/", "e"}) EXPECT_EQ(store(storage, name), Verdict::stored);
    fs::permissions(storage.path() + "/a/b", fs::perms(0555));
  }
  EXPECT_EQ(delivered(), Names{});

  for (const Names& whole : {Names{}, Names{"whole"}}) {
    ReceivedItemStorage storage(downloads(), evening, randomText);
    for (const auto& name : whole) EXPECT_EQ(store(storage, name), Verdict::stored);
    EXPECT_EQ(store(storage, "half"), Verdict::stored);
    for (int call = 0; call < 2; ++call) EXPECT_TRUE(storage.discardLastFile());
    EXPECT_EQ(settled(storage), whole.empty() ? "" : downloads() + "/whole");
    EXPECT_EQ(delivered(), whole);
  }
}

TEST_F(ReceivedItemStorageTest, FailsWhenTheDiskOrTheFolderIsUnusable) {
  std::error_code error;
  ReceivedItemStorage storage(downloads(), evening, randomText);
  const auto huge = storage.prepareFile("huge", std::numeric_limits<std::uint64_t>::max() / 2);
  EXPECT_TRUE(huge.verdict == Verdict::failed && huge.error == std::errc::no_space_on_device);
  EXPECT_EQ(fs::is_empty(storage.path()), true);
  EXPECT_EQ(store(storage, "file"), Verdict::stored);
  // Somebody exchanges the folder: neither delivered nor removed then.
  const auto path = storage.path();
  fs::rename(path, folder_.path("downloads/moved"));
  fs::create_directory(path);
  EXPECT_EQ(storage.settle(error), std::nullopt);
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  storage.remove();
  EXPECT_EQ(delivered().size(), 2U);

  ReceivedItemStorage misplaced(folder_.path("outside/sentinel"), evening, randomText);
  EXPECT_EQ(store(misplaced, "file"), Verdict::failed);
  ReceivedItemStorage late(folder_.path("downloads/late"), evening, randomText);
  EXPECT_EQ(store(late, "file"), Verdict::stored);
}

TEST_F(ReceivedItemStorageTest, KeepsToTheRightsAndModesOfTheUser) {
  EXPECT_TRUE(passesAsOrdinaryUser([] {
    const TemporaryFolder folder;
    ::umask(027);
    ReceivedItemStorage storage(folder.path(), evening, randomText);
    EXPECT_EQ(store(storage, "folder/file"), Verdict::stored);
    EXPECT_EQ(fs::status(storage.path() + "/folder/file").permissions(), fs::perms(0640));
    EXPECT_EQ(fs::status(storage.path() + "/folder").permissions(), fs::perms(0750));
    fs::permissions(storage.path() + "/folder", fs::perms(0555));
    EXPECT_EQ(store(storage, "folder/file two"), Verdict::failed);
    EXPECT_EQ(store(storage, "folder/inner/file"), Verdict::failed);
    fs::permissions(folder.path(), fs::perms(0555));
    std::error_code error;
    EXPECT_EQ(storage.settle(error), std::nullopt);
    EXPECT_EQ(error, std::errc::permission_denied);
    ReceivedItemStorage other(folder.path(), evening, randomText);
    EXPECT_EQ(other.prepareFolder("folder").error, std::errc::permission_denied);
    fs::permissions(folder.path(), fs::perms(0755));
  }));
}

TEST_F(ReceivedItemStorageTest, SweepsOnlyStorageFoldersOfTheDead) {
  const std::string start = storagePrefix + "20260102030405";
  const std::string text = std::string(31, 'Z') + "0";
  const auto of = [&](char letter) { return start + std::string(32, letter); };
  const auto downloaded = [&](const std::string& name) { return folder_.path("downloads/" + name); };
  std::set<std::string> kept = {
      start + text + "a", start + text.substr(1),           storagePrefix + "2026010203040x" + text, of('-'), of('{'),
      "x" + start + text, ".vesko" + start.substr(6) + text};
  for (const auto& entry : kept) folder_.write("downloads/" + entry + "/file", "");
  folder_.write("downloads/" + *kept.insert(of('f')).first, "a file");
  fs::create_directory_symlink(folder_.path("outside"), downloaded(*kept.insert(of('l')).first));
  if (::geteuid() == 0) {
    fs::create_directory(downloaded(*kept.insert(of('o')).first));
    ASSERT_EQ(::chown(downloaded(of('o')).c_str(), 65534, 65534), 0);
  }
  for (const char dead : {'1', 'Z'}) folder_.write("downloads/" + of(dead) + "/a/file", "");
  ReceivedItemStorage alive(downloads(), evening, randomText);
  EXPECT_EQ(store(alive, "file"), Verdict::stored);
  kept.insert(lastPathComponent(alive.path()));

  EXPECT_EQ(ReceivedItemStorage::sweep(downloads()), 2U);
  EXPECT_EQ(delivered(), Names(kept.begin(), kept.end()));
  EXPECT_EQ(ReceivedItemStorage::sweep(folder_.path("absent")), 0U);
  EXPECT_EQ(settled(alive), downloads() + "/file");
}

TEST_F(ReceivedItemStorageTest, LosesNothingWhenManyDeliverTheSameNameWhileOthersSweep) {
  constexpr int count = 64;
  std::barrier start(count + 1);
  std::atomic<bool> isOver = false;
  const auto deliverOne = [&](int number) {
    ReceivedItemStorage storage(downloads(), evening, randomText);
    start.arrive_and_wait();
    std::error_code error;
    const auto prepared = storage.prepareFile("photo.jpg", 2);
    ASSERT_TRUE(prepared.file) << prepared.error.message();
    prepared.file->writeData(std::to_string(number), error);
    EXPECT_TRUE(number % 2 != 0 || store(storage, "second") == Verdict::stored);
    settled(storage);
  };
  {
    std::vector<std::jthread> threads;
    for (int number = 0; number < count; ++number) threads.emplace_back([&, number] { deliverOne(number); });
    const std::jthread sweeper([&] {
      start.arrive_and_wait();
      // It may be quicker than the lock on a folder just made; the transfer then makes another one.
      while (!isOver) ReceivedItemStorage::sweep(downloads());
    });
    threads.clear();
    isOver = true;
  }
  std::set<std::string> contents;
  for (const auto& name : delivered()) {
    const bool isFolder = name.starts_with("Received by Vesko at ");
    contents.insert(folder_.read("downloads/" + name + (isFolder ? "/photo.jpg" : "")));
  }
  EXPECT_EQ(delivered().size(), std::size_t{count});
  EXPECT_EQ(contents.size(), std::size_t{count});
}

}  // namespace
}  // namespace vesko

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/hostile/HostileFixture.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::folder;
using StreamBytes::metadata;

class RacesTest : public HostileTest {
 protected:
  /// Another service with the same folder and observers.
  [[nodiscard]] std::shared_ptr<VeskoServer> startAnother() const {
    auto server = std::make_shared<VeskoServer>(0, 0, clock_);
    server->downloadsFolder = server_->downloadsFolder;
    server->setIncomingOutcomeDelegate(recorder_);
    server->startServer();
    return server;
  }
};

TEST_F(RacesTest, FilesOfOneNameThatArriveAtOnceAreAllKept) {
  constexpr std::size_t count = 64;
  recordOnlyOutcomes();
  const auto second = startAnother();
  std::set<std::string> names{"photo.jpg"};
  for (std::size_t i = 2; i <= count; ++i) names.insert("photo (" + std::to_string(i) + ").jpg");
  for (const auto secondPort : {std::uint16_t{0}, second->boundTcpPort()}) {
    std::vector<RawConnection> senders;
    std::set<std::string> bodies;
    for (std::size_t i = 0; i < count; ++i) {
      const auto body = *bodies.insert(std::string(70'000, 'x') + std::to_string(100 + i)).first;
      auto& sender = senders.emplace_back(i % 2 == 1 && secondPort != 0 ? RawConnection::to(secondPort) : connect());
      const auto stream = metadata(1, body.size()) + file("photo.jpg", body);
      ASSERT_TRUE(sender.send({stream.data(), stream.size() - 1}));
    }
    recorder_->take();
    for (auto body = bodies.begin(); auto& sender : senders) ASSERT_TRUE(sender.send({&(body++)->back(), 1}));
    ASSERT_TRUE(recorder_->waitFor("[outcome finished]", count));
    std::set<std::string> deliveredNames;
    std::set<std::string> deliveredBodies;
    for (const auto& [name, body] : deliveredTree()) {
      deliveredNames.insert(name);
      deliveredBodies.insert(body);
    }
    EXPECT_EQ(deliveredNames, names);
    EXPECT_TRUE(deliveredBodies == bodies) << "one for each, whole";
    clear();
  }
  expectGoodService();
}

/// Somebody on this machine who keeps putting links in the place of folders, both in what is being received and in what
/// was delivered; everything is back in its place when it stops.
class Swapper {
 public:
  /// As many swaps as the environment variable VESKO_TEST_SWAPS says, or else 20,000 or what 15 seconds are enough for.
  Swapper(std::string downloads, std::string outside)
      : downloads_(std::move(downloads)), outside_(std::move(outside)), thread_([this] { run(); }) {}

  [[nodiscard]] bool isOver() const { return isOver_; }
  [[nodiscard]] std::size_t hits() const { return hits_; }

 private:
  void run() {
    const char* const wanted = std::getenv("VESKO_TEST_SWAPS");
    const std::size_t swaps = wanted == nullptr ? 20'000 : std::stoul(wanted);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    for (std::size_t i = 0; i < swaps; ++i) {
      if (wanted == nullptr && std::chrono::steady_clock::now() > end) break;
      swapSomething(i);
    }
    isOver_ = true;
  }

  void swapSomething(std::size_t number) {
    // What is there changes slowly as measured in swaps, and looking costs far more than swapping.
    if (number % 16 == 0) lookForStorage();
    static constexpr std::array inside = {"", "/tree", "/tree/a", "/tree/a/b", "/tree/c", "/tree/a/b/0"};
    const auto choice = random_() % (inside.size() + 1);
    if (choice == inside.size() || storage_.empty()) {
      swap(downloads_ + "/tree");
    } else {
      swap(storage_ + inside[choice]);
    }
  }

  void lookForStorage() {
    std::error_code error;
    storage_.clear();
    for (const auto& entry : std::filesystem::directory_iterator(downloads_, error)) {
      if (entry.path().filename().string().starts_with(".Vesko")) storage_ = entry.path();
    }
  }

  void swap(const std::string& path) {
    const auto aside = downloads_ + "/aside";
    if (std::rename(path.c_str(), aside.c_str()) != 0) return;
    ++hits_;
    const bool isPlanted = ::symlink(outside_.c_str(), path.c_str()) == 0;
    if (random_() % 4 == 0) std::this_thread::yield();
    if (isPlanted) ::unlink(path.c_str());
    // Something else may have come in its place, which then stays; a folder that is not empty is none of ours.
    if (std::rename(aside.c_str(), path.c_str()) != 0) {
      std::error_code error;
      std::filesystem::remove_all(aside, error);
    }
  }

  const std::string downloads_;
  const std::string outside_;
  std::string storage_;
  std::minstd_rand random_{1};
  std::atomic<std::size_t> hits_{0};
  std::atomic<bool> isOver_{false};
  std::jthread thread_;
};

TEST_F(RacesTest, FoldersThatBecomeLinksLeadNobodyOutside) {
  recordOnlyOutcomes();
  const TemporaryFolder outside;
  std::string stream = folder("tree") + folder("tree/c");
  std::size_t elements = 2;
  for (const auto* place : {"tree/", "tree/a/", "tree/a/b/", "tree/c/"}) {
    outside.write(std::string("target/") + place + "0", "untouched");
    for (int i = 0; i < 20; ++i, ++elements) stream += file(place + std::to_string(i), std::string(100, 'x'));
  }
  for (const auto* name : {"a/b/0", "b/0", "0", "sentinel"}) outside.write(std::string("target/") + name, "untouched");
  const auto target = outside.path("target");
  const auto before = outside.tree("target");
  const auto statusOfTarget = [&] {
    struct stat status {};
    EXPECT_EQ(::stat(target.c_str(), &status), 0);
    return std::tuple(status.st_mtim.tv_sec, status.st_mtim.tv_nsec, status.st_mode);
  };
  const auto statusBefore = statusOfTarget();
  std::size_t transfers = 0;
  {
    const Swapper swapper(folder_.path("downloads"), target);
    while (!swapper.isOver()) {
      recorder_->take();
      auto sender = connect();
      (void)sender.send(metadata(elements, 0) + stream, 256);
      sender.close();
      ASSERT_TRUE(recorder_->waitFor("[outcome"));
      waitForTasks(server_->incomingDispatchQueue());
      ASSERT_EQ(recorder_->count("[outcome"), 1U);
      ++transfers;
      // Each would otherwise have to find a higher number. What has one is not swapped.
      for (const auto& name : delivered()) {
        if (name.starts_with("tree (")) std::filesystem::remove_all(folder_.path("downloads/" + name));
      }
    }
    EXPECT_GT(swapper.hits(), 0U);
    RecordProperty("transfers", std::to_string(transfers));
    RecordProperty("hits", std::to_string(swapper.hits()));
  }
  EXPECT_EQ(outside.tree("target"), before);
  EXPECT_EQ(statusOfTarget(), statusBefore);
  clear();
  expectGoodService();
}

}  // namespace
}  // namespace vesko

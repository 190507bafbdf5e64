// How long it takes until the hosts that answer a hello are in the table of a service, for bench/discovery.
//
//   answers COUNT PAUSE
//
// Waits for the answers of COUNT hosts in each round. Driven as bench/broadcast.cpp says.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "VeskoKit/Log.h"
#include "VeskoKit/VeskoServer.h"
#include "bench/Program.h"
#include "bench/Rounds.h"

namespace vesko {
namespace {

/// Notes who has been heard since a round began, and when the last of them was.
class Answers final : public VeskoPeerDiscoveryDelegate {
 public:
  explicit Answers(std::size_t count) : count_(count) {}

  void peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& /*peer*/) override { note(key); }
  void peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& /*peer*/) override { note(key); }

  void begin() {
    const std::scoped_lock lock(mutex_);
    heard_.clear();
  }

  /// When all had been heard; none when they are not in time.
  [[nodiscard]] std::optional<bench::TimePoint> wait() {
    std::unique_lock lock(mutex_);
    const bool areAll = changed_.wait_for(lock, bench::patience, [this] { return heard_.size() >= count_; });
    return areAll ? std::optional(last_) : std::nullopt;
  }

 private:
  void note(const std::string& key) {
    const std::scoped_lock lock(mutex_);
    if (!heard_.insert(key).second || heard_.size() != count_) return;
    last_ = bench::Clock::now();
    changed_.notify_one();
  }

  const std::size_t count_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::set<std::string> heard_;
  bench::TimePoint last_;
};

void run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 2) throw std::invalid_argument("usage: answers COUNT PAUSE");
  Log::setSink(nullptr);
  const auto answers = std::make_shared<Answers>(std::stoul(arguments[0]));
  const auto server = std::make_shared<VeskoServer>();
  server->setDelegate(answers);
  server->startDiscovery();
  if (!server->failedEndpoints().empty()) throw std::runtime_error(server->failedEndpoints().front().message);
  bench::makeRounds(std::chrono::microseconds(std::stoul(arguments[1])), [&] {
    answers->begin();
    server->sayHello();
    return answers->wait();
  });
  server->sayGoodbye();
}

}  // namespace
}  // namespace vesko

int main(int argc, char** argv) { return vesko::bench::runProgram("answers", argc, argv, vesko::run); }

#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchQueue.h"
#include "VeskoKit/VeskoServer.h"
#include "tests/faults/SystemFaults.h"
#include "tests/support/Recorder.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {

/// What one test sends, and what is to arrive of it.
struct Sendable {
  std::string name;
  std::vector<std::string> paths;  ///< none: the text
  std::string text;
  Tree expected;  ///< in the downloads folder, or, of several items, in their folder there
};

/// A service that receives into the folder "downloads", beside which nothing may ever change, and transfers to it from
/// the folder "sources" on the same machine.
class FaultsTest : public testing::Test {
 protected:
  FaultsTest();
  ~FaultsTest() override;

  /// "file", "folder", "several" or "text".
  [[nodiscard]] Sendable sendable(const std::string& name) const;

  /// How both ends told of a transfer; the receiving one tells nothing if it never heard of it.
  struct Outcomes {
    VeskoTransferOutcome sent;
    std::optional<VeskoTransferOutcome> received;
    [[nodiscard]] std::string description() const;
    [[nodiscard]] bool areFinished() const;
  };

  /// Sends with these faults in force until both ends are through with it.
  Outcomes send(const Sendable& sendable, SystemFaults& faults);

  /// Expects that what the ends said is true: delivered whole or not at all. Removes what was.
  void expectConsistent(const Sendable& sendable, const Outcomes& outcomes);

  /// Expects a transfer to go as if nothing had ever happened.
  void expectNextTransferWorks();

  [[nodiscard]] std::string downloads() const { return folder_.path("downloads"); }
  [[nodiscard]] static std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  }

  /// True as soon as no more than so many descriptors are open; false when they do not become as few within ten
  /// seconds. What a service leaves to another thread to close may take a moment, so when `count` was taken there may
  /// have been some more; what every run leaves behind adds up all the same.
  [[nodiscard]] bool waitForDescriptors(std::ptrdiff_t count) const;

  void startServer(SystemFaults& faults);
  void stopServer();

  TemporaryFolder folder_;
  std::shared_ptr<Recorder> sent_ = std::make_shared<Recorder>();
  std::shared_ptr<Recorder> received_ = std::make_shared<Recorder>();
  std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::serial("transfer");
  std::shared_ptr<Clock> clock_ = Clock::system();  ///< of the service
  std::shared_ptr<VeskoServer> server_;
  Sendable next_;
};

}  // namespace vesko

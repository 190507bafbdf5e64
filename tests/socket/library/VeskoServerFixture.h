#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/queues/MainQueue.h"
#include "VeskoKit/VeskoServer.h"
#include "tests/support/FakeClock.h"
#include "tests/support/QueueTasks.h"
#include "tests/support/RawPeer.h"
#include "tests/support/Recorder.h"
#include "tests/support/StreamBytes.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {

/// A service that receives into the folder "downloads", beside which nothing may ever change.
class VeskoServerTest : public testing::Test {
 protected:
  using Strings = std::vector<std::string>;

  VeskoServerTest() {
    folder_.write("sentinel", "untouched");
    server_->downloadsFolder = folder_.makeFolder("downloads");
    server_->setIncomingDelegate(recorder_);
    server_->setIncomingOutcomeDelegate(recorder_);
    Log::setSink(recorder_);
  }

  ~VeskoServerTest() override {
    EXPECT_EQ(folder_.entries(), (Strings{"downloads", "sentinel"}));
    EXPECT_EQ(folder_.read("sentinel"), "untouched");
    Log::setSink(nullptr);
    const auto queue = server_->incomingDispatchQueue();
    server_.reset();
    waitForTasks(queue);
    MainQueue::shared()->drain();  // every test finds it empty
  }

  [[nodiscard]] RawConnection connect() {
    if (server_->boundTcpPort() == 0) server_->startServer();
    return RawConnection::to(server_->boundTcpPort());
  }

  /// Sends a stream and closes the connection; true when the transfer's only outcome is `outcome`, and nothing comes
  /// after it.
  [[nodiscard]] bool receive(std::string_view stream, const std::string& outcome,
                             std::size_t pieceLength = std::string_view::npos) {
    recorder_->take();
    RawConnection sender = connect();
    sender.send(stream, pieceLength);
    sender.close();
    return endsWith(outcome);
  }

  [[nodiscard]] bool endsWith(const std::string& outcome) const {
    if (!recorder_->waitFor("[outcome")) return false;
    waitForTasks(server_->incomingDispatchQueue());
    EXPECT_EQ(recorder_->all().back(), "[outcome " + outcome + "]");
    return recorder_->count("[outcome") == 1;
  }

  [[nodiscard]] Strings delivered() const { return folder_.entries("downloads"); }

  /// Removes what was delivered.
  void clear() const {
    std::filesystem::remove_all(folder_.path("downloads"));
    folder_.makeFolder("downloads");
  }

  /// What was recorded, with the two folders' paths as "DOWNLOADS" and "STORAGE", and without the lines that tell of
  /// reads unless they are asked for.
  [[nodiscard]] Strings events(bool withReads = false) const {
    Strings result;
    for (std::string event : recorder_->all()) {
      if (!withReads && event.starts_with("Incoming didRead")) continue;
      const std::regex storage(folder_.path("downloads/.VeskoTransferIntermediateStorage\\d{14}\\w{32}"));
      event = std::regex_replace(event, storage, "STORAGE");
      result.push_back(std::regex_replace(event, std::regex(folder_.path("downloads")), "DOWNLOADS"));
    }
    return result;
  }

  TemporaryFolder folder_;
  std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
  std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
  std::shared_ptr<VeskoServer> server_ = std::make_shared<VeskoServer>(0, 0, clock_);
};

}  // namespace vesko

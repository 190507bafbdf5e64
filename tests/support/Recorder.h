#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "VeskoKit/Log.h"
#include "VeskoKit/VeskoIncomingTransfer.h"
#include "VeskoKit/VeskoTransfer.h"
#include "VeskoKit/VeskoTransferOutcome.h"
#include "tests/support/EventList.h"

namespace vesko {

/// Observer of transfers of both kinds and sink of the log, in one list: log lines as they are printed, calls in
/// brackets, such as "[progress 2 0 5 0]" and "[outcome failed timedOut]".
class Recorder final : public LogSink,
                       public VeskoTransferDelegate,
                       public VeskoIncomingTransferDelegate,
                       public VeskoTransferOutcomeDelegate,
                       public EventList {
 public:
  void write(std::string_view line) override { add(std::string(line.substr(0, line.size() - 1))); }

  void transferDidConnect(VeskoTransfer& /*transfer*/) override { add("[connected]"); }
  void transferDidFinish(VeskoTransfer& /*transfer*/) override { add("[finished]"); }
  void transferReserved(VeskoTransfer& /*transfer*/) override { add("[reserved]"); }
  void transferDidProgress(VeskoTransfer& /*transfer*/, std::int64_t elementCount, std::int64_t finishedElements,
                           std::uint64_t totalSize, std::uint64_t finishedBytes) override {
    add(progress(elementCount, finishedElements, totalSize, finishedBytes) + "]");
  }

  void incomingTransferDidStart(VeskoIncomingTransfer& /*transfer*/) override { add("[start]"); }
  void incomingTransferDidFinish(VeskoIncomingTransfer& /*transfer*/) override { add("[finished]"); }
  void incomingTransferReserved(VeskoIncomingTransfer& /*transfer*/) override { add("[reserved]"); }
  void incomingTransferDidProgress(VeskoIncomingTransfer& /*transfer*/, std::uint64_t elementCount,
                                   std::uint64_t finishedElements, std::uint64_t totalSize, std::uint64_t finishedBytes,
                                   const std::optional<std::string>& name,
                                   const std::optional<std::string>& path) override {
    add(progress(elementCount, finishedElements, totalSize, finishedBytes) + " " + name.value_or("none") + " " +
        path.value_or("none") + "]");
  }
  void incomingTransferDidReceiveText(VeskoIncomingTransfer& /*transfer*/, const std::string& text) override {
    add("[text " + text + "]");
  }
  void incomingTransferDidSaveItems(VeskoIncomingTransfer& /*transfer*/, const std::string& path) override {
    add("[saved " + path + "]");
  }

  void transferDidEnd(VeskoTransfer& /*transfer*/, const VeskoTransferOutcome& outcome) override { record(outcome); }
  void incomingTransferDidEnd(VeskoIncomingTransfer& /*transfer*/, const VeskoTransferOutcome& outcome) override {
    record(outcome);
  }

  /// Of the transfer that ended last.
  [[nodiscard]] VeskoTransferOutcome lastOutcome() const {
    const std::scoped_lock lock(mutex_);
    return lastOutcome_;
  }

 private:
  template <class... Numbers>
  static std::string progress(Numbers... numbers) {
    return ("[progress" + ... + (' ' + std::to_string(numbers)));
  }

  void record(const VeskoTransferOutcome& outcome) {
    using Kind = VeskoTransferOutcome::Kind;
    std::string text = outcome.kind == Kind::finished ? "finished" : "cancelled";
    if (outcome.kind == Kind::failed) text = "failed " + std::string(nameOfFailureReason(outcome.reason));
    {
      const std::scoped_lock lock(mutex_);
      lastOutcome_ = outcome;
    }
    add("[outcome " + text + "]");
  }

  mutable std::mutex mutex_;
  VeskoTransferOutcome lastOutcome_;
};

}  // namespace vesko

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Platform/queues/Clock.h"
#include "VeskoKit/VeskoIncomingTransfer.h"
#include "VeskoKit/VeskoServer.h"
#include "VeskoKit/VeskoTransfer.h"
#include "hosts/common/events/Events.h"

namespace vesko {

/// Makes the events of a session out of what its transfers report, on their queues. Any thread.
///
/// Progress is published at once, but at most ten times a second for each transfer; the newest report is held back
/// until then, and never lost: it comes before any other event of its transfer.
class TransferObserver : public std::enable_shared_from_this<TransferObserver>,
                         public VeskoTransferDelegate,
                         public VeskoIncomingTransferDelegate,
                         public VeskoTransferOutcomeDelegate {
 public:
  static constexpr std::chrono::milliseconds progressInterval{100};

  TransferObserver(std::shared_ptr<EventSink> sink, std::weak_ptr<VeskoServer> server, std::shared_ptr<Clock> clock,
                   std::uint64_t incomingLimit);

  [[nodiscard]] TransferId nextId();

  /// The number of an incoming transfer that is running.
  [[nodiscard]] TransferId idOf(const VeskoIncomingTransfer& transfer);

  /// Publishes the start of an outgoing transfer; to be called before its start.
  void noteStarted(TransferId id, std::string name, VeskoTransfer& transfer);

  /// Publishes what is left out of a transfer.
  void noteLeftOut(TransferId id, TransferDirection direction, const std::vector<VeskoSkippedElement>& leftOut);

  /// Breaks off the running transfers and each one that is accepted from now on.
  void cancelAll();

  void transferDidConnect(VeskoTransfer& transfer) override;
  void transferDidProgress(VeskoTransfer& transfer, std::int64_t elementCount, std::int64_t finishedElements,
                           std::uint64_t totalSize, std::uint64_t finishedBytes) override;
  void transferDidEnd(VeskoTransfer& transfer, const VeskoTransferOutcome& outcome) override;

  void incomingTransferDidStart(VeskoIncomingTransfer& transfer) override;
  void incomingTransferDidProgress(VeskoIncomingTransfer& transfer, std::uint64_t elementCount,
                                   std::uint64_t finishedElements, std::uint64_t totalSize, std::uint64_t finishedBytes,
                                   const std::optional<std::string>& currentName,
                                   const std::optional<std::string>& currentPath) override;
  void incomingTransferDidReceiveText(VeskoIncomingTransfer& transfer, const std::string& text) override;
  void incomingTransferDidSaveItems(VeskoIncomingTransfer& transfer, const std::string& path) override;
  void incomingTransferDidEnd(VeskoIncomingTransfer& transfer, const VeskoTransferOutcome& outcome) override;

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  struct Running {
    TransferId id = 0;
    bool isConnected = true;
    std::function<void()> cancel;
    const VeskoItems* items = nullptr;  // an outgoing transfer's, which outlives its record
    TimePoint start;
    std::optional<TimePoint> lastProgress = std::nullopt;
    ProgressEvent held = {};  // kept, so that its name is copied to the same place again and again
    bool isHeldUntold = false;
    std::unique_ptr<Alarm> alarm = nullptr;  // for what is held; none while nothing is
  };

  // All of these: with the lock held.
  void tellHeldNowAndThen(const void* transfer);
  void publishHeld(Running& running);
  [[nodiscard]] std::unique_ptr<Alarm> alarmFor(const void* transfer, TimePoint due);
  void publishEnd(const void* transfer, const VeskoTransferOutcome& outcome, std::uint64_t elements,
                  std::uint64_t bytes);
  [[nodiscard]] FailedEvent failureOf(const Running& running, const VeskoTransferOutcome& outcome) const;

  void prune();

  const std::shared_ptr<EventSink> sink_;
  const std::weak_ptr<VeskoServer> server_;
  const std::shared_ptr<Clock> clock_;

  std::mutex mutex_;
  TransferId lastId_ = 0;
  std::uint64_t incomingLeft_;  // how many more transfers are let in
  std::unordered_map<const void*, Running> running_;
};

}  // namespace vesko

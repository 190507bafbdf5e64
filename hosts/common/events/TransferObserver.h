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

/// Turns the reports of the transfers into events, on the queues of the transfers. Any thread.
///
/// Progress is published at once, but at most ten times a second for each transfer. A report that comes too early is
/// held back until its time, or until the next event of its transfer, and is published before that. A newer report
/// replaces it.
class TransferObserver : public std::enable_shared_from_this<TransferObserver>,
                         public VeskoTransferDelegate,
                         public VeskoIncomingTransferDelegate,
                         public VeskoTransferOutcomeDelegate {
 public:
  /// Shortest time between two ProgressEvents of a transfer.
  static constexpr std::chrono::milliseconds progressInterval{100};

  TransferObserver(std::shared_ptr<EventSink> sink, std::weak_ptr<VeskoServer> server, std::shared_ptr<Clock> clock,
                   std::uint64_t incomingLimit);

  /// A new id, for an outgoing transfer.
  [[nodiscard]] TransferId nextId();

  /// The id of an incoming transfer. Requires: it has started and not ended.
  [[nodiscard]] TransferId idOf(const VeskoIncomingTransfer& transfer);

  /// Publishes the start of an outgoing transfer. Call it before the transfer is started.
  void noteStarted(TransferId id, std::string name, VeskoTransfer& transfer);

  /// Publishes a SkippedEvent for each entry of `leftOut`.
  void noteLeftOut(TransferId id, TransferDirection direction, const std::vector<VeskoSkippedElement>& leftOut);

  /// Cancels the running transfers, and each one accepted from now on.
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
    const VeskoItems* items = nullptr;  // of an outgoing transfer; valid until its end, which removes this record
    TimePoint start;
    std::optional<TimePoint> lastProgress = std::nullopt;
    ProgressEvent held = {};    // the newest progress; reused, so that its name needs no new memory for each report
    bool isHeldUntold = false;  // `held` has not been published
    std::unique_ptr<Alarm> alarm = nullptr;  // publishes `held` when it is due
  };

  // These require that the lock is held.
  void tellHeldNowAndThen(const void* transfer);
  void publishHeld(Running& running);
  [[nodiscard]] std::unique_ptr<Alarm> alarmFor(const void* transfer, TimePoint due);
  void publishEnd(const void* transfer, const VeskoTransferOutcome& outcome, std::uint64_t elements,
                  std::uint64_t bytes);
  [[nodiscard]] FailedEvent failureOf(const Running& running, const VeskoTransferOutcome& outcome) const;

  /// Releases the ended transfers of the service. Requires: the lock is not held, because this destroys transfers.
  void prune();

  const std::shared_ptr<EventSink> sink_;
  const std::weak_ptr<VeskoServer> server_;
  const std::shared_ptr<Clock> clock_;

  std::mutex mutex_;
  TransferId lastId_ = 0;
  std::uint64_t incomingLeft_;  // how many more incoming transfers are accepted
  std::unordered_map<const void*, Running> running_;
};

}  // namespace vesko

#include "hosts/common/events/TransferObserver.h"

#include <algorithm>
#include <utility>

namespace vesko {
namespace {

/// Holds the transfer weakly: a transfer owns its observer.
template <class Transfer>
std::function<void()> cancellerOf(Transfer& transfer) {
  return [weak = transfer.weak_from_this()] {
    if (const auto alive = weak.lock()) alive->cancel();
  };
}

/// Empty for a text: its name is a fixed mark of the protocol.
std::string nameOfElement(const VeskoItems& items, std::uint64_t index) {
  if (items.empty()) return {};
  const VeskoItem& item = *items[std::min<std::size_t>(index, items.size() - 1)];
  return dynamic_cast<const VeskoText*>(&item) == nullptr ? item.name() : std::string();
}

}  // namespace

TransferObserver::TransferObserver(std::shared_ptr<EventSink> sink, std::weak_ptr<VeskoServer> server,
                                   std::shared_ptr<Clock> clock, std::uint64_t incomingLimit)
    : sink_(std::move(sink)), server_(std::move(server)), clock_(std::move(clock)), incomingLeft_(incomingLimit) {}

TransferId TransferObserver::nextId() {
  const std::scoped_lock lock(mutex_);
  return ++lastId_;
}

TransferId TransferObserver::idOf(const VeskoIncomingTransfer& transfer) {
  const std::scoped_lock lock(mutex_);
  return running_.at(&transfer).id;
}

void TransferObserver::noteStarted(TransferId id, std::string name, VeskoTransfer& transfer) {
  const std::scoped_lock lock(mutex_);
  running_[&transfer] = {id, false, cancellerOf(transfer), &transfer.items(), clock_->monotonicNow()};
  const VeskoPeer& peer = *transfer.peer();
  sink_->publish(TransferStartedEvent{id, TransferDirection::out, peer.ip(), std::move(name), peer.port(),
                                      peer.systemSignature()});
}

void TransferObserver::noteLeftOut(TransferId id, TransferDirection direction,
                                   const std::vector<VeskoSkippedElement>& leftOut) {
  const std::scoped_lock lock(mutex_);
  for (const auto& one : leftOut) {
    sink_->publish(SkippedEvent{id, direction, one.element, one.reason, descriptionOf(one)});
  }
}

void TransferObserver::cancelAll() {
  std::vector<std::function<void()>> cancellers;
  {
    const std::scoped_lock lock(mutex_);
    incomingLeft_ = 0;
    for (const auto& [transfer, running] : running_) cancellers.push_back(running.cancel);
  }
  // Without the lock: the reference that `cancel` takes may be the last one to a transfer and so destroy it.
  for (const auto& cancel : cancellers) cancel();
}

void TransferObserver::transferDidConnect(VeskoTransfer& transfer) {
  const std::scoped_lock lock(mutex_);
  running_[&transfer].isConnected = true;
}

void TransferObserver::transferDidProgress(VeskoTransfer& transfer, std::int64_t elementCount,
                                           std::int64_t finishedElements, std::uint64_t totalSize,
                                           std::uint64_t finishedBytes) {
  const std::scoped_lock lock(mutex_);
  Running& running = running_[&transfer];
  running.held = {running.id,
                  static_cast<std::uint64_t>(elementCount),
                  static_cast<std::uint64_t>(finishedElements),
                  totalSize,
                  finishedBytes,
                  {}};
  tellHeldNowAndThen(&transfer);
}

void TransferObserver::transferDidEnd(VeskoTransfer& transfer, const VeskoTransferOutcome& outcome) {
  {
    const std::scoped_lock lock(mutex_);
    publishEnd(&transfer, outcome, static_cast<std::uint64_t>(std::int64_t{transfer.transferedCount}),
               transfer.transferedSize);
  }
  prune();
}

void TransferObserver::incomingTransferDidStart(VeskoIncomingTransfer& transfer) {
  bool isWelcome = true;
  {
    const std::scoped_lock lock(mutex_);
    const TransferId id = ++lastId_;
    running_[&transfer] = {id, true, cancellerOf(transfer), nullptr, clock_->monotonicNow()};
    sink_->publish(TransferStartedEvent{id, TransferDirection::in, transfer.remoteAddress(), {}});
    // A transfer beyond the limit is published and cancelled too: each connection has its events.
    isWelcome = incomingLeft_ != 0;
    if (isWelcome) --incomingLeft_;
  }
  if (!isWelcome) transfer.cancel();
}

void TransferObserver::incomingTransferDidProgress(VeskoIncomingTransfer& transfer, std::uint64_t elementCount,
                                                   std::uint64_t finishedElements, std::uint64_t totalSize,
                                                   std::uint64_t finishedBytes,
                                                   const std::optional<std::string>& currentName,
                                                   const std::optional<std::string>& currentPath) {
  const std::scoped_lock lock(mutex_);
  Running& running = running_[&transfer];
  const bool isNamed = currentName && currentPath && !currentPath->empty();
  ProgressEvent& held = running.held;
  held.transfer = running.id;
  held.elementCount = elementCount;
  held.finishedElements = finishedElements;
  held.totalSize = totalSize;
  held.finishedBytes = finishedBytes;
  held.name = isNamed ? std::string_view(*currentName) : std::string_view();
  tellHeldNowAndThen(&transfer);
}

void TransferObserver::incomingTransferDidReceiveText(VeskoIncomingTransfer& transfer, const std::string& text) {
  const std::scoped_lock lock(mutex_);
  Running& running = running_[&transfer];
  publishHeld(running);
  sink_->publish(TextReceivedEvent{running.id, text});
}

void TransferObserver::incomingTransferDidSaveItems(VeskoIncomingTransfer& transfer, const std::string& path) {
  const std::scoped_lock lock(mutex_);
  Running& running = running_[&transfer];
  publishHeld(running);
  sink_->publish(ItemsSavedEvent{running.id, path});
}

void TransferObserver::incomingTransferDidEnd(VeskoIncomingTransfer& transfer, const VeskoTransferOutcome& outcome) {
  {
    const std::scoped_lock lock(mutex_);
    const TransferId id = running_[&transfer].id;
    publishHeld(running_[&transfer]);
    for (const auto& one : outcome.dropped) {
      sink_->publish(SkippedEvent{id, TransferDirection::in, one.element, one.reason, descriptionOf(one)});
    }
    publishEnd(&transfer, outcome, transfer.elementCount - outcome.droppedCount, transfer.byteFinished);
  }
  prune();
}

void TransferObserver::tellHeldNowAndThen(const void* transfer) {
  Running& running = running_[transfer];
  running.isHeldUntold = true;
  const TimePoint now = clock_->monotonicNow();
  const TimePoint due = running.lastProgress ? *running.lastProgress + progressInterval : now;
  if (due <= now) return publishHeld(running);
  // The next report may be far away, so an alarm publishes this one when it is due.
  if (!running.alarm) running.alarm = alarmFor(transfer, due);
}

std::unique_ptr<Alarm> TransferObserver::alarmFor(const void* transfer, TimePoint due) {
  return clock_->callAfter(due - clock_->monotonicNow(), [weak = weak_from_this(), transfer, due] {
    const auto self = weak.lock();
    if (!self) return;
    const std::scoped_lock lock(self->mutex_);
    const auto found = self->running_.find(transfer);
    // The alarm may come too late: its report has been published with another event, and a newer one is held.
    const bool isStillDue = found != self->running_.end() && found->second.lastProgress < due;
    if (isStillDue) self->publishHeld(found->second);
  });
}

void TransferObserver::publishHeld(Running& running) {
  running.alarm.reset();
  if (!std::exchange(running.isHeldUntold, false)) return;
  running.lastProgress = clock_->monotonicNow();
  ProgressEvent event = running.held;
  if (running.items != nullptr) event.name = nameOfElement(*running.items, event.finishedElements);
  sink_->publish(std::move(event));
}

void TransferObserver::publishEnd(const void* transfer, const VeskoTransferOutcome& outcome, std::uint64_t elements,
                                  std::uint64_t bytes) {
  const auto found = running_.find(transfer);
  if (found == running_.end()) return;
  Running running = std::move(found->second);
  running_.erase(found);
  publishHeld(running);
  if (outcome.kind != VeskoTransferOutcome::Kind::finished) return sink_->publish(failureOf(running, outcome));
  const std::chrono::duration<double> time = clock_->monotonicNow() - running.start;
  sink_->publish(FinishedEvent{running.id, elements, bytes, time.count(), outcome.droppedCount});
}

FailedEvent TransferObserver::failureOf(const Running& running, const VeskoTransferOutcome& outcome) const {
  return {running.id, outcome.reason, outcome.description(), outcome.element, running.isConnected, outcome.keptPath};
}

void TransferObserver::prune() {
  if (const auto server = server_.lock()) server->pruneFinishedTransfers();
}

}  // namespace vesko

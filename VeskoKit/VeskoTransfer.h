#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VeskoKit/Counter.h"
#include "VeskoKit/VeskoItem.h"
#include "VeskoKit/VeskoPeer.h"
#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko {

class Data;
class DispatchQueue;
class GCDAsyncSocket;
class GCDAsyncSocketDelegate;
class VeskoTransfer;
struct SocketError;

/// Hears how an outgoing transfer gets on. Every call comes on the transfer's queue.
class VeskoTransferDelegate {
 public:
  virtual ~VeskoTransferDelegate() = default;

  /// The connection is up; nothing has been written yet. Once.
  virtual void transferDidConnect(VeskoTransfer& /*transfer*/) {}

  /// The last byte has been handed over. Once. Whether it arrived is told by the outcome, which comes later: up to two
  /// minutes, where the other side asks its user first or takes its time to store what it got.
  virtual void transferDidFinish(VeskoTransfer& /*transfer*/) {}

  /// Keeps its place for programs that count on the order of these operations; never called.
  virtual void transferReserved(VeskoTransfer& /*transfer*/) {}

  /// After the metadata, whenever a chunk is taken, as a body is written, and at each element's end; with a
  /// `stallTimeout` also, once a second, when no more can be written but what was is being acknowledged: the numbers
  /// are then those of before. `finishedElements` is also the index of the element under way; `finishedBytes` counts
  /// bytes of bodies only and never decreases.
  virtual void transferDidProgress(VeskoTransfer& /*transfer*/, std::int64_t /*elementCount*/,
                                   std::int64_t /*finishedElements*/, std::uint64_t /*totalSize*/,
                                   std::uint64_t /*finishedBytes*/) {}
};

/// Sends one list of items to one peer over one connection.
///
/// Made with `std::make_shared`, on any thread, and handed to `VeskoServer::startTransfer`. From `start` on everything,
/// observer calls included, happens on the transfer's queue, which must be serial.
class VeskoTransfer : public std::enable_shared_from_this<VeskoTransfer> {
 public:
  /// Tags of the writes.
  static constexpr std::int64_t tagMetadata = 1;
  static constexpr std::int64_t tagFileHeader = 2;
  static constexpr std::int64_t tagFileBody = 3;

  /// Opens nothing yet. `dispatchQueue`: the serial queue that everything is to happen on.
  VeskoTransfer(VeskoItems items, std::shared_ptr<VeskoPeer> peer, std::shared_ptr<DispatchQueue> dispatchQueue);
  virtual ~VeskoTransfer();
  VeskoTransfer(const VeskoTransfer&) = delete;
  VeskoTransfer& operator=(const VeskoTransfer&) = delete;

  /// One item for `text` (UTF-8). Receivers of ours take 64 MiB at most (`VeskoText::maximumLength`).
  [[nodiscard]] static VeskoItems itemsForText(std::string text);

  /// The items for what is at `paths`, as `walkPaths` lists them; what had to be left out goes to `leftOut` if given.
  [[nodiscard]] static VeskoItems itemsForPaths(const std::vector<std::string>& paths,
                                                std::vector<VeskoSkippedElement>* leftOut = nullptr);

  Counter<std::uint64_t> transferedItemSize;      ///< bytes of the current element whose writes are complete
  Counter<std::uint64_t> transferedItemPosition;  ///< bytes of the current element taken from the item so far
  Counter<std::uint64_t> transferedSize;          ///< bytes of all completed elements
  Counter<std::int64_t> transferedCount;          ///< completed elements; the index of the current one
  Counter<std::uint64_t> partialSize;             ///< bytes told by partial notices of the write in progress
  Counter<std::uint64_t> totalSize;               ///< bytes of all bodies

  [[nodiscard]] const VeskoItems& items() const noexcept { return items_; }
  [[nodiscard]] const std::shared_ptr<VeskoPeer>& peer() const noexcept { return peer_; }
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& dispatchQueue() const noexcept { return dispatchQueue_; }

  /// The connection: from `start`, which makes it, until the last byte was handed over. On the transfer's queue only.
  [[nodiscard]] const std::shared_ptr<GCDAsyncSocket>& socket() const noexcept { return socket_; }

  /// Puts another connection in its place, and lets go of what was there. Its owner hands on what it reports to the
  /// operations at the end of this class. On the transfer's queue only.
  void setSocket(std::shared_ptr<GCDAsyncSocket> socket) { socket_ = std::move(socket); }

  /// The observers, held strongly. Set them before the start or on the transfer's queue.
  void setDelegate(std::shared_ptr<VeskoTransferDelegate> delegate) { delegate_ = std::move(delegate); }
  [[nodiscard]] const std::shared_ptr<VeskoTransferDelegate>& delegate() const noexcept { return delegate_; }
  void setOutcomeDelegate(std::shared_ptr<VeskoTransferOutcomeDelegate> delegate) {
    outcomeDelegate_ = std::move(delegate);
  }

  /// A label for the host's use; the transfer never reads it. Set it before the start.
  std::string key;

  /// Seconds that connecting may take; none: as many as the system grants. Set it before the start.
  std::optional<double> connectTimeout;

  /// Seconds for which nothing may be acknowledged while there is more to send; the outcome is then "timedOut". None:
  /// bodies have no bound, and metadata and headers ten seconds each to be handed over. Set it before the start. What
  /// has been handed over in full has a bound in any case: 90 seconds without an acknowledgement ("timedOut") and, once
  /// all is acknowledged, 90 seconds until the other side closes ("unconfirmed").
  std::optional<double> stallTimeout;

  /// Starts connecting; returns at once. Any thread; called by `VeskoServer::startTransfer`. A transfer that has ended
  /// may be started again, from its first element. Requires: it is not under way.
  void start();

  /// Breaks the transfer off: the connection is reset and the outcome is "cancelled", unless it has already ended. Any
  /// thread; without effect before the start.
  void cancel();

  /// True from the outcome on.
  [[nodiscard]] bool hasEnded() const noexcept { return ended_; }

  /// Called by the transfer's socket, or by each other, on the transfer's queue.
  void socketDidConnectToHost(GCDAsyncSocket& socket, const std::string& host, std::uint16_t port);
  void nextChunk(GCDAsyncSocket& socket);
  void socketDidWriteDataWithTag(GCDAsyncSocket& socket, std::int64_t tag);
  void socketDidWritePartialDataOfLength(GCDAsyncSocket& socket, std::uint64_t length, std::int64_t tag);
  void socketDidDisconnect(GCDAsyncSocket& socket, const SocketError& error);
  [[nodiscard]] double socketShouldTimeoutWriteWithTag(GCDAsyncSocket& socket, std::int64_t tag, double elapsed,
                                                       std::uint64_t bytesDone);

 protected:
  /// Makes the socket that `start` connects; a test puts one of its own in its place.
  [[nodiscard]] virtual std::shared_ptr<GCDAsyncSocket> makeSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate);

 private:
  class SocketEvents;

  [[nodiscard]] VeskoItem& currentItem() const { return *items_[static_cast<std::size_t>(transferedCount)]; }
  [[nodiscard]] double headerTimeout() const noexcept;
  void sendHeader(GCDAsyncSocket& socket);
  void completeBodyWrite(GCDAsyncSocket& socket);
  void completeElement(GCDAsyncSocket& socket);
  void finish(GCDAsyncSocket& socket);
  void reportProgress(std::uint64_t bytesOfCurrentItem);
  [[nodiscard]] std::string currentElement() const;
  [[nodiscard]] VeskoTransferOutcome failure(const SocketError& error) const;
  [[nodiscard]] bool isCurrent(const GCDAsyncSocket& socket) const noexcept;
  void breakOff(VeskoTransferOutcome outcome);
  void end(const VeskoTransferOutcome& outcome);

  const VeskoItems items_;
  const std::shared_ptr<VeskoPeer> peer_;
  const std::shared_ptr<DispatchQueue> dispatchQueue_;
  std::shared_ptr<GCDAsyncSocket> socket_;
  std::shared_ptr<GCDAsyncSocket> drainingSocket_;
  std::shared_ptr<SocketEvents> events_;
  std::shared_ptr<VeskoTransferDelegate> delegate_;
  std::shared_ptr<VeskoTransferOutcomeDelegate> outcomeDelegate_;
  std::optional<VeskoTransferOutcome> decidedOutcome_;
  std::atomic<bool> isStarted_{false};
  std::atomic<bool> isCancelled_{false};
  std::atomic<bool> ended_{false};
};

}  // namespace vesko

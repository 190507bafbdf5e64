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

/// Is told about the progress of an outgoing transfer. Every call comes on the transfer's queue. How the transfer ended
/// is told by `VeskoTransferOutcomeDelegate`.
class VeskoTransferDelegate {
 public:
  virtual ~VeskoTransferDelegate() = default;

  /// The connection is established; nothing has been written yet. Called once.
  virtual void transferDidConnect(VeskoTransfer& /*transfer*/) {}

  /// The last byte was handed over to the system. Called once, unless the transfer fails before. Whether the bytes have
  /// arrived is told by the outcome. That comes later: a peer that asks its user first, or takes long to store what it
  /// received, may need minutes.
  virtual void transferDidFinish(VeskoTransfer& /*transfer*/) {}

  /// Never called. It keeps the place of an operation, for programs that depend on their order.
  virtual void transferReserved(VeskoTransfer& /*transfer*/) {}

  /// Called after the metadata was queued, whenever a chunk is taken, repeatedly while a body is written, and at the
  /// end of each element. With a `stallTimeout` also about once a second while nothing more can be written but the peer
  /// acknowledges bytes; the numbers are then the same as before.
  ///
  /// `finishedElements` is also the index of the current element. `finishedBytes` counts bytes of bodies only and never
  /// decreases.
  virtual void transferDidProgress(VeskoTransfer& /*transfer*/, std::int64_t /*elementCount*/,
                                   std::int64_t /*finishedElements*/, std::uint64_t /*totalSize*/,
                                   std::uint64_t /*finishedBytes*/) {}
};

/// Sends one list of items to one peer over one TCP connection.
///
/// Make it with `std::make_shared`, on any thread, with a serial queue; set observers and time-outs; then pass it to
/// `VeskoServer::startTransfer`, which also keeps it alive. From then on everything happens on the transfer's queue,
/// the calls to observers included. There are two observers: the delegate is told about progress, the outcome delegate
/// once how the transfer ended.
///
/// States, what each waits for, and what comes next:
///
///     connecting  the connection                        transferDidConnect; then metadata
///     metadata    16 bytes to be written                header; finishing when there are no elements
///     header      name and size to be written           body
///     body        one chunk to be written               body, next header or finishing
///     finishing   the peer to acknowledge and to close  ended ("finished"); transferDidFinish was called on entering
///     ended                                             transferDidEnd; `start` may be called again
///
/// A failure or `cancel` leads from any state to ended; the connection is then reset.
class VeskoTransfer : public std::enable_shared_from_this<VeskoTransfer> {
 public:
  /// Tags of the writes: which state a completed write belongs to.
  static constexpr std::int64_t tagMetadata = 1;
  static constexpr std::int64_t tagFileHeader = 2;
  static constexpr std::int64_t tagFileBody = 3;

  /// Does not connect yet. `peer` tells address and port. `dispatchQueue`: the serial queue on which everything
  /// happens; several transfers may share one, but then wait for each other's disk.
  VeskoTransfer(VeskoItems items, std::shared_ptr<VeskoPeer> peer, std::shared_ptr<DispatchQueue> dispatchQueue);
  virtual ~VeskoTransfer();
  VeskoTransfer(const VeskoTransfer&) = delete;
  VeskoTransfer& operator=(const VeskoTransfer&) = delete;

  /// One item for `text` (UTF-8). Receivers with this library accept at most 64 MiB (`VeskoText::maximumLength`).
  [[nodiscard]] static VeskoItems itemsForText(std::string text);

  /// The items for files and folders at `paths`, folders with everything inside; see `walkPaths`. What cannot be sent
  /// is added to `leftOut`, if given, and does not fail the others. Blocks while it lists the folders; any thread.
  [[nodiscard]] static VeskoItems itemsForPaths(const std::vector<std::string>& paths,
                                                std::vector<VeskoSkippedElement>* leftOut = nullptr);

  Counter<std::uint64_t> transferedItemSize;      ///< bytes of the current element whose writes are complete
  Counter<std::uint64_t> transferedItemPosition;  ///< bytes of the current element that were taken from the item so far
  Counter<std::uint64_t> transferedSize;          ///< bytes of all completed elements
  Counter<std::int64_t> transferedCount;          ///< completed elements; also the index of the current one
  Counter<std::uint64_t> partialSize;             ///< bytes written of the chunk that is being written
  Counter<std::uint64_t> totalSize;               ///< bytes of all bodies

  [[nodiscard]] const VeskoItems& items() const noexcept { return items_; }
  [[nodiscard]] const std::shared_ptr<VeskoPeer>& peer() const noexcept { return peer_; }
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& dispatchQueue() const noexcept { return dispatchQueue_; }

  /// The connection, from `start` until the last byte was handed over, and none from then on. After a failure it is the
  /// closed one. On the transfer's queue only.
  [[nodiscard]] const std::shared_ptr<GCDAsyncSocket>& socket() const noexcept { return socket_; }

  /// Replaces the connection and releases the one before. Whoever calls this has to pass the events of the new socket
  /// to the operations at the end of this class. On the transfer's queue only.
  void setSocket(std::shared_ptr<GCDAsyncSocket> socket) { socket_ = std::move(socket); }

  /// The observers, held strongly. Set them before the start or on the transfer's queue.
  void setDelegate(std::shared_ptr<VeskoTransferDelegate> delegate) { delegate_ = std::move(delegate); }
  [[nodiscard]] const std::shared_ptr<VeskoTransferDelegate>& delegate() const noexcept { return delegate_; }
  void setOutcomeDelegate(std::shared_ptr<VeskoTransferOutcomeDelegate> delegate) {
    outcomeDelegate_ = std::move(delegate);
  }

  /// A label for the host's own use; the transfer never reads it. Set it before the start.
  std::string key;

  /// Seconds until connecting fails; none: as many as the system takes. Set it before the start.
  std::optional<double> connectTimeout;

  /// Seconds for which the peer may acknowledge nothing while there is more to send; the transfer then fails with
  /// "timedOut". Set it before the start. None: bodies have no bound, because a slow network is no failure, and
  /// metadata and each header have 10 seconds to be written.
  ///
  /// When everything is written, two other bounds hold, whatever this field says: 90 seconds without an acknowledgement
  /// ("timedOut") and, from the last acknowledgement on, 90 seconds until the peer closes ("unconfirmed").
  std::optional<double> stallTimeout;

  /// Starts connecting and returns at once; a failure is told as the outcome. Any thread; `VeskoServer::startTransfer`
  /// calls it. A transfer that has ended may be started again and then sends everything from its first element on.
  /// Requires: it is not under way, and a `std::shared_ptr` owns it.
  void start();

  /// Ends the transfer: the connection is reset and the outcome is "cancelled". Any thread; returns before that has
  /// happened. Without effect before the start and after the end.
  void cancel();

  /// True from the outcome on. Any thread.
  [[nodiscard]] bool hasEnded() const noexcept { return ended_; }

  /// Called by the transfer's socket and by each other, on the transfer's queue. Not for hosts.
  void socketDidConnectToHost(GCDAsyncSocket& socket, const std::string& host, std::uint16_t port);
  void nextChunk(GCDAsyncSocket& socket);
  void socketDidWriteDataWithTag(GCDAsyncSocket& socket, std::int64_t tag);
  void socketDidWritePartialDataOfLength(GCDAsyncSocket& socket, std::uint64_t length, std::int64_t tag);
  void socketDidDisconnect(GCDAsyncSocket& socket, const SocketError& error);
  [[nodiscard]] double socketShouldTimeoutWriteWithTag(GCDAsyncSocket& socket, std::int64_t tag, double elapsed,
                                                       std::uint64_t bytesDone);

 protected:
  /// Makes the socket that `start` connects. A test overrides it with a socket of its own.
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
  std::shared_ptr<GCDAsyncSocket> socket_;          // connecting, metadata, header, body
  std::shared_ptr<GCDAsyncSocket> drainingSocket_;  // finishing
  std::shared_ptr<SocketEvents> events_;
  std::shared_ptr<VeskoTransferDelegate> delegate_;
  std::shared_ptr<VeskoTransferOutcomeDelegate> outcomeDelegate_;
  std::optional<VeskoTransferOutcome> decidedOutcome_;  // how it ends once the socket has told of its close
  std::atomic<bool> isStarted_{false};
  std::atomic<bool> isCancelled_{false};
  std::atomic<bool> ended_{false};
};

}  // namespace vesko

#include "VeskoKit/VeskoTransfer.h"

#include <cassert>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "VeskoKit/ItemWalk.h"
#include "VeskoKit/Log.h"
#include "VeskoKit/TransferFailure.h"
#include "VeskoKit/TransferStream.h"

namespace vesko {

namespace {

/// Seconds for metadata and headers. Bodies have no time-out, because a slow network is no failure.
constexpr double defaultHeaderTimeout = 10.0;
constexpr double noTimeout = -1.0;

}  // namespace

/// The delegate of the socket. It holds the transfer weakly: the transfer may be destroyed while events are on their
/// way.
class VeskoTransfer::SocketEvents final : public GCDAsyncSocketDelegate {
 public:
  explicit SocketEvents(std::weak_ptr<VeskoTransfer> transfer) : transfer_(std::move(transfer)) {}

  void socketDidConnectToHost(GCDAsyncSocket& socket, const std::string& host, std::uint16_t port) override {
    if (const auto transfer = transfer_.lock()) transfer->socketDidConnectToHost(socket, host, port);
  }
  void socketDidWriteDataWithTag(GCDAsyncSocket& socket, std::int64_t tag) override {
    if (const auto transfer = transfer_.lock()) transfer->socketDidWriteDataWithTag(socket, tag);
  }
  void socketDidWritePartialDataOfLength(GCDAsyncSocket& socket, std::uint64_t length, std::int64_t tag) override {
    if (const auto transfer = transfer_.lock()) transfer->socketDidWritePartialDataOfLength(socket, length, tag);
  }
  double socketShouldTimeoutWriteWithTag(GCDAsyncSocket& socket, std::int64_t tag, double elapsed,
                                         std::uint64_t bytesDone) override {
    const auto transfer = transfer_.lock();
    return transfer ? transfer->socketShouldTimeoutWriteWithTag(socket, tag, elapsed, bytesDone) : 0.0;
  }
  void socketDidDisconnect(GCDAsyncSocket& socket, const SocketError& error) override {
    if (const auto transfer = transfer_.lock()) transfer->socketDidDisconnect(socket, error);
  }

 private:
  std::weak_ptr<VeskoTransfer> transfer_;
};

VeskoTransfer::VeskoTransfer(VeskoItems items, std::shared_ptr<VeskoPeer> peer,
                             std::shared_ptr<DispatchQueue> dispatchQueue)
    : items_(std::move(items)), peer_(std::move(peer)), dispatchQueue_(std::move(dispatchQueue)) {
  for (const auto& item : items_) totalSize += item->size();
}

VeskoTransfer::~VeskoTransfer() = default;

VeskoItems VeskoTransfer::itemsForText(std::string text) { return {std::make_shared<VeskoText>(std::move(text))}; }

VeskoItems VeskoTransfer::itemsForPaths(const std::vector<std::string>& paths,
                                        std::vector<VeskoSkippedElement>* leftOut) {
  std::vector<VeskoSkippedElement> unheard;
  return walkPaths(paths, leftOut != nullptr ? *leftOut : unheard);
}

std::shared_ptr<GCDAsyncSocket> VeskoTransfer::makeSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate) {
  return GCDAsyncSocket::make(std::move(delegate), dispatchQueue_);
}

void VeskoTransfer::start() {
  isCancelled_ = false;
  ended_ = false;
  transferedSize = 0;
  transferedCount = 0;
  events_ = std::make_shared<SocketEvents>(weak_from_this());
  socket_ = makeSocket(events_);
  socket_->setStallTimeout(stallTimeout.value_or(noTimeout));
  SocketError error;
  if (!socket_->connectToHost(peer_->ip(), peer_->port(), connectTimeout.value_or(noTimeout), error)) {
    dispatchQueue_->async([self = shared_from_this(), error] { self->end(self->failure(error)); });
  }
  isStarted_ = true;
  // A `cancel` on another thread may have come before `isStarted_` was set, and done nothing.
  if (isCancelled_) cancel();
}

void VeskoTransfer::cancel() {
  isCancelled_ = true;
  dispatchQueue_->async([self = shared_from_this()] {
    if (self->isStarted_ && !self->ended_) self->breakOff(TransferFailure::cancelled());
  });
}

/// State connecting ends; metadata begins.
void VeskoTransfer::socketDidConnectToHost(GCDAsyncSocket& socket, const std::string& host, std::uint16_t port) {
  Log::line("didConnectToHost", host, port);
  if (delegate_) delegate_->transferDidConnect(*this);
  socket.writeData(TransferStream::encodeMetadata({items_.size(), totalSize}), headerTimeout(), tagMetadata);
  reportProgress(0);
}

/// The end of the states metadata, header and body: the tag tells which. Events of a socket that was replaced, and
/// those after the outcome was decided, are ignored.
void VeskoTransfer::socketDidWriteDataWithTag(GCDAsyncSocket& socket, std::int64_t tag) {
  Log::line("didWriteDataWithTag", tag);
  if (!isCurrent(socket) || decidedOutcome_) return;
  if (tag == tagMetadata) {
    transferedItemSize = 0;
    transferedItemPosition = 0;
    items_.empty() ? finish(socket) : sendHeader(socket);
  } else if (tag == tagFileHeader) {
    nextChunk(socket);
  } else if (tag == tagFileBody) {
    completeBodyWrite(socket);
  }
}

/// With a `stallTimeout`, headers need none of their own. A header may have to wait as long as a body, for example when
/// the receiver's user is being asked.
double VeskoTransfer::headerTimeout() const noexcept { return stallTimeout ? noTimeout : defaultHeaderTimeout; }

/// State header: waits for the write; body follows.
void VeskoTransfer::sendHeader(GCDAsyncSocket& socket) {
  if (Log::isEnabled()) Log::line("sending meta", currentItem().name());
  socket.writeData(currentItem().header(), headerTimeout(), tagFileHeader);
}

/// State body: takes a chunk and waits for its write. Folders, empty files and empty texts have no body, so nothing is
/// written and the end of the write is reported directly.
void VeskoTransfer::nextChunk(GCDAsyncSocket& socket) {
  VeskoItem& item = currentItem();
  Data chunk = item.nextChunk();
  const std::error_code error = item.sourceError();
  if (error || (chunk.empty() && transferedItemPosition < item.size())) {
    breakOff(TransferFailure::make(TransferFailure::reasonOfSource(error), "reading the file", error, item.name()));
    return;
  }
  transferedItemPosition += chunk.size();
  if (Log::isEnabled()) Log::line("sending chunk", std::uint64_t{transferedItemPosition}, chunk.size(), item.name());
  partialSize = 0;
  reportProgress(transferedItemSize);
  if (chunk.empty()) {
    socketDidWriteDataWithTag(socket, tagFileBody);
  } else {
    socket.writeData(std::move(chunk), noTimeout, tagFileBody);
  }
}

/// State body, chunk written: the next chunk, or the end of the element.
void VeskoTransfer::completeBodyWrite(GCDAsyncSocket& socket) {
  transferedItemSize = transferedItemPosition;
  if (transferedItemPosition < currentItem().size()) {
    nextChunk(socket);
  } else {
    completeElement(socket);
  }
}

/// Next: header of the next element, or finishing.
void VeskoTransfer::completeElement(GCDAsyncSocket& socket) {
  transferedSize += currentItem().size();
  transferedCount += 1;
  transferedItemSize = 0;
  transferedItemPosition = 0;
  reportProgress(transferedItemSize);
  if (static_cast<std::size_t>(transferedCount) == items_.size()) {
    finish(socket);
  } else {
    sendHeader(socket);
  }
}

/// State finishing: half-closes the connection and waits for the peer to acknowledge and close. A receiver closes in
/// good order only after everything has its final place, so its close is the confirmation; there is no message for that
/// in the protocol.
void VeskoTransfer::finish(GCDAsyncSocket& socket) {
  if (delegate_) delegate_->transferDidFinish(*this);
  socket.disconnectAfterWriting();
  drainingSocket_ = std::move(socket_);
}

void VeskoTransfer::socketDidWritePartialDataOfLength(GCDAsyncSocket& socket, std::uint64_t length, std::int64_t tag) {
  if (!isCurrent(socket)) return;
  if (tag == tagFileBody) {
    partialSize += length;
    reportProgress(transferedItemSize + partialSize);
  } else if (length == 0) {
    reportProgress(0);
  }
}

/// Only metadata and headers have time-outs; they get no more time.
double VeskoTransfer::socketShouldTimeoutWriteWithTag(GCDAsyncSocket& /*socket*/, std::int64_t tag, double elapsed,
                                                      std::uint64_t bytesDone) {
  Log::line("shouldTimeoutWriteWithTag", tag, elapsed, bytesDone);
  return 0.0;
}

/// The last event of a socket. Either this side has decided the outcome before (`breakOff`); or the socket was
/// finishing and the peer has confirmed; or the connection failed. Sockets that were replaced are ignored.
void VeskoTransfer::socketDidDisconnect(GCDAsyncSocket& socket, const SocketError& error) {
  Log::line("didDisconnect");
  if (decidedOutcome_) {
    end(*std::exchange(decidedOutcome_, std::nullopt));
  } else if (&socket == drainingSocket_.get() && !error) {
    end({});
  } else if (&socket == drainingSocket_.get() || isCurrent(socket)) {
    end(failure(error));
  }
}

VeskoTransferOutcome VeskoTransfer::failure(const SocketError& error) const {
  if (error.operation != SocketError::Operation::connect) return TransferFailure::fromSocket(error, currentElement());
  auto outcome = TransferFailure::fromSocket(error, {});
  outcome.operation += " to " + peer_->ip() + " port " + std::to_string(peer_->port());
  return outcome;
}

void VeskoTransfer::reportProgress(std::uint64_t bytesOfCurrentItem) {
  if (!delegate_) return;
  delegate_->transferDidProgress(*this, static_cast<std::int64_t>(items_.size()), transferedCount, totalSize,
                                 transferedSize + bytesOfCurrentItem);
}

std::string VeskoTransfer::currentElement() const {
  return static_cast<std::size_t>(transferedCount) < items_.size() ? currentItem().name() : std::string();
}

bool VeskoTransfer::isCurrent(const GCDAsyncSocket& socket) const noexcept { return &socket == socket_.get(); }

/// Only decides the outcome. It is told by `socketDidDisconnect`, after which the socket makes no more calls.
void VeskoTransfer::breakOff(VeskoTransferOutcome outcome) {
  const auto& socket = socket_ ? socket_ : drainingSocket_;
  if (!socket) return end(outcome);
  decidedOutcome_ = std::move(outcome);
  socket->disconnectWithReset();
}

void VeskoTransfer::end(const VeskoTransferOutcome& outcome) {
  if (ended_.exchange(true)) return;
  drainingSocket_.reset();
  if (static_cast<std::size_t>(transferedCount) < items_.size()) currentItem().stopReading();
  if (outcomeDelegate_) outcomeDelegate_->transferDidEnd(*this, outcome);
}

}  // namespace vesko

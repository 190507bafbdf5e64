#include <array>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/SocketCalls.h"
#include "Platform/sockets/StreamSocket.h"

namespace vesko {

namespace {

using Operation = SocketError::Operation;

/// Reads of unexpected data in one go, before other tasks of the queue run.
constexpr int drainBatch = 16;

/// Bytes: the system counts the end of the stream (FIN) as one unacknowledged byte.
constexpr std::uint64_t endOfStreamLength = 1;

/// How often it is checked whether the peer still acknowledges data while the connection closes.
constexpr std::chrono::milliseconds drainInterval{500};

}  // namespace

/// The last part of a send: everything is handed to the system, the half-close follows, and then this waits for the
/// peer to acknowledge all bytes and to close. Only both together are success: a peer may have acknowledged what it has
/// not stored yet.
void StreamSocket::beginDraining() {
  state_ = State::draining;
  reader_.clear();
  beginAcknowledged(queue_->clock()->monotonicNow());
  wakeIn(drainInterval);
  waitReadable();
  finishSending();
}

/// Gathered bytes that the system has not taken yet are sent first; the half-close must come after them.
void StreamSocket::finishSending() {
  SocketError error;
  const StreamStep flushed = writer_.isBlocked() ? StreamStep::blocked : writer_.flush(descriptor_.get(), false, error);
  if (flushed == StreamStep::failed) {
    close(error);
  } else if (flushed == StreamStep::blocked) {
    waitWritable();
  } else {
    SocketCalls::shutdownSending(descriptor_.get());
  }
}

std::uint64_t StreamSocket::undrainedBytes() const noexcept {
  return SocketCalls::unacknowledgedBytes(descriptor_.get()) + writer_.gatheredBytes();
}

/// Called when the socket is readable. Data from the peer is unexpected here and discarded; what counts is its end.
void StreamSocket::drain() {
  std::array<char, 4096> unexpected;
  std::error_code code;
  bool isOpen = true;
  for (int i = 0; i < drainBatch && isOpen && !code; ++i) {
    isOpen = SocketCalls::receive(descriptor_.get(), unexpected, code) > 0;
  }
  if (code == std::errc::operation_would_block || (isOpen && !code)) {
    waitReadable();
  } else if (code || writer_.gatheredBytes() > 0) {
    close({Operation::write, code ? code : make_error_code(SocketErrc::endOfStream)});
  } else if (undrainedBytes() > endOfStreamLength) {
    // It may have crashed, or only closed its sending side. Its acknowledgements, or a reset, will show which.
    otherSideHasEnded_ = true;
  } else {
    close({});
  }
}

/// Two different failures: without acknowledgements the connection is broken (`timed_out`); with all acknowledged, but
/// no close, the peer may have everything or not (`unconfirmed`).
void StreamSocket::checkDraining() {
  const Time now = queue_->clock()->monotonicNow();
  const std::uint64_t outstanding = undrainedBytes();
  noteAcknowledged(outstanding, now);
  const bool isTaken = outstanding <= endOfStreamLength;
  const std::error_code refused =
      otherSideHasEnded_ ? SocketCalls::connectResult(descriptor_.get()) : std::error_code();
  const auto end = inTicks(endSeconds);
  if (refused) {
    close({Operation::write, refused});
  } else if (isTaken && otherSideHasEnded_) {
    close({});
  } else if (now - acknowledged_.since < end) {
    // When all is acknowledged only the peer's close is awaited, and the readable event reports that.
    wakeIn(isTaken ? acknowledged_.since + end - now : drainInterval);
  } else if (isTaken) {
    close({Operation::write, SocketErrc::unconfirmed});
  } else {
    close({Operation::write, std::make_error_code(std::errc::timed_out)});
  }
}

}  // namespace vesko

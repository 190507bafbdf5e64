#include <array>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/SocketCalls.h"
#include "Platform/sockets/StreamSocket.h"

namespace vesko {

namespace {

using Operation = SocketError::Operation;

/// Reads of what nobody wants, in one go before other work on the queue gets its turn.
constexpr int drainBatch = 16;

/// What the system counts for the end of what is sent, until the other side has acknowledged it (bytes).
constexpr std::uint64_t endOfStreamLength = 1;

/// How often a closing connection is asked whether it still drains.
constexpr std::chrono::milliseconds drainInterval{500};

}  // namespace

void StreamSocket::beginDraining() {
  state_ = State::draining;
  reader_.clear();
  beginAcknowledged(queue_->clock()->monotonicNow());
  wakeIn(drainInterval);
  waitReadable();
  finishSending();
}

/// What the system has not taken of the gathered bytes comes first; only then may it say that nothing follows.
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
    // It has gone, or has just nothing to say: that shows when it takes the rest, or refuses it.
    otherSideHasEnded_ = true;
  } else {
    close({});
  }
}

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
    // From now on only the other side's end is awaited, which is told without asking.
    wakeIn(isTaken ? acknowledged_.since + end - now : drainInterval);
  } else if (isTaken) {
    close({Operation::write, SocketErrc::unconfirmed});
  } else {
    close({Operation::write, std::make_error_code(std::errc::timed_out)});
  }
}

}  // namespace vesko

#include <algorithm>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/StreamSocket.h"

namespace vesko {

namespace {

using Operation = SocketError::Operation;
using Seconds = std::chrono::duration<double>;

/// How often a connection that waits to write is asked whether anything is still acknowledged.
constexpr std::chrono::seconds stallInterval{1};

}  // namespace

StreamSocket::Time::duration StreamSocket::inTicks(double seconds) {
  return std::chrono::duration_cast<Time::duration>(Seconds(seconds));
}

/// One alarm serves the read, the write and the stall together: it is set for the earliest, and an alarm that already
/// comes earlier is kept. Setting one for each request would cost a timer for each small file.
void StreamSocket::watchDeadlines() {
  Time earliest = Time::max();
  watchDeadline(readDeadline_, reader_.timeoutOfFirst(), earliest);
  watchDeadline(writeDeadline_, writer_.timeoutOfFirst(), earliest);
  watchStall(earliest);
  if (earliest == Time::max() || (alarmTime_ && *alarmTime_ <= earliest)) return;
  wakeIn(earliest - queue_->clock()->monotonicNow());
}

void StreamSocket::watchDeadline(Deadline& deadline, std::optional<double> timeout, Time& earliest) {
  if (!timeout) return;
  if (!deadline.started) {
    deadline.started = queue_->clock()->monotonicNow();
    deadline.expires = *deadline.started + inTicks(*timeout);
  }
  earliest = std::min(earliest, deadline.expires);
}

/// A stall is measured by what the peer has acknowledged, not by when the socket becomes writable: the system reports
/// that only when a good part of its buffer is free, which may take minutes on a slow connection.
void StreamSocket::watchStall(Time& earliest) {
  if (stallTimeout_ < 0 || !writer_.isBlocked()) return;
  if (!nextStallCheck_) {
    const Time now = queue_->clock()->monotonicNow();
    beginAcknowledged(now);
    nextStallCheck_ = now + stallInterval;
  }
  earliest = std::min(earliest, *nextStallCheck_);
}

/// The clock calls on any thread, also after this socket is gone. Both pointers are weak: an alarm keeps neither alive.
void StreamSocket::wakeIn(std::chrono::steady_clock::duration delay) {
  alarmTime_ = queue_->clock()->monotonicNow() + delay;
  alarm_ = queue_->clock()->callAfter(delay, [queue = std::weak_ptr(queue_), weak = weak_from_this()] {
    const auto target = queue.lock();
    if (!target) return;
    target->async([weak] {
      if (const auto self = weak.lock()) self->onAlarm();
    });
  });
}

/// Each check may close the socket, so the state is looked at before each of them.
void StreamSocket::onAlarm() {
  alarmTime_.reset();
  const Time now = queue_->clock()->monotonicNow();
  if (state_ == State::connecting) close({Operation::connect, std::make_error_code(std::errc::timed_out)});
  if (state_ == State::draining) checkDraining();
  if (state_ == State::connected) checkReadDeadline(now);
  if (state_ == State::connected) checkWriteDeadline(now);
  if (state_ == State::connected) checkStall(now);
  if (state_ == State::connected) watchDeadlines();
}

void StreamSocket::checkReadDeadline(Time now) {
  if (!readDeadline_.started || now < readDeadline_.expires || !reader_.timeoutOfFirst()) return;
  const auto delegate = delegate_.lock();
  const double elapsed = Seconds(now - *readDeadline_.started).count();
  const double extension = delegate ? delegate->socketShouldTimeoutReadWithTag(*this, reader_.tagOfFirst(), elapsed,
                                                                               reader_.bytesDoneOfFirst())
                                    : 0.0;
  extend(readDeadline_, extension, Operation::read, now);
}

void StreamSocket::checkWriteDeadline(Time now) {
  if (!writeDeadline_.started || now < writeDeadline_.expires || !writer_.timeoutOfFirst()) return;
  const auto delegate = delegate_.lock();
  const double elapsed = Seconds(now - *writeDeadline_.started).count();
  const double extension = delegate ? delegate->socketShouldTimeoutWriteWithTag(*this, writer_.tagOfFirst(), elapsed,
                                                                                writer_.bytesDoneOfFirst())
                                    : 0.0;
  extend(writeDeadline_, extension, Operation::write, now);
}

void StreamSocket::extend(Deadline& deadline, double extension, Operation operation, Time now) {
  if (state_ != State::connected) return;
  if (extension > 0) {
    deadline.expires = now + inTicks(extension);
  } else {
    close({operation, std::make_error_code(std::errc::timed_out)});
  }
}

void StreamSocket::checkStall(Time now) {
  if (!nextStallCheck_ || now < *nextStallCheck_) return;
  nextStallCheck_.reset();
  // Nothing waits to be sent any more; the next write starts a new measurement.
  if (!writer_.isBlocked()) return;
  noteAcknowledged(undrainedBytes(), now);
  if (now - acknowledged_.since >= inTicks(stallTimeout_)) {
    close({Operation::write, std::make_error_code(std::errc::timed_out)});
    return;
  }
  nextStallCheck_ = now + stallInterval;
  const auto delegate = delegate_.lock();
  const bool isMoving = acknowledged_.since == now && !writer_.isComplete();
  if (delegate && isMoving) delegate->socketDidWritePartialDataOfLength(*this, 0, writer_.tagOfFirst());
}

void StreamSocket::beginAcknowledged(Time now) {
  acknowledged_ = {0, now};
  noteAcknowledged(undrainedBytes(), now);
}

/// Only growth is progress. The end of the stream, which the system counts as one more byte, may make it look like
/// less.
void StreamSocket::noteAcknowledged(std::uint64_t outstanding, Time now) {
  const std::uint64_t bytes = written_ > outstanding ? written_ - outstanding : 0;
  if (bytes > acknowledged_.bytes) acknowledged_ = {bytes, now};
}

}  // namespace vesko

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

/// Being writable again is no measure: the system says so only once a good part of what it holds is acknowledged, which
/// may take minutes where the way is slow.
void StreamSocket::watchStall(Time& earliest) {
  if (stallTimeout_ < 0 || !writer_.isBlocked()) return;
  if (!nextStallCheck_) {
    const Time now = queue_->clock()->monotonicNow();
    beginAcknowledged(now);
    nextStallCheck_ = now + stallInterval;
  }
  earliest = std::min(earliest, *nextStallCheck_);
}

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
  // What comes next, if anything, begins a time of its own.
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

void StreamSocket::noteAcknowledged(std::uint64_t outstanding, Time now) {
  const std::uint64_t bytes = written_ > outstanding ? written_ - outstanding : 0;
  if (bytes > acknowledged_.bytes) acknowledged_ = {bytes, now};
}

}  // namespace vesko

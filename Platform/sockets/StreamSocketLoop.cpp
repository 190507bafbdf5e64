#include <algorithm>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/SocketCalls.h"
#include "Platform/sockets/StreamSocket.h"

namespace vesko {

namespace {

using Operation = SocketError::Operation;
using Seconds = std::chrono::duration<double>;

/// Bytes, and steps, after which the loop lets other work on its queue have a turn: enough to make the hop cheap, few
/// enough for dozens of transfers to share a queue fairly.
constexpr std::uint64_t turnBytes = 2 * 1024 * 1024;
constexpr int turnSteps = 20'000;

/// How often a connection that waits to write is asked whether anything is still acknowledged.
constexpr std::chrono::seconds stallInterval{1};

}  // namespace

StreamSocket::Time::duration StreamSocket::inTicks(double seconds) {
  return std::chrono::duration_cast<Time::duration>(Seconds(seconds));
}

void StreamSocket::readDataToLength(std::uint64_t length, double timeout, std::int64_t tag) {
  readDataToLength(length, nullptr, timeout, tag);
}

void StreamSocket::readDataToLength(std::uint64_t length, std::shared_ptr<FileHandle> destination, double timeout,
                                    std::int64_t tag) {
  enqueue({length, std::move(destination), std::nullopt, timeout, tag});
}

void StreamSocket::readDataToByte(char last, std::uint64_t maximumLength, double timeout, std::int64_t tag) {
  enqueue({maximumLength, nullptr, last, timeout, tag});
}

void StreamSocket::enqueue(StreamReader::Request request) {
  if (queue_->isCurrent() && loopRunning_) {
    if (state_ != State::closed) reader_.enqueue(std::move(request));
    return;
  }
  onQueue([request = std::move(request)](StreamSocket& self) {
    if (self.state_ == State::closed) return;
    self.reader_.enqueue(request);
    self.scheduleLoop();
  });
}

void StreamSocket::writeData(Data data, double timeout, std::int64_t tag) {
  StreamWriter::Request request{std::move(data), timeout, tag};
  if (queue_->isCurrent() && loopRunning_) {
    if (state_ != State::closed) writer_.enqueue(std::move(request));
    return;
  }
  onQueue([request = std::move(request)](StreamSocket& self) {
    if (self.state_ == State::closed) return;
    self.writer_.enqueue(request);
    self.scheduleLoop();
  });
}

void StreamSocket::scheduleLoop() {
  if (loopRunning_ || std::exchange(loopScheduled_, true)) return;
  queue_->async([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->loopScheduled_ = false;
    self->runLoop();
  });
}

void StreamSocket::runLoop() {
  const auto delegate = delegate_.lock();
  if (state_ != State::connected || !delegate) return;
  const auto keepAlive = shared_from_this();
  loopRunning_ = true;
  std::uint64_t bytes = 0;
  bool moving = true;
  for (int step = 0; moving && step < turnSteps && bytes < turnBytes && state_ == State::connected; ++step) {
    const StreamStep read = stepReader(*delegate);
    const StreamStep written = state_ == State::connected ? stepWriter(*delegate) : StreamStep::idle;
    moving = read >= StreamStep::moved || written >= StreamStep::moved;
    if (read >= StreamStep::moved) bytes += reader_.moved().partialLength;
    if (written >= StreamStep::moved) {
      bytes += writer_.movedLength();
      written_ += writer_.movedLength();
    }
  }
  loopRunning_ = false;
  if (state_ != State::connected) return;
  if (moving) {
    scheduleLoop();
  } else {
    settle();
  }
}

StreamStep StreamSocket::stepReader(GCDAsyncSocketDelegate& delegate) {
  SocketError error;
  const StreamStep step = reader_.step(descriptor_.get(), error);
  const StreamReader::Moved& moved = reader_.moved();
  if (step == StreamStep::moved) {
    delegate.socketDidReadPartialDataOfLength(*this, moved.partialLength, moved.tag);
  } else if (step == StreamStep::completed) {
    readDeadline_.started.reset();
    const Data data = std::move(reader_.moved().data);
    delegate.socketDidReadData(*this, data, moved.tag);
  } else if (step == StreamStep::failed) {
    close(error);
  }
  return step;
}

StreamStep StreamSocket::stepWriter(GCDAsyncSocketDelegate& delegate) {
  SocketError error;
  const StreamStep step = writer_.step(descriptor_.get(), error);
  if (step == StreamStep::moved) {
    if (writer_.movedLength() > 0) {
      delegate.socketDidWritePartialDataOfLength(*this, writer_.movedLength(), writer_.movedTag());
    }
  } else if (step == StreamStep::completed) {
    writeDeadline_.started.reset();
    delegate.socketDidWriteDataWithTag(*this, writer_.movedTag());
  } else if (step == StreamStep::failed) {
    close(error, error.operation == Operation::source);
  }
  return step;
}

void StreamSocket::settle() {
  SocketError error;
  if (!writer_.isBlocked() && writer_.flush(descriptor_.get(), false, error) == StreamStep::failed) {
    close(error);
  } else if (closesAfterWriting_ && writer_.isComplete()) {
    beginDraining();
  } else {
    waitUntilReady();
    watchDeadlines();
  }
}

void StreamSocket::waitUntilReady() {
  if (!reader_.empty()) waitReadable();
  if (writer_.isBlocked()) waitWritable();
}

void StreamSocket::waitReadable() {
  if (std::exchange(waitingToRead_, true)) return;
  source_->whenReadable([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->waitingToRead_ = false;
    if (self->state_ == State::draining) self->drain();
    self->runLoop();
  });
}

void StreamSocket::waitWritable() {
  if (std::exchange(waitingToWrite_, true)) return;
  source_->whenWritable([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->waitingToWrite_ = false;
    self->writer_.unblock();
    SocketError error;
    if (self->state_ == State::draining) {
      self->finishSending();
    } else if (self->writer_.flush(self->descriptor_.get(), false, error) == StreamStep::failed) {
      self->close(error);
    } else {
      self->runLoop();
    }
  });
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
  if (state_ == State::listening) acceptWaiting();
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

}  // namespace vesko

#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/StreamSocket.h"

namespace vesko {

namespace {

using Operation = SocketError::Operation;

/// Bytes, and steps, after which the loop lets other work on its queue have a turn: enough to make the hop cheap, few
/// enough for dozens of transfers to share a queue fairly.
constexpr std::uint64_t turnBytes = 2 * 1024 * 1024;
constexpr int turnSteps = 20'000;

}  // namespace

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

}  // namespace vesko

#include "Platform/sockets/LocalStream.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Platform/process/Assert.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/LocalSocketCalls.h"
#include "Platform/sockets/SocketCalls.h"

namespace vesko {
namespace {

/// Pieces received in one go before other work on the queue gets its turn.
constexpr int receiveBatch = 16;

/// How long a connection may take to send the rest: one that does not read must not be kept for ever.
constexpr std::chrono::seconds lingerTime{2};

}  // namespace

std::shared_ptr<LocalConnection> LocalConnection::connect(const std::string& path, std::shared_ptr<DispatchQueue> queue,
                                                          std::error_code& error) {
  FileDescriptor descriptor = LocalSocketCalls::connect(path, error);
  return error ? nullptr : LocalStream::make(std::move(descriptor), std::move(queue), error);
}

std::shared_ptr<LocalStream> LocalStream::make(FileDescriptor descriptor, std::shared_ptr<DispatchQueue> queue,
                                               std::error_code& error) {
  auto stream = std::make_shared<LocalStream>(std::move(descriptor), std::move(queue));
  stream->source_ = stream->queue_->makeSource(stream->descriptor_.get(), error);
  return error ? nullptr : stream;
}

LocalStream::LocalStream(FileDescriptor descriptor, std::shared_ptr<DispatchQueue> queue)
    : queue_(std::move(queue)), descriptor_(std::move(descriptor)) {}

void LocalStream::later(void (LocalStream::*work)()) {
  queue_->async([weak = weak_from_this(), work] {
    if (const auto self = weak.lock()) (self.get()->*work)();
  });
}

void LocalStream::start(std::size_t lineLimit, std::function<void(std::string)> onLine, std::function<void()> onEnd) {
  queue_->async([weak = weak_from_this(), lineLimit, onLine = std::move(onLine), onEnd = std::move(onEnd)]() mutable {
    const auto self = weak.lock();
    if (!self) return;
    self->lineLimit_ = std::min(lineLimit, maximumLineLength);
    self->onLine_ = std::move(onLine);
    self->onEnd_ = std::move(onEnd);
    if (self->state_ == State::ended) {
      self->onEnd_();
    } else {
      self->receive();
    }
  });
}

void LocalStream::receive() {
  for (int i = 0; i < receiveBatch && state_ == State::open; ++i) {
    if (!receivePiece()) break;
  }
  if (state_ != State::open) return;
  source_->whenReadable([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->receive();
  });
}

bool LocalStream::receivePiece() {
  std::array<char, 16384> buffer;
  std::error_code error;
  const std::size_t count = SocketCalls::receive(descriptor_.get(), buffer, error);
  if (error == std::errc::operation_would_block) return false;
  if (count > 0) {
    takePiece({buffer.data(), count});
    return true;
  }
  // Who has said all it wanted may still be there to read the answers.
  if (!error) (void)sendWaiting();
  end();
  return false;
}

void LocalStream::takePiece(std::string_view piece) {
  while (!piece.empty() && state_ == State::open) {
    const std::size_t length = piece.find('\n');
    const std::string_view part = piece.substr(0, length);
    if (part.size() > lineLimit_ - partialLine_.size()) {
      end();
      return;
    }
    partialLine_ += part;
    if (length == std::string_view::npos) return;
    piece.remove_prefix(length + 1);
    onLine_(std::exchange(partialLine_, {}));
  }
}

void LocalStream::send(std::string line) {
  if (line.find('\n') != std::string::npos) assertionFailure("a line to be sent holds a line feed");
  const std::scoped_lock lock(mutex_);
  if (refusesMore_) return;
  if (line.size() >= maximumLineLength - unsent_) {
    refusesMore_ = true;
    later(&LocalStream::end);
    return;
  }
  waiting_ += line;
  waiting_ += '\n';
  unsent_ += line.size() + 1;
  if (!std::exchange(isFlushing_, true)) later(&LocalStream::flush);
}

void LocalStream::flush() {
  if (awaitsRoom_ || !descriptor_) return;
  const std::error_code error = sendWaiting();
  if (error == std::errc::operation_would_block) {
    awaitsRoom_ = true;
    source_->whenWritable([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      self->awaitsRoom_ = false;
      self->flush();
    });
  } else if (state_ == State::closing) {
    finish(State::closed);
  } else if (error) {
    // The other side has gone, but what it said before is still to be received, and then its end.
    refuseMore();
  }
}

std::error_code LocalStream::sendWaiting() {
  std::error_code error;
  while (!error && takeWaiting()) {
    const std::string_view rest = std::string_view(sending_).substr(sent_);
    const std::size_t count = SocketCalls::send(descriptor_.get(), rest, false, error);
    sent_ += count;
    const std::scoped_lock lock(mutex_);
    unsent_ -= count;
  }
  return error;
}

bool LocalStream::takeWaiting() {
  if (sent_ < sending_.size()) return true;
  const std::scoped_lock lock(mutex_);
  sending_ = std::exchange(waiting_, {});
  sent_ = 0;
  isFlushing_ = !sending_.empty();
  return isFlushing_;
}

void LocalStream::close() {
  refuseMore();
  if (queue_->isCurrent()) {
    finish(State::closed);
  } else {
    later(&LocalStream::finishClosed);
  }
}

void LocalStream::closeAfterSending() {
  refuseMore();
  // Its owner is done with it, so it keeps itself; never longer than the alarm lets it.
  const auto begin = [self = shared_from_this()] {
    if (self->state_ != State::open) return;
    self->state_ = State::closing;
    self->alarm_ =
        self->queue_->clock()->callAfter(lingerTime, [self] { self->queue_->async([self] { self->finishClosed(); }); });
    self->flush();
  };
  if (queue_->isCurrent()) {
    begin();
  } else {
    queue_->async(begin);
  }
}

void LocalStream::end() {
  if (state_ != State::open) {
    finish(State::closed);
    return;
  }
  finish(State::ended);
  if (onEnd_) onEnd_();
}

void LocalStream::finish(State state) {
  state_ = state;
  alarm_.reset();
  source_.reset();
  descriptor_.reset();
  partialLine_ = {};
  sending_ = {};
  sent_ = 0;
  const std::scoped_lock lock(mutex_);
  refusesMore_ = true;
  waiting_ = {};
}

void LocalStream::refuseMore() {
  const std::scoped_lock lock(mutex_);
  refusesMore_ = true;
}

}  // namespace vesko

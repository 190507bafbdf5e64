#include "Platform/sockets/LocalSocket.h"

#include <algorithm>
#include <atomic>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read_until.hpp>
#include <string_view>
#include <utility>

#include "Platform/process/Assert.h"
#include "Platform/queues/QueueFoundation.h"
#include "Platform/sockets/SocketCalls.h"

namespace asio = boost::asio;

namespace vesko {
namespace {

using asio::local::stream_protocol;
using ErrorCode = boost::system::error_code;

/// How long a closing connection may take to send the rest, so that a peer that does not read does not keep it open.
constexpr std::chrono::seconds lingerTime{2};

/// Everything happens on the queue, unless an operation says otherwise. Pending operations own the stream until it is
/// closed.
class LocalStream final : public LocalConnection, public std::enable_shared_from_this<LocalStream> {
 public:
  explicit LocalStream(std::shared_ptr<DispatchQueue> queue) : queue_(std::move(queue)), socket_(executorOf(*queue_)) {}

  [[nodiscard]] std::error_code open(FileDescriptor descriptor) {
    ErrorCode unwatched;
    socket_.assign(stream_protocol(), descriptor.get(), unwatched);
    if (!unwatched) (void)descriptor.release();
    return {unwatched.value(), std::system_category()};
  }

  void start(std::size_t lineLimit, std::function<void(std::string)> onLine, std::function<void()> onEnd) override {
    lineLimit = std::min(lineLimit, maximumLineLength);
    queue_->async([self = shared_from_this(), lineLimit, onLine = std::move(onLine), onEnd = std::move(onEnd)] {
      self->lineLimit_ = lineLimit;
      self->onLine_ = onLine;
      self->onEnd_ = onEnd;
      if (self->state_ == State::open) self->receive();
      if (self->state_ == State::ended) onEnd();
    });
  }

  void send(std::string line) override {
    if (line.find('\n') != std::string::npos) assertionFailure("a line to be sent holds a line feed");
    line += '\n';
    const std::size_t before = unsent_.fetch_add(line.size());
    if (before + line.size() <= maximumLineLength) {
      queue_->async([self = shared_from_this(), line = std::move(line)] { self->take(line); });
    } else if (before <= maximumLineLength) {
      later(&LocalStream::end);
    }
  }

  void close() override {
    if (queue_->isCurrent()) {
      finish();
    } else {
      later(&LocalStream::finish);
    }
  }

  void closeAfterSending() override { later(&LocalStream::linger); }

  /// Its last owner has gone.
  void letGo() { later(&LocalStream::finishUnlessClosing); }

 private:
  enum class State { open, closing, ended, closed };

  /// As a task also on the queue, so that everything is done in the order of the calls, on whatever thread.
  void later(void (LocalStream::*work)()) {
    queue_->async([self = shared_from_this(), work] { (self.get()->*work)(); });
  }

  void receive() {
    asio::async_read_until(
        socket_, asio::dynamic_buffer(received_, lineLimit_ + 1), '\n',
        [self = shared_from_this()](const ErrorCode& error, std::size_t length) { self->onReceived(error, length); });
  }

  void onReceived(const ErrorCode& error, std::size_t length) {
    if (state_ != State::open) return;
    if (error == asio::error::eof) {
      // Who has said all it wanted may still be there to read the answers.
      linger();
      onEnd_();
    } else if (error) {
      end();
    } else {
      std::string line = received_.substr(0, length - 1);
      received_.erase(0, length);
      onLine_(std::move(line));
      if (state_ == State::open) receive();
    }
  }

  void take(const std::string& line) {
    if (state_ != State::open || refusesMore_) {
      unsent_ -= line.size();
      return;
    }
    waiting_ += line;
    write();
  }

  void write() {
    if (isWriting_) return;
    if (rest_.empty()) {
      sending_ = std::exchange(waiting_, {});
      rest_ = sending_;
    }
    if (!rest_.empty()) {
      isWriting_ = true;
      socket_.async_write_some(
          asio::buffer(rest_),
          [self = shared_from_this()](const ErrorCode& error, std::size_t count) { self->onWritten(error, count); });
    } else if (state_ == State::closing) {
      finish();
    }
  }

  void onWritten(const ErrorCode& error, std::size_t count) {
    isWriting_ = false;
    rest_.remove_prefix(count);
    unsent_ -= count;
    if (!socket_.is_open()) return;
    if (error) {
      // The other side has gone, but what it said before is still to be received, and then its end.
      refusesMore_ = true;
      rest_ = {};
      waiting_ = {};
    }
    write();
  }

  /// The connection has ended without a request of this side.
  void end() {
    if (state_ != State::open) return;
    finish();
    state_ = State::ended;
    if (onEnd_) onEnd_();
  }

  void linger() {
    if (state_ != State::open) return;
    state_ = State::closing;
    alarm_ = queue_->clock()->callAfter(lingerTime, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->close();
    });
    write();
  }

  void finishUnlessClosing() {
    if (state_ != State::closing) finish();
  }

  void finish() {
    state_ = State::closed;
    alarm_.reset();
    ErrorCode ignored;  // the descriptor is gone in any case
    socket_.close(ignored);
    waiting_ = {};
  }

  const std::shared_ptr<DispatchQueue> queue_;
  stream_protocol::socket socket_;
  std::unique_ptr<Alarm> alarm_;
  State state_ = State::open;

  std::size_t lineLimit_ = 0;
  std::string received_;
  std::function<void(std::string)> onLine_;
  std::function<void()> onEnd_;

  std::string sending_;
  std::string_view rest_;  // of it, which the system has not taken
  std::string waiting_;    // follows it
  bool isWriting_ = false;
  bool refusesMore_ = false;
  std::atomic<std::size_t> unsent_{0};  // bytes of all that, and of the lines on their way to the queue
};

}  // namespace

std::shared_ptr<LocalConnection> LocalConnection::over(FileDescriptor descriptor, std::shared_ptr<DispatchQueue> queue,
                                                       std::error_code& error) {
  auto stream = std::make_shared<LocalStream>(std::move(queue));
  error = stream->open(std::move(descriptor));
  if (error) return nullptr;
  // The deleter owns the stream and gives it up when it runs. A weak pointer keeps the deleter, but not the stream.
  const auto letGo = [stream](LocalConnection*) mutable { std::exchange(stream, nullptr)->letGo(); };
  return {stream.get(), letGo};
}

std::shared_ptr<LocalConnection> LocalConnection::connect(const std::string& path, std::shared_ptr<DispatchQueue> queue,
                                                          std::error_code& error) {
  FileDescriptor descriptor = SocketCalls::connectLocal(path, error);
  return error ? nullptr : over(std::move(descriptor), std::move(queue), error);
}

}  // namespace vesko

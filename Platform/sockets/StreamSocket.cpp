#include "Platform/sockets/StreamSocket.h"

#include <utility>

#include "Platform/network/IPv4Address.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/AcceptLoop.h"
#include "Platform/sockets/SocketCalls.h"

namespace vesko {

namespace {

using Operation = SocketError::Operation;

}  // namespace

std::shared_ptr<GCDAsyncSocket> GCDAsyncSocket::make(std::weak_ptr<GCDAsyncSocketDelegate> delegate,
                                                     std::shared_ptr<DispatchQueue> delegateQueue) {
  return std::make_shared<StreamSocket>(std::move(delegate), std::move(delegateQueue));
}

StreamSocket::StreamSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate, std::shared_ptr<DispatchQueue> delegateQueue)
    : delegate_(std::move(delegate)), queue_(std::move(delegateQueue)) {}

StreamSocket::~StreamSocket() {
  // A sender takes an orderly end of the connection as the confirmation that everything has arrived.
  if (state_ == State::connected) SocketCalls::resetOnClose(descriptor_.get());
}

void StreamSocket::onQueue(std::function<void(StreamSocket&)> work) {
  if (queue_->isCurrent()) {
    work(*this);
    return;
  }
  queue_->async([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) work(*self);
  });
}

void StreamSocket::setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate) { delegate_ = std::move(delegate); }

std::error_code StreamSocket::open(FileDescriptor descriptor, State state) {
  std::error_code error;
  source_.reset();
  descriptor_ = std::move(descriptor);
  source_ = queue_->makeSource(descriptor_.get(), error);
  state_ = state;
  return error;
}

bool StreamSocket::connectToHost(const std::string& host, std::uint16_t port, double timeout, SocketError& error) {
  error = {};
  if (!parseIPv4(host) || port == 0) {
    error = {Operation::connect, std::make_error_code(std::errc::invalid_argument)};
    return false;
  }
  std::error_code code;
  auto descriptor = std::make_shared<FileDescriptor>(SocketCalls::makeStream(code));
  if (code) {
    error = {Operation::connect, code};
    return false;
  }
  onQueue([descriptor, host, port, timeout](StreamSocket& self) {
    self.host_ = host;
    if (const std::error_code unwatched = self.open(std::move(*descriptor), State::connecting)) {
      self.close({Operation::connect, unwatched});
    } else {
      self.beginConnect(port, timeout);
    }
  });
  return true;
}

/// `connecting` ends in `finishConnect`, when the socket becomes writable, or by the alarm of the time-out.
void StreamSocket::beginConnect(std::uint16_t port, double timeout) {
  std::error_code code;
  SocketCalls::connect(descriptor_.get(), {host_, port}, code);
  if (code && code != std::errc::operation_in_progress) {
    close({Operation::connect, code});
    return;
  }
  if (timeout >= 0) wakeIn(inTicks(timeout));
  source_->whenWritable([weak = weak_from_this(), port] {
    if (const auto self = weak.lock()) self->finishConnect(port);
  });
}

void StreamSocket::finishConnect(std::uint16_t port) {
  if (state_ != State::connecting) return;
  if (const std::error_code code = SocketCalls::connectResult(descriptor_.get())) {
    close({Operation::connect, code});
    return;
  }
  state_ = State::connected;
  alarm_.reset();
  alarmTime_.reset();
  localPort_ = SocketCalls::localPort(descriptor_.get());
  if (const auto delegate = delegate_.lock()) delegate->socketDidConnectToHost(*this, host_, port);
  runLoop();
}

bool StreamSocket::acceptOnPort(std::uint16_t port, SocketError& error) {
  std::error_code code;
  FileDescriptor descriptor = SocketCalls::listen(port, code);
  const std::uint16_t boundPort = SocketCalls::localPort(descriptor.get());
  std::shared_ptr<AcceptLoop> loop;
  if (!code) {
    // Accepted connections inherit this. When this process is killed, the system closes its connections, and a sender
    // takes an orderly end for success. So the default is a reset, and `close` asks for the orderly end.
    SocketCalls::resetOnClose(descriptor.get());
    const auto onConnection = [weak = weak_from_this()](FileDescriptor connection, std::string host) {
      const auto self = weak.lock();
      if (self && self->state_ == State::listening) self->adopt(std::move(connection), std::move(host));
    };
    // Made here and not on the queue, so that the caller gets the error: a listener has no other way to report it.
    loop = AcceptLoop::make(std::move(descriptor), queue_, onConnection, code);
  }
  error = {code ? Operation::listen : Operation::none, code};
  if (code) return false;
  localPort_ = boundPort;
  onQueue([loop](StreamSocket& self) {
    self.state_ = State::listening;
    self.acceptLoop_ = loop;
    loop->start();
  });
  return true;
}

void StreamSocket::adopt(FileDescriptor descriptor, std::string host) {
  const auto delegate = delegate_.lock();
  auto accepted = std::make_shared<StreamSocket>(std::weak_ptr<GCDAsyncSocketDelegate>(), queue_);
  accepted->host_ = std::move(host);
  accepted->localPort_ = SocketCalls::localPort(descriptor.get());
  // A connection that cannot be watched is dropped, which resets it: the sender then knows that nothing was received.
  const std::error_code unwatched = accepted->open(std::move(descriptor), State::connected);
  if (delegate && !unwatched) delegate->socketDidAcceptNewSocket(*this, std::move(accepted));
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

void StreamSocket::disconnect() {
  onQueue([](StreamSocket& self) { self.close({}); });
}

void StreamSocket::disconnectWithReset() {
  onQueue([](StreamSocket& self) { self.close({}, true); });
}

void StreamSocket::disconnectAfterWriting() {
  onQueue([](StreamSocket& self) {
    self.closesAfterWriting_ = true;
    self.scheduleLoop();
  });
}

void StreamSocket::close(const SocketError& error, bool reset) {
  if (state_ == State::fresh || state_ == State::closed) return;
  state_ = State::closed;
  // An orderly end tells the other side that nothing was lost.
  if (reset || error) {
    SocketCalls::resetOnClose(descriptor_.get());
  } else {
    SocketCalls::endOnClose(descriptor_.get());
  }
  alarm_.reset();
  acceptLoop_.reset();
  source_.reset();
  descriptor_.reset();
  reader_.clear();
  writer_.clear();
  // Later, so that a delegate that closes the socket has done its own part before it hears of the end.
  queue_->async([self = shared_from_this(), error] {
    if (const auto delegate = self->delegate_.lock()) delegate->socketDidDisconnect(*self, error);
  });
}

}  // namespace vesko

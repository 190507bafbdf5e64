#include "Platform/sockets/DatagramSocket.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Platform/network/IPv4Address.h"
#include "Platform/queues/DispatchQueue.h"

namespace vesko {

namespace {

using Seconds = std::chrono::duration<double>;

/// Datagrams received, or waiting ones sent, in one go, before other tasks of the queue run.
constexpr int batch = 64;

/// No datagram of IPv4 is longer (RFC 791: a length of 16 bits).
constexpr std::size_t bufferBytes = 64 * 1024;

/// How long sending pauses when the system is short of memory: no event reports the end of that.
constexpr std::chrono::milliseconds shortagePause{10};

/// The longest time-out: thirty years, so that no sum with it exceeds what the clock can count.
constexpr Seconds longestTimeout{1e9};

/// The time at which something with this time-out (seconds; negative: none) has waited too long.
std::chrono::steady_clock::time_point expiry(std::chrono::steady_clock::time_point now, double timeout) {
  if (!(timeout >= 0)) return std::chrono::steady_clock::time_point::max();
  return now + std::chrono::round<std::chrono::steady_clock::duration>(std::min(Seconds(timeout), longestTimeout));
}

bool isShortageOfMemory(const std::error_code& error) {
  return error == std::errc::no_buffer_space || error == std::errc::not_enough_memory;
}

bool isShortage(const std::error_code& error) {
  return error == std::errc::operation_would_block || isShortageOfMemory(error);
}

}  // namespace

std::shared_ptr<GCDAsyncUdpSocket> GCDAsyncUdpSocket::make(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                                                           std::shared_ptr<DispatchQueue> delegateQueue) {
  return std::make_shared<DatagramSocket>(std::move(delegate), std::move(delegateQueue));
}

bool GCDAsyncUdpSocket::getHost(std::string& host, std::uint16_t& port, std::string_view address) {
  auto decoded = SocketCalls::decodedAddress(address);
  if (!decoded) return false;
  host = std::move(decoded->ip);
  port = decoded->port;
  return true;
}

DatagramSocket::DatagramSocket(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                               std::shared_ptr<DispatchQueue> delegateQueue)
    : delegate_(std::move(delegate)), queue_(std::move(delegateQueue)) {}

DatagramSocket::~DatagramSocket() = default;

void DatagramSocket::setIPv6Enabled(bool /*isEnabled*/) {}

void DatagramSocket::openDescriptor(std::error_code& error) {
  error.clear();
  if (state_ == State::closed) error = std::make_error_code(std::errc::not_connected);
  if (!error && !descriptor_) descriptor_ = SocketCalls::makeDatagram(error);
}

bool DatagramSocket::enableBroadcast(bool isEnabled, std::error_code& error) {
  const std::scoped_lock lock(mutex_);
  allowsBroadcast_ = isEnabled;
  openDescriptor(error);
  if (descriptor_) {
    SocketCalls::allowBroadcast(descriptor_.get(), isEnabled, error);
  } else if (state_ != State::closed) {
    error.clear();
  }
  return !error;
}

bool DatagramSocket::bindToPort(std::uint16_t port, std::error_code& error) {
  const std::scoped_lock lock(mutex_);
  if (state_ == State::bound) {
    error = std::make_error_code(std::errc::already_connected);
    return false;
  }
  openDescriptor(error);
  if (!error) SocketCalls::allowBroadcast(descriptor_.get(), allowsBroadcast_, error);
  if (!error) SocketCalls::bind(descriptor_.get(), port, error);
  if (!error) source_ = queue_->makeSource(descriptor_.get(), error);
  if (error) {
    descriptor_.reset();
    return false;
  }
  state_ = State::bound;
  return true;
}

bool DatagramSocket::beginReceiving(std::error_code& error) {
  {
    const std::scoped_lock lock(mutex_);
    error = state_ == State::bound ? std::error_code() : std::make_error_code(std::errc::not_connected);
    if (error || std::exchange(isReceiving_, true)) return !error;
  }
  buffer_.resize(bufferBytes);
  queue_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->receiveWhenReadable();
  });
  return true;
}

void DatagramSocket::receiveWhenReadable() {
  const std::scoped_lock lock(mutex_);
  if (state_ != State::bound) return;
  source_->whenReadable([weak = weak_from_this()] {
    // The socket is kept alive for one datagram at a time: after its delegate has released it, it receives no more.
    for (int i = 0; i < batch; ++i) {
      const auto self = weak.lock();
      if (!self || !self->receiveOne()) break;
    }
    if (const auto self = weak.lock()) self->receiveWhenReadable();
  });
}

/// True when there may be another datagram, be it after one that could not be received.
bool DatagramSocket::receiveOne() {
  std::error_code error;
  std::size_t size = 0;
  {
    const std::scoped_lock lock(mutex_);
    if (state_ != State::bound) return false;
    size = SocketCalls::receiveDatagram(descriptor_.get(), buffer_, sender_, error);
  }
  const auto delegate = delegate_.lock();
  if (!error && delegate) delegate->udpSocketDidReceiveData(*this, {buffer_.data(), size}, sender_);
  return error != std::errc::operation_would_block;
}

void DatagramSocket::sendData(std::string data, const std::string& host, std::uint16_t port, double timeout,
                              std::int64_t tag) {
  const Time now = queue_->clock()->monotonicNow();
  std::error_code error;
  bool mustWait = false;
  {
    const std::scoped_lock lock(mutex_);
    if (state_ == State::closed) return;
    error = sendOrKeep({std::move(data), {host, port}, tag, expiry(now, timeout)});
    mustWait = !unsent_.empty() && !std::exchange(isSendingScheduled_, true);
  }
  if (mustWait) scheduleSending();
  if (error) tell({tag, error});
}

std::error_code DatagramSocket::sendOrKeep(Datagram datagram) {
  if (!parseIPv4(datagram.to.ip)) return std::make_error_code(std::errc::invalid_argument);
  if (state_ != State::bound) return std::make_error_code(std::errc::not_connected);
  if (unsent_.empty()) {
    const std::error_code error = send(datagram);
    if (!isShortage(error)) return error;
  }
  if (unsent_.size() >= unsentLimit) return std::make_error_code(std::errc::no_buffer_space);
  unsent_.push_back(std::move(datagram));
  return {};
}

std::error_code DatagramSocket::send(const Datagram& datagram) {
  std::error_code error;
  SocketCalls::sendDatagram(descriptor_.get(), datagram.data, datagram.to, error);
  return error;
}

void DatagramSocket::scheduleSending() {
  queue_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->sendAgain();
  });
}

void DatagramSocket::sendAgain() {
  std::vector<Failure> failures;
  bool isUnfinished = false;
  {
    const std::scoped_lock lock(mutex_);
    isSendingScheduled_ = false;
    if (state_ != State::bound) return;
    failures = takeExpired();
    const std::error_code shortage = sendUnsent(failures);
    waitForRoom(shortage);
    watchDeadlines(shortage);
    isUnfinished = !unsent_.empty() && !shortage && !std::exchange(isSendingScheduled_, true);
  }
  if (isUnfinished) scheduleSending();
  for (const Failure& failure : failures) tell(failure);
}

std::vector<DatagramSocket::Failure> DatagramSocket::takeExpired() {
  std::vector<Failure> failures;
  const Time now = queue_->clock()->monotonicNow();
  std::erase_if(unsent_, [&](const Datagram& datagram) {
    const bool isExpired = datagram.expires <= now;
    if (isExpired) failures.push_back({datagram.tag, std::make_error_code(std::errc::timed_out)});
    return isExpired;
  });
  return failures;
}

/// Why the first of those that are left has to wait; no error when nothing is left or the turn is over.
std::error_code DatagramSocket::sendUnsent(std::vector<Failure>& failures) {
  for (int i = 0; i < batch && !unsent_.empty(); ++i) {
    const std::error_code error = send(unsent_.front());
    if (isShortage(error)) return error;
    if (error) failures.push_back({unsent_.front().tag, error});
    unsent_.pop_front();
  }
  return {};
}

void DatagramSocket::waitForRoom(const std::error_code& shortage) {
  if (shortage != std::errc::operation_would_block || std::exchange(isWaitingForRoom_, true)) return;
  source_->whenWritable([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    {
      const std::scoped_lock lock(self->mutex_);
      self->isWaitingForRoom_ = false;
    }
    self->sendAgain();
  });
}

void DatagramSocket::watchDeadlines(const std::error_code& shortage) {
  alarm_.reset();
  if (!shortage) return;
  const Time now = queue_->clock()->monotonicNow();
  Time next = isShortageOfMemory(shortage) ? now + shortagePause : Time::max();
  for (const Datagram& datagram : unsent_) next = std::min(next, datagram.expires);
  if (next == Time::max()) return;
  alarm_ = queue_->clock()->callAfter(next - now, [queue = std::weak_ptr(queue_), weak = weak_from_this()] {
    const auto target = queue.lock();
    if (!target) return;
    target->async([weak] {
      if (const auto self = weak.lock()) self->sendAgain();
    });
  });
}

void DatagramSocket::tell(const Failure& failure) {
  queue_->async([weak = weak_from_this(), failure] {
    const auto self = weak.lock();
    const auto delegate = self ? self->delegate_.lock() : nullptr;
    if (!delegate) return;
    {
      const std::scoped_lock lock(self->mutex_);
      if (self->state_ == State::closed) return;
    }
    delegate->udpSocketDidNotSendDataWithTag(*self, failure.tag, failure.error);
  });
}

void DatagramSocket::close() {
  const std::scoped_lock lock(mutex_);
  state_ = State::closed;
  unsent_.clear();
  alarm_.reset();
  source_.reset();
  descriptor_.reset();
}

std::uint16_t DatagramSocket::localPort() const {
  const std::scoped_lock lock(mutex_);
  return state_ == State::bound ? SocketCalls::localPort(descriptor_.get()) : std::uint16_t{0};
}

}  // namespace vesko

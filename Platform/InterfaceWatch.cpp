#include "Platform/InterfaceWatch.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <mutex>
#include <utility>

#include "Platform/DispatchQueue.h"
#include "Platform/DispatchSource.h"
#include "Platform/FileDescriptor.h"
#include "Platform/SocketCalls.h"
#include "Platform/SystemError.h"

namespace vesko {
namespace {

/// Messages read in one go before other work on the queue gets its turn: more than the system's own buffer holds.
constexpr int batch = 1024;

FileDescriptor subscribe(std::error_code& error) {
  error.clear();
  FileDescriptor descriptor(::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
  if (!descriptor || ::bind(descriptor.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    error = lastSystemError();
  }
  return descriptor;
}

/// The part of a watch that its handlers share with it: they may still be under way when the watch is destroyed.
class Subscription : public std::enable_shared_from_this<Subscription> {
 public:
  explicit Subscription(std::function<void()> onChange) : onChange_(std::move(onChange)) {}

  void start(DispatchQueue& queue, std::error_code& error) {
    descriptor_ = subscribe(error);
    if (!error) source_ = queue.makeSource(descriptor_.get(), error);
    if (error) return;
    queue.async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->wait();
    });
  }

  void stop() {
    const std::scoped_lock lock(mutex_);
    source_.reset();
    descriptor_.reset();
  }

 private:
  void wait() {
    const std::scoped_lock lock(mutex_);
    if (!source_) return;
    source_->whenReadable([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      if (self->takeMessages()) self->onChange_();
      self->wait();
    });
  }

  /// True when there were any. What they say does not matter, so that the buffer may cut them short; and when the
  /// system had no room for some, that tells of changes as well.
  bool takeMessages() {
    const std::scoped_lock lock(mutex_);
    std::array<char, 256> beginning;
    bool isAny = false;
    for (int i = 0; i < batch && source_; ++i) {
      std::error_code error;
      static_cast<void>(SocketCalls::receive(descriptor_.get(), beginning, error));
      if (error && error != std::errc::no_buffer_space) break;
      isAny = true;
    }
    return isAny;
  }

  const std::function<void()> onChange_;
  std::mutex mutex_;  // guards what follows
  FileDescriptor descriptor_;
  std::unique_ptr<DispatchSource> source_;  // after the descriptor, which must outlive it
};

class RouteWatch final : public InterfaceWatch {
 public:
  explicit RouteWatch(std::shared_ptr<Subscription> subscription) : subscription_(std::move(subscription)) {}
  ~RouteWatch() override { subscription_->stop(); }

 private:
  const std::shared_ptr<Subscription> subscription_;
};

}  // namespace

std::unique_ptr<InterfaceWatch> InterfaceWatch::make(std::shared_ptr<DispatchQueue> queue,
                                                     std::function<void()> onChange, std::error_code& error) {
  auto subscription = std::make_shared<Subscription>(std::move(onChange));
  subscription->start(*queue, error);
  return error ? nullptr : std::make_unique<RouteWatch>(std::move(subscription));
}

}  // namespace vesko

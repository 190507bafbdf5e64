#include "Platform/network/InterfaceWatch.h"

#include <mutex>
#include <optional>
#include <utility>

#include "Platform/network/InterfaceChanges.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/queues/DispatchSource.h"

namespace vesko {
namespace {

/// The part of a watch that its handlers share with it: they may still be under way when the watch is destroyed.
class Subscription : public std::enable_shared_from_this<Subscription> {
 public:
  explicit Subscription(std::function<void()> onChange) : onChange_(std::move(onChange)) {}

  void start(DispatchQueue& queue, std::error_code& error) {
    changes_.emplace(error);
    if (!error) source_ = queue.makeSource(changes_->descriptor(), error);
    if (error) return;
    queue.async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->wait();
    });
  }

  void stop() {
    const std::scoped_lock lock(mutex_);
    source_.reset();
    changes_.reset();
  }

 private:
  void wait() {
    const std::scoped_lock lock(mutex_);
    if (!source_) return;
    source_->whenReadable([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      if (self->takeChanges()) self->onChange_();
      self->wait();
    });
  }

  /// The lock is not held while `onChange` runs: that may destroy the watch, which takes the lock in `stop`.
  [[nodiscard]] bool takeChanges() {
    const std::scoped_lock lock(mutex_);
    return changes_ && changes_->take();
  }

  const std::function<void()> onChange_;
  std::mutex mutex_;  // guards what follows
  std::optional<InterfaceChanges> changes_;
  std::unique_ptr<DispatchSource> source_;  // after their descriptor, which must outlive it
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

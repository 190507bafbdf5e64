#pragma once

#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include "Platform/queues/Clock.h"

namespace vesko {

class DispatchSource;

/// Where tasks run. Every operation may be called on any thread.
///
/// A serial queue runs its tasks one at a time, in the order they were given, each seeing everything the one before it
/// wrote. Unless they have threads of their own, the serial queues and the global queue share one small pool of them;
/// tasks must not throw.
class DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
 public:
  using Task = std::function<void()>;

  virtual ~DispatchQueue() = default;
  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  /// A new serial queue. It lives until its last owner and its last task are gone. This and the next two throw
  /// `std::system_error` when the system has no thread or no descriptors left for it; of the pool only the first to
  /// need it.
  [[nodiscard]] static std::shared_ptr<DispatchQueue> serial(std::string label,
                                                             std::shared_ptr<Clock> clock = Clock::system());

  /// The same with a thread of its own: for many small events that come one by one. The threads of the pool wake each
  /// other for every one of them, which takes more of the processor than what they do about it.
  [[nodiscard]] static std::shared_ptr<DispatchQueue> serialWithThread(std::string label,
                                                                       std::shared_ptr<Clock> clock = Clock::system());

  /// The queue whose tasks run side by side on the pool, in no order.
  [[nodiscard]] static const std::shared_ptr<DispatchQueue>& global();

  /// Gives a task to the queue and returns at once.
  virtual void async(Task task) = 0;

  /// True when the caller is running as a task of this queue.
  [[nodiscard]] virtual bool isCurrent() const noexcept = 0;

  /// A source of readiness events for a non-blocking socket `descriptor`, which stays its owner's and must outlive the
  /// source. None, with `error` set, when the system cannot watch it. Requires: a serial queue.
  [[nodiscard]] virtual std::unique_ptr<DispatchSource> makeSource(int descriptor, std::error_code& error) = 0;

  [[nodiscard]] const std::string& label() const noexcept { return label_; }
  [[nodiscard]] const std::shared_ptr<Clock>& clock() const noexcept { return clock_; }

 protected:
  DispatchQueue(std::string label, std::shared_ptr<Clock> clock) : label_(std::move(label)), clock_(std::move(clock)) {}

 private:
  std::string label_;
  std::shared_ptr<Clock> clock_;
};

}  // namespace vesko

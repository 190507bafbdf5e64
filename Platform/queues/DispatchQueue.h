#pragma once

#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include "Platform/queues/Clock.h"

namespace vesko {

class DispatchSource;

/// A queue of tasks. Every operation may be called on any thread.
///
/// A serial queue runs its tasks one at a time, in the order they were given; each task sees everything that the one
/// before it wrote, so data used on one serial queue only needs no lock. All queues share a small pool of threads, but
/// for those made by `serialWithThread` and for the main queue (see `MainQueue`). Tasks must not throw.
class DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
 public:
  using Task = std::function<void()>;

  virtual ~DispatchQueue() = default;
  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  /// A new serial queue on the shared threads. `label`: for people only. `clock`: see `Clock`. It lives until its last
  /// owner and its last task are gone. This and the next two throw `std::system_error` when the system has no thread or
  /// no descriptors left; as for the shared threads, only the first call that needs them.
  [[nodiscard]] static std::shared_ptr<DispatchQueue> serial(std::string label,
                                                             std::shared_ptr<Clock> clock = Clock::system());

  /// A new serial queue with a thread of its own. It suits many small events that come one by one: the shared threads
  /// wake each other for every such event, which takes more processor time than handling it.
  [[nodiscard]] static std::shared_ptr<DispatchQueue> serialWithThread(std::string label,
                                                                       std::shared_ptr<Clock> clock = Clock::system());

  /// The queue whose tasks run on the shared threads in parallel, in no particular order.
  [[nodiscard]] static const std::shared_ptr<DispatchQueue>& global();

  /// Adds a task to the queue and returns at once.
  virtual void async(Task task) = 0;

  /// True when called from inside a task of this queue.
  [[nodiscard]] virtual bool isCurrent() const noexcept = 0;

  /// A source that tells when the non-blocking socket `descriptor` can be read or written. The caller keeps the
  /// descriptor open for as long as the source lives. None, with `error` set, when the system cannot watch it.
  /// Requires: a serial queue.
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

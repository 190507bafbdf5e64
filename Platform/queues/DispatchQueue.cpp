#include "Platform/queues/DispatchQueue.h"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "Platform/queues/QueueFoundation.h"

namespace asio = boost::asio;

namespace vesko {

namespace {

using Strand = asio::strand<asio::io_context::executor_type>;

/// Waits for a descriptor on the threads of a context; on a queue with a strand the handler runs right there, without a
/// second hop.
class ContextSource final : public DispatchSource {
 public:
  ContextSource(std::shared_ptr<DispatchQueue> queue, asio::io_context& context, std::optional<Strand> strand)
      : queue_(std::move(queue)), strand_(std::move(strand)), descriptor_(context) {}

  ~ContextSource() override { descriptor_.release(); }

  static std::unique_ptr<DispatchSource> make(std::shared_ptr<DispatchQueue> queue, asio::io_context& context,
                                              std::optional<Strand> strand, int descriptor, std::error_code& error) {
    auto source = std::make_unique<ContextSource>(std::move(queue), context, std::move(strand));
    boost::system::error_code code;
    source->descriptor_.assign(descriptor, code);
    error.assign(code.value(), std::generic_category());
    return code ? nullptr : std::move(source);
  }

  void whenReadable(std::function<void()> handler) override {
    wait(asio::posix::stream_descriptor::wait_read, std::move(handler));
  }
  void whenWritable(std::function<void()> handler) override {
    wait(asio::posix::stream_descriptor::wait_write, std::move(handler));
  }

 private:
  void wait(asio::posix::stream_descriptor::wait_type type, std::function<void()> handler) {
    auto guarded = [alive = std::weak_ptr<const bool>(alive_), handler = std::move(handler)] {
      if (!alive.expired()) handler();
    };
    if (strand_) {
      descriptor_.async_wait(type, asio::bind_executor(*strand_, [guarded = std::move(guarded)](const auto& error) {
                               if (error != asio::error::operation_aborted) guarded();
                             }));
    } else {
      descriptor_.async_wait(type, [queue = queue_, guarded = std::move(guarded)](const auto& error) {
        if (error != asio::error::operation_aborted) queue->async(guarded);
      });
    }
  }

  std::shared_ptr<DispatchQueue> queue_;
  std::optional<Strand> strand_;
  asio::posix::stream_descriptor descriptor_;
  std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

class SerialQueue final : public DispatchQueue {
 public:
  SerialQueue(std::string label, std::shared_ptr<Clock> clock, std::shared_ptr<asio::io_context> context)
      : DispatchQueue(std::move(label), std::move(clock)),
        context_(std::move(context)),
        work_(asio::make_work_guard(*context_)),
        strand_(asio::make_strand(*context_)) {}

  void async(Task task) override { asio::post(strand_, std::move(task)); }
  bool isCurrent() const noexcept override { return strand_.running_in_this_thread(); }
  std::unique_ptr<DispatchSource> makeSource(int descriptor, std::error_code& error) override {
    return ContextSource::make(shared_from_this(), *context_, strand_, descriptor, error);
  }
  [[nodiscard]] const Strand& strand() const noexcept { return strand_; }

 private:
  const std::shared_ptr<asio::io_context> context_;  // before what belongs to it
  asio::executor_work_guard<asio::io_context::executor_type> work_;
  Strand strand_;
};

class GlobalQueue final : public DispatchQueue {
 public:
  GlobalQueue() : DispatchQueue("global", Clock::system()) {}

  void async(Task task) override { asio::post(*poolContext(), std::move(task)); }
  bool isCurrent() const noexcept override { return poolContext()->get_executor().running_in_this_thread(); }
  std::unique_ptr<DispatchSource> makeSource(int descriptor, std::error_code& error) override {
    return poolSource(shared_from_this(), descriptor, error);
  }
};

}  // namespace

std::unique_ptr<DispatchSource> poolSource(std::shared_ptr<DispatchQueue> queue, int descriptor,
                                           std::error_code& error) {
  return ContextSource::make(std::move(queue), *poolContext(), std::nullopt, descriptor, error);
}

std::shared_ptr<DispatchQueue> queueOn(std::shared_ptr<asio::io_context> context, std::string label,
                                       std::shared_ptr<Clock> clock) {
  // The machine's clock calls on threads of the pool. They are started now: later the system may have none left.
  (void)poolContext();
  return std::make_shared<SerialQueue>(std::move(label), std::move(clock), std::move(context));
}

asio::any_io_executor executorOf(DispatchQueue& queue) { return dynamic_cast<SerialQueue&>(queue).strand(); }

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label, std::shared_ptr<Clock> clock) {
  return queueOn(poolContext(), std::move(label), std::move(clock));
}

std::shared_ptr<DispatchQueue> DispatchQueue::serialWithThread(std::string label, std::shared_ptr<Clock> clock) {
  constexpr int onlyThread = 1;
  auto context = std::make_shared<asio::io_context>(onlyThread);
  openDescriptors(*context);
  auto queue = queueOn(context, std::move(label), std::move(clock));
  // It ends when the queue and the last of its work are gone.
  std::thread([context = std::move(context)] {
    blockWriteSignals();
    context->run();
  }).detach();
  return queue;
}

const std::shared_ptr<DispatchQueue>& DispatchQueue::global() {
  static const auto* queue = new std::shared_ptr<DispatchQueue>(std::make_shared<GlobalQueue>());
  return *queue;
}

}  // namespace vesko

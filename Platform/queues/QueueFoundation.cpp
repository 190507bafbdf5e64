#include "Platform/queues/QueueFoundation.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/system_error.hpp>
#include <system_error>
#include <thread>

namespace asio = boost::asio;

namespace vesko {

namespace {

/// The threads behind all queues but those with one of their own. Like the shared queues and the clock it is never
/// destroyed: tasks may be under way while the process ends.
class Pool {
 public:
  static Pool& shared() {
    static Pool* pool = new Pool;
    return *pool;
  }

  const std::shared_ptr<asio::io_context>& context() const noexcept { return context_; }

 private:
  Pool() : work_(asio::make_work_guard(*context_)) {
    openDescriptors(*context_);
    // Two at least, so that one queue's slow disk does not keep every other queue waiting.
    const unsigned threads = std::clamp(std::thread::hardware_concurrency(), 2U, 4U);
    for (unsigned i = 0; i < threads; ++i) {
      // When the system has no further thread, the constructor throws, and the threads made so far end with the pool.
      std::thread([context = context_] {
        blockWriteSignals();
        context->run();
      }).detach();
    }
  }

  const std::shared_ptr<asio::io_context> context_ = std::make_shared<asio::io_context>();
  asio::executor_work_guard<asio::io_context::executor_type> work_;
};

}  // namespace

const std::shared_ptr<asio::io_context>& poolContext() { return Pool::shared().context(); }

void openDescriptors(asio::io_context& context) {
  try {
    const asio::steady_timer first(context);
  } catch (const boost::system::system_error& error) {
    throw std::system_error(error.code().value(), std::generic_category(), "an event loop");
  }
}

void blockWriteSignals() noexcept {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  sigaddset(&signals, SIGXFSZ);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace vesko

#include "Platform/http/SelectorEventLoop.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <mutex>
#include <thread>

#include "Platform/http/SelectorEventLoopContext.h"
#include "Platform/process/Assert.h"
#include "Platform/queues/QueueFoundation.h"

namespace asio = boost::asio;

namespace vesko {

struct SelectorEventLoop::Context {
  asio::io_context io{1};
  asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(io);
  std::mutex mutex;  // of the thread's start and end
  std::thread thread;
};

SelectorEventLoop::SelectorEventLoop() : context_(std::make_unique<Context>()) { openDescriptors(context_->io); }

SelectorEventLoop::~SelectorEventLoop() { stop(); }

void SelectorEventLoop::runForever() {
  const std::scoped_lock lock(context_->mutex);
  if (context_->thread.joinable()) return;
  context_->thread = std::thread([&io = context_->io] {
    blockWriteSignals();
    io.run();
  });
}

void SelectorEventLoop::stop() {
  context_->io.stop();
  if (context_->io.get_executor().running_in_this_thread()) {
    // Waiting for oneself would never end.
    fatalError("SelectorEventLoop: stopped or destroyed on its own thread");
  }
  const std::scoped_lock lock(context_->mutex);
  if (context_->thread.joinable()) context_->thread.join();
}

asio::io_context& contextOf(SelectorEventLoop& loop) noexcept { return loop.context().io; }

}  // namespace vesko

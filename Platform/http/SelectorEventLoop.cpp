#include "Platform/http/SelectorEventLoop.h"

#include <boost/asio/io_context.hpp>
#include <mutex>
#include <thread>
#include <utility>

#include "Platform/http/SelectorEventLoopContext.h"
#include "Platform/process/Assert.h"
#include "Platform/queues/QueueFoundation.h"

namespace asio = boost::asio;

namespace vesko {

struct SelectorEventLoop::Context {
  explicit Context(std::shared_ptr<asio::io_context> shared)
      : io(std::move(shared)), queue(queueOn(io, "selector event loop", Clock::system())) {}

  const std::shared_ptr<asio::io_context> io;
  const std::shared_ptr<DispatchQueue> queue;  // keeps the loop running
  std::mutex mutex;                            // of the thread's start and end
  std::thread thread;
};

SelectorEventLoop::SelectorEventLoop() {
  constexpr int onlyThread = 1;
  auto io = std::make_shared<asio::io_context>(onlyThread);
  openDescriptors(*io);
  context_ = std::make_unique<Context>(std::move(io));
}

SelectorEventLoop::~SelectorEventLoop() { stop(); }

void SelectorEventLoop::runForever() {
  const std::scoped_lock lock(context_->mutex);
  if (context_->thread.joinable()) return;
  context_->thread = std::thread([io = context_->io] {
    blockWriteSignals();
    io->run();
  });
}

void SelectorEventLoop::stop() {
  context_->io->stop();
  if (context_->io->get_executor().running_in_this_thread()) {
    // Waiting for oneself would never end.
    fatalError("SelectorEventLoop: stopped or destroyed on its own thread");
  }
  const std::scoped_lock lock(context_->mutex);
  if (context_->thread.joinable()) context_->thread.join();
}

asio::io_context& contextOf(SelectorEventLoop& loop) noexcept { return *loop.context().io; }

const std::shared_ptr<DispatchQueue>& queueOf(SelectorEventLoop& loop) noexcept { return loop.context().queue; }

}  // namespace vesko

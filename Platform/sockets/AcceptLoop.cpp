#include "Platform/sockets/AcceptLoop.h"

#include <utility>

#include "Platform/process/SystemError.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/SocketCalls.h"

namespace vesko {

namespace {

/// Accepted in one go before other work on the queue gets its turn. Well below the connections that any service holds,
/// so that those accepted last do not make the first leave before they were looked at.
constexpr int turn = 64;

constexpr std::chrono::milliseconds pause{100};

}  // namespace

std::shared_ptr<AcceptLoop> AcceptLoop::make(FileDescriptor listening, std::shared_ptr<DispatchQueue> queue,
                                             OnConnection onConnection, std::error_code& error) {
  auto loop = std::make_shared<AcceptLoop>(std::move(listening), std::move(queue), std::move(onConnection));
  loop->source_ = loop->queue_->makeSource(loop->listening_.get(), error);
  return error ? nullptr : loop;
}

AcceptLoop::AcceptLoop(FileDescriptor listening, std::shared_ptr<DispatchQueue> queue, OnConnection onConnection)
    : queue_(std::move(queue)), onConnection_(std::move(onConnection)), listening_(std::move(listening)) {}

void AcceptLoop::start() { queue_->async(whileOwned(&AcceptLoop::accept)); }

std::function<void()> AcceptLoop::whileOwned(void (AcceptLoop::*work)()) {
  return [weak = weak_from_this(), work] {
    if (const auto self = weak.lock()) (self.get()->*work)();
  };
}

void AcceptLoop::accept() {
  std::error_code error;
  for (int i = 0; i < turn; ++i) {
    std::string ip;
    FileDescriptor connection = SocketCalls::accept(listening_.get(), ip, error);
    // Other errors may be those of one connection, and the next one is fine.
    if (error == std::errc::operation_would_block || isShortageOfResources(error)) break;
    if (connection) onConnection_(std::move(connection), std::move(ip));
  }
  if (error && error != std::errc::operation_would_block) {
    alarm_ = queue_->clock()->callAfter(pause, whileOwned(&AcceptLoop::start));
  } else {
    source_->whenReadable(whileOwned(&AcceptLoop::accept));
  }
}

}  // namespace vesko

#include "Platform/sockets/AcceptLoop.h"

#include <utility>

#include "Platform/process/SystemError.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/SocketCalls.h"

namespace vesko {

namespace {

/// Connections accepted in one go, before other tasks of the queue run. Far fewer than any service keeps, so that the
/// last of them do not push out the first before those were read from.
constexpr int turn = 64;

/// After a shortage. The connection stays in the system's backlog and the listening socket stays readable, so without a
/// pause the loop would use a whole processor until a descriptor is free.
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
    // Any other error belongs to the one connection that is accepted (accept(2)); the next one may be fine.
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

#include <algorithm>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "VeskoKit/IncomingTransferRoom.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {

namespace {

/// Letters and digits in the key of an incoming transfer: so many that no key occurs twice.
constexpr std::int64_t keyLength = 32;

}  // namespace

/// The delegate of the listening socket. It holds the service weakly: a connection may still arrive while the service
/// is being destroyed.
class VeskoServer::SocketEvents final : public GCDAsyncSocketDelegate {
 public:
  explicit SocketEvents(std::weak_ptr<VeskoServer> server) : server_(std::move(server)) {}

  void socketDidAcceptNewSocket(GCDAsyncSocket& listener, std::shared_ptr<GCDAsyncSocket> newSocket) override {
    if (const auto server = server_.lock()) server->socketDidAcceptNewSocket(listener, std::move(newSocket));
  }

 private:
  std::weak_ptr<VeskoServer> server_;
};

void VeskoServer::startListener() {
  if (boundTcpPort() != 0) return;
  events_ = std::make_shared<SocketEvents>(weak_from_this());
  listenSocket_ = GCDAsyncSocket::make(events_, incomingQueue_);
  SocketError error;
  if (listenSocket_->acceptOnPort(localTcpPort, error)) return;
  showFailure({"tcp",
               "Our cute veskos cannot put their ears on the TCP port 4644 so they cannot learn any new secrets.",
               error.code});
}

void VeskoServer::socketDidAcceptNewSocket(GCDAsyncSocket& /*listener*/, std::shared_ptr<GCDAsyncSocket> newSocket) {
  VeskoIncomingTransferSettings settings{downloadsFolder, keepPartial, maximumIncomingSize, nullptr, nullptr};
  std::shared_ptr<VeskoIncomingTransferDelegate> delegate;
  {
    const std::scoped_lock lock(mutex_);
    delegate = incomingDelegate_;
    settings.outcomeDelegate = incomingOutcomeDelegate_;
    settings.guard = incomingGuard_;
  }
  if (settings.guard && !settings.guard->admitsConnectionFrom(newSocket->connectedHost())) {
    // The sender would take an orderly close for the confirmation that everything was stored.
    newSocket->disconnectWithReset();
    return;
  }
  incomingRoom_->makePlace(maximumIncomingTransfers);
  auto transfer = makeIncomingTransfer(std::move(newSocket), generateRandomStringWithLength(keyLength),
                                       std::move(delegate), std::move(settings));
  incomingRoom_->admit(transfer);
  const std::scoped_lock lock(mutex_);
  pendingIncomingTransfers_.push_back(std::move(transfer));
}

std::shared_ptr<VeskoIncomingTransfer> VeskoServer::makeIncomingTransfer(
    std::shared_ptr<GCDAsyncSocket> socket, std::string key, std::shared_ptr<VeskoIncomingTransferDelegate> delegate,
    VeskoIncomingTransferSettings settings) {
  return VeskoIncomingTransfer::make(std::move(socket), std::move(key), std::move(delegate), incomingQueue_,
                                     std::move(settings));
}

void VeskoServer::startTransfer(const std::shared_ptr<VeskoTransfer>& transfer) {
  transfer->start();
  const std::scoped_lock lock(mutex_);
  pendingTransfers_.push_back(transfer);
}

void VeskoServer::pruneFinishedTransfers() {
  // Declared before the lock and so destroyed after it: observers that are destroyed with their transfers may use this
  // service.
  std::vector<std::shared_ptr<VeskoTransfer>> sent;
  std::vector<std::shared_ptr<VeskoIncomingTransfer>> received;
  const auto moveEnded = [](auto& transfers, auto& ended) {
    const auto first = std::stable_partition(transfers.begin(), transfers.end(),
                                             [](const auto& transfer) { return !transfer->hasEnded(); });
    ended.assign(first, transfers.end());
    transfers.erase(first, transfers.end());
  };
  const std::scoped_lock lock(mutex_);
  moveEnded(pendingTransfers_, sent);
  moveEnded(pendingIncomingTransfers_, received);
}

}  // namespace vesko

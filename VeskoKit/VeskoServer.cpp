#include "VeskoKit/VeskoServer.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <iostream>
#include <utility>

#include "Platform/files/FileManager.h"
#include "Platform/http/SelectorEventLoop.h"
#include "Platform/network/OwnAddresses.h"
#include "Platform/process/DescriptorLimit.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "Platform/sockets/GCDAsyncUdpSocket.h"
#include "Platform/user/NSApp.h"
#include "VeskoKit/AvatarEndpoint.h"
#include "VeskoKit/AvatarFetches.h"
#include "VeskoKit/IncomingTransferRoom.h"
#include "VeskoKit/RandomText.h"
#include "VeskoKit/ReceivedItemStorage.h"

namespace vesko {

namespace {

/// Descriptors that one transfer holds at most: connection, file, three folders, the two ends of a pipe, and one more
/// for a moment. Few use all at the same time, which leaves some for the rest of the process.
constexpr std::uint64_t descriptorsForTransfer = 8;

/// More than people start at the same time, and few enough to look at all of them for each new connection.
constexpr std::uint64_t mostIncomingTransfers = 512;

/// The start waits at most this long for the sweep, which then goes on in the background. There is usually little to
/// remove, but hundreds of thousands of files, or a slow disk, must not delay discovery.
constexpr std::chrono::seconds sweepPatience{1};

}  // namespace

VeskoServer::VeskoServer() : VeskoServer(defaultPort, defaultPort) {}

VeskoServer::VeskoServer(std::uint16_t udpPort, std::uint16_t tcpPort, std::shared_ptr<Clock> clock)
    : localTcpPort(tcpPort),
      localUdpPort(udpPort),
      maximumIncomingTransfers(
          std::clamp<std::uint64_t>(DescriptorLimit::current() / descriptorsForTransfer, 1, mostIncomingTransfers)),
      broadcastQueue_(DispatchQueue::serialWithThread("broadcast", clock ? clock : Clock::system())),
      incomingQueue_(DispatchQueue::serial("incoming", broadcastQueue_->clock())),
      removalQueue_(DispatchQueue::serialWithThread("removal")),
      incomingRoom_(std::make_shared<IncomingTransferRoom>(removalQueue_)),
      ownAddresses_(std::make_unique<OwnAddresses>()) {
  makeAvatarEndpoint();
}

/// The handlers of the loop use members that are about to be destroyed.
VeskoServer::~VeskoServer() { loop_->stop(); }

void VeskoServer::startServer() {
  failedEndpoints_.clear();
  sweepStorage();
  openDiscovery();
  startAvatarEndpoint();
  startListener();
  loop_->runForever();
}

void VeskoServer::startDiscovery() {
  failedEndpoints_.clear();
  openDiscovery();
  loop_->runForever();
}

/// The promise is shared with the task, which may run longer than this function.
void VeskoServer::sweepStorage() const {
  std::error_code error;
  const std::string folder = downloadsFolder.empty() ? FileManager::downloadsDirectory(error) : downloadsFolder;
  if (error) return;
  const auto swept = std::make_shared<std::promise<void>>();
  removalQueue_->async([folder, swept] {
    ReceivedItemStorage::sweep(folder);
    swept->set_value();
  });
  (void)swept->get_future().wait_for(sweepPatience);
}

/// Added to the list first: the alert runs the host's event loop, and code that runs there may ask for the list.
void VeskoServer::showFailure(const VeskoFailedEndpoint& failure) {
  failedEndpoints_.push_back(failure);
  if (application) {
    application->runModal(failure.message);
    application->terminate();
  } else {
    std::cerr << failure.message << std::endl;
  }
}

std::string VeskoServer::generateRandomStringWithLength(std::int64_t length) const {
  return vesko::generateRandomStringWithLength(length);
}

std::uint16_t VeskoServer::boundTcpPort() const { return listenSocket_ ? listenSocket_->localPort() : 0; }

// The setters swap, so that the old observer is destroyed with the argument, after the lock was released: its
// destructor may use this service.

void VeskoServer::setDelegate(std::shared_ptr<VeskoPeerDiscoveryDelegate> delegate) {
  const std::scoped_lock lock(mutex_);
  delegate_.swap(delegate);
}

std::shared_ptr<VeskoPeerDiscoveryDelegate> VeskoServer::delegate() const {
  const std::scoped_lock lock(mutex_);
  return delegate_;
}

void VeskoServer::setIncomingDelegate(std::shared_ptr<VeskoIncomingTransferDelegate> delegate) {
  const std::scoped_lock lock(mutex_);
  incomingDelegate_.swap(delegate);
}

std::shared_ptr<VeskoIncomingTransferDelegate> VeskoServer::incomingDelegate() const {
  const std::scoped_lock lock(mutex_);
  return incomingDelegate_;
}

void VeskoServer::setIncomingOutcomeDelegate(std::shared_ptr<VeskoTransferOutcomeDelegate> delegate) {
  const std::scoped_lock lock(mutex_);
  incomingOutcomeDelegate_.swap(delegate);
}

void VeskoServer::setIncomingGuard(std::shared_ptr<VeskoIncomingTransferGuard> guard) {
  const std::scoped_lock lock(mutex_);
  incomingGuard_.swap(guard);
}

std::vector<std::shared_ptr<VeskoTransfer>> VeskoServer::pendingTransfers() const {
  const std::scoped_lock lock(mutex_);
  return pendingTransfers_;
}

std::vector<std::shared_ptr<VeskoIncomingTransfer>> VeskoServer::pendingIncomingTransfers() const {
  const std::scoped_lock lock(mutex_);
  return pendingIncomingTransfers_;
}

}  // namespace vesko

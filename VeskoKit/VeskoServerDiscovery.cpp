#include <utility>

#include "Platform/process/Assert.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncUdpSocket.h"
#include "VeskoKit/DiscoveryDatagram.h"
#include "VeskoKit/Log.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {

namespace {

/// Seconds that a datagram may wait for the system to take it; then it is dropped, because what it says is out of date.
constexpr double sendTimeout = 5.0;

constexpr std::int64_t sendTag = 0;

/// The time that `VeskoServer::maximumAnswers` applies to.
constexpr std::chrono::seconds answerWindow{1};

/// Bytes of the peer table in a log line, before escaping: enough for the table of a large network. A line about
/// thousands of peers after each datagram would take longer to write than the datagrams take to arrive.
constexpr std::size_t maximumLogged = 16 * 1024;

/// True for an address of 0.0.0.0/8 (RFC 6890). Datagrams can come from there, but an answer would stay on this
/// machine, which would then take itself for a peer.
bool isNobody(std::string_view address) { return address.starts_with("0."); }

}  // namespace

/// The delegate of the discovery socket. It holds the service weakly: a datagram may still arrive while the service is
/// being destroyed.
class VeskoServer::DatagramEvents final : public GCDAsyncUdpSocketDelegate {
 public:
  explicit DatagramEvents(std::weak_ptr<VeskoServer> server) : server_(std::move(server)) {}

  void udpSocketDidReceiveData(GCDAsyncUdpSocket& /*socket*/, std::string_view data,
                               std::string_view address) override {
    if (const auto server = server_.lock()) server->udpSocketDidReceiveData(data, address);
  }

 private:
  std::weak_ptr<VeskoServer> server_;
};

void VeskoServer::openDiscovery() {
  if (udpSocket_) return;
  datagramEvents_ = std::make_shared<DatagramEvents>(weak_from_this());
  udpSocket_ = GCDAsyncUdpSocket::make(datagramEvents_, broadcastQueue_);
  udpSocket_->setIPv6Enabled(false);
  std::error_code error;
  if (!udpSocket_->enableBroadcast(true, error)) fatalError("broadcasting is not possible: " + error.message());
  if (udpSocket_->bindToPort(localUdpPort, error)) {
    if (localUdpPort == 0) localUdpPort = udpSocket_->localPort();
    if (udpSocket_->beginReceiving(error)) return;
  }
  // Nothing may be sent from here either: a hello would make peers answer and connect to a port that another program
  // holds.
  udpSocket_.reset();
  showFailure({"udp",
               "Our cute veskos cannot put their ears on the UDP port 4644 so they cannot hear any sounds from other "
               "veskos.",
               error});
}

void VeskoServer::sayHello() { sayHello({}); }
void VeskoServer::sayHello(const std::string& dest) { sayHello(dest, localUdpPort); }
void VeskoServer::sayHello(const std::string& dest, std::uint16_t port) {
  send(createHelloPacket(dest, port), dest, port);
}

void VeskoServer::sayGoodbye() { sayGoodbye({}); }
void VeskoServer::sayGoodbye(const std::string& dest) { sayGoodbye(dest, localUdpPort); }
void VeskoServer::sayGoodbye(const std::string& dest, std::uint16_t port) {
  send(createGoodbyePacket(dest, port), dest, port);
}

std::string VeskoServer::createHelloPacket(const std::string& dest, std::uint16_t port) {
  DiscoveryHello hello{dest.empty(), std::nullopt, recentSignature(dest.empty())};
  // Receivers of a hello without a port take the well-known one for the sender's.
  if (port != defaultUdpPort || localUdpPort != defaultUdpPort) hello.port = localUdpPort;
  return encodeDiscoveryDatagram(std::move(hello));
}

std::string VeskoServer::createGoodbyePacket(const std::string& /*dest*/, std::uint16_t /*port*/) {
  return encodeDiscoveryDatagram(DiscoveryGoodbye());
}

void VeskoServer::send(const std::string& datagram, const std::string& dest, std::uint16_t port) {
  if (!udpSocket_) return;
  const bool isToAll = dest.empty();
  for (const auto& address : isToAll ? findBroadcastAddress() : std::vector{dest}) {
    udpSocket_->sendData(datagram, address, port, sendTimeout, sendTag);
    if (isToAll && port != defaultUdpPort)
      udpSocket_->sendData(datagram, address, defaultUdpPort, sendTimeout, sendTag);
  }
}

void VeskoServer::udpSocketDidReceiveData(std::string_view data, std::string_view address) {
  std::string sender;
  std::uint16_t sourcePort = 0;
  if (!GCDAsyncUdpSocket::getHost(sender, sourcePort, address) || isNobody(sender) || isLocalPeer(sender)) return;
  auto datagram = decodeDiscoveryDatagram(data);
  if (!datagram) return;
  if (auto* const hello = std::get_if<DiscoveryHello>(&*datagram)) {
    handleHello(sender, std::move(*hello));
  } else {
    handleGoodbye(sender);
  }
  logPeers();
}

/// Observers are told before the avatar is fetched and the hello is answered.
void VeskoServer::handleHello(const std::string& sender, DiscoveryHello hello) {
  const std::uint16_t port = hello.port.value_or(defaultUdpPort);
  const PeerTable::const_iterator known = peers_.find(sender);  // no lock: only this queue changes the table
  const auto observer = delegate();
  std::shared_ptr<VeskoPeer> peer;
  if (known == peers_.end()) {
    peer = addPeer(sender, port, hello.signature);
    if (!peer) return;
    if (observer) observer->peerDidAppear(sender, peer);
  } else {
    peer = known->second;
    peer->setIp(sender);
    peer->setPort(port);
    peer->setSystemSignature(std::move(hello.signature));
    peer->setLastActiveTime(broadcastQueue_->clock()->now());
    if (observer) observer->peerDidUpdate(sender, peer);
  }
  handleAvatar(peer);
  if (hello.isToAll && mayAnswer()) sayHello(peer->ip(), peer->port());
}

std::shared_ptr<VeskoPeer> VeskoServer::addPeer(const std::string& sender, std::uint16_t port,
                                                const std::string& signature) {
  if (peers_.size() >= maximumPeers) return nullptr;
  auto peer = std::make_shared<VeskoPeer>(sender, sender, port, signature, broadcastQueue_->clock()->now());
  const std::scoped_lock lock(mutex_);
  peers_.emplace(sender, peer);
  return peer;
}

void VeskoServer::handleGoodbye(const std::string& sender) {
  const PeerTable::const_iterator known = peers_.find(sender);  // no lock: only this queue changes the table
  if (known == peers_.end()) return;
  const auto peer = known->second;
  {
    const std::scoped_lock lock(mutex_);
    peers_.erase(known);
    untoldAvatars_.erase(sender);
  }
  forgetAvatar(*peer, sender);
  if (const auto observer = delegate()) observer->peerDidDisappear(sender);
}

/// Counts in windows of one second. A window begins with the first answer after the last one has ended.
bool VeskoServer::mayAnswer() {
  const auto now = broadcastQueue_->clock()->monotonicNow();
  if (answers_.answers == 0 || now - answers_.start >= answerWindow) answers_ = {now, 0};
  return ++answers_.answers <= maximumAnswers;
}

VeskoServer::PeerTable VeskoServer::peers() const {
  const std::scoped_lock lock(mutex_);
  return peers_;
}

std::shared_ptr<VeskoPeer> VeskoServer::peerWithKey(const std::string& key) const {
  const std::scoped_lock lock(mutex_);
  const auto found = peers_.find(key);
  return found == peers_.end() ? nullptr : found->second;
}

void VeskoServer::logPeers() const {
  if (!Log::isEnabled()) return;
  std::string table;
  std::size_t untold = peers_.size();
  for (const auto& [key, peer] : peers_) {
    if (table.size() >= maximumLogged) break;
    --untold;
    table += table.empty() ? "" : ", ";
    table +=
        '"' + key + "\": " + peer->ip() + ':' + std::to_string(peer->port()) + " \"" + peer->systemSignature() + '"';
  }
  if (untold > 0) table += ", and " + std::to_string(untold) + " more";
  if (table.empty()) table = ":";
  Log::line('[' + table + ']');
}

}  // namespace vesko

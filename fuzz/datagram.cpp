// Datagrams from several machines, as the service hears them.

#include <netinet/in.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "Platform/queues/Clock.h"
#include "Platform/text/TextEncoding.h"
#include "VeskoKit/DiscoveryDatagram.h"
#include "VeskoKit/VeskoServer.h"
#include "fuzz/support/Check.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCheck.h"

namespace vesko::fuzz {
namespace {

constexpr const char* ownAddress = "10.0.0.1";

class StandingClock final : public Clock {
 public:
  [[nodiscard]] std::chrono::system_clock::time_point now() const override { return {}; }
  [[nodiscard]] std::chrono::steady_clock::time_point monotonicNow() const override { return {}; }
  [[nodiscard]] std::unique_ptr<Alarm> callAfter(std::chrono::steady_clock::duration /*delay*/,
                                                 std::function<void()> /*wake*/) override {
    broken("nothing here waits");
  }
};

/// What the hosts are told, which has to add up to the table.
class Observer final : public VeskoPeerDiscoveryDelegate {
 public:
  void peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override {
    check(peers.emplace(key, peer).second, "only who was away appears");
  }
  void peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override {
    check(peers.contains(key) && peers[key] == peer, "only who is there is updated, with the record it always had");
  }
  void peerDidDisappear(const std::string& key) override {
    check(peers.erase(key) == 1, "only who was there disappears");
  }

  VeskoServer::PeerTable peers;
};

/// A service that is not started: it has nothing to send with, and tells of what it would.
class Server final : public VeskoServer {
 public:
  Server() : VeskoServer(defaultPort, noPictures, std::make_shared<StandingClock>()) {}

  [[nodiscard]] bool isLocalPeer(const std::string& sender) override { return sender == ownAddress; }
  void handleAvatar(const std::shared_ptr<VeskoPeer>& peer) override {
    check(peer != nullptr, "a picture has an owner");
  }
  [[nodiscard]] std::string getSystemSignature() override { return "signature"; }
  void sayHello(const std::string& dest, std::uint16_t port) override {
    answer = {dest, port};
    ++answers;
  }

  std::pair<std::string, std::uint16_t> answer;
  int answers = 0;

 private:
  static constexpr std::uint16_t noPictures = 65535;
};

void checkCodec(std::string_view bytes) {
  const auto datagram = decodeDiscoveryDatagram(bytes);
  if (!datagram) return;
  const auto encoded = encodeDiscoveryDatagram(*datagram);
  check(decodeDiscoveryDatagram(encoded) == datagram, "what is written reads the same");
  const auto* const hello = std::get_if<DiscoveryHello>(&*datagram);
  if (hello == nullptr) return;
  check(bytes.starts_with(encoded), "a hello is read as it was written, but for its length");
  check(encoded == bytes || encoded.size() + 3 > signatureLimit, "only what is too long is cut");
  check(hello->signature.size() <= signatureLimit, "signatures are bounded");
  check(isValidUtf8(hello->signature), "signatures are text");
}

/// Of a signature that nobody has checked.
void checkEncoding(std::string_view signature, std::uint16_t port) {
  const DiscoveryHello hello{(port & 1) != 0, port, std::string(signature)};
  const auto decoded = decodeDiscoveryDatagram(encodeDiscoveryDatagram(hello));
  check(decoded.has_value() || !isValidUtf8(signature), "a hello with a text can be read");
  if (!decoded) return;
  const auto& read = std::get<DiscoveryHello>(*decoded);
  check(read.isToAll == hello.isToAll && read.port == hello.port, "kind and port stay as they are");
  check(hello.signature.starts_with(read.signature), "a signature is cut at most");
}

/// One of a few machines or, rarely, what the system would never give.
std::string takeAddress(Input& input) {
  const auto choice = input.takeByte();
  if (choice >= 0xF0) return std::string(input.take(choice & 0xFU));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(VeskoServer::defaultPort);
  address.sin_addr.s_addr = htonl(0x0A000000U | choice);
  return std::string(reinterpret_cast<const char*>(&address), sizeof address);
}

/// Hears datagrams the way the service should, and sees that it has.
class Session {
 public:
  Session() { server_->setDelegate(observer_); }

  void hear(std::string_view data, const std::string& address) {
    const int answersBefore = server_->answers;
    server_->udpSocketDidReceiveData(data, address);
    const int answers = server_->answers - answersBefore;
    check(server_->answers <= VeskoServer::maximumAnswers, "answers are bounded");
    const auto datagram = decodeDiscoveryDatagram(data);
    if (!datagram || address.size() != sizeof(sockaddr_in) || ipOf(address) == ownAddress) {
      check(answers == 0, "nothing else is answered");
    } else if (const auto* const hello = std::get_if<DiscoveryHello>(&*datagram)) {
      const auto port = hello->port.value_or(VeskoServer::defaultPort);
      const auto known = server_->peerWithKey(ipOf(address));
      check(known && known->port() == port, "who was heard is in the table, with the port of the last hello");
      check(known->systemSignature() == hello->signature, "the signature is that of the last hello");
      check(answers == (hello->isToAll ? 1 : 0), "a hello to all is answered");
      if (answers > 0) check(server_->answer == std::pair(ipOf(address), port), "who asks is answered");
    } else {
      check(!server_->peerWithKey(ipOf(address)), "who says goodbye is not in the table");
    }
  }

  void checkTable() const { check(server_->peers() == observer_->peers, "the table is what was told of it"); }

 private:
  static std::string ipOf(const std::string& address) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(address.data()) + offsetof(sockaddr_in, sin_addr);
    return std::to_string(bytes[0]) + '.' + std::to_string(bytes[1]) + '.' + std::to_string(bytes[2]) + '.' +
           std::to_string(bytes[3]);
  }

  const std::shared_ptr<Server> server_ = std::make_shared<Server>();
  const std::shared_ptr<Observer> observer_ = std::make_shared<Observer>();
};

void run(Input input) {
  listenToLog((input.takeByte() & 7) == 7);
  checkCodec(input.rest());
  checkEncoding(input.rest(), static_cast<std::uint16_t>(input.rest().size()));
  Session session;
  while (!input.empty()) {
    const auto address = takeAddress(input);
    // A length that fills its byte stands for all that is left.
    const std::size_t size = input.takeByte();
    session.hear(input.take(size == 0xFF ? std::string_view::npos : size), address);
  }
  session.checkTable();
}

}  // namespace
}  // namespace vesko::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  vesko::fuzz::run({bytes, length});
  return 0;
}

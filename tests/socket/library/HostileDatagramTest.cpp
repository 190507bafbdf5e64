#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>

#include "VeskoKit/DiscoveryDatagram.h"
#include "VeskoKit/NetworkTools.h"
#include "tests/socket/library/VeskoServerFixture.h"
#include "tests/support/IsSoon.h"
#include "tests/support/RawDatagrams.h"
#include "tests/support/ResourceGuard.h"

namespace vesko {
namespace {

using namespace std::string_literals;

/// To whom loopback is a network, of which only 127.0.0.9 is its own address, and nobody has a picture.
class LoopbackServer final : public VeskoServer {
 public:
  using VeskoServer::sayHello;
  using VeskoServer::VeskoServer;
  std::string getSystemSignature() override { return "S"; }
  bool isLocalPeer(const std::string& sender) override { return sender == "127.0.0.9"; }
  void handleAvatar(const std::shared_ptr<VeskoPeer>& /*peer*/) override {}
  void sayHello(const std::string& dest, std::uint16_t port) override {
    ++answers;
    VeskoServer::sayHello(dest, port);
  }

  std::atomic<int> answers = 0;
};

class HostileDatagramTest : private ResourceGuard, public VeskoServerTest {
 protected:
  HostileDatagramTest() {
    server_ = loopback_;
    server_->downloadsFolder = folder_.path("downloads");
    server_->defaultUdpPort = wellKnown_.port();
    server_->setIncomingOutcomeDelegate(recorder_);
    Log::setSink(nullptr);
  }

  ~HostileDatagramTest() override { waitForTasks(server_->broadcastDispatchQueue()); }

  /// On the "broadcast" queue.
  void hear(std::string_view bytes, std::uint32_t ip) { hear(*server_, bytes, ip); }
  static void hear(VeskoServer& server, std::string_view bytes, std::uint32_t ip) {
    server.udpSocketDidReceiveData(bytes, senderAddress(ip));
  }

  /// Hands a datagram to the service as if it came from `ip`, and returns when that has been handled.
  void arrive(const std::string& bytes, std::uint32_t ip = INADDR_LOOPBACK) {
    onBroadcastQueue([&] { hear(bytes, ip); });
  }

  template <class Work>
  void onBroadcastQueue(Work work) {
    server_->broadcastDispatchQueue()->async(work);
    waitForTasks(server_->broadcastDispatchQueue());
  }

  /// What the table says of loopback's machine, which is then forgotten; none when it is not there.
  [[nodiscard]] std::optional<std::pair<std::uint16_t, std::string>> takePeer() {
    const auto peer = server_->peerWithKey("127.0.0.1");
    EXPECT_EQ(server_->peers().size(), peer ? 1U : 0U);
    if (!peer) return std::nullopt;
    arrive("\3");
    return std::pair(peer->port(), peer->systemSignature());
  }

  static std::string portBytes(std::uint16_t port) {
    return {static_cast<char>(port & 0xFFU), static_cast<char>(port >> 8U)};
  }

  /// True when the service answers a hello that comes over the network.
  [[nodiscard]] bool answers() {
    other_.send("\4" + portBytes(other_.port()) + "good", server_->localUdpPort);
    return other_.receive().ends_with("S") && server_->peerWithKey("127.0.0.1")->systemSignature() == "good";
  }

  std::shared_ptr<LoopbackServer> loopback_ = std::make_shared<LoopbackServer>(0, 0, clock_);
  RawDatagrams wellKnown_;
  RawDatagrams other_;
};

TEST_F(HostileDatagramTest, TextsOfAnyKindAreKeptAsTheyAreAndLoggedOnOneLine) {
  struct Case {
    std::string signature, kept, logged;
  };
  const std::string most(signatureLimit, 'x');
  const Case cases[] = {
      {"", "", ""},
      {"x", "x", "x"},
      {most, most, most},
      {most + "y", most, most},
      {std::string(60'000, 'x'), most, most},
      {std::string(65'506, 'x'), most, most},
      {most.substr(1) + "\xF0\x9F\x98\x80", most.substr(1), most.substr(1)},
      {"\0a\0"s, "\0a\0"s, "\\u{0}a\\u{0}"},
      {"\r\n\t\x1B]0;x\x07\x7F", "\r\n\t\x1B]0;x\x07\x7F", "\\u{d}\\u{a}\\u{9}\\u{1b}]0;x\\u{7}\\u{7f}"},
      {"\u0085\u009b31m", "\u0085\u009b31m", "\\u{85}\\u{9b}31m"},
      {"\u202Egpj.\u202C\u2066\u2069\u200F\u061C\u2028", "\u202Egpj.\u202C\u2066\u2069\u200F\u061C\u2028",
       "\\u{202e}gpj.\\u{202c}\\u{2066}\\u{2069}\\u{200f}\\u{61c}\\u{2028}"},
      {"caf\u00E9 cafe\u0301", "caf\u00E9 cafe\u0301", "caf\u00E9 cafe\u0301"},
      {"\uFEFF\uFFFD\uFFFF\U0010FFFF", "\uFEFF\uFFFD\uFFFF\U0010FFFF", "\uFEFF\uFFFD\uFFFF\U0010FFFF"},
  };
  server_->startDiscovery();
  for (const auto& [signature, kept, logged] : cases) {
    SCOPED_TRACE(testing::PrintToString(signature.substr(0, 40)));
    Log::setSink(recorder_);
    other_.send("\2" + signature, server_->localUdpPort);
    ASSERT_TRUE(recorder_->waitFor("["));
    Log::setSink(nullptr);
    const std::string row = "[\"127.0.0.1\": 127.0.0.1:" + std::to_string(wellKnown_.port()) + " \"";
    EXPECT_EQ(recorder_->take(), Strings{row + logged + "\"]"});
    EXPECT_EQ(takePeer(), std::pair(wellKnown_.port(), kept));
  }
}

TEST_F(HostileDatagramTest, WhoClaimsToBeUsIsIgnored) {
  // What is sent to nobody's address, which a sender may give as its own, comes back to this machine.
  for (const std::uint32_t ip : {0x7F000009U, 0x00000000U, 0x00000001U, 0x00FFFFFFU}) {
    for (const auto* bytes : {"\1S", "\2S", "\4\x88\x13S", "\5\x88\x13S", "\3Bye Bye"}) {
      arrive(bytes, ip);
      EXPECT_EQ(server_->peers().size(), 0U) << ip;
    }
  }
  EXPECT_EQ(loopback_->answers, 0);
  VeskoServer real(0, 0, clock_);
  for (const auto& [name, address, netmask] : NetworkTools::getIFAddresses()) {
    hear(real, "\1S", ntohl(::inet_addr(address.c_str())));
    EXPECT_EQ(real.peers().size(), 0U) << address;
  }
}

TEST_F(HostileDatagramTest, ACrowdFillsNoLineOfTheLog) {
  struct Longest final : LogSink {
    void write(std::string_view line) override {
      length = std::max(length, line.size());
      last = line;
    }
    std::size_t length = 0;
    std::string last;
  };
  const auto sink = std::make_shared<Longest>();
  Log::setSink(sink);
  onBroadcastQueue([&] {
    for (std::uint32_t i = 0; i < 50; ++i) {
      hear(*server_, "\2" + std::string(signatureLimit, '\x1B'), INADDR_LOOPBACK + i * 256);
    }
  });
  Log::setSink(nullptr);
  EXPECT_LT(sink->length, std::size_t{200'000});
  EXPECT_TRUE(sink->last.ends_with(", and 46 more]\n")) << sink->last.substr(sink->last.size() - 40);
}

}  // namespace
}  // namespace vesko

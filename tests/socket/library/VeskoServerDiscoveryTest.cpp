#include <arpa/inet.h>
#include <netinet/in.h>

#include <thread>

#include "VeskoKit/DiscoveryDatagram.h"
#include "VeskoKit/NetworkTools.h"
#include "tests/socket/library/VeskoServerFixture.h"
#include "tests/support/RawDatagrams.h"

namespace vesko {
namespace {

using namespace std::string_literals;

/// Everybody, for this service, is whoever listens on loopback.
class LoopbackServer final : public VeskoServer {
 public:
  using VeskoServer::VeskoServer;
  std::string getSystemSignature() override { return "S"; }
  std::vector<std::string> findBroadcastAddress() override { return {"127.0.0.1", "127.0.0.2"}; }
  bool isLocalPeer(const std::string& sender) override { return sender == "10.0.0.1"; }
  void handleAvatar(const std::shared_ptr<VeskoPeer>& peer) override { ++asked[peer->key()]; }

  std::map<std::string, int> asked;  ///< for pictures; the "broadcast" queue's
};

class PeerRecorder final : public VeskoPeerDiscoveryDelegate, public EventList {
 public:
  void peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override {
    record("appear ", key, peer);
  }
  void peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override {
    record("update ", key, peer);
  }
  void peerDidDisappear(const std::string& key) override { add("disappear " + key); }

 private:
  void record(const std::string& what, const std::string& key, const std::shared_ptr<VeskoPeer>& peer) {
    EXPECT_EQ(peer->key(), key);
    add(what + peer->ip() + ':' + std::to_string(peer->port()) + ' ' + peer->systemSignature());
  }
};

class VeskoServerDiscoveryTest : public VeskoServerTest {
 protected:
  VeskoServerDiscoveryTest() {
    server_ = std::make_shared<LoopbackServer>(0, 0, clock_);
    server_->downloadsFolder = folder_.path("downloads");
    server_->defaultUdpPort = wellKnown_.port();
    server_->setDelegate(peers_);
  }

  /// Hands a datagram to the service as if it came from each of `senders`, and returns when that has been handled.
  void arrive(const std::string& bytes, const Strings& senders) {
    server_->broadcastDispatchQueue()->async([&] {
      for (const auto& sender : senders) {
        server_->udpSocketDidReceiveData(bytes, senderAddress(ntohl(::inet_addr(sender.c_str()))));
      }
    });
    waitForTasks(server_->broadcastDispatchQueue());
  }

  /// "hello to all/one" with a port, as bytes.
  static std::string hello(char type, std::uint16_t port, const std::string& signature) {
    return type + std::string{static_cast<char>(port & 0xFFU), static_cast<char>(port >> 8U)} + signature;
  }

  RawDatagrams wellKnown_;
  RawDatagrams other_;
  std::shared_ptr<PeerRecorder> peers_ = std::make_shared<PeerRecorder>();
};

TEST_F(VeskoServerDiscoveryTest, SaysWhoItIsInTheFormThatThePortsAskFor) {
  struct Case {
    std::uint16_t local;
    std::string dest;
    std::uint16_t port;
    std::string packet;
  };
  server_->defaultUdpPort = 4644;
  for (const auto& one :
       {Case{4644, "", 4644, "\1S"}, Case{4644, "10.0.0.2", 4644, "\2S"}, Case{4644, "", 5000, "\4\x24\x12S"},
        Case{4644, "10.0.0.2", 5000, "\5\x24\x12S"}, Case{5000, "", 5000, "\4\x88\x13S"},
        Case{5000, "10.0.0.2", 5000, "\5\x88\x13S"}, Case{5000, "10.0.0.2", 4644, "\5\x88\x13S"}}) {
    server_->localUdpPort = one.local;
    EXPECT_EQ(server_->createHelloPacket(one.dest, one.port), one.packet) << one.local << one.dest << one.port;
    EXPECT_EQ(server_->createGoodbyePacket(one.dest, one.port), "\3Bye Bye");
  }
}

TEST_F(VeskoServerDiscoveryTest, SaysToEverybodyWhoItIsNowAndToOneWhoItWasASecondAgo) {
  struct NamedServer final : VeskoServer {
    using VeskoServer::VeskoServer;
    std::string getSystemSignature() override { return name; }
    std::string name = "A";
  } server(4644, 4644, clock_);
  const auto toOne = [&] { return server.createHelloPacket("10.0.0.2", 4644); };
  EXPECT_EQ(toOne(), "\2A");
  server.name = "B";
  EXPECT_EQ(toOne(), "\2A");
  EXPECT_EQ(server.createHelloPacket("", 4644), "\1B");
  EXPECT_EQ(toOne(), "\2B");
  server.name = "C";
  clock_->advance(std::chrono::milliseconds(999));
  EXPECT_EQ(toOne(), "\2B");
  clock_->advance(std::chrono::milliseconds(1));
  EXPECT_EQ(toOne(), "\2C");
}

TEST_F(VeskoServerDiscoveryTest, SpeaksToEverybodyOnBothPortsAndToOneOnItsOwn) {
  server_->sayHello();
  server_->sayGoodbye();
  server_->startDiscovery();
  const std::string all = hello(4, server_->localUdpPort, "S");
  const std::string one = hello(5, server_->localUdpPort, "S");
  server_->sayHello("", other_.port());
  EXPECT_EQ(wellKnown_.receive(), all) << "nothing was said before the start";
  EXPECT_EQ(other_.receive(), all);
  server_->sayHello("", wellKnown_.port());
  EXPECT_EQ(wellKnown_.receive(), all);
  server_->sayHello("127.0.0.1", other_.port());
  EXPECT_EQ(other_.receive(), one);
  server_->sayGoodbye("127.0.0.1", other_.port());
  EXPECT_EQ(other_.receive(), "\3Bye Bye");
  server_->sayGoodbye();
  EXPECT_EQ(wellKnown_.receive(), "\3Bye Bye");
  EXPECT_TRUE(wellKnown_.isEmpty());
  EXPECT_TRUE(other_.isEmpty());
}

TEST_F(VeskoServerDiscoveryTest, KeepsTheTableOfThoseItHears) {
  server_->startDiscovery();
  const std::string here = "127.0.0.1:" + std::to_string(other_.port());
  other_.send(hello(4, other_.port(), "A"), server_->localUdpPort);
  EXPECT_EQ(other_.receive(), hello(5, server_->localUdpPort, "S")) << "a hello to all is answered, to one";
  const auto record = server_->peers().at("127.0.0.1");
  EXPECT_EQ(record->avatar(), "");
  clock_->advance(std::chrono::seconds(5));
  other_.send(hello(5, other_.port(), ""), server_->localUdpPort);
  wellKnown_.send("\1B\033", server_->localUdpPort);
  EXPECT_EQ(wellKnown_.receive(), hello(5, server_->localUdpPort, "S")) << "without a port it is the well-known one";
  EXPECT_EQ(server_->peers().at("127.0.0.1"), record) << "the record stays the same object";
  EXPECT_EQ(record->lastActiveTime(), clock_->now());
  other_.send("\3", server_->localUdpPort);
  other_.send("\3Bye Bye", server_->localUdpPort);
  other_.send("\2C", server_->localUdpPort);
  ASSERT_TRUE(peers_->waitFor("appear", 2));
  const std::string there = "127.0.0.1:" + std::to_string(wellKnown_.port());
  EXPECT_EQ(peers_->all(), (Strings{"appear " + here + " A", "update " + here + " ", "update " + there + " B\033",
                                    "disappear 127.0.0.1", "appear " + there + " C"}));
  waitForTasks(server_->broadcastDispatchQueue());
  const auto row = [](const std::string& peer, const std::string& signature) {
    return "[\"127.0.0.1\": " + peer + " \"" + signature + "\"]";
  };
  EXPECT_EQ(recorder_->all(),
            (Strings{row(here, "A"), row(here, ""), row(there, "B\\u{1b}"), "[:]", "[:]", row(there, "C")}));
  EXPECT_TRUE(other_.isEmpty());
  EXPECT_TRUE(wellKnown_.isEmpty());
}

TEST_F(VeskoServerDiscoveryTest, IgnoresItselfAndWhatIsNoHello) {
  server_->startDiscovery();
  for (const auto& bytes : {""s, "\0S"s, "\6S"s, "\4"s, "\5\1"s, "\1\xFF"s}) arrive(bytes, {"127.0.0.1"});
  // An answer to 0.0.0.0/8, which a sender may give as its own address, would come back to this machine.
  for (const auto* own : {"10.0.0.1", "0.0.0.0", "0.0.0.1", "0.255.255.255"}) {
    for (const auto* bytes : {"\1S", "\2S", "\4\x88\x13S", "\5\x88\x13S", "\3Bye Bye"}) arrive(bytes, {own});
  }
  waitForTasks(server_->broadcastDispatchQueue());
  EXPECT_EQ(recorder_->all(), Strings()) << "not even the log tells of it";
  EXPECT_EQ(peers_->all(), Strings());
  EXPECT_TRUE(wellKnown_.isEmpty());
  VeskoServer real(0, 0, clock_);
  for (const auto& [name, address, netmask] : NetworkTools::getIFAddresses()) {
    real.udpSocketDidReceiveData("\1S", senderAddress(ntohl(::inet_addr(address.c_str()))));
    EXPECT_EQ(real.peers().size(), 0U) << address;
  }
}

TEST_F(VeskoServerDiscoveryTest, SignaturesAreKeptAsTheyAreAndLoggedOnOneLine) {
  const std::string most(signatureLimit, 'x');
  const struct {
    std::string signature, kept, logged;
  } cases[] = {
      {std::string(65'506, 'x'), most, most},
      {most.substr(1) + "\xF0\x9F\x98\x80", most.substr(1), most.substr(1)},
      {"\0\r\n\x1B]0;x\x07\x7F"s, "\0\r\n\x1B]0;x\x07\x7F"s, "\\u{0}\\u{d}\\u{a}\\u{1b}]0;x\\u{7}\\u{7f}"},
      {"\u009b31m\u202Egpj.", "\u009b31m\u202Egpj.", "\\u{9b}31m\\u{202e}gpj."},
      {"\uFEFF\uFFFF\U0010FFFFe\u0301", "\uFEFF\uFFFF\U0010FFFFe\u0301", "\uFEFF\uFFFF\U0010FFFFe\u0301"},
  };
  server_->startDiscovery();
  for (const auto& [signature, kept, logged] : cases) {
    SCOPED_TRACE(testing::PrintToString(signature.substr(0, 40)));
    recorder_->take();
    other_.send("\2" + signature, server_->localUdpPort);
    ASSERT_TRUE(recorder_->waitFor("["));
    const std::string row = "[\"127.0.0.1\": 127.0.0.1:" + std::to_string(wellKnown_.port()) + " \"";
    EXPECT_EQ(recorder_->all(), Strings{row + logged + "\"]"});
    EXPECT_EQ(server_->peerWithKey("127.0.0.1")->systemSignature(), kept);
  }
}

TEST_F(VeskoServerDiscoveryTest, ACrowdFillsNoLineOfTheLog) {
  Log::setSink(nullptr);
  Strings senders;
  for (int i = 1; i <= 49; ++i) senders.push_back("11.0.0." + std::to_string(i));
  arrive("\2" + std::string(signatureLimit, '\x1B'), senders);
  Log::setSink(recorder_);
  arrive("\2" + std::string(signatureLimit, '\x1B'), {"11.0.0.50"});
  const auto lines = recorder_->take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_LT(lines[0].size(), std::size_t{200'000});
  EXPECT_TRUE(lines[0].ends_with(", and 46 more]")) << lines[0].substr(lines[0].size() - 40);
}

TEST_F(VeskoServerDiscoveryTest, BoundsTheTableAndTheAnswers) {
  Log::setSink(nullptr);
  server_->startDiscovery();
  Strings senders;
  for (std::size_t i = 1; i < VeskoServer::maximumPeers; ++i) {
    senders.push_back("11.0." + std::to_string(i >> 8U) + '.' + std::to_string(i & 255U));
  }
  const std::string greeting = hello(4, other_.port(), "A");
  for (int i = 0; i < VeskoServer::maximumAnswers; ++i) {
    arrive(greeting, {"127.0.0.1"});
    ASSERT_NE(other_.receive(), "");
  }
  arrive(greeting, {"127.0.0.1"});
  EXPECT_TRUE(other_.isEmpty());
  clock_->advance(std::chrono::seconds(1));
  arrive(greeting, {"127.0.0.1"});
  EXPECT_EQ(other_.receive(), hello(5, server_->localUdpPort, "S"));
  arrive("\2A", senders);
  EXPECT_EQ(server_->peers().size(), VeskoServer::maximumPeers);
  arrive("\2A", {"12.0.0.1"});
  EXPECT_EQ(server_->peers().count("12.0.0.1"), 0U);
  arrive("\3Bye Bye", {"127.0.0.1"});
  arrive("\2A", {"12.0.0.1"});
  EXPECT_EQ(server_->peers().count("12.0.0.1"), 1U) << "there is room again";
}

TEST_F(VeskoServerDiscoveryTest, BearsManyThreadsAtOnce) {
  Log::setSink(nullptr);
  server_->startServer();
  std::vector<std::thread> threads;
  const auto repeat = [&](auto work) {
    threads.emplace_back([work] {
      for (int i = 0; i < 500; ++i) work();
    });
  };
  repeat([&] { server_->sayHello(); });
  repeat([&] { server_->sayGoodbye("127.0.0.1"); });
  repeat([&] { other_.send(hello(4, other_.port(), "S"), server_->localUdpPort); });
  repeat([&] { other_.send("\3Bye Bye", server_->localUdpPort); });
  repeat([&] {
    for (const auto& [key, known] : server_->peers()) EXPECT_EQ(known->systemSignature(), "S");
  });
  repeat([&] { server_->setDelegate(peers_); });
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace vesko

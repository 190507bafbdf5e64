#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

#include "tests/lan/LanFixture.h"

namespace vesko {
namespace {

using DiscoveryTest = LanTest;

TEST_F(DiscoveryTest, HostsCompleteTheirTablesOnAllPorts) {
  struct Case {
    std::vector<std::uint16_t> ports;  // of the machines from 1 on, in the order in which they start
    std::vector<LanHost::Table> tables;
  };
  const std::vector<Case> cases{
      {{4644, 4644}, {{{ip(2), 4644}}, {{ip(1), 4644}}}},
      {{4644, 5000}, {{{ip(2), 5000}}, {{ip(1), 4644}}}},
      {{5000, 5000}, {{{ip(2), 5000}}, {{ip(1), 5000}}}},
      {{4644, 4644, 4644},
       {{{ip(2), 4644}, {ip(3), 4644}}, {{ip(1), 4644}, {ip(3), 4644}}, {{ip(1), 4644}, {ip(2), 4644}}}},
      // Two on different ports of their own hear of each other nowhere, only what is on the common port hears both.
      {{4644, 5000, 6000}, {{{ip(2), 5000}, {ip(3), 6000}}, {{ip(1), 4644}}, {{ip(1), 4644}}}},
      {{5000, 6000}, {{}, {}}},
  };
  makeMachines(3);
  const auto voice = strangerOn();
  for (const auto& one : cases) {
    SCOPED_TRACE(testing::PrintToString(one.ports));
    std::vector<std::unique_ptr<LanHost>> hosts;
    for (const auto port : one.ports) hosts.push_back(receive(static_cast<int>(hosts.size()) + 1, port));
    for (std::size_t index = 0; index < hosts.size(); ++index) {
      auto expected = one.tables[index];
      for (const auto& [peer, port] : expected) EXPECT_TRUE(hosts[index]->tells("peerAppeared", peer, port));
      EXPECT_TRUE(hasHeardAll(*hosts[index], static_cast<int>(index) + 1, voice, one.ports[index]));
      expected[ip(stranger)] = 1;
      EXPECT_EQ(hosts[index]->table(), expected);
    }
    EXPECT_EQ(hosts.back()->stop(), 0);
    for (const auto& [peer, port] : one.tables.back()) {
      const auto other = peer.back() - '1';
      EXPECT_TRUE(hosts[static_cast<std::size_t>(other)]->tells("peerDisappeared", ip(static_cast<int>(hosts.size()))));
    }
  }
}

TEST_F(DiscoveryTest, DatagramsAreWhatTheyShallBe) {
  makeMachines(2);
  const auto common = strangerOn();
  const auto own = strangerOn(5000);
  const auto from1 = ip(1) + ":4644 ";
  const auto host1 = receive(1);
  EXPECT_EQ(common.receive(), from1 + '\1' + signatureOf(1));
  common.send("\1a stranger", ip(1));
  EXPECT_EQ(common.receive(), from1 + '\2' + signatureOf(1));
  common.send(hello(5000), ip(1));
  EXPECT_EQ(own.receive(), from1 + '\5' + packed(4644) + signatureOf(1));
  common.send("\2one that answers", ip(1));  // which must not be answered
  // Whom it hears of while it ends takes a goodbye of their own.
  EXPECT_TRUE(host1->tells("one that answers"));
  EXPECT_EQ(host1->stop(), 0);
  EXPECT_EQ(common.receive(), from1 + "\3Bye Bye");

  const auto from2 = ip(2) + ":5000 ";
  const auto host2 = receive(2, 5000);
  for (const auto* socket : {&own, &common}) {
    EXPECT_EQ(socket->receive(), from2 + '\4' + packed(5000) + signatureOf(2));
  }
  common.send("\1a stranger", ip(2), 5000);
  EXPECT_EQ(common.receive(), from2 + '\5' + packed(5000) + signatureOf(2));
  own.send(hello(5000), ip(2), 5000);
  EXPECT_EQ(own.receive(), from2 + '\5' + packed(5000) + signatureOf(2));
  EXPECT_EQ(host2->stop(), 0);
  for (const auto* socket : {&own, &common}) EXPECT_EQ(socket->receive(), from2 + "\3Bye Bye");
}

TEST_F(DiscoveryTest, ReadyIsToldBeforeAnybodyIsHeard) {
  makeMachines(1);
  const auto voice = strangerOn();
  std::mutex mutex;
  std::condition_variable_any stopped;
  // All the time, but leaving the host a processor.
  const std::jthread greeter([&](const std::stop_token& token) {
    std::unique_lock lock(mutex);
    while (!token.stop_requested()) {
      voice.send("\1a stranger", ip(1));
      stopped.wait_for(lock, token, std::chrono::microseconds(50), [] { return false; });
    }
  });
  for (int start = 0; start < 5; ++start) {
    Process host(setupFor(1, {"receive", "--json", "--dir", inboxOf(1)}));
    EXPECT_TRUE(host.waitForOutput("peerAppeared"));
    EXPECT_TRUE(host.output().starts_with("{\"event\":\"ready\"")) << host.output().substr(0, 200);
  }
}

}  // namespace
}  // namespace vesko

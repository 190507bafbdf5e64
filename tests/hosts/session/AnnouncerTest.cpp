#include "hosts/common/session/Announcer.h"

#include <gtest/gtest.h>

#include "Platform/queues/Clock.h"
#include "VeskoKit/VeskoServer.h"
#include "tests/support/RawDatagrams.h"

namespace vesko {
namespace {

/// The network, for this service, is one other machine.
class TwoMachines final : public VeskoServer {
 public:
  explicit TwoMachines(std::uint16_t other) : VeskoServer(0, 0) { defaultUdpPort = other; }
  std::vector<std::string> findBroadcastAddress() override { return {"127.0.0.1"}; }
  bool isLocalPeer(const std::string& /*sender*/) override { return false; }
  void handleAvatar(const std::shared_ptr<VeskoPeer>& /*peer*/) override {}
};

TEST(Announcer, TakesLeaveOfThoseWhoMayKnowThisMachine) {
  // The types of what the other machine is told: a hello to all, one to it alone, a goodbye.
  const struct {
    bool isAnnounced;
    bool isAsked;
    std::string told;
  } cases[] = {{false, false, ""}, {false, true, "\5\3"}, {true, false, "\4\3"}, {true, true, "\4\5\3"}};
  for (const auto& [isAnnounced, isAsked, expected] : cases) {
    RawDatagrams other;
    const auto server = std::make_shared<TwoMachines>(other.port());
    server->startDiscovery();
    const auto announcer = std::make_shared<Announcer>(server, Clock::system());
    std::string told;
    if (isAnnounced) {
      announcer->announce();
      told += other.receive().front();
    }
    if (isAsked) {
      other.send("\1someone", server->localUdpPort);
      told += other.receive().front();
    }
    announcer->leave();
    announcer->leave();
    if (!expected.empty()) told += other.receive().front();
    EXPECT_EQ(told, expected);
    EXPECT_TRUE(other.isEmpty());
    if (isAnnounced) continue;  // it hears its own goodbye, any time now
    other.send("\1someone", server->localUdpPort);
    EXPECT_EQ(other.receive().front(), '\5');
    announcer->leave();
    EXPECT_EQ(other.receive().front(), '\3') << "who was answered after the goodbye";
  }
}

}  // namespace
}  // namespace vesko

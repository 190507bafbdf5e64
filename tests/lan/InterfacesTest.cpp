#include "tests/lan/LanFixture.h"

namespace vesko {
namespace {

using InterfacesTest = LanTest;

TEST_F(InterfacesTest, NetworksThatComeLaterAreGreeted) {
  makeMachines(2);
  lan_->addMachine(3);
  lan_->plug(3, 1);
  addMachine(4);
  lan_->configure(4, "address del " + ip(4) + "/24 dev eth0\naddress add " + ip(4, 2) + "/24 dev eth0\n");
  lan_->addMachine(5);
  const auto host2 = receive(2);
  const auto host3 = receive(3);
  const auto host4 = receive(4);
  const auto late = receive(5);  // when it has no network at all
  lan_->plug(5, 0);
  EXPECT_TRUE(late->tells("peerAppeared", ip(2)));
  EXPECT_TRUE(host2->tells("peerAppeared", ip(5)));
  lan_->plug(5, 1);
  EXPECT_TRUE(late->tells("peerAppeared", ip(3, 1)));
  EXPECT_TRUE(host3->tells("peerAppeared", ip(5, 1)));
  EXPECT_TRUE(host2->tells("peerUpdated", ip(5)));
  lan_->configure(5, "address add " + ip(5, 2) + "/24 dev eth0\n");
  EXPECT_TRUE(late->tells("peerAppeared", ip(4, 2)));
  EXPECT_TRUE(host4->tells("peerAppeared", ip(5, 2)));
  // By now its own hellos, which it hears too, have come back from all networks.
  EXPECT_EQ(late->table(), (LanHost::Table{{ip(2), 4644}, {ip(3, 1), 4644}, {ip(4, 2), 4644}}));
}

TEST_F(InterfacesTest, HostsDoNotListThemselves) {
  makeMachines(1);
  lan_->configure(1, "address add " + ip(1, 1) + "/24 dev eth0\naddress add " + ip(250) + "/24 dev eth0\n");
  const auto voice = strangerOn();
  for (const auto port : {defaultPort, std::uint16_t{5000}}) {
    const auto host = receive(1, port);
    EXPECT_TRUE(hasHeardAll(*host, 1, voice, port));
    EXPECT_EQ(host->table(), (LanHost::Table{{ip(stranger), 1}}));
  }
}

}  // namespace
}  // namespace vesko

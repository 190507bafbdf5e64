#include "Platform/network/InterfaceWatch.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <cstdlib>
#include <thread>

#include "Platform/network/NetworkInterfaces.h"
#include "Platform/network/OwnAddresses.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EventList.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/IsSoon.h"
#include "tests/support/Namespaces.h"
#include "tests/support/QueueTasks.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

[[nodiscard]] bool ip(const std::string& arguments) { return std::system(("ip " + arguments).c_str()) == 0; }

/// Sets loopback up and down in turn, in the network that the process is in; it is down in the end.
void changeOften(int times) {
  const std::string numbers = "$(seq " + std::to_string(times / 2) + ")";
  EXPECT_EQ(std::system(("printf 'link set lo up\\nlink set lo down\\n%.0s' " + numbers + " | ip -batch -").c_str()),
            0);
}

struct Watched {
  Watched() { waitForTasks(queue); }

  [[nodiscard]] bool isTold() {
    const bool told = events.waitFor("change");
    waitForTasks(queue);
    events.take();
    return told;
  }

  EventList events;
  std::error_code error;
  std::shared_ptr<DispatchQueue> queue = DispatchQueue::serial("test");
  std::unique_ptr<InterfaceWatch> watch = InterfaceWatch::make(
      queue, [this] { events.add("change"); }, error);
};

void expectThatChangesAreTold() {
  Watched watched;
  ASSERT_TRUE(watched.watch) << watched.error.message();
  ASSERT_TRUE(ip("link set lo up"));
  EXPECT_TRUE(watched.isTold());
  ASSERT_TRUE(ip("address add 10.1.2.3/24 dev lo label lo:1"));
  EXPECT_TRUE(watched.isTold());
  const InterfaceAddress added{"lo:1", "10.1.2.3", "255.255.255.0", true, true, true};
  const InterfaceAddress own{"lo", "127.0.0.1", "255.0.0.0", true, true, true};
  EXPECT_EQ(NetworkInterfaces::all(), (std::vector<InterfaceAddress>{own, added}));
  for (const int count : {20, 4000}) {  // the second time, more than the system keeps
    {
      const HeldQueue held(watched.queue);
      changeOften(count);
    }
    EXPECT_TRUE(watched.events.waitFor("change"));
    waitForTasks(watched.queue);
    EXPECT_EQ(watched.events.take().size(), 1U) << "all together";
  }
  ASSERT_TRUE(ip("link set lo up"));
  EXPECT_TRUE(watched.isTold()) << "still listening";
}

void expectSilenceAfterTheEnd() {
  Watched watched;
  {
    const HeldQueue held(watched.queue);
    watched.queue->async([&] { watched.watch.reset(); });
    changeOften(2);
  }
  waitForTasks(watched.queue);
  EXPECT_EQ(watched.events.count(""), 0U);

  const auto endAtOnce = [&] {
    watched.events.add("change");
    watched.watch.reset();
  };
  watched.watch = InterfaceWatch::make(watched.queue, endAtOnce, watched.error);
  waitForTasks(watched.queue);
  changeOften(2);
  EXPECT_TRUE(watched.isTold());
  changeOften(2);
  waitForTasks(watched.queue);
  EXPECT_EQ(watched.events.count(""), 0U);
}

void expectThatItEndsOnAnyThread() {
  for (int round = 0; round < 20; ++round) {
    Watched watched;
    const std::jthread changing([] { changeOften(10); });
    EXPECT_TRUE(watched.events.waitFor("change"));
    watched.watch.reset();
    waitForTasks(watched.queue);
  }
}

TEST(InterfaceWatchTest, TellsOfChangesOfTheInterfaces) {
  const auto enterNetwork = [] { return enterOwnSpaces(CLONE_NEWNET) && ip("link set lo down"); };
  expectToPassPrepared(enterNetwork, [] {});
  if (testing::Test::IsSkipped()) return;
  for (const auto expectation : {expectThatChangesAreTold, expectSilenceAfterTheEnd, expectThatItEndsOnAnyThread}) {
    expectToPassAnew([&] {
      ASSERT_TRUE(enterNetwork());
      expectation();
    });
  }
}

void expectThatChangesAreKnownAtOnce() {
  ASSERT_TRUE(ip("link set eth1 up") && ip("link set eth0 up") && ip("address add 10.1.2.3/24 dev eth0"));
  OwnAddresses own;
  ASSERT_TRUE(isSoon([&] { return own.has("10.1.2.3"); })) << "it gets no link";
  for (int round = 0; round < 3; ++round) {
    EXPECT_FALSE(own.has("10.1.2.4"));
    ASSERT_TRUE(ip("address add 10.1.2.4/24 dev eth0"));
    EXPECT_TRUE(own.has("10.1.2.4"));
    EXPECT_TRUE(own.has("10.1.2.3"));
    ASSERT_TRUE(ip("address del 10.1.2.4/24 dev eth0"));
  }
  ASSERT_TRUE(ip("link set eth0 down"));
  EXPECT_FALSE(own.has("10.1.2.3"));
}

TEST(OwnAddressesTest, FollowsTheSystem) {
  expectToPassPrepared([] { return enterOwnSpaces(CLONE_NEWNET) && ip("link add eth0 type veth peer name eth1"); },
                       expectThatChangesAreKnownAtOnce);
}

TEST(OwnAddressesTest, KnowsThemWhateverTheSystemIsShortOf) {
  const auto expectAll = [](OwnAddresses& own) {
    std::vector<InterfaceAddress> usable;
    for (const auto& one : NetworkInterfaces::all()) {
      EXPECT_EQ(own.has(one.address), one.isUsable()) << one.address;
      if (one.isUsable()) usable.push_back(one);
    }
    EXPECT_EQ(own.list(), usable);
    for (const char* other : {"", "127.0.0.1", "0.0.0.0", "255.255.255.255"}) EXPECT_FALSE(own.has(other)) << other;
  };
  OwnAddresses told;
  {
    const FewDescriptors none(0);
    EXPECT_TRUE(told.list().empty()) << "it cannot list them";
    OwnAddresses untold;
    EXPECT_FALSE(untold.has("127.0.0.1"));
  }
  expectAll(told);
  expectAll(told);
  const auto untold = [] {
    const FewDescriptors none(0);
    return std::make_unique<OwnAddresses>();
  }();
  expectAll(*untold);
}

TEST(NetworkInterfacesTest, KindsOfInterfaces) {
  using enum InterfaceKind;
  const struct {
    const char* name;
    InterfaceKind kind;
    const char *entry, *text;  // what the system has on it; a folder when there is no text
  } cases[] = {
      {"eth0", ordinary, "type", "1\n"},
      {"vlan7", ordinary, "uevent", "DEVTYPE=vlan\nINTERFACE=vlan7\nIFINDEX=9\n"},
      {"wlp2s0", wireless, "phy80211", ""},
      {"wlan0:1", wireless, "../wlan0/wireless", ""},
      {"wifi", wireless, "uevent", "IFINDEX=3\nDEVTYPE=wlan\n"},
      {"lan", bridge, "bridge", ""},
      {"br-0123456789ab", container, "bridge", ""},
      {"br-lan", bridge, "uevent", "DEVTYPE=bridge\n"},
      {"br-0123456789ag", bridge, "bridge", ""},
      {"docker0", container, "bridge", ""},
      {"veth1a2b", container, "type", "1\n"},
      {"vmnet8", container, "type", "1\n"},
      {"virbr0", container, "bridge", ""},
      {"tap0", tunnel, "tun_flags", "0x1002\n"},
      {"wg0", tunnel, "uevent", "DEVTYPE=wireguard\n"},
      {"tun0", tunnel, "type", "65534\n"},
      {"sit0", tunnel, "type", "776\n"},
      {"ppp0", tunnel, "type", "512\n"},
      {"odd", ordinary, "type", "no number"},
      {"unknown", ordinary, "../other", ""},
  };
  const TemporaryFolder folder;
  for (const auto& [name, kind, entry, text] : cases) {
    const std::string path = folder.makeFolder(name).substr(folder.path().size() + 1) + "/" + entry;
    *text == '\0' ? folder.makeFolder(path) : folder.write(path, text);
  }
  folder.makeFolder("bridge");
  const auto replaceInterfaces = [&] { return enterOwnMounts() && replaceFolder("/sys/class/net", folder.path()); };
  expectToPassPrepared(replaceInterfaces, [&] {
    for (const auto& one : cases) EXPECT_EQ(NetworkInterfaces::kindOf(one.name), one.kind) << one.name;
    for (const char* bad : {"", ".", "..", ":1", "eth0/../lan", "lan/", "/sys/class/net/lan", "absent"}) {
      EXPECT_EQ(NetworkInterfaces::kindOf(bad), ordinary) << bad;
    }
  });
}

}  // namespace
}  // namespace vesko

#include "Platform/network/InterfaceWatch.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include "Platform/files/FileDescriptor.h"
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

/// Asks for a change of the loopback interface, in the network that the process is in, or of another name that it has.
void change(const char* label, unsigned long what, const std::function<void(ifreq&)>& set) {
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::string_view(label).copy(request.ifr_name, sizeof request.ifr_name - 1);
  set(request);
  ASSERT_EQ(::ioctl(socket.get(), what, &request), 0);
}

void setUp(bool isUp) {
  change("lo", SIOCSIFFLAGS, [&](ifreq& request) { request.ifr_flags = static_cast<short>(isUp ? IFF_UP : 0); });
}

void setAddress(const char* label, unsigned long what, const char* address) {
  change(label, what, [&](ifreq& request) {
    sockaddr_in internet{};
    internet.sin_family = AF_INET;
    ::inet_pton(AF_INET, address, &internet.sin_addr);
    std::memcpy(&request.ifr_addr, &internet, sizeof internet);
  });
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
  setUp(true);
  EXPECT_TRUE(watched.isTold());
  setAddress("lo:1", SIOCSIFADDR, "10.1.2.3");
  setAddress("lo:1", SIOCSIFNETMASK, "255.255.255.0");
  EXPECT_TRUE(watched.isTold());
  const InterfaceAddress added{"lo:1", "10.1.2.3", "255.255.255.0", true, true, true};
  const InterfaceAddress own{"lo", "127.0.0.1", "255.0.0.0", true, true, true};
  EXPECT_EQ(NetworkInterfaces::all(), (std::vector<InterfaceAddress>{own, added}));
  setUp(false);
  EXPECT_TRUE(watched.isTold());
}

void expectThatChangesAreToldTogether() {
  Watched watched;
  setUp(true);
  ASSERT_TRUE(watched.isTold());
  for (const int count : {20, 2000}) {  // the second time, more than the system keeps
    {
      const HeldQueue held(watched.queue);
      for (int i = 0; i < count; ++i) setUp(i % 2 != 0);
    }
    EXPECT_TRUE(watched.events.waitFor("change"));
    waitForTasks(watched.queue);
    EXPECT_EQ(watched.events.take().size(), 1U);
  }
  setUp(false);
  EXPECT_TRUE(watched.isTold()) << "still listening";
}

void expectSilenceAfterTheEnd() {
  Watched watched;
  {
    const HeldQueue held(watched.queue);
    watched.queue->async([&] { watched.watch.reset(); });
    setUp(true);
  }
  waitForTasks(watched.queue);
  EXPECT_EQ(watched.events.count(""), 0U);

  std::error_code error;
  watched.watch = InterfaceWatch::make(
      watched.queue,
      [&] {
        watched.events.add("change");
        watched.watch.reset();
      },
      error);
  waitForTasks(watched.queue);
  setUp(false);
  EXPECT_TRUE(watched.isTold());
  setUp(true);
  waitForTasks(watched.queue);
  EXPECT_EQ(watched.events.count(""), 0U);
}

void expectThatItEndsOnAnyThread() {
  for (int round = 0; round < 50; ++round) {
    Watched watched;
    const std::jthread changing([&] {
      for (int i = 0; i < 10; ++i) setUp(i % 2 == 0);
    });
    EXPECT_TRUE(watched.events.waitFor("change"));
    watched.watch.reset();
    waitForTasks(watched.queue);
  }
}

TEST(InterfaceWatchTest, TellsOfChangesOfTheInterfaces) {
  const auto enterNetwork = [] { return enterOwnSpaces(CLONE_NEWNET); };
  expectToPassPrepared(enterNetwork, [] {});
  if (testing::Test::IsSkipped()) return;
  for (const auto expectation : {expectThatChangesAreTold, expectThatChangesAreToldTogether, expectSilenceAfterTheEnd,
                                 expectThatItEndsOnAnyThread}) {
    expectToPassAnew([&] {
      ASSERT_TRUE(enterNetwork());
      expectation();
    });
  }
}

TEST(InterfaceWatchTest, TellsWhyItCannotWatch) {
  const auto queue = DispatchQueue::serial("test");
  waitForTasks(queue);
  const FewDescriptors none(0);
  std::error_code error;
  EXPECT_FALSE(InterfaceWatch::make(
      queue, [] {}, error));
  EXPECT_EQ(error, std::errc::too_many_files_open);
}

[[nodiscard]] bool ip(const std::string& arguments) { return std::system(("ip " + arguments).c_str()) == 0; }

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

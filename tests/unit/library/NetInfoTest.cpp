#include "VeskoKit/NetInfo.h"

#include <gtest/gtest.h>

namespace vesko {
namespace {

using namespace std::string_literals;

TEST(NetInfoTest, FollowsFromAddressAndNetmask) {
  const struct {
    const char *ip, *netmask, *network, *broadcast;
    int cidr;
  } cases[] = {
      {"192.168.1.23", "255.255.255.0", "192.168.1.0", "192.168.1.255", 24},
      {"172.16.200.9", "255.255.252.0", "172.16.200.0", "172.16.203.255", 22},
      {"192.168.1.23", "255.255.255.254", "192.168.1.22", "192.168.1.23", 31},
      {"10.8.0.6", "0.0.0.0", "0.0.0.0", "255.255.255.255", 0},
      {"255.255.255.255", "128.0.0.0", "128.0.0.0", "255.255.255.255", 1},
      {"010.001.002.003", "255.000.255.0", "10.0.2.0", "10.255.2.255", 8},  // decimal, whatever they begin with
      {".10.1.2..3.", "255.255.255.0", "10.1.2.0", "10.1.2.255", 24},
      {"fe80::1", "255.255.255.0", "", "", 24},
  };
  for (const auto& one : cases) {
    const NetInfo info(one.ip, one.netmask);
    SCOPED_TRACE(info.ip + "/" + info.netmask);
    EXPECT_EQ(info.network(), one.network);
    EXPECT_EQ(info.broadcast(), one.broadcast);
    EXPECT_EQ(info.cidr(), one.cidr);
  }
}

TEST(NetInfoTest, NothingFollowsFromOtherNetmasks) {
  const std::string badOnes[] = {"",
                                 "255.255.255",
                                 "255.255.255.0.0",
                                 "255.255.255.256",
                                 "255.255.255.-1",
                                 "255.255.255.0x0",
                                 std::string(100'000, '.'),
                                 std::string(100'000, '1'),
                                 "255.255.255\0.0"s};
  for (const std::string& bad : badOnes) {
    SCOPED_TRACE(bad.substr(0, 30));
    const NetInfo info("10.1.2.3", bad);
    EXPECT_EQ(info.netmask, bad);
    EXPECT_EQ(info.network() + info.broadcast(), "");
    EXPECT_EQ(info.cidr(), 0);
    EXPECT_EQ(NetInfo(bad, "255.0.0.0").network(), "");
  }
}

}  // namespace
}  // namespace vesko

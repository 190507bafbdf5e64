#include "hosts/common/session/PeerAddress.h"

#include <gtest/gtest.h>

#include "hosts/common/session/IPv4Range.h"

namespace vesko {
namespace {

TEST(PeerAddress, TellsAddressesFromMistakesAndFromNames) {
  EXPECT_EQ(parsePeerAddress("192.0.2.7", 4644), (PeerAddress{"192.0.2.7", 4644}));
  EXPECT_EQ(parsePeerAddress("0.0.0.0:1", 4644), (PeerAddress{"0.0.0.0", 1}));
  EXPECT_EQ(parsePeerAddress("255.255.255.255:65535", 4644), (PeerAddress{"255.255.255.255", 65535}));
  const std::pair<std::string, std::vector<const char*>> complaints[] = {
      {"\" is not a port",
       {"127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1:", "127.0.0.1:-1", "127.0.0.1:080", "127.0.0.1:80:90"}},
      {"no address before the port", {":65536"}},
      {"\" is not a number from 0 to 255",
       {"300.1.1.1", "1.2.3.04:4644", "1..2.3", "10.0.0.0/8", "99999999999999999999.1.1.1"}},
      {"four numbers", {"1.2.3", "1.2.3:4644", "1.2.3.4.5"}},
      {"IPv6", {"::1", "::", "fe80::1%eth0", "[2001:db8::7]:4644"}},
      // What may be a name.
      {"", {"", ":", "22.04", "a:4644", "Sam: 1.2.3.4", "1.2.3.4 ", "1.2.3.example", "00:11:22:33:44:55"}},
  };
  for (const auto& [complaint, texts] : complaints) {
    for (const auto* text : texts) {
      EXPECT_EQ(parsePeerAddress(text, 4644), std::nullopt) << text;
      const auto found = complaintAboutAddress(text);
      EXPECT_EQ(found.has_value(), !complaint.empty()) << text;
      EXPECT_NE(found.value_or("").find(complaint), std::string::npos) << text << ": " << found.value_or("");
    }
  }
}

TEST(IPv4Range, IsReadFromAddressesAndNetworks) {
  for (const char* text : {"", "10.0.0.0/33", "10.0.0", "010.0.0.1", "10.0.0.1/", "/8", "10.0.0.0/-1", "localhost"})
    EXPECT_FALSE(parseNetwork(text)) << text;
  const auto some = parseNetwork("10.0.0.8/30");
  EXPECT_TRUE(some->contains(0x0A000008) && some->contains(0x0A00000B));
  EXPECT_FALSE(some->contains(0x0A000007) || some->contains(0x0A00000C));
  EXPECT_TRUE(parseNetwork("0.0.0.0/0")->contains(~0U));
}

}  // namespace
}  // namespace vesko

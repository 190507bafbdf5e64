#include "hosts/common/session/PeerAddress.h"

#include <gtest/gtest.h>

namespace vesko {
namespace {

TEST(PeerAddress, TellsAddressesFromMistakesAndFromNames) {
  const struct {
    const char* text;
    std::optional<PeerAddress> address;
    std::string complaint;  ///< a part of it; "" for an address and for what may be a name
  } cases[] = {
      {"192.0.2.7", PeerAddress{"192.0.2.7", 4644}, ""},
      {"0.0.0.0:1", PeerAddress{"0.0.0.0", 1}, ""},
      {"255.255.255.255:65535", PeerAddress{"255.255.255.255", 65535}, ""},
      {"127.0.0.1:0", {}, "\"0\" is not a port"},
      {"127.0.0.1:65536", {}, "\"65536\" is not a port"},
      {"127.0.0.1:", {}, "\"\" is not a port"},
      {"127.0.0.1:http", {}, "\"http\" is not a port"},
      {"127.0.0.1:-1", {}, "\"-1\" is not a port"},
      {"127.0.0.1:080", {}, "\"080\" is not a port"},
      {"127.0.0.1:80:90", {}, "\"80:90\" is not a port"},
      {":65536", {}, "no address before the port"},
      {"300.1.1.1", {}, "\"300\" is not a number from 0 to 255"},
      {"1.2.3.04:4644", {}, "\"04\" is not a number from 0 to 255"},
      {"1..2.3", {}, "\"\" is not a number from 0 to 255"},
      {"10.0.0.0/8", {}, "\"0/8\" is not a number from 0 to 255"},
      {"99999999999999999999.1.1.1", {}, "is not a number from 0 to 255"},
      {"1.2.3", {}, "four numbers"},
      {"1.2.3:4644", {}, "four numbers"},
      {"1.2.3.4.5", {}, "four numbers"},
      {"::1", {}, "IPv6"},
      {"::", {}, "IPv6"},
      {"fe80::1%eth0", {}, "IPv6"},
      {"[2001:db8::7]:4644", {}, "IPv6"},
      {"2001:db8:0:0:0:0:0:7", {}, "IPv6"},
      {"", {}, ""},
      {":", {}, ""},
      {"...", {}, ""},
      {"22.04", {}, ""},
      {"4711", {}, ""},
      {"a:4644", {}, ""},
      {"Sam: 1.2.3.4", {}, ""},
      {"1.2.3.4 ", {}, ""},
      {"1.2.3.example", {}, ""},
      {"00:11:22:33:44:55", {}, ""},
      {"std::face", {}, ""},
  };
  for (const auto& [text, address, complaint] : cases) {
    EXPECT_EQ(parsePeerAddress(text, 4644), address) << text;
    const auto found = complaintAboutAddress(text);
    EXPECT_EQ(found.has_value(), !complaint.empty()) << text;
    EXPECT_NE(found.value_or("").find(complaint), std::string::npos) << text << ": " << found.value_or("");
  }
}

}  // namespace
}  // namespace vesko

#include "VeskoKit/DiscoveryDatagram.h"

#include <gtest/gtest.h>

namespace vesko {
namespace {

using namespace std::string_literals;

TEST(DiscoveryDatagram, WritesAndReadsTheBytesOfEachType) {
  const std::pair<DiscoveryDatagram, std::string> cases[] = {
      {DiscoveryHello{true, {}, "S"}, "\1S"},
      {DiscoveryHello{false, {}, "S"}, "\2S"},
      {DiscoveryGoodbye(), "\3Bye Bye"},
      {DiscoveryHello{true, 5000, "S"}, "\4\x88\x13S"},
      {DiscoveryHello{false, 5000, "S"}, "\5\x88\x13S"},
      {DiscoveryHello{false, 65535, ""}, "\5\xFF\xFF"},
      {DiscoveryHello{true, {}, ""}, "\1"},
      {DiscoveryHello{true, {}, "\0é\n"s}, "\1\0é\n"s},
  };
  for (const auto& [datagram, bytes] : cases) {
    EXPECT_EQ(encodeDiscoveryDatagram(datagram), bytes);
    EXPECT_EQ(decodeDiscoveryDatagram(bytes), datagram) << testing::PrintToString(bytes);
  }
  EXPECT_EQ(decodeDiscoveryDatagram("\3"), DiscoveryDatagram(DiscoveryGoodbye())) << "the farewell is not looked at";
}

TEST(DiscoveryDatagram, RefusesWhatIsNone) {
  const std::string cases[] = {""s,       "\0S"s,    "\6S"s,    "\xFFS"s,          "\4"s,
                               "\5\x88"s, "\1\xC3"s, "\2\x80"s, "\4\x88\x13\xFF"s, "\1\xED\xA0\x80"s};
  for (const auto& bytes : cases)
    EXPECT_EQ(decodeDiscoveryDatagram(bytes), std::nullopt) << testing::PrintToString(bytes);
}

TEST(DiscoveryDatagram, CutsLongSignaturesBetweenCharacters) {
  const std::string longest(signatureLimit, 'x');
  const std::string split = std::string(signatureLimit - 1, 'x') + "é";
  const std::pair<std::string, std::string> cases[] = {
      {longest, longest}, {longest + "y", longest}, {split, std::string(signatureLimit - 1, 'x')}};
  for (const auto& [signature, cut] : cases) {
    EXPECT_EQ(encodeDiscoveryDatagram(DiscoveryHello{true, {}, signature}), "\1" + cut);
    EXPECT_EQ(decodeDiscoveryDatagram("\1" + signature), DiscoveryDatagram(DiscoveryHello{true, {}, cut}));
  }
  const std::string noCharacters(signatureLimit + 1, '\x80');
  EXPECT_EQ(encodeDiscoveryDatagram(DiscoveryHello{true, {}, noCharacters}), "\1") << "there is nowhere to cut";
}

}  // namespace
}  // namespace vesko

#include "Platform/network/PortHolders.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>

#include "tests/support/ChildProcess.h"
#include "tests/support/RawDatagrams.h"
#include "tests/support/RawPeer.h"

namespace vesko {
namespace {

TEST(PortHolders, FindThisProcess) {
  std::optional<RawDatagrams> udp(std::in_place);
  std::optional<RawListener> tcp(std::in_place);
  const std::pair<PortProtocol, std::uint16_t> ports[] = {{PortProtocol::udp, udp->port()},
                                                          {PortProtocol::tcp, tcp->port()}};
  for (const auto& [protocol, port] : ports) {
    const auto holders = PortHolders::of(protocol, port);
    ASSERT_EQ(holders.size(), 1U);
    EXPECT_TRUE(holders[0].isOurs);
    EXPECT_EQ(holders[0].process, ::getpid());
    EXPECT_EQ(holders[0].processName, "unit_tests");
  }
  const auto expectOfStranger = [&] {
    tcp.reset();  // which the parent still holds
    EXPECT_EQ(PortHolders::of(ports[1].first, ports[1].second), (std::vector<PortHolder>{{"root", false, 0, ""}}));
  };
  EXPECT_TRUE(::geteuid() != 0 || passesAsOrdinaryUser(expectOfStranger));
  udp.reset();
  tcp.reset();
  for (const auto& [protocol, port] : ports) EXPECT_TRUE(PortHolders::of(protocol, port).empty());
}

TEST(PortHolders, ReadTablesOfAnyKind) {
  using PortHolders::entriesIn;
  using Entries = std::vector<PortHolders::SocketEntry>;
  const std::string rest = " 00000000:00000000 00:00000000 00000000  1000        0 ";
  const auto line = [&](const std::string& local, const std::string& state, const std::string& inode) {
    return "  1: " + local + " 00000000:0000 " + state + rest + inode + " 1 0000 100 0\n";
  };
  const std::string none(32, '0');
  const std::string mapped = "0000000000000000FFFF00000100007F";
  const std::string table = "  sl  local_address rem_address   st tx_queue\n" + line("0100007F:1224", "0A", "11") +
                            line("00000000:1224", "01", "12") + line("00000000:1225", "0A", "13") +
                            line(none + ":1224", "0A", "14") + line(mapped + ":1224", "0A", "15") +
                            line(none.substr(1) + "1:1224", "0A", "16");
  EXPECT_EQ(entriesIn(table, PortProtocol::tcp, 4644), (Entries{{1000, 11}, {1000, 14}, {1000, 15}}));
  EXPECT_EQ(entriesIn(table, PortProtocol::udp, 4645), (Entries{{1000, 13}}));
  const std::string broken[] = {line("00000000:1224", "0A", "x"),
                                line("000000001224", "0A", "1"),
                                line("00000000:11224", "0A", "1"),
                                line("00000000:", "0A", "1"),
                                "1: 00000000:1224\n",
                                std::string("\0\xff\n\n", 4)};
  for (const auto& text : broken) EXPECT_TRUE(entriesIn(text, PortProtocol::tcp, 4644).empty()) << text;
}

}  // namespace
}  // namespace vesko

#include "Platform/network/PortHolders.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Platform/files/FileDescriptor.h"
#include "tests/support/ChildProcess.h"

namespace vesko {
namespace {

/// A socket on a port of the system's choice.
struct BoundSocket {
  BoundSocket(int family, int type) : descriptor(::socket(family, type | SOCK_CLOEXEC, 0)) {
    sockaddr_storage address{};
    address.ss_family = static_cast<sa_family_t>(family);
    socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    if (::bind(descriptor.get(), reinterpret_cast<sockaddr*>(&address), length) != 0)
      throw std::system_error(errno, std::system_category());
    if (type == SOCK_STREAM) ::listen(descriptor.get(), 1);
    ::getsockname(descriptor.get(), reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
  }

  FileDescriptor descriptor;
  std::uint16_t port = 0;
};

TEST(PortHolders, FindThisProcess) {
  for (const int family : {AF_INET, AF_INET6}) {
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
      const auto protocol = type == SOCK_DGRAM ? PortProtocol::udp : PortProtocol::tcp;
      BoundSocket socket(family, type);
      const auto holders = PortHolders::of(protocol, socket.port);
      ASSERT_EQ(holders.size(), 1U) << family << ' ' << type;
      EXPECT_TRUE(holders[0].isOurs);
      EXPECT_EQ(holders[0].process, ::getpid());
      EXPECT_EQ(holders[0].processName, "unit_tests");
      if (::geteuid() == 0) {
        EXPECT_EQ(holders[0].user, "root");
        EXPECT_TRUE(passesAsOrdinaryUser([&] {
          socket.descriptor.reset();
          EXPECT_EQ(PortHolders::of(protocol, socket.port), (std::vector<PortHolder>{{"root", false, 0, ""}}));
        }));
      }
      socket.descriptor.reset();
      EXPECT_TRUE(PortHolders::of(protocol, socket.port).empty());
    }
  }
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

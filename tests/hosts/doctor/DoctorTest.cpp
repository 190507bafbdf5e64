#include "hosts/common/doctor/Firewall.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

InterfaceAddress interface(const char* name, const char* address, const char* netmask = "255.255.255.0") {
  return {name, address, netmask, true, true, false};
}

InterfaceKind kindOf(const std::string& name) {
  if (name == "docker0") return InterfaceKind::container;
  return name == "tun0" ? InterfaceKind::tunnel : InterfaceKind::ordinary;
}

/// Levels and texts, a line each.
std::string linesOf(const std::vector<Finding>& findings) {
  std::string lines;
  for (const auto& finding : findings) {
    lines += std::string(nameOf(finding.level)) + ": " + finding.text + '\n';
    const bool needsAdvice = finding.level >= Finding::Level::warning;
    EXPECT_TRUE(!needsAdvice || !finding.advice.empty()) << finding.text;
  }
  return lines;
}

TEST(Doctor, TellsWhereHellosGo) {
  InterfaceAddress loopback = interface("lo", "127.0.0.1", "255.0.0.0");
  loopback.isLoopback = true;
  InterfaceAddress unplugged = interface("eth1", "10.0.0.1");
  unplugged.isRunning = false;
  const auto docker = interface("docker0", "172.17.0.1", "255.255.0.0");
  const auto tunnel = interface("tun0", "10.8.0.2", "255.255.255.255");
  EXPECT_EQ(linesOf(findingsAboutInterfaces({loopback, interface("eth0", "192.168.1.20"), docker, tunnel, unplugged,
                                             interface("wlan0", "192.168.1.21")},
                                            kindOf)),
            "ok: eth0  192.168.1.20/24  broadcast 192.168.1.255\n"
            "note: docker0  172.17.0.1/16  broadcast 172.17.255.255 (containers): hellos are sent there too\n"
            "note: tun0  10.8.0.2/32  no broadcast, a link to one machine (tunnel)\n"
            "note: eth1  10.0.0.1  has no link: no hellos are sent there\n"
            "ok: wlan0  192.168.1.21/24  broadcast 192.168.1.255\n"
            "note: eth0 and wlan0 are both in 192.168.1.0/24: others may see this machine at either address\n");
  EXPECT_EQ(linesOf(findingsAboutInterfaces({loopback, docker}, kindOf)),
            "note: docker0  172.17.0.1/16  broadcast 172.17.255.255 (containers): hellos are sent there too\n"
            "warning: no interface is connected to a local network\n");
  EXPECT_EQ(linesOf(findingsAboutInterfaces({loopback}, kindOf)),
            "problem: this machine is not connected to a network\n");
}

TEST(Doctor, TellsWhoHoldsPorts) {
  const PortHolder host{"anna", true, 7, "vesko"};
  const std::pair<std::vector<PortHolder>, const char*> cases[] = {
      {{}, "ok: UDP 4644: free\n"},
      {{host}, "ok: UDP 4644 is held by \"vesko\" (process 7, user anna)\n"},
      {{host, {"anna", true, 8, "nc"}}, "problem: UDP 4644 is held by \"nc\" (process 8, user anna)\n"},
      {{{"bert", false, 0, ""}}, "problem: UDP 4644 is held by a process of user bert\n"},
      {{{"bert", false, 9, "vesko"}}, "problem: UDP 4644 is held by \"vesko\" (process 9, user bert)\n"},
  };
  for (const auto& [holders, line] : cases) {
    EXPECT_EQ(linesOf({findingAboutPort({PortProtocol::udp, 4644}, holders)}), line);
  }
  EXPECT_EQ(servicePorts(4644).back().number, 4645);
  EXPECT_EQ(servicePorts(65535).size(), 2U);
}

TEST(Doctor, TellsWhoAnswers) {
  PeerView peer;
  peer.ip = "192.168.1.7";
  peer.systemSignature = "bert at \x1b[31mhome";
  EXPECT_EQ(linesOf(findingsAboutHello({true, "", {peer}})), "ok: 192.168.1.7  bert at \x1b[31mhome\n");
  EXPECT_EQ(linesOf(findingsAboutHello({true, "", {}})), "warning: no machine answered within 2 seconds\n");
  EXPECT_EQ(linesOf(findingsAboutHello({false, "the port is taken", {}})),
            "problem: no hello could be sent: the port is taken\n");
  peer.systemSignature += '\xff';
  const auto json = nlohmann::ordered_json::parse(jsonLine(findingsAboutHello({true, "", {peer}}).front()));
  EXPECT_EQ(json.begin().key(), "event");
  EXPECT_EQ(json["level"], "ok");
  EXPECT_EQ(json["sent"], true);
  EXPECT_EQ(json["systemSignature"], "bert at \x1b[31mhome\ufffd");
}

TEST(Doctor, TellsWhatOpensWhichFirewall) {
  TemporaryFolder root;
  const auto findings = [&](bool hearsOthers = false, std::uint16_t port = 4644) {
    return findingsAboutFirewalls(firewallsOf(root.path()), port, hearsOthers);
  };
  EXPECT_EQ(linesOf(findings()),
            "note: no firewall was found; only root can see whether there are rules without one\n");
  root.write("proc/net/ip_tables_names", "nat\nfilter\n");
  root.write("sys/module/nf_tables/refcnt", "9\n");
  EXPECT_EQ(linesOf(findings()),
            "note: nftables is loaded; only root can see whether its rules block other machines\n"
            "note: iptables is loaded; only root can see whether its rules block other machines\n");

  root.write("etc/ufw/ufw.conf", "# ENABLED=yes\nENABLED=no\nLOGLEVEL=low\n");
  root.write("proc/7/comm", "firewalld-cmd\n");
  EXPECT_EQ(findings().size(), 2U);
  root.write("proc/77/comm", "firewalld\n");
  root.write("etc/ufw/ufw.conf", "ENABLED=yes\n");
  EXPECT_EQ(linesOf(findings()),
            "warning: ufw is active and may block other machines on UDP 4644 and TCP 4644-4645\n"
            "warning: firewalld is active and may block other machines on UDP 4644 and TCP 4644-4645\n");
  EXPECT_EQ(linesOf(findings(true)),
            "note: ufw is active; answers of other machines arrive on UDP 4644\n"
            "note: firewalld is active; answers of other machines arrive on UDP 4644\n");
  EXPECT_EQ(findings(false, 65535).front().advice,
            "to allow them, run `sudo ufw allow 65535/udp && sudo ufw allow 65535/tcp`");
}

}  // namespace
}  // namespace vesko

#include <array>

#include "hosts/common/doctor/Doctor.h"

namespace vesko {
namespace {

using Level = Finding::Level;

std::string describe(const FirewallProbe& probe) {
  return (probe.isUdp ? "UDP " : "TCP ") + std::to_string(probe.port) + " in from " + probe.interface.name;
}

Finding findingAboutProbe(const FirewallProbe& probe, const char* firewall, Passage passage) {
  static constexpr std::array names = {"accepted", "dropped", "unclear"};
  return {Level::good,
          "firewall",
          std::string(firewall) + " lets " + describe(probe),
          "",
          {{"firewall", firewall},
           {"protocol", probe.isUdp ? "udp" : "tcp"},
           {"port", std::int64_t{probe.port}},
           {"interface", probe.interface.name},
           {"verdict", names.at(static_cast<std::size_t>(passage))}}};
}

/// What the service needs, as two words that programs of firewalls take; `between` the ends of a range.
struct NeededPorts {
  std::string udp;
  std::string tcp;
};

NeededPorts neededPorts(const std::vector<FirewallProbe>& probes, char between) {
  NeededPorts needed;
  for (const auto& probe : probes) {
    const std::string port = std::to_string(probe.port);
    if (probe.isUdp) {
      needed.udp = port + "/udp";
    } else if (needed.tcp.empty()) {
      needed.tcp = port + "/tcp";
    } else if (needed.tcp.find(port) == std::string::npos) {
      needed.tcp = needed.tcp.substr(0, needed.tcp.find('/')) + between + port + "/tcp";
    }
  }
  return needed;
}

/// Lets the service in, in the words of whoever has charge of the firewall; empty: nobody has.
std::string adviceOfKeeper(const FirewallFacts& facts, const std::vector<FirewallProbe>& probes) {
  if (facts.isUfwActive()) {
    const auto ports = neededPorts(probes, ':');
    return "run `sudo ufw allow " + ports.udp + " && sudo ufw allow " + ports.tcp + '`';
  }
  if (!facts.isFirewalldRunning) return {};
  const auto ports = neededPorts(probes, '-');
  return "run `sudo firewall-cmd --add-port=" + ports.udp + " --add-port=" + ports.tcp +
         "`, and once more with --permanent for good";
}

std::string adviceForNftables(const FirewallProbe& probe, const std::string& chain) {
  return "run `sudo nft insert rule " + chain + (probe.isUdp ? " udp" : " tcp") + " dport " +
         std::to_string(probe.port) + " accept`, and add that to the file your rules come from";
}

Finding findingAboutNftables(const FirewallProbe& probe, const FirewallVerdict& verdict, const std::string& keeper) {
  Finding finding = findingAboutProbe(probe, "nftables", verdict.passage);
  if (verdict.passage == Passage::dropped) {
    finding.level = Level::problem;
    finding.text = "the chain " + verdict.chain + " of nftables does not let " + describe(probe) +
                   (verdict.isPolicy ? ", as no rule allows it" : ", as a rule forbids it");
    finding.advice = keeper.empty() ? adviceForNftables(probe, verdict.chain) : keeper;
    finding.fields.emplace_back("chain", verdict.chain);
  } else if (verdict.passage == Passage::unclear) {
    finding.level = Level::note;
    finding.text = "it cannot be told whether nftables lets " + describe(probe);
    finding.advice = "look through `sudo nft list ruleset`";
  }
  return finding;
}

void addNftables(const FirewallFacts& facts, const std::vector<FirewallProbe>& probes, std::vector<Finding>& findings) {
  const auto verdicts = judgeNftables(facts.ruleset, probes);
  if (facts.nftables == FirewallFacts::Access::absent) {
    findings.push_back({Level::note,
                        "firewall",
                        "nft is not installed, so the firewall's rules cannot be read",
                        "install nftables and run `sudo vesko doctor`",
                        {{"firewall", "nftables"}}});
  } else if (!verdicts) {
    findings.push_back({Level::note,
                        "firewall",
                        "the rules of nftables cannot be read without root",
                        "run `sudo vesko doctor`",
                        {{"firewall", "nftables"}}});
  } else {
    const std::string keeper = adviceOfKeeper(facts, probes);
    for (std::size_t index = 0; index < probes.size(); ++index) {
      findings.push_back(findingAboutNftables(probes[index], (*verdicts)[index], keeper));
    }
  }
  if (!facts.hasLegacyRules) return;
  findings.push_back({Level::note,
                      "firewall",
                      "there is an iptables of the older kind, too, whose rules are not read",
                      "look through `sudo iptables-legacy -S INPUT`",
                      {{"firewall", "iptables"}}});
}

void addUfw(const FirewallFacts& facts, const std::vector<FirewallProbe>& probes, std::vector<Finding>& findings) {
  if (!facts.isUfwActive()) return;
  const std::string advice = adviceOfKeeper(facts, probes);
  if (!facts.ufwRules) {
    findings.push_back({Level::note,
                        "firewall",
                        "ufw is active, and its rules cannot be read without root",
                        "run `sudo vesko doctor`, or, to be let in, " + advice,
                        {{"firewall", "ufw"}}});
    return;
  }
  for (const auto& probe : probes) {
    const Passage passage = judgeUfw(*facts.ufwRules, facts.ufwDefaults, probe);
    Finding finding = findingAboutProbe(probe, "ufw", passage);
    if (passage != Passage::accepted) {
      const bool isSure = passage == Passage::dropped;
      finding.level = isSure ? Level::problem : Level::warning;
      finding.text = (isSure ? "ufw does not let " : "ufw may not let ") + describe(probe);
      finding.advice = advice;
    }
    findings.push_back(std::move(finding));
  }
}

void addFirewalld(const FirewallFacts& facts, const std::vector<FirewallProbe>& probes,
                  std::vector<Finding>& findings) {
  if (!facts.isFirewalldRunning) return;
  if (facts.zones.empty()) {
    findings.push_back({Level::note,
                        "firewall",
                        "firewalld is running and does not tell which ports it lets in",
                        "run `sudo vesko doctor`, or, to be let in, " + adviceOfKeeper(facts, probes),
                        {{"firewall", "firewalld"}}});
  }
  for (const auto& zone : facts.zones) {
    for (const auto& probe : probes) {
      if (probe.interface.name != zone.interface) continue;
      const bool isIncluded = includesPort(zone.ports, probe);
      Finding finding = findingAboutProbe(probe, "firewalld", isIncluded ? Passage::accepted : Passage::unclear);
      finding.fields.emplace_back("zone", zone.name);
      if (!isIncluded) {
        // The zone may let it in by a service, a rule or as a whole.
        finding.level = Level::warning;
        finding.text = "the open ports of firewalld's zone " + zone.name + " do not let " + describe(probe);
        finding.advice = adviceOfKeeper(facts, probes);
      }
      findings.push_back(std::move(finding));
    }
  }
}

}  // namespace

std::vector<Finding> findingsAboutFirewalls(const FirewallFacts& facts, const std::vector<FirewallProbe>& probes) {
  std::vector<Finding> findings;
  addNftables(facts, probes, findings);
  addUfw(facts, probes, findings);
  addFirewalld(facts, probes, findings);
  return findings;
}

}  // namespace vesko

#include "hosts/common/doctor/Firewall.h"

#include <string_view>
#include <system_error>

#include "Platform/files/FileManager.h"
#include "Platform/user/Identity.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
using Level = Finding::Level;

std::string contentsOf(const fs::path& path) { return FileManager::contentsAtPath(path).value_or(""); }

/// Processes come and go meanwhile; those that have gone have no name.
bool runs(const fs::path& processes, const std::string& name) {
  std::error_code error;
  for (fs::directory_iterator at(processes, error), end; !error && at != end; at.increment(error)) {
    if (contentsOf(at->path() / "comm") == name + '\n') return true;
  }
  return false;
}

bool isLoaded(const fs::path& modules, const char* module) {
  std::error_code error;
  return fs::exists(modules / module, error);
}

std::string tcpPorts(std::uint16_t port, char between) {
  return std::to_string(port) + (port < 65535 ? between + std::to_string(port + 1) : "");
}

Finding findingAboutKeeper(const std::string& name, std::uint16_t port, bool hearsOthers, const std::string& command) {
  const std::string here = " UDP " + std::to_string(port);
  if (hearsOthers) {
    return {Level::note,
            "firewall",
            name + " is active, and lets in what other machines answer on" + here,
            "if transfers do not come in, " + command,
            {{"firewall", name}}};
  }
  return {Level::warning,
          "firewall",
          name + " is active, and may keep other machines from" + here + " and TCP " + tcpPorts(port, '-'),
          "to let them in, " + command,
          {{"firewall", name}}};
}

std::string adviceOnNftables(std::uint16_t port) {
  const std::string rule = "insert rule inet filter input ";
  return "look through `sudo nft list ruleset`; where packets pass the chain input of table inet filter, `sudo nft '" +
         rule + "udp dport " + std::to_string(port) + " accept; " + rule + "tcp dport " + tcpPorts(port, '-') +
         " accept'` lets them in, and so for good does the same in the file your rules come from";
}

std::string adviceOnIptables(std::uint16_t port) {
  const std::string rule = "sudo iptables -I INPUT -j ACCEPT -p ";
  return "look through `sudo iptables -S INPUT`; `" + rule + "udp --dport " + std::to_string(port) + " && " + rule +
         "tcp --dport " + tcpPorts(port, ':') + "` lets them in, until the next start";
}

Finding findingAboutRules(const std::string& name, const std::string& advice) {
  return {Level::note,
          "firewall",
          name + " is loaded, and whether its rules keep other machines out only root can tell",
          advice,
          {{"firewall", name}}};
}

}  // namespace

Firewalls firewallsOf(const fs::path& root) {
  Firewalls firewalls;
  firewalls.hasUfw = Identity::assignedValue(contentsOf(root / "etc/ufw/ufw.conf"), "ENABLED") == "yes";
  firewalls.hasFirewalld = runs(root / "proc", "firewalld");
  // A kernel that has them built in tells nobody but root, and of the older kind alone.
  firewalls.hasNftables = isLoaded(root / "sys/module", "nf_tables");
  firewalls.hasIptables = isLoaded(root / "sys/module", "iptable_filter") ||
                          contentsOf(root / "proc/net/ip_tables_names").find("filter") != std::string::npos;
  return firewalls;
}

std::vector<Finding> findingsAboutFirewalls(const Firewalls& firewalls, std::uint16_t port, bool hearsOthers) {
  const std::string udp = std::to_string(port);
  std::vector<Finding> findings;
  if (firewalls.hasUfw) {
    findings.push_back(
        findingAboutKeeper("ufw", port, hearsOthers,
                           "run `sudo ufw allow " + udp + "/udp && sudo ufw allow " + tcpPorts(port, ':') + "/tcp`"));
  }
  if (firewalls.hasFirewalld) {
    findings.push_back(findingAboutKeeper("firewalld", port, hearsOthers,
                                          "run `sudo firewall-cmd --add-port=" + udp + "/udp --add-port=" +
                                              tcpPorts(port, '-') + "/tcp`, and once more with --permanent for good"));
  }
  // The rules in the kernel are those of the ones above.
  if (!findings.empty()) return findings;
  if (firewalls.hasNftables) findings.push_back(findingAboutRules("nftables", adviceOnNftables(port)));
  if (firewalls.hasIptables) findings.push_back(findingAboutRules("iptables", adviceOnIptables(port)));
  if (!findings.empty()) return findings;
  return {{Level::note,
           "firewall",
           "no firewall is to be seen; whether there are rules all the same only root can tell",
           adviceOnNftables(port),
           {{"firewall", ""}}}};
}

}  // namespace vesko

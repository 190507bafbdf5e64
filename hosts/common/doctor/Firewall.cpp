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

/// True when a process of this name runs. Processes may end meanwhile; their files are then empty or missing.
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

/// About a firewall manager that is active. `command` allows the service.
Finding findingAboutKeeper(const std::string& name, std::uint16_t port, bool hearsOthers, const std::string& command) {
  const std::string here = " UDP " + std::to_string(port);
  if (hearsOthers) {
    return {Level::note,
            "firewall",
            name + " is active; answers of other machines arrive on" + here,
            "if transfers do not arrive, " + command,
            {{"firewall", name}}};
  }
  return {Level::warning,
          "firewall",
          name + " is active and may block other machines on" + here + " and TCP " + tcpPorts(port, '-'),
          "to allow them, " + command,
          {{"firewall", name}}};
}

std::string adviceOnNftables(std::uint16_t port) {
  const std::string rule = "insert rule inet filter input ";
  return "check `sudo nft list ruleset`; if packets pass the chain input of the table inet filter, `sudo nft '" + rule +
         "udp dport " + std::to_string(port) + " accept; " + rule + "tcp dport " + tcpPorts(port, '-') +
         " accept'` allows them until the next start; add the same rules to the file of your rules to keep them";
}

std::string adviceOnIptables(std::uint16_t port) {
  const std::string rule = "sudo iptables -I INPUT -j ACCEPT -p ";
  return "check `sudo iptables -S INPUT`; `" + rule + "udp --dport " + std::to_string(port) + " && " + rule +
         "tcp --dport " + tcpPorts(port, ':') + "` allows them until the next start";
}

Finding findingAboutRules(const std::string& name, const std::string& advice) {
  return {Level::note,
          "firewall",
          name + " is loaded; only root can see whether its rules block other machines",
          advice,
          {{"firewall", name}}};
}

}  // namespace

Firewalls firewallsOf(const fs::path& root) {
  Firewalls firewalls;
  firewalls.hasUfw = Identity::assignedValue(contentsOf(root / "etc/ufw/ufw.conf"), "ENABLED") == "yes";
  firewalls.hasFirewalld = runs(root / "proc", "firewalld");
  // /sys/module lists only modules. When iptables is built into the kernel, ip_tables_names shows it, to root only.
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
                                          "run `sudo firewall-cmd --add-port=" + udp +
                                              "/udp --add-port=" + tcpPorts(port, '-') +
                                              "/tcp`, and again with --permanent to keep it after a restart"));
  }
  // ufw and firewalld load nftables or iptables themselves, so those need no finding of their own.
  if (!findings.empty()) return findings;
  if (firewalls.hasNftables) findings.push_back(findingAboutRules("nftables", adviceOnNftables(port)));
  if (firewalls.hasIptables) findings.push_back(findingAboutRules("iptables", adviceOnIptables(port)));
  if (!findings.empty()) return findings;
  return {{Level::note,
           "firewall",
           "no firewall was found; only root can see whether there are rules without one",
           adviceOnNftables(port),
           {{"firewall", ""}}}};
}

}  // namespace vesko

#include "hosts/common/doctor/Doctor.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "VeskoKit/NetInfo.h"

namespace vesko {
namespace {

using Level = Finding::Level;

/// Containers and tunnels have networks of their own; other machines of the local network are not in them.
bool leadsToMachines(InterfaceKind kind) { return kind != InterfaceKind::container && kind != InterfaceKind::tunnel; }

const char* nameOf(InterfaceKind kind) {
  static constexpr std::array names = {"ordinary", "wireless", "bridge", "container", "tunnel"};
  return names.at(static_cast<std::size_t>(kind));
}

/// The name without the label of a further address, which follows a colon ("eth0:1").
std::string deviceOf(const InterfaceAddress& interface) { return interface.name.substr(0, interface.name.find(':')); }

NetInfo infoOf(const InterfaceAddress& interface) { return {interface.address, interface.netmask}; }

/// Networks of one or two addresses have no broadcast address.
bool hasBroadcast(const InterfaceAddress& interface) { return infoOf(interface).cidr() < 31; }

std::string remarkOn(InterfaceKind kind, bool isReached) {
  const std::string reach = isReached ? ": hellos are sent there too" : "";
  if (kind == InterfaceKind::bridge) return " (bridge)";
  if (kind == InterfaceKind::container) return " (containers)" + reach;
  return kind == InterfaceKind::tunnel ? " (tunnel)" + reach : "";
}

Finding findingAboutUnusable(const InterfaceAddress& interface) {
  const char* state = !interface.isUp ? "is switched off" : !interface.isRunning ? "has no link" : "has no netmask";
  return {Level::note,
          "interface",
          interface.name + "  " + interface.address + "  " + state + ": no hellos are sent there",
          "",
          {}};
}

Finding findingAboutInterface(const InterfaceAddress& interface, InterfaceKind kind) {
  Finding finding;
  if (!interface.isUsable()) {
    finding = findingAboutUnusable(interface);
  } else {
    const NetInfo info = infoOf(interface);
    const bool hasNobodyElse = !hasBroadcast(interface);
    finding.text = interface.name + "  " + interface.address + '/' + std::to_string(info.cidr());
    finding.text += hasNobodyElse ? "  no broadcast, a link to one machine" : "  broadcast " + info.broadcast();
    finding.text += remarkOn(kind, !hasNobodyElse);
    finding.level = hasNobodyElse || !leadsToMachines(kind) ? Level::note : Level::good;
    if (hasNobodyElse) finding.advice = "send to the other machine by its address: --to ADDRESS";
    finding.fields = {{"broadcast", hasNobodyElse ? "" : info.broadcast()}, {"prefix", std::int64_t{info.cidr()}}};
  }
  finding.topic = "interface";
  finding.fields.insert(finding.fields.begin(),
                        {{"name", interface.name}, {"address", interface.address}, {"kind", nameOf(kind)}});
  return finding;
}

/// A note for each interface that is in the same network as an earlier one.
std::vector<Finding> findingsAboutSharedNetworks(const std::vector<InterfaceAddress>& usable) {
  std::vector<Finding> findings;
  for (auto later = usable.begin(); later != usable.end(); ++later) {
    const auto network = infoOf(*later).network();
    const auto earlier = std::find_if(usable.begin(), later, [&](const auto& other) {
      return deviceOf(other) != deviceOf(*later) && other.netmask == later->netmask &&
             infoOf(other).network() == network;
    });
    if (earlier == later || !hasBroadcast(*later)) continue;
    findings.push_back({Level::note,
                        "interface",
                        earlier->name + " and " + later->name + " are both in " + network + '/' +
                            std::to_string(infoOf(*later).cidr()) + ": others may see this machine at either address",
                        "",
                        {{"name", later->name}, {"other", earlier->name}, {"network", network}}});
  }
  return findings;
}

std::string describe(PortProtocol protocol, std::uint16_t port) {
  return (protocol == PortProtocol::udp ? "UDP " : "TCP ") + std::to_string(port);
}

std::string describe(const PortHolder& holder) {
  if (holder.process == 0) return "a process of user " + holder.user;
  return '"' + holder.processName + "\" (process " + std::to_string(holder.process) + ", user " + holder.user + ')';
}

}  // namespace

std::string_view nameOf(Finding::Level level) noexcept {
  switch (level) {
    case Level::good:
      return "ok";
    case Level::note:
      return "note";
    case Level::warning:
      return "warning";
    case Level::problem:
      break;
  }
  return "problem";
}

std::string jsonLine(const Finding& finding) {
  using Json = nlohmann::ordered_json;
  Json object = {{"event", "finding"},
                 {"level", nameOf(finding.level)},
                 {"topic", finding.topic},
                 {"text", finding.text},
                 {"advice", finding.advice}};
  for (const auto& [name, value] : finding.fields) {
    std::visit([&object, &key = name](const auto& any) { object[key] = any; }, value);
  }
  return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::vector<Finding> findingsAboutInterfaces(const std::vector<InterfaceAddress>& interfaces,
                                             const KindOfInterface& kindOf) {
  std::vector<Finding> findings;
  std::vector<InterfaceAddress> usable;
  bool leadsSomewhere = false;
  for (const auto& interface : interfaces) {
    if (interface.isLoopback) continue;
    const InterfaceKind kind = kindOf(interface.name);
    findings.push_back(findingAboutInterface(interface, kind));
    if (!interface.isUsable()) continue;
    usable.push_back(interface);
    leadsSomewhere = leadsSomewhere || (leadsToMachines(kind) && hasBroadcast(interface));
  }
  std::ranges::move(findingsAboutSharedNetworks(usable), std::back_inserter(findings));
  if (usable.empty()) {
    findings.push_back({Level::problem,
                        "interface",
                        "this machine is not connected to a network",
                        "plug in a cable or join a wireless network",
                        {}});
  } else if (!leadsSomewhere) {
    findings.push_back({Level::warning,
                        "interface",
                        "no interface is connected to a local network",
                        "plug in a cable or join a wireless network",
                        {}});
  }
  return findings;
}

std::vector<ServicePort> servicePorts(std::uint16_t port) {
  std::vector<ServicePort> ports = {{PortProtocol::udp, port}, {PortProtocol::tcp, port}};
  if (port < 65535) ports.push_back({PortProtocol::tcp, static_cast<std::uint16_t>(port + 1)});
  return ports;
}

Finding findingAboutPort(const ServicePort& port, const std::vector<PortHolder>& holders) {
  const std::string name = describe(port.protocol, port.number);
  Finding finding{Level::good, "port", name + ": free", "", {}};
  finding.fields = {{"protocol", port.protocol == PortProtocol::udp ? "udp" : "tcp"},
                    {"port", std::int64_t{port.number}}};
  if (holders.empty()) return finding;
  // A host of this user may hold the ports: the other commands ask it for its peers. Any other program is in the way.
  const auto isHost = [](const PortHolder& holder) { return holder.isOurs && holder.processName.starts_with("vesko"); };
  const auto stranger = std::ranges::find_if_not(holders, isHost);
  const PortHolder& named = stranger == holders.end() ? holders.front() : *stranger;
  finding.text = name + " is held by " + describe(named);
  if (stranger != holders.end()) {
    finding.level = Level::problem;
    finding.advice = "stop it, or choose other ports with --port";
  }
  finding.fields.emplace_back("user", named.user);
  if (named.process != 0) finding.fields.emplace_back("process", std::int64_t{named.process});
  if (named.process != 0) finding.fields.emplace_back("name", named.processName);
  return finding;
}

std::vector<Finding> findingsAboutHello(const HelloCheck& check) {
  if (!check.wasSent) {
    return {{Level::problem,
             "hello",
             "no hello could be sent: " + check.obstacle,
             "fix the interfaces and ports above first",
             {{"sent", false}}}};
  }
  std::vector<Finding> findings;
  for (const auto& peer : check.answers) {
    findings.push_back({Level::good,
                        "hello",
                        peer.ip + "  " + peer.systemSignature,
                        "",
                        {{"sent", true},
                         {"ip", peer.ip},
                         {"port", std::int64_t{peer.port}},
                         {"systemSignature", peer.systemSignature}}});
  }
  if (!findings.empty()) return findings;
  return {{Level::warning,
           "hello",
           "no machine answered within 2 seconds",
           "check that `vesko receive` runs on the other machine, that both use the same network and the same --port, "
           "that its firewall allows vesko, and that the access point does not isolate its clients",
           {{"sent", true}}}};
}

}  // namespace vesko

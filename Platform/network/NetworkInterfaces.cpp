#include "Platform/network/NetworkInterfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <system_error>

#include "Platform/network/IPv4Address.h"

namespace vesko::NetworkInterfaces {
namespace {

std::string textOf(const sockaddr* address) {
  if (address == nullptr) return {};
  return textOfIPv4(ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr));
}

/// Names that programs for containers and virtual machines give to the interfaces they make. Other machines of the
/// local network are not behind them, whatever the system takes them for.
bool isNameOfContainer(std::string_view name) {
  constexpr std::array<std::string_view, 9> prefixes = {"docker", "veth",   "virbr", "lxc",    "lxd",
                                                        "cni",    "podman", "vmnet", "vboxnet"};
  constexpr std::string_view bridgeOfContainers = "br-";
  constexpr std::size_t identifierLength = 12;
  const auto begins = [name](std::string_view prefix) { return name.starts_with(prefix); };
  if (std::ranges::any_of(prefixes, begins)) return true;
  return begins(bridgeOfContainers) && name.size() == bridgeOfContainers.size() + identifierLength &&
         name.find_first_not_of("0123456789abcdef", bridgeOfContainers.size()) == std::string_view::npos;
}

/// What the system tells of one interface.
class SystemFolder {
 public:
  explicit SystemFolder(const std::string& name) : path_("/sys/class/net/" + name + "/") {}

  [[nodiscard]] bool has(const std::string& entry) const {
    std::error_code error;
    return std::filesystem::exists(path_ + entry, error);
  }

  /// The value behind DEVTYPE=; empty for most kinds of interfaces.
  [[nodiscard]] std::string deviceType() const {
    constexpr std::string_view key = "DEVTYPE=";
    std::ifstream events(path_ + "uevent");
    for (std::string line; std::getline(events, line);) {
      if (line.starts_with(key)) return line.substr(key.size());
    }
    return {};
  }

  [[nodiscard]] int hardwareType() const {
    int type = ARPHRD_ETHER;
    std::ifstream(path_ + "type") >> type;
    return type;
  }

 private:
  std::string path_;
};

bool isTunnel(const SystemFolder& folder, const std::string& deviceType) {
  constexpr std::array<std::string_view, 7> deviceTypes = {"wireguard", "vxlan",   "geneve", "gtp",
                                                           "ppp",       "bareudp", "l2tpeth"};
  constexpr std::array<int, 5> hardwareTypes = {ARPHRD_NONE, ARPHRD_TUNNEL, ARPHRD_SIT, ARPHRD_IPGRE, ARPHRD_PPP};
  return folder.has("tun_flags") || std::ranges::find(deviceTypes, deviceType) != deviceTypes.end() ||
         std::ranges::find(hardwareTypes, folder.hardwareType()) != hardwareTypes.end();
}

}  // namespace

std::vector<InterfaceAddress> all() {
  ifaddrs* first = nullptr;
  if (::getifaddrs(&first) != 0) return {};
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> list(first, &::freeifaddrs);
  std::vector<InterfaceAddress> addresses;
  for (const ifaddrs* one = first; one != nullptr; one = one->ifa_next) {
    if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) continue;
    const auto has = [one](unsigned flag) { return (one->ifa_flags & flag) != 0; };
    addresses.push_back({.name = one->ifa_name,
                         .address = textOf(one->ifa_addr),
                         .netmask = textOf(one->ifa_netmask),
                         .isUp = has(IFF_UP),
                         .isRunning = has(IFF_RUNNING),
                         .isLoopback = has(IFF_LOOPBACK)});
  }
  return addresses;
}

InterfaceKind kindOf(const std::string& name) {
  if (isNameOfContainer(name)) return InterfaceKind::container;
  // What follows a colon is the label of one address of the interface.
  const std::string interface = name.substr(0, name.find(':'));
  // These are no interface's and would lead elsewhere in the file system.
  if (interface.empty() || interface == "." || interface == ".." || interface.find('/') != std::string::npos) {
    return InterfaceKind::ordinary;
  }
  const SystemFolder folder(interface);
  const std::string deviceType = folder.deviceType();
  if (folder.has("wireless") || folder.has("phy80211") || deviceType == "wlan") return InterfaceKind::wireless;
  if (folder.has("bridge") || deviceType == "bridge") return InterfaceKind::bridge;
  return isTunnel(folder, deviceType) ? InterfaceKind::tunnel : InterfaceKind::ordinary;
}

}  // namespace vesko::NetworkInterfaces

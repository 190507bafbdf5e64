#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/network/NetworkInterfaces.h"
#include "Platform/network/PortHolders.h"
#include "hosts/common/events/Events.h"

// The checks of `vesko doctor`: reasons on this machine why no other machine is found. The functions turn facts, which
// the caller collects, into findings. Texts may contain control characters: escape them before printing; `jsonLine`
// does. Pure functions; any thread.
namespace vesko {

/// One result of a check.
struct Finding {
  enum class Level : std::uint8_t { good, note, warning, problem };

  Level level = Level::good;
  std::string topic;   ///< "interface", "port", "hello" or "firewall"
  std::string text;    ///< the result, for people
  std::string advice;  ///< what to do about it; never empty for warnings and problems
  std::vector<std::pair<std::string, std::variant<bool, std::int64_t, std::string>>>
      fields;  ///< the result, for programs
};

/// "ok", "note", "warning" or "problem".
[[nodiscard]] std::string_view nameOf(Finding::Level level) noexcept;

/// `finding` as one JSON object on one line, without a line feed; the first field is "event".
[[nodiscard]] std::string jsonLine(const Finding& finding);

/// Returns the kind of the interface `name`.
using KindOfInterface = std::function<InterfaceKind(const std::string& name)>;

/// Where hellos are sent: one finding for each address, without loopback, then what is unusual about all of them
/// together.
[[nodiscard]] std::vector<Finding> findingsAboutInterfaces(const std::vector<InterfaceAddress>& interfaces,
                                                           const KindOfInterface& kindOf);

/// A port that the service uses.
struct ServicePort {
  PortProtocol protocol = PortProtocol::udp;
  std::uint16_t number = 0;
};

/// The ports of a service on `port`: discovery (UDP), transfers (TCP) and, one above, pictures (TCP; none above 65535).
[[nodiscard]] std::vector<ServicePort> servicePorts(std::uint16_t port);

/// Whether the service can use `port`: it is free, or only hosts of this user hold it. `holders`: who has bound it.
[[nodiscard]] Finding findingAboutPort(const ServicePort& port, const std::vector<PortHolder>& holders);

/// Result of broadcasting a hello.
///
/// An answer proves that broadcasts leave this machine and that datagrams of the other one come in on the UDP port. It
/// proves nothing about TCP, so transfers may still be blocked. No answer proves nothing: there may be no other
/// machine.
struct HelloCheck {
  bool wasSent = false;
  std::string obstacle;           ///< why it could not be sent
  std::vector<PeerView> answers;  ///< the machines heard within 2 seconds
};

/// One finding for each machine that was heard, or one warning or problem.
[[nodiscard]] std::vector<Finding> findingsAboutHello(const HelloCheck& check);

}  // namespace vesko

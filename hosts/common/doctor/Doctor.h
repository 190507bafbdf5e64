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

// Why nobody is found: what speaks for and against it on this machine. But for `jsonLine`, texts are unescaped. Pure
// functions; any thread.
namespace vesko {

/// Something that was found, good or bad.
struct Finding {
  enum class Level : std::uint8_t { good, note, warning, problem };

  Level level = Level::good;
  std::string topic;   ///< "interface", "port", "hello" or "firewall"
  std::string text;    ///< what was found
  std::string advice;  ///< what to do about it; may be empty
  std::vector<std::pair<std::string, std::variant<bool, std::int64_t, std::string>>> fields;  ///< the same for programs
};

/// "ok", "note", "warning" or "problem".
[[nodiscard]] std::string_view nameOf(Finding::Level level) noexcept;

/// `finding` as one JSON object on one line, without the line's end; its first field is "event".
[[nodiscard]] std::string jsonLine(const Finding& finding);

/// Tells what an interface of this name is.
using KindOfInterface = std::function<InterfaceKind(const std::string& name)>;

/// Which networks hellos go to.
[[nodiscard]] std::vector<Finding> findingsAboutInterfaces(const std::vector<InterfaceAddress>& interfaces,
                                                           const KindOfInterface& kindOf);

/// One of the ports of the service.
struct ServicePort {
  PortProtocol protocol = PortProtocol::udp;
  std::uint16_t number = 0;
};

/// The ports of the service on port `port`: hellos, transfers, pictures.
[[nodiscard]] std::vector<ServicePort> servicePorts(std::uint16_t port);

/// Whether `port`, which `holders` hold, can be ours, or is.
[[nodiscard]] Finding findingAboutPort(const ServicePort& port, const std::vector<PortHolder>& holders);

/// What came of saying hello to all.
struct HelloCheck {
  bool wasSent = false;
  std::string obstacle;           ///< why it was not sent
  std::vector<PeerView> answers;  ///< who was heard within two seconds
};

[[nodiscard]] std::vector<Finding> findingsAboutHello(const HelloCheck& check);

}  // namespace vesko

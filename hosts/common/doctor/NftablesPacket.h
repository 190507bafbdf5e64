#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "hosts/common/doctor/Nftables.h"
#include "hosts/common/session/NumberRange.h"

namespace vesko {

/// In ascending order: the least of several is what they come to together, the greatest what any of them does.
enum class Certainty : std::uint8_t { no, perhaps, yes };

/// What is known of one property of a packet.
struct PacketField {
  enum class Kind : std::uint8_t { missing, unknown, number, name };

  Kind kind = Kind::unknown;
  std::vector<NumberRange> numbers;  ///< the value is in one of these
  std::vector<std::string> names;    ///< all names of the value; none: it has no name

  /// Whether the property has the one value, range or prefix `value`.
  [[nodiscard]] Certainty equals(const nlohmann::json& value) const;

  /// Whether it has one of `values`, a list.
  [[nodiscard]] Certainty isOneOf(const nlohmann::json& values) const;

  /// Whether it compares so, by an operator of nftables but "!=", with a value or a list of flags.
  [[nodiscard]] Certainty compares(const std::string& comparison, const nlohmann::json& right) const;
};

/// The packet of a probe, as the expressions of nftables see it.
class NftablesPacket {
 public:
  explicit NftablesPacket(const FirewallProbe& probe);

  /// Whether the packet has met the tracking of connections, which it meets on its way.
  void setTracked(bool isTracked) noexcept { isTracked_ = isTracked; }

  /// What `expression`, the left side of a match or the key of a map, stands for.
  [[nodiscard]] PacketField field(const nlohmann::json& expression) const;

 private:
  [[nodiscard]] PacketField connectionField(const std::string& key) const;
  [[nodiscard]] PacketField metaField(const std::string& key) const;
  [[nodiscard]] PacketField payloadField(const std::string& protocol, const std::string& name) const;
  [[nodiscard]] PacketField fibField(const nlohmann::json& fib) const;

  const bool isUdp_;
  const NumberRange port_;
  const std::string interface_;
  std::vector<NumberRange> sources_;
  std::vector<NumberRange> destinations_;
  bool isTracked_ = true;
};

/// Lenient looks at a list of rules, whose form varies with the version of nft.
namespace NftablesJson {

/// The member `key` of an object; null when there is none.
[[nodiscard]] const nlohmann::json& member(const nlohmann::json& object, const char* key);

/// The text that is the member `key` of an object; empty when there is none.
[[nodiscard]] std::string textOf(const nlohmann::json& object, const char* key);

}  // namespace NftablesJson
}  // namespace vesko

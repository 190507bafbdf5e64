#include "hosts/common/doctor/NftablesPacket.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace vesko {
namespace {

using Json = nlohmann::json;
using Kind = PacketField::Kind;
using NftablesJson::member;
using NftablesJson::textOf;

constexpr std::uint32_t largest = ~std::uint32_t{0};

PacketField numberIn(std::vector<NumberRange> ranges) { return {Kind::number, std::move(ranges), {}}; }

PacketField named(std::vector<std::string> names) { return {Kind::name, {}, std::move(names)}; }

std::optional<std::uint32_t> numberOf(const Json& value) {
  if (value.is_number_unsigned() && value.get<std::uint64_t>() <= largest) return value.get<std::uint32_t>();
  if (!value.is_string()) return std::nullopt;
  const auto address = networkRange(value.get_ref<const std::string&>());
  return address ? std::optional(address->first) : std::nullopt;
}

std::optional<NumberRange> rangeOf(const Json& value) {
  if (const auto number = numberOf(value)) return NumberRange{*number, *number};
  if (const Json& range = member(value, "range"); range.is_array() && range.size() == 2) {
    const auto first = numberOf(range[0]);
    const auto last = numberOf(range[1]);
    if (first && last) return NumberRange{*first, *last};
  }
  const Json& prefix = member(value, "prefix");
  const auto bits = numberOf(member(prefix, "len"));
  return bits ? networkRange(textOf(prefix, "addr"), *bits) : std::nullopt;
}

Certainty isWithin(const std::vector<NumberRange>& numbers, const NumberRange& range) {
  if (std::ranges::all_of(numbers, [&](const auto& part) { return range.contains(part); })) return Certainty::yes;
  const bool touches = std::ranges::any_of(numbers, [&](const auto& part) { return range.touches(part); });
  return touches ? Certainty::perhaps : Certainty::no;
}

/// Names of interfaces may end in a star.
bool fits(const std::string& name, const std::string& pattern) {
  if (pattern.ends_with('*')) return name.starts_with(std::string_view(pattern).substr(0, pattern.size() - 1));
  return name == pattern;
}

Certainty isNamed(const std::vector<std::string>& names, const Json& value) {
  const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
  if (value.is_structured() || text.starts_with('@')) return Certainty::perhaps;
  const bool isIt = std::ranges::any_of(names, [&](const auto& name) { return fits(name, text); });
  return isIt ? Certainty::yes : Certainty::no;
}

/// What a mask leaves of flags, of which a packet of ours has one at most.
PacketField masked(const PacketField& field, const Json& mask) {
  if (field.kind == Kind::missing) return field;
  const bool isLeft = field.kind == Kind::name && field.compares("in", mask) == Certainty::yes;
  return isLeft ? field : PacketField{};
}

}  // namespace

const Json& NftablesJson::member(const Json& object, const char* key) {
  static const Json none;
  const auto found = object.is_object() ? object.find(key) : object.end();
  return found == object.end() ? none : *found;
}

std::string NftablesJson::textOf(const Json& object, const char* key) {
  const Json& text = member(object, key);
  return text.is_string() ? text.get<std::string>() : std::string();
}

Certainty PacketField::equals(const Json& value) const {
  if (kind == Kind::missing) return Certainty::no;
  if (kind == Kind::unknown) return Certainty::perhaps;
  const Json& element = member(member(value, "elem"), "val");
  const Json& plain = element.is_null() ? value : element;
  if (kind == Kind::name) return isNamed(names, plain);
  const auto range = rangeOf(plain);
  return range ? isWithin(numbers, *range) : Certainty::perhaps;
}

Certainty PacketField::isOneOf(const Json& values) const {
  Certainty result = Certainty::no;
  for (const Json& value : values) result = std::max(result, equals(value));
  return result;
}

Certainty PacketField::compares(const std::string& comparison, const Json& right) const {
  if (right.is_array() && comparison == "in") return isOneOf(right);
  // Several flags at once are none of ours.
  if (right.is_array() && comparison == "==") return right.size() == 1 ? isOneOf(right) : Certainty::no;
  if (comparison == "==" || comparison == "in") return equals(right);
  const auto number = numberOf(right);
  if (kind != Kind::number || !number) return Certainty::perhaps;
  if (comparison == ">=") return isWithin(numbers, {*number, largest});
  if (comparison == "<=") return isWithin(numbers, {0, *number});
  if (comparison == ">" && *number < largest) return isWithin(numbers, {*number + 1, largest});
  if (comparison == "<" && *number > 0) return isWithin(numbers, {0, *number - 1});
  return Certainty::perhaps;
}

NftablesPacket::NftablesPacket(const FirewallProbe& probe)
    : isUdp_(probe.isUdp), port_{probe.port, probe.port}, interface_(probe.interface.name) {
  const auto network = networkRange(probe.interface);
  const auto own = networkRange(probe.interface.address);
  sources_.push_back(network.value_or(NumberRange{0, largest}));
  const std::uint32_t everybody = sources_.front().last;
  if (isUdp_) {
    destinations_ = {{everybody, everybody}, {largest, largest}};
  } else {
    destinations_.push_back(own.value_or(sources_.front()));
  }
}

PacketField NftablesPacket::field(const Json& expression) const {
  if (const Json& meta = member(expression, "meta"); !meta.is_null()) return metaField(textOf(meta, "key"));
  if (const Json& payload = member(expression, "payload"); !payload.is_null()) {
    return payloadField(textOf(payload, "protocol"), textOf(payload, "field"));
  }
  if (const Json& connection = member(expression, "ct"); !connection.is_null()) {
    return connectionField(textOf(connection, "key"));
  }
  if (const Json& fib = member(expression, "fib"); !fib.is_null()) return fibField(fib);
  const Json& operands = member(expression, "&");
  if (operands.is_array() && operands.size() == 2) return masked(field(operands[0]), operands[1]);
  return {};
}

PacketField NftablesPacket::connectionField(const std::string& key) const {
  if (key == "state") return named({isTracked_ ? "new" : "invalid"});
  if (!isTracked_) return {Kind::missing, {}, {}};
  if (key == "direction") return named({"original"});
  return key == "status" ? named({}) : PacketField{};
}

PacketField NftablesPacket::metaField(const std::string& key) const {
  if (key == "iif" || key == "iifname") return named({interface_});
  if (key == "l4proto") return isUdp_ ? named({"udp", "17"}) : named({"tcp", "6"});
  if (key == "nfproto") return named({"ipv4", "2"});
  if (key == "protocol") return named({"ip"});
  if (key == "pkttype") return isUdp_ ? named({"broadcast"}) : named({"host", "unicast"});
  return {};
}

PacketField NftablesPacket::payloadField(const std::string& protocol, const std::string& name) const {
  constexpr NumberRange ephemeral{1024, 65535};
  if (protocol == "ip") {
    if (name == "saddr") return numberIn(sources_);
    if (name == "daddr") return numberIn(destinations_);
    return name == "protocol" ? metaField("l4proto") : PacketField{};
  }
  if (protocol == (isUdp_ ? "udp" : "tcp") || protocol == "th") {
    if (name == "dport") return numberIn({port_});
    if (name == "sport") return numberIn({ephemeral});
    return name == "flags" ? named({"syn"}) : PacketField{};
  }
  const bool isOfTheLink = protocol.empty() || protocol == "ether" || protocol == "vlan";
  return {isOfTheLink ? Kind::unknown : Kind::missing, {}, {}};
}

PacketField NftablesPacket::fibField(const Json& fib) const {
  const Json& flags = member(fib, "flags");
  const bool isOfSource = named({"saddr"}).compares("in", flags) == Certainty::yes;
  const std::string result = textOf(fib, "result");
  // The way back to a machine of the local network leads through the interface its packet comes in by.
  if (isOfSource) return result == "type" ? named({"unicast"}) : named({interface_, "true"});
  return result == "type" ? named({isUdp_ ? "broadcast" : "local"}) : PacketField{};
}

}  // namespace vesko

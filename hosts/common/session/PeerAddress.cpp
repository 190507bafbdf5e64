#include "hosts/common/session/PeerAddress.h"

#include <algorithm>

#include "Platform/network/IPv4Address.h"
#include "Platform/text/Numbers.h"

namespace vesko {
namespace {

constexpr std::string_view digits = "0123456789";

bool consistsOf(std::string_view text, std::string_view characters) noexcept {
  return text.find_first_not_of(characters) == std::string_view::npos;
}

/// What is wrong with a dotted address; none for a valid one.
std::optional<std::string> complaintAboutDotted(std::string_view text) {
  if (parseIPv4(text)) return std::nullopt;
  if (std::ranges::count(text, '.') != 3) return "an address has four numbers, as in 192.168.1.7";
  auto octet = text.substr(0, text.find('.'));
  while (parseIPv4Octet(octet)) {
    text.remove_prefix(octet.size() + 1);
    octet = text.substr(0, text.find('.'));
  }
  return '"' + std::string(octet) + "\" is not a number from 0 to 255 without leading zeros";
}

std::optional<std::uint16_t> parsePort(std::string_view text) {
  return text.starts_with('0') ? std::nullopt : wholeNumber<std::uint16_t>(text);
}

/// Starts with a digit and has at least two dots: with one dot, as in "22.04", it may be part of a name.
bool looksDotted(std::string_view text) {
  return consistsOf(text, "0123456789./") && text.find_first_of(digits) == 0 && std::ranges::count(text, '.') >= 2;
}

/// Accepts "::1", "fe80::1%eth0", "[2001:db8::7]:4644" and addresses with all eight numbers. It need not be exact: the
/// result only chooses the error message.
bool looksLikeIPv6(std::string_view text) {
  if (text.starts_with('[')) text.remove_prefix(1);
  text = text.substr(0, text.find_first_of("]%"));
  constexpr int mostColons = 7;
  return consistsOf(text, "0123456789abcdefABCDEF:.") &&
         (text.find("::") != std::string_view::npos || std::ranges::count(text, ':') == mostColons);
}

}  // namespace

std::optional<PeerAddress> parsePeerAddress(std::string_view text, std::uint16_t defaultPort) {
  PeerAddress address{std::string(text), defaultPort};
  if (const auto colon = text.find(':'); colon != std::string_view::npos) {
    const auto port = parsePort(text.substr(colon + 1));
    if (!port) return std::nullopt;
    address = {std::string(text.substr(0, colon)), *port};
  }
  if (!parseIPv4(address.ip)) return std::nullopt;
  return address;
}

std::optional<std::string> complaintAboutAddress(std::string_view text) {
  if (looksLikeIPv6(text)) return "IPv6 is not supported; an address looks like 192.168.1.7 or 192.168.1.7:4644";
  const auto colon = text.find(':');
  const bool hasPort = colon != std::string_view::npos;
  const auto ip = text.substr(0, colon);
  const auto port = hasPort ? text.substr(colon + 1) : std::string_view();
  if (ip.empty() && !port.empty() && consistsOf(port, digits)) return "there is no address before the port";
  if (!looksDotted(ip)) return std::nullopt;
  if (auto complaint = complaintAboutDotted(ip)) return complaint;
  if (!hasPort || parsePort(port)) return std::nullopt;
  return '"' + std::string(port) + "\" is not a port from 1 to 65535";
}

}  // namespace vesko

#include "VeskoKit/NetInfo.h"

#include <algorithm>
#include <bitset>
#include <cstddef>
#include <functional>
#include <string_view>

#include "Platform/text/Numbers.h"

namespace vesko {
namespace {

constexpr std::size_t octetCount = 4;

/// The texts between the dots; empty ones are left out.
std::vector<std::string_view> piecesOf(std::string_view text) {
  std::vector<std::string_view> pieces;
  while (!text.empty()) {
    const std::string_view piece = text.substr(0, text.find('.'));
    if (!piece.empty()) pieces.push_back(piece);
    text.remove_prefix(std::min(piece.size() + 1, text.size()));
  }
  return pieces;
}

}  // namespace

std::string NetInfo::network() const { return bitwise(std::bit_and<>(), ip, netmask); }

std::string NetInfo::broadcast() const {
  return bitwise(std::bit_or<>(), network(), bitwise(std::bit_not<>(), netmask));
}

int NetInfo::cidr() const {
  if (toInts(netmask).size() != octetCount) return 0;
  const std::string bits = binaryRepresentation(netmask);
  return static_cast<int>(std::min(bits.find('0'), bits.size()));
}

/// Empty when one of the pieces is no octet.
NetInfo::Octets NetInfo::toInts(const std::string& networkString) {
  Octets octets;
  for (const std::string_view piece : piecesOf(networkString)) {
    const auto octet = wholeNumber<std::uint8_t>(piece);
    if (!octet) return {};
    octets.push_back(*octet);
  }
  return octets;
}

template <class Operation>
std::string NetInfo::bitwise(Operation op, const std::string& net1, const std::string& net2) {
  const Octets first = toInts(net1);
  const Octets second = toInts(net2);
  if (first.size() != octetCount || second.size() != octetCount) return {};
  std::string result;
  for (std::size_t i = 0; i < octetCount; ++i) {
    if (i > 0) result += '.';
    result += std::to_string(static_cast<std::uint8_t>(op(first[i], second[i])));
  }
  return result;
}

template <class Operation>
std::string NetInfo::bitwise(Operation op, const std::string& net1) {
  return bitwise([op](std::uint8_t octet, std::uint8_t /*same*/) { return op(octet); }, net1, net1);
}

std::string NetInfo::binaryRepresentation(const std::string& s) {
  std::string bits;
  for (const std::string_view piece : piecesOf(s)) {
    if (const auto octet = wholeNumber<std::uint8_t>(piece)) bits += std::bitset<8>(*octet).to_string();
  }
  return bits;
}

}  // namespace vesko

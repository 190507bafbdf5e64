#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vesko {

/// An IPv4 address with its netmask, both in dotted-decimal form, and what follows from them. Any thread.
///
/// Requires: both are four decimal octets; otherwise the texts below are empty and the number is 0.
struct NetInfo {
  NetInfo(std::string address, std::string mask) : ip(std::move(address)), netmask(std::move(mask)) {}

  std::string ip;
  std::string netmask;

  /// The address of the network: `ip` AND `netmask`.
  [[nodiscard]] std::string network() const;

  /// The broadcast address of the network (RFC 919): `network` OR NOT `netmask`.
  [[nodiscard]] std::string broadcast() const;

  /// The prefix length (RFC 4632): how many one bits `netmask` begins with, 0 to 32.
  [[nodiscard]] int cidr() const;

 private:
  using Octets = std::vector<std::uint8_t>;

  [[nodiscard]] static Octets toInts(const std::string& networkString);
  template <class Operation>
  [[nodiscard]] static std::string bitwise(Operation op, const std::string& net1, const std::string& net2);
  template <class Operation>
  [[nodiscard]] static std::string bitwise(Operation op, const std::string& net1);
  [[nodiscard]] static std::string binaryRepresentation(const std::string& s);
};

}  // namespace vesko

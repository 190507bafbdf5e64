#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/network/NetworkInterfaces.h"

namespace vesko {

class InterfaceChanges;

/// The usable addresses of this machine's interfaces. They have to be known for every received datagram, and listing
/// them takes longer than everything else that a datagram costs, so they are listed again only after a change. Any
/// thread.
class OwnAddresses {
 public:
  OwnAddresses();
  ~OwnAddresses();
  OwnAddresses(const OwnAddresses&) = delete;
  OwnAddresses& operator=(const OwnAddresses&) = delete;

  /// All of them, in the system's order. Asks the system again.
  [[nodiscard]] std::vector<InterfaceAddress> list();

  /// True when `address` is one of them. Asks the system again only when it has told of a change, or cannot tell of
  /// changes.
  [[nodiscard]] bool has(const std::string& address);

 private:
  void ask();

  std::mutex mutex_;  // guards what follows; held while asking, so that an older list does not replace a newer one
  std::unique_ptr<InterfaceChanges> changes_;  // none when the system cannot tell of them
  std::vector<InterfaceAddress> known_;        // also empty when the system could not list them
};

}  // namespace vesko

#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/network/NetworkInterfaces.h"

namespace vesko {

class InterfaceChanges;

/// The usable addresses of this machine's interfaces, for who has to know them for every datagram: listing them takes
/// longer than all else that a datagram has done. Any thread.
class OwnAddresses {
 public:
  OwnAddresses();
  ~OwnAddresses();
  OwnAddresses(const OwnAddresses&) = delete;
  OwnAddresses& operator=(const OwnAddresses&) = delete;

  /// They, in the order of the system, which is asked anew.
  [[nodiscard]] std::vector<InterfaceAddress> list();

  /// True when `address`, dotted decimal, is one of them. Asks the system anew only where it has told of a change
  /// since, or does not tell of changes.
  [[nodiscard]] bool has(const std::string& address);

 private:
  void ask();

  std::mutex mutex_;  // guards what follows; held while asking, so that nothing older replaces what is newer
  std::unique_ptr<InterfaceChanges> changes_;  // none where the system does not tell of them
  std::vector<InterfaceAddress> known_;        // empty also when it could not list them
};

}  // namespace vesko

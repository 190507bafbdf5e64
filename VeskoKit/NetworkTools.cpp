#include "VeskoKit/NetworkTools.h"

#include "Platform/network/NetworkInterfaces.h"
#include "Platform/user/AccountPicture.h"
#include "Platform/user/Identity.h"

namespace vesko {

std::string NetworkTools::getSCComputerName() { return Identity::computerName(); }

std::optional<std::string> NetworkTools::getCBUserImage() { return AccountPicture().png(); }

std::vector<NetworkTools::InterfaceEntry> NetworkTools::getIFAddresses() {
  std::vector<InterfaceEntry> entries;
  for (auto& one : NetworkInterfaces::all()) {
    if (one.isUsable()) entries.push_back({std::move(one.name), std::move(one.address), std::move(one.netmask)});
  }
  return entries;
}

}  // namespace vesko

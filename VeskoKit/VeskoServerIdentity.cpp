#include <algorithm>

#include "Platform/Identity.h"
#include "VeskoKit/NetInfo.h"
#include "VeskoKit/NetworkTools.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {

std::string VeskoServer::getSystemSignature() {
  // Every program of the protocol ends its signature like this, whatever it runs on: it is no claim about the system.
  return Identity::fullUserName() + " at " + NetworkTools::getSCComputerName() + " [Vesko] (Macintosh)";
}

bool VeskoServer::isLocalPeer(const std::string& sender) {
  return std::ranges::any_of(NetworkTools::getIFAddresses(), [&](const auto& entry) { return entry[1] == sender; });
}

std::vector<std::string> VeskoServer::findBroadcastAddress() {
  std::vector<std::string> addresses;
  for (const auto& [name, address, netmask] : NetworkTools::getIFAddresses()) {
    addresses.push_back(NetInfo(address, netmask).broadcast());
  }
  return addresses;
}

}  // namespace vesko

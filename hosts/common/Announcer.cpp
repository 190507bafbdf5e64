#include "hosts/common/Announcer.h"

#include <algorithm>
#include <utility>

#include "Platform/DispatchQueue.h"
#include "Platform/InterfaceWatch.h"
#include "VeskoKit/NetworkTools.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {
namespace {

/// Which addresses this machine has, in an order of its own: the system's may change by itself.
std::vector<NetworkTools::InterfaceEntry> presentAddresses() {
  auto addresses = NetworkTools::getIFAddresses();
  std::ranges::sort(addresses);
  return addresses;
}

}  // namespace

Announcer::Announcer(std::shared_ptr<VeskoServer> server)
    : server_(std::move(server)), addresses_(presentAddresses()) {}

Announcer::~Announcer() = default;

void Announcer::announce() {
  const std::scoped_lock lock(mutex_);
  if (hasLeft_) return;
  hasAnnounced_ = true;
  server_->sayHello();
}

void Announcer::followInterfaces() {
  std::error_code unwatched;
  watch_ = InterfaceWatch::make(
      DispatchQueue::serial("interfaces"),
      [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->noteChange();
      },
      unwatched);
  // What changed before the watch began.
  noteChange();
}

void Announcer::noteChange() {
  {
    const std::scoped_lock lock(mutex_);
    if (addresses_ == std::exchange(addresses_, presentAddresses())) return;
  }
  announce();
}

void Announcer::leave() {
  const std::scoped_lock lock(mutex_);
  if (hasAnnounced_ && !hasLeft_) server_->sayGoodbye();
  hasLeft_ = true;
}

}  // namespace vesko

#include "hosts/common/session/Announcer.h"

#include <algorithm>
#include <utility>

#include "Platform/network/InterfaceWatch.h"
#include "Platform/queues/DispatchQueue.h"
#include "VeskoKit/NetworkTools.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {
namespace {

/// The addresses of this machine, sorted: the system may list the same ones in another order.
std::vector<NetworkTools::InterfaceEntry> presentAddresses() {
  auto addresses = NetworkTools::getIFAddresses();
  std::ranges::sort(addresses);
  return addresses;
}

}  // namespace

Announcer::Announcer(std::shared_ptr<VeskoServer> server, std::shared_ptr<Clock> clock)
    : server_(std::move(server)), clock_(std::move(clock)), addresses_(presentAddresses()) {}

Announcer::~Announcer() = default;

void Announcer::announce() {
  const std::scoped_lock lock(mutex_);
  if (left_) return;
  if (!std::exchange(hasAnnounced_, true)) asked_ = clock_->monotonicNow();
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
  // A change between the constructor and the start of the watch.
  noteChange();
}

void Announcer::noteChange() {
  {
    const std::scoped_lock lock(mutex_);
    // The system also reports changes that leave the addresses as they were, such as a link that goes
    // down and up again.
    if (addresses_ == std::exchange(addresses_, presentAddresses())) return;
    asked_ = clock_->monotonicNow();
  }
  announce();
}

std::chrono::duration<double> Announcer::heardFor() const {
  const std::scoped_lock lock(mutex_);
  return hasAnnounced_ ? clock_->monotonicNow() - asked_ : std::chrono::duration<double>();
}

void Announcer::leave() {
  const std::scoped_lock lock(mutex_);
  const auto before = std::exchange(left_, clock_->now());
  if (hasAnnounced_ && !before) return server_->sayGoodbye();
  for (const auto& [key, peer] : server_->peers()) {
    if (!before || peer->lastActiveTime() > *before) server_->sayGoodbye(peer->ip(), peer->port());
  }
}

}  // namespace vesko

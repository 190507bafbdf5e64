#pragma once

#include <map>
#include <memory>
#include <string>

#include "VeskoKit/VeskoServer.h"
#include "hosts/common/Events.h"

namespace vesko {

/// Makes the events of a session out of what the service reports of other machines, on the service's queue.
class PeerObserver final : public VeskoPeerDiscoveryDelegate {
 public:
  explicit PeerObserver(std::shared_ptr<EventSink> sink) : sink_(std::move(sink)) {}

  void peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override;
  void peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override;
  void peerDidDisappear(const std::string& key) override;

 private:
  /// What hosts show of `peer` by now.
  PeerView& refreshed(const std::string& key, const VeskoPeer& peer);

  const std::shared_ptr<EventSink> sink_;
  std::map<std::string, PeerView> known_;
};

}  // namespace vesko

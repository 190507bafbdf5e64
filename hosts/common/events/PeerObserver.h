#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "VeskoKit/VeskoServer.h"
#include "hosts/common/events/Events.h"

namespace vesko {

/// Turns the service's reports on other machines into events. Any thread: hellos are reported on the queue "broadcast",
/// pictures on the main queue.
class PeerObserver final : public VeskoPeerDiscoveryDelegate {
 public:
  explicit PeerObserver(std::shared_ptr<EventSink> sink) : sink_(std::move(sink)) {}

  void peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override;
  void peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override;
  void peerDidDisappear(const std::string& key) override;

 private:
  const std::shared_ptr<EventSink> sink_;
  std::mutex mutex_;  // also held while publishing, so that events keep the order of the reports
  std::map<std::string, PeerView> known_;
};

}  // namespace vesko

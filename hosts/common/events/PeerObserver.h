#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "VeskoKit/VeskoServer.h"
#include "hosts/common/events/Events.h"

namespace vesko {

/// Makes the events of a session out of what the service reports of other machines. Any thread: pictures are reported
/// on another one than hellos are.
class PeerObserver final : public VeskoPeerDiscoveryDelegate {
 public:
  explicit PeerObserver(std::shared_ptr<EventSink> sink) : sink_(std::move(sink)) {}

  void peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override;
  void peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override;
  void peerDidDisappear(const std::string& key) override;

 private:
  const std::shared_ptr<EventSink> sink_;
  std::mutex mutex_;  // held while publishing too, so that events come in the order of what they tell
  std::map<std::string, PeerView> known_;
};

}  // namespace vesko

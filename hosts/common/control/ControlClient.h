#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "hosts/common/control/ControlMessage.h"
#include "hosts/common/events/Events.h"

namespace vesko {

class LocalConnection;

/// Asks the host that runs on this machine for what it knows. Used on one thread.
class ControlClient {
 public:
  /// A host answers at once; one that does not within this time is taken for none.
  static constexpr std::chrono::seconds patience{2};

  /// Connects to the user's host on service port `port`. None when there is none.
  [[nodiscard]] static std::unique_ptr<ControlClient> connect(std::uint16_t port);

  /// The service ports of all hosts of the user's that answer, in ascending order.
  [[nodiscard]] static std::vector<std::uint16_t> runningPorts();

  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  /// The peers that the host knows, waited for; none when the host goes away or does not answer. All later peer events
  /// go to `sink`, from before the return on and on any thread, until this client is destroyed; `onEnd` is called when
  /// the host has gone after its answer. Neither may use this client. Once.
  [[nodiscard]] std::optional<ControlPeers> watch(std::shared_ptr<EventSink> sink, std::function<void()> onEnd);

  /// The picture of a machine as `VeskoPeer::avatar` has it, waited for; none when the host does not answer. Requires:
  /// `watch` returned peers.
  [[nodiscard]] std::optional<std::string> avatarOf(const std::string& key);

  /// Has the host say hello to all; the answers are seen by `watch`.
  void announce();

 private:
  struct Shared;
  explicit ControlClient(std::shared_ptr<LocalConnection> connection);

  std::shared_ptr<LocalConnection> connection_;
  std::shared_ptr<Shared> shared_;
};

}  // namespace vesko

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

/// The client side of the control channel: asks a host of the same user on this machine for the peers it knows. Used on
/// one thread.
///
///     if (auto client = ControlClient::connect(port)) {
///       if (const auto known = client->watch(sink, onEnd)) use(known->peers);   // the whole table, then events
///     }
class ControlClient {
 public:
  /// How long an answer may take. A host that does not answer in time is treated as absent.
  static constexpr std::chrono::seconds patience{2};

  /// Connects to the user's host on the service port `port`; none when no host listens there. Does not check that it
  /// answers: `watch` does.
  [[nodiscard]] static std::unique_ptr<ControlClient> connect(std::uint16_t port);

  /// The service ports of all hosts of the user that accept a connection, in ascending order.
  [[nodiscard]] static std::vector<std::uint16_t> runningPorts();

  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  /// Waits for the host's table of peers; none when the host does not answer in time or closes the connection. All
  /// later peer events go to `sink`, on any thread, possibly before this call returns, until this client is destroyed.
  /// `onEnd` is called when the connection ends after the answer. Neither may use this client. Call it once.
  [[nodiscard]] std::optional<ControlPeers> watch(std::shared_ptr<EventSink> sink, std::function<void()> onEnd);

  /// Waits for the picture of a machine, in the form of `VeskoPeer::avatar`; none when the host does not answer in
  /// time. Requires: `watch` has returned peers.
  [[nodiscard]] std::optional<std::string> avatarOf(const std::string& key);

  /// Makes the host broadcast a hello. Does not wait; the sink of `watch` gets the answers.
  void announce();

 private:
  struct Shared;
  explicit ControlClient(std::shared_ptr<LocalConnection> connection);

  std::shared_ptr<LocalConnection> connection_;
  std::shared_ptr<Shared> shared_;
};

}  // namespace vesko

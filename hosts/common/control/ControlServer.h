#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "hosts/common/events/EventHub.h"

namespace vesko {

class DispatchQueue;
class LocalConnection;
class LocalListener;

/// What a host does for those who ask. Called on a thread of the pool while the server lives; a call under way keeps
/// the server alive.
struct ControlActions {
  std::function<void()> announce;                               ///< says hello to all
  std::function<std::string(const std::string& key)> avatarOf;  ///< a machine's picture as `VeskoPeer::avatar` has it
  std::function<std::chrono::duration<double>()> heardFor;      ///< how long others have had for their answers
};

/// Answers the user's other programs for a host that runs: who is there, and what changes. Any thread.
class ControlServer : public std::enable_shared_from_this<ControlServer> {
 public:
  /// Programs served at once; more are turned away.
  static constexpr std::size_t maximumConnections = 64;

  ControlServer(std::shared_ptr<EventHub> hub, ControlActions actions);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Listens for the host on service port `port`. `error` says why it cannot: `std::errc::address_in_use` when another
  /// host of the user's listens there. Once.
  void listen(std::uint16_t port, std::error_code& error);

 private:
  class Client;

  // Both on the queue.
  void accept(std::shared_ptr<LocalConnection> connection);
  void remove(const Client& client);

  const std::shared_ptr<EventHub> hub_;
  const ControlActions actions_;
  const std::shared_ptr<DispatchQueue> queue_;
  std::unique_ptr<LocalListener> listener_;
  std::vector<std::shared_ptr<Client>> clients_;  // used on the queue
};

}  // namespace vesko

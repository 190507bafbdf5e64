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

/// What a host does on request. The functions are called on the server's queue; a running call keeps the server alive.
struct ControlActions {
  std::function<void()> announce;                               ///< broadcasts a hello
  std::function<std::string(const std::string& key)> avatarOf;  ///< picture of a machine, as `VeskoPeer::avatar`
  std::function<std::chrono::duration<double>()> heardFor;      ///< time that others have had to answer
};

/// The host side of the control channel: answers the user's other programs, so that `vesko send` and `vesko peers` need
/// not announce this machine a second time. Any thread.
///
/// `watch` first sends the whole peer table and then each change. The hub gives both under one lock, so a client that
/// applies the changes to the table always has the same peers as the host.
class ControlServer : public std::enable_shared_from_this<ControlServer> {
 public:
  /// Most connections at once. Further ones get an error line and are closed.
  static constexpr std::size_t maximumConnections = 64;

  ControlServer(std::shared_ptr<EventHub> hub, ControlActions actions);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Listens at `controlPath(port)`. Sets `error` when that fails: `std::errc::address_in_use` when another host of the
  /// user listens there, otherwise see `LocalListener::listen`. Call it once.
  void listen(std::uint16_t port, std::error_code& error);

 private:
  class Client;

  // Called on the queue.
  void accept(std::shared_ptr<LocalConnection> connection);
  void remove(const Client& client);

  const std::shared_ptr<EventHub> hub_;
  const ControlActions actions_;
  const std::shared_ptr<DispatchQueue> queue_;
  std::unique_ptr<LocalListener> listener_;
  std::vector<std::shared_ptr<Client>> clients_;  // used only on the queue
};

}  // namespace vesko

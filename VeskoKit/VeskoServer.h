#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include "VeskoKit/VeskoIncomingTransfer.h"
#include "VeskoKit/VeskoTransfer.h"

namespace vesko {

class Clock;
class DispatchQueue;
class GCDAsyncSocket;
class GCDAsyncSocketDelegate;
class NSApp;

/// An endpoint that could not be opened.
struct VeskoFailedEndpoint {
  std::string endpoint;   ///< "tcp"
  std::string message;    ///< what the user is shown
  std::error_code error;  ///< the system's reason
};

/// The service a host creates to take part: it accepts transfers and keeps those it starts.
///
/// Made with `std::make_shared`. Set it up, then call `startServer`; both on one thread. There is no stop: destroying
/// the service closes its listener, and the transfers it keeps end with it.
class VeskoServer : public std::enable_shared_from_this<VeskoServer> {
 public:
  static constexpr std::uint16_t defaultPort = 4644;

  VeskoServer();

  /// The same with a clock of the caller's for the service's queues.
  explicit VeskoServer(std::shared_ptr<Clock> clock);
  virtual ~VeskoServer();
  VeskoServer(const VeskoServer&) = delete;
  VeskoServer& operator=(const VeskoServer&) = delete;

  /// The port that transfers are accepted on; 0 lets the system choose. Set it before `startServer`.
  std::uint16_t localTcpPort = defaultPort;

  /// The well-known port of transfers, for hosts to compare with.
  std::uint16_t defaultTcpPort = defaultPort;

  /// Where incoming items go; empty: the current user's downloads folder. Set it before `startServer`.
  std::string downloadsFolder;

  /// Keep what had fully arrived when an incoming transfer fails. Set it before `startServer`.
  bool keepPartial = false;

  /// The program's user interface, for alerts; without one they go to standard error. Set it before `startServer`.
  std::shared_ptr<NSApp> application;

  /// The observers given to each new incoming transfer. Any thread; they count for connections accepted from now on.
  void setIncomingDelegate(std::shared_ptr<VeskoIncomingTransferDelegate> delegate);
  void setIncomingOutcomeDelegate(std::shared_ptr<VeskoTransferOutcomeDelegate> delegate);

  /// Sweeps the storage folders of dead transfers and opens the endpoints. One that cannot be opened is shown to the
  /// user and listed in `failedEndpoints`; the start goes on with the next.
  virtual void startServer();

  /// Starts a transfer and keeps it until it is pruned. Any thread.
  virtual void startTransfer(const std::shared_ptr<VeskoTransfer>& transfer);

  /// `length` random letters and digits. Requires: `length` at least 1.
  [[nodiscard]] std::string generateRandomStringWithLength(std::int64_t length) const;

  /// The endpoints that `startServer` could not open. On the starting thread, or any one after it.
  [[nodiscard]] const std::vector<VeskoFailedEndpoint>& failedEndpoints() const noexcept { return failedEndpoints_; }

  /// The port that the listener got; 0 while there is none.
  [[nodiscard]] std::uint16_t boundTcpPort() const;

  /// The transfers the service keeps, oldest first. Any thread.
  [[nodiscard]] std::vector<std::shared_ptr<VeskoTransfer>> pendingTransfers() const;
  [[nodiscard]] std::vector<std::shared_ptr<VeskoIncomingTransfer>> pendingIncomingTransfers() const;

  /// Lets go of the transfers that have ended. Any thread.
  void pruneFinishedTransfers();

  /// The serial queues "broadcast" (discovery) and "incoming" (everything received).
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& broadcastDispatchQueue() const noexcept {
    return broadcastQueue_;
  }
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& incomingDispatchQueue() const noexcept { return incomingQueue_; }

  /// A connection was accepted, on the "incoming" queue; not for hosts.
  void socketDidAcceptNewSocket(GCDAsyncSocket& listener, std::shared_ptr<GCDAsyncSocket> newSocket);

 private:
  class SocketEvents;

  void sweepStorage() const;
  void startListener();
  void showFailure(VeskoFailedEndpoint failure);

  const std::shared_ptr<DispatchQueue> broadcastQueue_;
  const std::shared_ptr<DispatchQueue> incomingQueue_;
  std::shared_ptr<SocketEvents> events_;
  std::shared_ptr<GCDAsyncSocket> listenSocket_;
  std::vector<VeskoFailedEndpoint> failedEndpoints_;

  mutable std::mutex mutex_;  // guards what follows: the starting thread and the "incoming" queue share it
  std::shared_ptr<VeskoIncomingTransferDelegate> incomingDelegate_;
  std::shared_ptr<VeskoTransferOutcomeDelegate> incomingOutcomeDelegate_;
  std::vector<std::shared_ptr<VeskoTransfer>> pendingTransfers_;
  std::vector<std::shared_ptr<VeskoIncomingTransfer>> pendingIncomingTransfers_;
};

}  // namespace vesko

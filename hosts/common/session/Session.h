#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Platform/queues/Clock.h"
#include "VeskoKit/VeskoItem.h"
#include "VeskoKit/VeskoServer.h"
#include "hosts/common/events/EventHub.h"
#include "hosts/common/events/Events.h"
#include "hosts/common/session/Admission.h"

namespace vesko {

class Announcer;
class ControlServer;
class PeerObserver;
class TransferObserver;

/// Settings of a session. They do not change once it has been made.
struct SessionSettings {
  static constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

  std::uint16_t port = VeskoServer::defaultPort;  ///< of discovery (UDP) and of transfers (TCP)
  std::string downloadsFolder;                    ///< for received items; empty: the user's downloads folder
  bool keepPartial = false;                       ///< keep the complete elements of a failed transfer
  std::uint64_t incomingLimit = unlimited;        ///< incoming transfers accepted; later ones are cancelled at once
  std::uint64_t maximumSize = unlimited;          ///< bytes that one incoming transfer may have
  AdmissionRules admission;                       ///< which senders are accepted
};

/// A transfer that is ready to be sent. Without items when everything was skipped.
struct PreparedTransfer {
  TransferId id = 0;
  std::string name;  ///< for people: the first item and the number of others
  VeskoItems items;
  bool looksLikeText = false;  ///< skipped a single file whose name the receiver would take for a text
};

/// One run of the library for a host: a service, the known machines, the transfers, and the events of all of them.
///
/// Used on one thread unless an operation says otherwise. Events reach the sink on the threads of the service's queues;
/// an `EventQueue` as sink brings them back to one thread. The sink must not call the session.
///
///     const auto events = std::make_shared<EventQueue>();
///     Session session(events, settings);
///     if (!session.startReceiving()) return;   // each endpoint that failed has been published
///     while (const auto event = events->next()) show(*event);
///     session.leave();                         // says goodbye; transfers continue
///     session.cancelAll();                     // cancels them; a FailedEvent for each follows
///
/// To send, neither start is needed when the address is known:
///
///     PreparedTransfer transfer = session.prepare(paths);
///     if (!transfer.items.empty()) session.send(std::move(transfer), peer);
class Session {
 public:
  /// Opens no endpoint yet. `clock`: the clock of the service and of the transfers. Throws `std::system_error` when the
  /// system has no thread or descriptor left.
  explicit Session(std::shared_ptr<EventSink> sink, SessionSettings settings = {},
                   std::shared_ptr<Clock> clock = Clock::system());

  /// Says goodbye and ends the service. Transfers that still run end without an event; nothing is published afterwards.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Opens all endpoints and accepts transfers. On success publishes a ReadyEvent, announces this machine, now and
  /// after each change of its addresses, and opens the control channel for the user's other programs.
  ///
  /// Returns false when an endpoint could not be opened, and publishes a StartupFailureEvent for each. Events of peers
  /// heard during the start follow those. Throws `std::system_error` when the system has no thread left.
  [[nodiscard]] bool startReceiving();

  /// Opens only the discovery endpoint and announces this machine, to find others. No transfer is accepted. Returns
  /// false when the endpoint could not be opened, and publishes a StartupFailureEvent.
  [[nodiscard]] bool startLooking();

  /// Broadcasts another hello. Requires: one of the two above has returned true.
  void announce();

  /// Says goodbye to the machines that know this one by this session. It is not announced again.
  void leave();

  /// A copy of the known machines and of the running and ended transfers. Any thread.
  [[nodiscard]] SessionState state() const { return hub_->state(); }

  /// The picture of a machine in the form of `VeskoPeer::avatar`; empty for an unknown machine. Any thread.
  [[nodiscard]] std::string avatarOf(const std::string& key) const;

  /// Why the control channel could not be opened; none when it is open. Receiving works without it.
  [[nodiscard]] const std::error_code& controlObstacle() const noexcept { return controlObstacle_; }

  /// Lists the files and folders below `paths`; blocks until that is done. Publishes a SkippedEvent for each path that
  /// cannot be sent.
  [[nodiscard]] PreparedTransfer prepare(const std::vector<std::string>& paths);

  /// Prepares a text. Requires: `reasonAgainstText` returns `none` for it.
  [[nodiscard]] PreparedTransfer prepareText(std::string text);

  /// Starts to send; needs no open endpoint. Connects to the address and port of `peer`; its signature only goes into
  /// the events. The transfer fails when it has no connection after 10 seconds, or when nothing more is acknowledged
  /// for 90 seconds. Requires: `transfer` has items.
  void send(PreparedTransfer transfer, const PeerView& peer);

  /// Answers a QuestionEvent. Does nothing when it has been answered already. Any thread.
  void answer(TransferId transfer, bool accepted);

  /// Why `text` cannot be sent: `invalidText` or `limit`; `none` when it can. Any thread.
  [[nodiscard]] static VeskoFailureReason reasonAgainstText(std::string_view text) noexcept;

  /// Cancels all transfers, and each one accepted from now on. Their FailedEvents follow on the queues of the
  /// transfers.
  void cancelAll();

 private:
  [[nodiscard]] std::vector<Event> startupFailures() const;

  const std::shared_ptr<EventHub> hub_;
  const SessionSettings settings_;
  const std::shared_ptr<VeskoServer> server_;
  const std::shared_ptr<PeerObserver> peerObserver_;
  const std::shared_ptr<TransferObserver> observer_;
  const std::shared_ptr<Admission> admission_;
  std::shared_ptr<Announcer> announcer_;
  std::shared_ptr<ControlServer> control_;
  std::error_code controlObstacle_;
};

}  // namespace vesko

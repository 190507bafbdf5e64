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

struct SessionSettings {
  static constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

  std::uint16_t port = VeskoServer::defaultPort;  ///< of discovery and of transfers
  std::string downloadsFolder;                    ///< where received items go; empty: the user's downloads folder
  bool keepPartial = false;                       ///< keep what had fully arrived of a failed transfer
  std::uint64_t incomingLimit = unlimited;        ///< transfers to let in; later ones are broken off at once
  std::uint64_t maximumSize = unlimited;          ///< bytes that one received transfer may have
  AdmissionRules admission;                       ///< whom to let in
};

/// What is going to be sent; no items when all of it had to be left out.
struct PreparedTransfer {
  TransferId id = 0;
  std::string name;  ///< for people
  VeskoItems items;
  bool looksLikeText = false;  ///< all that was left would arrive as a text, so it was left out too
};

/// What a host does with the library: one service, the machines it knows, the transfers it runs, and the events they
/// make. Used on one thread.
class Session {
 public:
  /// Opens nothing yet. `clock` is that of transfers and of the service.
  explicit Session(std::shared_ptr<EventSink> sink, SessionSettings settings = {},
                   std::shared_ptr<Clock> clock = Clock::system());

  /// Takes leave and ends the service. No event is published for transfers that are still running, nor after it.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Starts to accept transfers, and publishes that or each endpoint that could not be opened. False when there was
  /// one. Else the machine is announced, now and whenever its addresses change, and the user's other programs can ask
  /// this session for what it knows.
  [[nodiscard]] bool startReceiving();

  /// Announces this machine without accepting anything, to find out who else is there. False when the discovery
  /// endpoint could not be opened, which is published.
  [[nodiscard]] bool startLooking();

  /// Announces this machine once more. Requires: one of these two returned true.
  void announce();

  /// Takes leave of whoever may know this machine by this session; it is not announced again.
  void leave();

  /// The machines known and the transfers, running and ended. Any thread.
  [[nodiscard]] SessionState state() const { return hub_->state(); }

  /// The picture of a machine as `VeskoPeer::avatar` has it; empty for a machine that is not known. Any thread.
  [[nodiscard]] std::string avatarOf(const std::string& key) const;

  /// Why the user's other programs cannot ask this session; none when they can.
  [[nodiscard]] const std::error_code& controlObstacle() const noexcept { return controlObstacle_; }

  /// Lists what is at `paths`, and blocks meanwhile; publishes what has to be left out.
  [[nodiscard]] PreparedTransfer prepare(const std::vector<std::string>& paths);

  /// The same for a snippet. Requires: `reasonAgainstText` has none.
  [[nodiscard]] PreparedTransfer prepareText(std::string text);

  /// Starts to send, which needs no listener. Of `peer` the address and the port count; the events tell the signature.
  /// It fails when there is no connection within ten seconds, or nothing more is acknowledged for 90. Requires:
  /// `transfer` has items.
  void send(PreparedTransfer transfer, const PeerView& peer);

  /// Answers a `QuestionEvent`; without effect once it has been answered. Any thread.
  void answer(TransferId transfer, bool accepted);

  /// Why `text` cannot be sent: `invalidText` or `limit`; `none` when it can.
  [[nodiscard]] static VeskoFailureReason reasonAgainstText(std::string_view text) noexcept;

  /// Breaks off every transfer and lets none in any more. Their last events follow.
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

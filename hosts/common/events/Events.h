#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko {

// The events of a session: what happened to the service, the known machines and the transfers, as plain values. The
// order for one transfer:
//
//     SkippedEvent*          outgoing: paths that cannot be sent
//     TransferStartedEvent   this and all others are missing when no path can be sent
//     in between             ProgressEvent*; incoming: QuestionEvent and AnswerEvent, TextReceivedEvent or
//                            ItemsSavedEvent, SkippedEvent*
//     FinishedEvent or FailedEvent, exactly one, as the last

/// Identifies a transfer within one session; counted from 1.
using TransferId = std::uint64_t;

enum class TransferDirection : std::uint8_t { in, out };

/// All endpoints are open.
struct ReadyEvent {
  std::uint16_t udpPort = 0;
  std::uint16_t tcpPort = 0;
  std::uint16_t httpPort = 0;  ///< of pictures; 0: none
  std::string downloads;       ///< the folder for received items
};

/// An endpoint could not be opened.
struct StartupFailureEvent {
  std::string endpoint;  ///< as `VeskoFailedEndpoint` names it
  std::uint16_t port = 0;
  std::string message;  ///< the library's text for an alert
  std::string reason;   ///< the system's error text
};

/// Another machine as hosts show it.
struct PeerView {
  std::string key;                              ///< identifies it in the peer table
  std::string ip;                               ///< IPv4, dotted decimal
  std::uint16_t port = 0;                       ///< that transfers connect to
  std::string systemSignature;                  ///< UTF-8; may hold control characters
  std::string avatar;                           ///< "", "loading" or "png"
  std::chrono::system_clock::time_point since;  ///< time of the first hello; whole seconds

  friend bool operator==(const PeerView&, const PeerView&) = default;
};

/// First hello of a machine, or the first one after its goodbye.
struct PeerAppearedEvent {
  PeerView peer;
};

/// A further hello of a known machine, or its picture has arrived.
struct PeerUpdatedEvent {
  PeerView peer;
};

/// Goodbye of a machine.
struct PeerDisappearedEvent {
  PeerView peer;  ///< as it was last known
};

/// The first event of a transfer, except SkippedEvents of outgoing ones. Exactly one FinishedEvent or FailedEvent
/// follows as the last.
struct TransferStartedEvent {
  TransferId transfer = 0;
  TransferDirection direction = TransferDirection::in;
  std::string ip;          ///< of the other side
  std::string name;        ///< outgoing, for people: the first item and the number of others; empty for incoming
  std::uint16_t port = 0;  ///< of the other side; outgoing only
  std::string systemSignature = {};  ///< of the other side, as in `PeerView`; empty when not known
};

/// How far a transfer is: at most ten of these a second for each, and always the last one.
struct ProgressEvent {
  TransferId transfer = 0;
  std::uint64_t elementCount = 0;
  std::uint64_t finishedElements = 0;
  std::uint64_t totalSize = 0;  ///< bytes; for an incoming transfer as the sender announced
  std::uint64_t finishedBytes = 0;
  std::string name;  ///< of the current element; empty for a text and before the first header
};

/// A text has arrived. It is stored nowhere else.
struct TextReceivedEvent {
  TransferId transfer = 0;
  std::string text;  ///< UTF-8; may hold control characters
};

/// The received items are in their final place.
struct ItemsSavedEvent {
  TransferId transfer = 0;
  std::string path;  ///< of the item, or of the folder with several; "" when there was nothing to save
};

/// A transfer has succeeded, perhaps without some elements (`skipped`).
struct FinishedEvent {
  TransferId transfer = 0;
  std::uint64_t elements = 0;  ///< without the skipped ones
  std::uint64_t bytes = 0;
  double seconds = 0;         ///< since the start of the transfer
  std::uint64_t skipped = 0;  ///< elements the receiver could not store; not each has a SkippedEvent
};

/// A transfer has failed, was refused or was cancelled.
struct FailedEvent {
  TransferId transfer = 0;
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::string message;       ///< one sentence; escape control characters before printing
  std::string element;       ///< the current element; empty when there was none
  bool wasConnected = true;  ///< false: an outgoing transfer never reached the other side
  std::string keptPath;      ///< the folder with the complete elements, if they were kept; else empty
};

/// An element was skipped; the transfer continues with the others.
struct SkippedEvent {
  TransferId transfer = 0;
  TransferDirection direction = TransferDirection::in;
  std::string name;  ///< incoming: name of the element; outgoing: path on this machine
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::string message;  ///< names the element and the cause; escape control characters before printing
};

/// A connection was rejected because its address is not allowed. Once for each address.
struct RefusedEvent {
  std::string ip;
};

/// The user must accept or refuse a transfer, which waits for the answer. Other transfers continue.
struct QuestionEvent {
  TransferId transfer = 0;
  std::string ip;
  std::uint64_t elementCount = 0;
  std::uint64_t totalSize = 0;  ///< bytes that the sender announced; after a yes it may not send more
  std::string name;             ///< of the first element; empty for a text
};

/// A question has been answered by the user, or with no after 60 seconds.
struct AnswerEvent {
  TransferId transfer = 0;
  bool isAccepted = false;
};

using Event = std::variant<ReadyEvent, StartupFailureEvent, PeerAppearedEvent, PeerUpdatedEvent, PeerDisappearedEvent,
                           TransferStartedEvent, ProgressEvent, TextReceivedEvent, ItemsSavedEvent, FinishedEvent,
                           FailedEvent, SkippedEvent, RefusedEvent, QuestionEvent, AnswerEvent>;

/// The transfer an event belongs to; none for events of peers and of the service.
[[nodiscard]] inline std::optional<TransferId> transferOf(const Event& event) noexcept {
  return std::visit(
      [](const auto& any) -> std::optional<TransferId> {
        if constexpr (requires { any.transfer; }) {
          return any.transfer;
        } else {
          return std::nullopt;
        }
      },
      event);
}

/// Receives the events of a session.
class EventSink {
 public:
  virtual ~EventSink() = default;

  /// Called on any thread; for the events of one transfer in order and one at a time. The transfer waits until it
  /// returns, so it must not block. It must not call the session.
  virtual void publish(Event event) = 0;

  /// True while too many events wait to be processed; the session then rejects new connections. Any thread.
  [[nodiscard]] virtual bool isOverwhelmed() const { return false; }
};

/// Combines several functions into one visitor for `std::visit`.
template <class... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

}  // namespace vesko

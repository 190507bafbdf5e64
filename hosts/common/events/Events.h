#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko {

/// Numbers the transfers of one session, from 1 on.
using TransferId = std::uint64_t;

enum class TransferDirection : std::uint8_t { in, out };

/// The service listens.
struct ReadyEvent {
  std::uint16_t udpPort = 0;
  std::uint16_t tcpPort = 0;
  std::uint16_t httpPort = 0;  ///< of pictures; 0: there is none
  std::string downloads;       ///< where received items go
};

/// An endpoint could not be opened.
struct StartupFailureEvent {
  std::string endpoint;  ///< as `VeskoFailedEndpoint` names it
  std::uint16_t port = 0;
  std::string message;  ///< what the library would have the user told
  std::string reason;   ///< the system's
};

/// What hosts show of another machine.
struct PeerView {
  std::string key;                              ///< in the peer table
  std::string ip;                               ///< IPv4, dotted decimal
  std::uint16_t port = 0;                       ///< where transfers connect to
  std::string systemSignature;                  ///< UTF-8; may hold control characters
  std::string avatar;                           ///< "", "loading" or "png"
  std::chrono::system_clock::time_point since;  ///< when it was first heard; whole seconds

  friend bool operator==(const PeerView&, const PeerView&) = default;
};

/// Another machine has been heard for the first time, or for the first time since it took its leave.
struct PeerAppearedEvent {
  PeerView peer;
};

/// A machine that is known has been heard again, or its picture has arrived.
struct PeerUpdatedEvent {
  PeerView peer;
};

/// A machine has taken its leave.
struct PeerDisappearedEvent {
  PeerView peer;  ///< what was known of it last
};

/// The first event of a transfer, but for what is left out of it beforehand. Exactly one `FinishedEvent` or
/// `FailedEvent` follows, as its last.
struct TransferStartedEvent {
  TransferId transfer = 0;
  TransferDirection direction = TransferDirection::in;
  std::string ip;          ///< the other side's
  std::string name;        ///< what is sent, for people: the first item's, and how many more; empty for what comes in
  std::uint16_t port = 0;  ///< what is sent goes to this one
  std::string systemSignature = {};  ///< the other side's, as in `PeerView`; empty where it is not known
};

struct ProgressEvent {
  TransferId transfer = 0;
  std::uint64_t elementCount = 0;
  std::uint64_t finishedElements = 0;
  std::uint64_t totalSize = 0;  ///< bytes; of an incoming transfer only what the sender claims
  std::uint64_t finishedBytes = 0;
  std::string name;  ///< the element under way; empty for a text, and while nothing is known of it
};

struct TextReceivedEvent {
  TransferId transfer = 0;
  std::string text;  ///< UTF-8; may hold control characters
};

struct ItemsSavedEvent {
  TransferId transfer = 0;
  std::string path;  ///< the final one; "" when there was nothing to save
};

struct FinishedEvent {
  TransferId transfer = 0;
  std::uint64_t elements = 0;  ///< those left out not counted
  std::uint64_t bytes = 0;
  double seconds = 0;         ///< from the start of the transfer on
  std::uint64_t skipped = 0;  ///< elements left out; not all of them need to have been named
};

struct FailedEvent {
  TransferId transfer = 0;
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::string message;       ///< one sentence; control characters are not escaped
  std::string element;       ///< the element under way; empty where there was none
  bool wasConnected = true;  ///< false: an outgoing transfer never reached the other side
  std::string keptPath;      ///< where what had fully arrived was kept; empty: nowhere
};

/// Something was left out of a transfer that may well go on.
struct SkippedEvent {
  TransferId transfer = 0;
  TransferDirection direction = TransferDirection::in;
  std::string name;  ///< in: the element's name; out: the path on this machine
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::string message;  ///< one sentence that names it and the cause; control characters are not escaped
};

/// A connection was refused since its address is not among those allowed. Once for each address.
struct RefusedEvent {
  std::string ip;
};

/// The user is to say whether a transfer may go on; it waits, and others do not.
struct QuestionEvent {
  TransferId transfer = 0;
  std::string ip;
  std::uint64_t elementCount = 0;
  std::uint64_t totalSize = 0;  ///< bytes that the sender claims, and that it will be held to
  std::string name;             ///< the first element; empty for a text
};

/// A question has been settled: by the user or, with no, by time.
struct AnswerEvent {
  TransferId transfer = 0;
  bool isAccepted = false;
};

using Event = std::variant<ReadyEvent, StartupFailureEvent, PeerAppearedEvent, PeerUpdatedEvent, PeerDisappearedEvent,
                           TransferStartedEvent, ProgressEvent, TextReceivedEvent, ItemsSavedEvent, FinishedEvent,
                           FailedEvent, SkippedEvent, RefusedEvent, QuestionEvent, AnswerEvent>;

/// The transfer an event belongs to; none for those of the service.
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

/// Takes the events of a session.
class EventSink {
 public:
  virtual ~EventSink() = default;

  /// Called on any thread, for the events of one transfer in order and one at a time. Transfers wait for it: what takes
  /// long belongs elsewhere. It must not call the session.
  virtual void publish(Event event) = 0;

  /// True while so much waits to be told that nobody is to be let in. Any thread.
  [[nodiscard]] virtual bool isOverwhelmed() const { return false; }
};

/// Calls the one of several functions that takes what a variant holds.
template <class... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

}  // namespace vesko

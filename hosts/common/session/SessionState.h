#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <variant>

#include "hosts/common/events/Events.h"

namespace vesko {

/// One transfer as hosts show it, while it runs and afterwards.
struct TransferView {
  TransferId id = 0;
  TransferDirection direction = TransferDirection::in;
  std::string ip;               ///< of the other side
  std::uint16_t port = 0;       ///< of the other side; outgoing transfers only
  std::string systemSignature;  ///< of the other side; empty when it is not known
  std::string name;             ///< of what is sent, for people; empty for incoming transfers
  std::optional<ProgressEvent> progress;
  bool isText = false;  ///< a text was received; it is only in its TextReceivedEvent
  std::string path;     ///< of the received items
  std::variant<std::monostate, FinishedEvent, FailedEvent> end;  ///< monostate while it runs

  [[nodiscard]] bool hasEnded() const noexcept { return end.index() != 0; }
};

/// The state that follows from the events of a session: the known machines and the transfers. A plain value without
/// locks; use it on one thread.
class SessionState {
 public:
  /// How many ended transfers are kept. Older ones are dropped, so that a session of months has bounded memory.
  static constexpr std::size_t endedTransfersKept = 200;

  /// Applies the next event. Events of unknown and of ended transfers change nothing.
  void apply(const Event& event);

  /// The known machines, by key.
  [[nodiscard]] const std::map<std::string, PeerView>& peers() const noexcept { return peers_; }

  /// By id. Ids are assigned in ascending order: an outgoing transfer gets its id when it is prepared.
  [[nodiscard]] const std::map<TransferId, TransferView>& transfers() const noexcept { return transfers_; }

 private:
  void begin(const TransferStartedEvent& event);
  [[nodiscard]] TransferView* running(TransferId id);
  template <class End>
  void noteEnd(const End& event);
  void forgetOldEnds();

  std::map<std::string, PeerView> peers_;
  std::map<TransferId, TransferView> transfers_;
  std::deque<TransferId> ended_;  // in the order of their ends, which may differ from that of the ids
};

}  // namespace vesko

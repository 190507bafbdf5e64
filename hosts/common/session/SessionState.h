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

/// What hosts show of a transfer, while it runs and afterwards.
struct TransferView {
  TransferId id = 0;
  TransferDirection direction = TransferDirection::in;
  std::string ip;               ///< the other side's
  std::uint16_t port = 0;       ///< where what is sent goes to
  std::string systemSignature;  ///< the other side's; empty where it is not known
  std::string name;             ///< what is sent; empty for what comes in
  std::optional<ProgressEvent> progress;
  bool isText = false;                                           ///< a text was received; its event holds it
  std::string path;                                              ///< where received items are
  std::variant<std::monostate, FinishedEvent, FailedEvent> end;  ///< none while it runs

  [[nodiscard]] bool hasEnded() const noexcept { return end.index() != 0; }
};

/// What a session's events add up to: the machines that are there, and the transfers. A value; no locks.
class SessionState {
 public:
  /// Transfers that are remembered after their end, the last to end: enough to look back on, too few to fill memory.
  static constexpr std::size_t endedTransfersKept = 200;

  /// Takes one event after the other; those of transfers that it does not know, or that have ended, change nothing.
  void apply(const Event& event);

  /// By key.
  [[nodiscard]] const std::map<std::string, PeerView>& peers() const noexcept { return peers_; }

  /// By id, which is the order of their starts.
  [[nodiscard]] const std::map<TransferId, TransferView>& transfers() const noexcept { return transfers_; }

 private:
  void begin(const TransferStartedEvent& event);
  [[nodiscard]] TransferView* running(TransferId id);
  template <class End>
  void noteEnd(const End& event);
  void forgetOldEnds();

  std::map<std::string, PeerView> peers_;
  std::map<TransferId, TransferView> transfers_;
  std::deque<TransferId> ended_;  // the order of the ends; a long transfer's may come after that of many younger ones
};

}  // namespace vesko

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Platform/queues/Clock.h"
#include "VeskoKit/VeskoIncomingTransfer.h"
#include "hosts/common/events/Events.h"
#include "hosts/common/session/IPv4Range.h"

namespace vesko {

class DispatchQueue;

/// Whom a session lets in, and whether it asks.
struct AdmissionRules {
  std::vector<IPv4Range> allowed;  ///< addresses and networks; none: everybody
  bool asks = false;               ///< about each transfer, before anything of it is stored
};

/// Keeps to the rules of a session, and makes its questions. Used on the queue of the incoming transfers, but for
/// `answer`.
class Admission final : public VeskoIncomingTransferGuard, public std::enable_shared_from_this<Admission> {
 public:
  /// A person has this long to answer; then the answer is no. A sender that cannot go on waits about as long.
  static constexpr std::chrono::seconds timeToAnswer{60};

  /// Questions open at once; beyond, the answer is no, so that nobody buries the one that matters.
  static constexpr std::size_t maximumQuestions = 16;

  /// Strangers that the user is told of, each once.
  static constexpr std::size_t maximumStrangers = 1'000;

  /// Tells which transfer of the session an incoming one is.
  using Identify = std::function<TransferId(const VeskoIncomingTransfer&)>;

  Admission(AdmissionRules rules, std::shared_ptr<EventSink> sink, Identify identify,
            std::shared_ptr<DispatchQueue> queue);

  /// The user's answer. Without effect where the question is no longer open. Any thread.
  void answer(TransferId id, bool accepted);

  [[nodiscard]] bool admitsConnectionFrom(const std::string& address) override;
  void incomingTransferAwaitsDecision(VeskoIncomingTransfer& transfer) override;

 private:
  struct Question {
    std::weak_ptr<VeskoIncomingTransfer> transfer;
    std::uint64_t announcedSize = 0;
    std::unique_ptr<Alarm> expiry;
  };

  void settle(TransferId id, bool accepted);

  const AdmissionRules rules_;
  const std::shared_ptr<EventSink> sink_;
  const Identify identify_;
  const std::shared_ptr<DispatchQueue> queue_;
  std::map<TransferId, Question> questions_;
  std::set<std::string> strangers_;
};

}  // namespace vesko

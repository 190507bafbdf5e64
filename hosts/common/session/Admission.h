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

/// Which senders a session accepts, and whether the user is asked about each transfer.
struct AdmissionRules {
  std::vector<IPv4Range> allowed;  ///< addresses and networks; empty: every sender
  bool asks = false;               ///< ask about each transfer before anything of it is stored
};

/// Applies the admission rules of a session: rejects connections and asks the user about transfers. Used on the queue
/// of the incoming transfers, except `answer`.
///
/// A transfer that waits for an answer issues no read. Its sender fills the socket buffers and then waits in TCP; other
/// transfers continue. The order of the calls for one transfer:
///
///     admitsConnectionFrom(address)             true: the library makes the transfer
///     incomingTransferAwaitsDecision(transfer)  publishes a QuestionEvent with the id of the transfer
///     answer(id, accepted)                      from any thread; publishes an AnswerEvent, then the transfer goes on
///     or
///                                               ends
class Admission final : public VeskoIncomingTransferGuard, public std::enable_shared_from_this<Admission> {
 public:
  /// Time to answer a question; after that the answer is no. It is shorter than the 90 seconds after which our own
  /// sender gives up.
  static constexpr std::chrono::seconds timeToAnswer{60};

  /// Most open questions. Further transfers are refused without a question, so that a flood of them cannot hide the
  /// one the user waits for.
  static constexpr std::size_t maximumQuestions = 16;

  /// Most rejected addresses that are remembered. Each is reported once; further ones are rejected without a report.
  static constexpr std::size_t maximumStrangers = 1'000;

  /// Returns the session's id of an incoming transfer.
  using Identify = std::function<TransferId(const VeskoIncomingTransfer&)>;

  Admission(AdmissionRules rules, std::shared_ptr<EventSink> sink, Identify identify,
            std::shared_ptr<DispatchQueue> queue);

  /// Passes on the user's answer. Does nothing when the question is no longer open. Any thread.
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
  std::set<std::string> strangers_;  // rejected addresses that were reported
};

}  // namespace vesko

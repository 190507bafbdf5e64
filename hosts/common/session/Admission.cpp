#include "hosts/common/session/Admission.h"

#include <algorithm>
#include <utility>

#include "Platform/network/IPv4Address.h"
#include "Platform/queues/DispatchQueue.h"

namespace vesko {

Admission::Admission(AdmissionRules rules, std::shared_ptr<EventSink> sink, Identify identify,
                     std::shared_ptr<DispatchQueue> queue)
    : rules_(std::move(rules)), sink_(std::move(sink)), identify_(std::move(identify)), queue_(std::move(queue)) {}

bool Admission::admitsConnectionFrom(const std::string& address) {
  // No event for this either: a queue full of events is the reason for the rejection.
  if (sink_->isOverwhelmed()) return false;
  const auto number = parseIPv4(address);
  const auto includes = [&](const IPv4Range& range) { return number && range.contains(*number); };
  if (rules_.allowed.empty() || std::ranges::any_of(rules_.allowed, includes)) return true;
  if (strangers_.size() < maximumStrangers && strangers_.insert(address).second) sink_->publish(RefusedEvent{address});
  return false;
}

void Admission::incomingTransferAwaitsDecision(VeskoIncomingTransfer& transfer) {
  if (!rules_.asks) return transfer.proceed();
  // The transfer issues no read until `proceed` or `refuse` is called. That alone makes it wait: no thread is blocked
  // and no timer of the transfer runs.
  if (questions_.size() == maximumQuestions) return transfer.refuse();
  const TransferId id = identify_(transfer);
  // The alarm comes on a thread of the clock, so it goes through `answer`, like the user's answer.
  auto expiry = queue_->clock()->callAfter(timeToAnswer, [weak = weak_from_this(), id] {
    if (const auto self = weak.lock()) self->answer(id, false);
  });
  questions_.emplace(id, Question{transfer.weak_from_this(), transfer.totalSize, std::move(expiry)});
  const bool isText = transfer.currentPath().empty();
  sink_->publish(QuestionEvent{id, transfer.remoteAddress(), transfer.elementCount, transfer.totalSize,
                               isText ? std::string() : transfer.currentName()});
}

void Admission::answer(TransferId id, bool accepted) {
  queue_->async([weak = weak_from_this(), id, accepted] {
    if (const auto self = weak.lock()) self->settle(id, accepted);
  });
}

void Admission::settle(TransferId id, bool accepted) {
  // The user and the alarm may both answer. The first one takes the question out, the second finds none.
  const auto question = questions_.extract(id);
  if (question.empty()) return;
  const auto transfer = question.mapped().transfer.lock();
  if (!transfer || transfer->hasEnded()) return;
  sink_->publish(AnswerEvent{id, accepted});
  if (accepted) {
    // The user agreed to the announced size, so the transfer may not bring more.
    transfer->proceed(question.mapped().announcedSize);
  } else {
    transfer->refuse();
  }
}

}  // namespace vesko
